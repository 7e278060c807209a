#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

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

bool Holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// The shared library beside the test's own copy of the code, loaded and unloaded at run time.
TEST(ModuleEntry, AttachesAtLoadAndDetachesAtUnload) {
  TempFolder folder;
  const std::string log = folder.Path("log");
  EXPECT_TRUE(CountBecomes(1));
  setenv("QVX_DEBUG_OUTPUT", log.c_str(), 1);
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

  const std::string lines = ReadWhole(log);
  std::string file = std::filesystem::canonical(QVX_SHARED_LIBRARY).string();
  for (char& each : file) each = each == '/' ? '\\' : each;
  const std::size_t attach = lines.find("[I]=> DLL_PROCESS_ATTACH: file=C:" + file + "\r\n");
  const std::size_t detach = lines.find("[I]=> DLL_PROCESS_DETACH: file=C:" + file + "\r\n");
  ASSERT_NE(std::string::npos, attach) << lines;
  ASSERT_NE(std::string::npos, detach) << lines;
  EXPECT_LT(attach, detach);
  EXPECT_TRUE(Holds(lines, "name=DelayMsg"));
}

TEST(ModuleEntry, ServesALinkedProgramFromBeforeMainToItsEnd) {
  FILE* pipe = popen("QVX_DEBUG_OUTPUT=stderr " QVX_LINKED_PROGRAM " 2>&1", "r");
  ASSERT_NE(nullptr, pipe);
  std::string lines;
  for (int each = fgetc(pipe); each != EOF; each = fgetc(pipe)) {
    lines.push_back(static_cast<char>(each));
  }
  EXPECT_EQ(0, pclose(pipe)) << lines;
  const std::size_t attach = lines.find("DLL_PROCESS_ATTACH: file=C:\\");
  const std::size_t detach = lines.rfind("DLL_PROCESS_DETACH: file=C:\\");
  ASSERT_NE(std::string::npos, attach) << lines;
  ASSERT_NE(std::string::npos, detach) << lines;
  EXPECT_LT(attach, lines.find("thread create success"));
  EXPECT_GT(detach, lines.rfind("thread exit over, name=DelayMsg"));
}

}  // namespace
}  // namespace qvx::test
