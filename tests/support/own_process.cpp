#include "support/own_process.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

namespace qvx::test {

int RunWithLibraries(const std::string& folder, const std::string& test, const std::string& more) {
  std::vector<std::string> environment{"LD_LIBRARY_PATH=" + folder, more};
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (std::string(*entry).rfind("LD_LIBRARY_PATH=", 0) != 0) environment.push_back(*entry);
  }
  std::vector<char*> native;
  for (std::string& entry : environment) native.push_back(entry.data());
  native.push_back(nullptr);
  std::string filter = "--gtest_filter=" + test;
  std::string disabled = "--gtest_also_run_disabled_tests";
  std::string brief = "--gtest_brief=1";
  std::string program = "/proc/self/exe";
  char* arguments[] = {program.data(), filter.data(), disabled.data(), brief.data(), nullptr};
  pid_t child = 0;
  if (posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments, native.data()) != 0) {
    return -1;
  }
  int status = -1;
  return waitpid(child, &status, 0) == child ? status : -1;
}

}  // namespace qvx::test
