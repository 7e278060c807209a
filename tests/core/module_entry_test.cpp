#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "qvx/debug_output.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

int CountEngineThreads() {
  int count = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream stream(task.path() / "comm");
    std::string name;
    if (std::getline(stream, name) && name == "DelayMsg") ++count;
  }
  return count;
}

// A thread takes its name when it first runs, and the system lists it until it is quite gone.
bool CountBecomes(int expected) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (CountEngineThreads() != expected) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

// The log tells of the library's begin and, behind it, of its end, with both texts between them.
void ExpectLifeAround(const std::string& log, const std::string& first, const std::string& last,
                      const std::string& file) {
  const std::size_t attach = log.find("[I]=> DLL_PROCESS_ATTACH: file=C:" + file);
  const std::size_t detach = log.rfind("[I]=> DLL_PROCESS_DETACH: file=C:" + file);
  ASSERT_NE(std::string::npos, attach) << log;
  ASSERT_NE(std::string::npos, detach) << log;
  EXPECT_LT(attach, log.find(first));
  EXPECT_NE(std::string::npos, log.rfind(last)) << log;
  EXPECT_GT(detach, log.rfind(last));
}

// The shared library beside the test's own copy of the code, loaded and unloaded at run time.
TEST(ModuleEntry, AttachesAtLoadAndDetachesAtUnload) {
  TempFolder folder;
  EXPECT_TRUE(CountBecomes(1));
  setenv("QVX_DEBUG_OUTPUT", folder.Path("log").c_str(), 1);
  for (int round = 1; round <= 3; ++round) {
    void* library = dlopen(QVX_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, library) << dlerror();
    EXPECT_TRUE(CountBecomes(2));
    EXPECT_NE(nullptr, dlsym(library, "gDelayPostMsgEngine"));
    EXPECT_EQ(0, dlclose(library));
    EXPECT_TRUE(CountBecomes(1));
    EXPECT_EQ(nullptr, dlopen(QVX_SHARED_LIBRARY, RTLD_NOW | RTLD_NOLOAD));
  }
  unsetenv("QVX_DEBUG_OUTPUT");
  std::string file = std::filesystem::canonical(QVX_SHARED_LIBRARY).string();
  std::replace(file.begin(), file.end(), '/', '\\');
  ExpectLifeAround(ReadWhole(folder.Path("log")), "name=DelayMsg", "name=DelayMsg", file + "\r\n");
}

TEST(ModuleEntry, ServesALinkedProgramFromBeforeMainToItsEnd) {
  TempFolder folder;
  const std::string log = folder.Path("log");
  EXPECT_EQ(0, std::system(("QVX_DEBUG_OUTPUT=stderr " QVX_LINKED_PROGRAM " 2>" + log).c_str()));
  ExpectLifeAround(ReadWhole(log), "thread create success", "thread exit over, name=DelayMsg",
                   "\\");
}

}  // namespace
}  // namespace qvx::test
