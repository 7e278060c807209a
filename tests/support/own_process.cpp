#include "support/own_process.h"

#include <cstdlib>
#include <filesystem>

namespace qvx::test {

int RunWithLibraries(const std::string& folder, const std::string& test, const std::string& more) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe");
  return std::system(("LD_LIBRARY_PATH='" + folder + "' " + more + " '" + program +
                      "' --gtest_brief=1 --gtest_also_run_disabled_tests --gtest_filter=" + test)
                         .c_str());
}

}  // namespace qvx::test
