// A watchdog: when a worker does not report for a while, the stacks of all threads are written
// to a file, so that one can see where it hangs. The program goes on.
#include <qvx/base_thread.h>
#include <qvx/platform.h>
#include <qvx/stack_walker.h>
#include <qvx/sync.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

// Works in steps and reports each. Its third step hangs until somebody helps it on.
class Worker : public IThreadFuncInterface {
 public:
  int ThreadLoop(std::uint64_t) override {
    if (++mSteps == 3) WaitForAnInstrumentThatIsSwitchedOff();
    mAlive.Set();
    return mSteps < 5 ? 1 : 0;
  }

  // True if a step was reported in time.
  bool WaitForStep(std::uint64_t milliseconds) { return mAlive.Wait(milliseconds) != 0; }
  void SwitchInstrumentOn() { mInstrument.Set(); }

 private:
  [[gnu::noinline]] void WaitForAnInstrumentThatIsSwitchedOff() { mInstrument.Wait(60000); }

  int mSteps = 0;
  CBaseEvent mAlive{nullptr, 0};
  CBaseEvent mInstrument{nullptr, 0};
};

std::string ReadAll(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

int main() {
  const std::string path =
      (std::filesystem::temp_directory_path() / ("stacks." + std::to_string(MS_GetTime())))
          .string();
  CBaseStringW library_path;
  NativePathToLibraryW(path.c_str(), &library_path);

  Worker worker;
  CBaseThread thread;
  thread.StartThread("worker", &worker, 0, 0, 0, 0);
  while (worker.WaitForStep(300)) {
  }
  std::puts("the worker is silent; these are the stacks:");
  DumpAllThreadsStack(library_path.GetString());
  const std::string stacks = ReadAll(path);
  std::fputs(stacks.c_str(), stdout);
  std::filesystem::remove(path);

  worker.SwitchInstrumentOn();
  const bool goes_on = worker.WaitForStep(60000);
  thread.StopThread();
  const bool seen = stacks.find("ShowCallstack: thread id=") != std::string::npos;
  return goes_on && seen ? 0 : 1;
}
