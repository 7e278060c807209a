#include "qvx/stack_walker.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "diagnostics/symbol_path.h"
#include "diagnostics/traced.h"
#include "diagnostics/undecorate.h"
#include "platform/clock.h"
#include "platform/path.h"
#include "qvx/base_thread.h"
#include "qvx/platform.h"
#include "support/debug_lines.h"
#include "support/own_process.h"
#include "support/temp_folder.h"

extern char** environ;

namespace qvx::test {
namespace {

unsigned long OwnId() {
  return platform::CurrentThreadId();
}

bool Holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// Keeps all that a walk tells.
class Recorder : public StackWalker {
 public:
  using StackWalker::myReadProcMem;
  using StackWalker::StackWalker;

  void OnCallstackEntry(CallstackEntryType type, CallstackEntry& entry) override {
    types.push_back(type);
    entries.push_back(entry);
    StackWalker::OnCallstackEntry(type, entry);
  }
  void OnDbgHelpErr(const char* function, unsigned long, std::uint64_t) override {
    errors.emplace_back(function);
  }
  void OnOutput(const char* text) override { output += text; }

  // The frame of a function, counted from the innermost; -1 if there is none.
  int Find(const std::string& part) const {
    const auto at = std::find_if(entries.begin(), entries.end(), [&](const CallstackEntry& entry) {
      return Holds(entry.undFullName, part);
    });
    return at == entries.end() ? -1 : static_cast<int>(at - entries.begin());
  }
  const CallstackEntry& At(int index) const { return entries[static_cast<std::size_t>(index)]; }
  int Walk(unsigned long id) { return ShowCallstack(id, nullptr, nullptr, nullptr); }
  void Forget() {
    types.clear();
    entries.clear();
    errors.clear();
    output.clear();
  }

  std::vector<CallstackEntryType> types;
  std::vector<CallstackEntry> entries;
  std::vector<std::string> errors;
  std::string output;
};

void ExpectTracedChain(const Recorder& walker) {
  const int inner = walker.Find("traced_inner");
  const int middle = walker.Find("Middle<int>::Call");
  const int outer = walker.Find("traced_test::Outer(");
  ASSERT_GE(inner, 0) << walker.output;
  EXPECT_EQ(middle, inner + 1) << walker.output;
  EXPECT_EQ(outer, inner + 2) << walker.output;
}

TEST(StackWalker, ShowsTheOwnStackFromTheInnermostFrameOn) {
  Recorder walker;
  CallTraced([&] { ASSERT_EQ(walker.Walk(OwnId()), 1); });
  ExpectTracedChain(walker);
  EXPECT_TRUE(Holds(walker.entries[0].name, "ShowCallstack"));

  const auto& outer = walker.At(walker.Find("traced_test::Outer("));
  EXPECT_STREQ(outer.undName, "traced_test::Outer");
  EXPECT_EQ(std::string(outer.name).substr(0, 2), "_Z");
  EXPECT_EQ(outer.lineNumber, static_cast<unsigned>(TracedLine()));
  EXPECT_TRUE(Holds(outer.lineFileName, "traced.cpp"));
  EXPECT_STREQ(outer.moduleName, "diagnostics_test");
  EXPECT_STREQ(outer.symTypeString, "DIA");
  EXPECT_EQ(std::string(outer.loadedImageName).substr(0, 3), "C:\\");
  EXPECT_GT(outer.offset, outer.baseOfImage);
  EXPECT_GT(outer.offsetFromSymbol, 0u);

  // One first, one last entry, which repeats the outermost frame and makes no line.
  ASSERT_GE(walker.types.size(), 5u);
  EXPECT_EQ(walker.types.front(), StackWalker::FirstEntry);
  EXPECT_EQ(walker.types.back(), StackWalker::LastEntry);
  EXPECT_EQ(std::count(walker.types.begin(), walker.types.end(), StackWalker::NextEntry),
            static_cast<std::ptrdiff_t>(walker.types.size() - 2));
  EXPECT_EQ(walker.entries.back().offset, walker.entries[walker.entries.size() - 2].offset);

  const std::string id = std::to_string(OwnId());
  const std::string line = " (" + std::to_string(TracedLine()) + "): traced_test::Outer(";
  EXPECT_EQ(walker.output.find("ShowCallstack: thread id=" + id + "\r\n"), 0u);
  EXPECT_TRUE(Holds(walker.output, line)) << walker.output;
  EXPECT_TRUE(Holds(walker.output, "ShowCallstack End: thread id=" + id + "\r\n\r\n"));
}

TEST(StackWalker, MakesLinesOutOfWhatIsKnown) {
  Recorder walker;
  StackWalker::CallstackEntry entry{};
  const auto tell = [&](StackWalker::CallstackEntryType type) {
    walker.StackWalker::OnCallstackEntry(type, entry);
  };
  entry.offset = 0x1234ABCD;
  tell(StackWalker::NextEntry);
  std::strcpy(entry.moduleName, "lib");
  std::strcpy(entry.name, "plain");
  entry.lineFileName[0] = '\0';
  tell(StackWalker::NextEntry);
  std::strcpy(entry.undName, "part");
  std::strcpy(entry.lineFileName, "a.cpp");
  entry.lineNumber = 7;
  tell(StackWalker::NextEntry);
  std::strcpy(entry.undFullName, "full(int)");
  tell(StackWalker::NextEntry);
  tell(StackWalker::LastEntry);
  entry.offset = 0;
  tell(StackWalker::NextEntry);
  EXPECT_EQ(walker.output,
            "000000001234ABCD ((module-name not available)): (filename not available): "
            "(function-name not available)\r\n"
            "000000001234ABCD (lib): (filename not available): plain\r\n"
            "a.cpp (7): part\r\n"
            "a.cpp (7): full(int)\r\n");
}

TEST(StackWalker, ReadsItsOwnProcessOutsideOfAWalk) {
  const std::uint32_t value = 0x12345678;
  std::uint32_t found = 0;
  unsigned long count = 0;
  const auto address = reinterpret_cast<std::uintptr_t>(&value);
  EXPECT_EQ(Recorder::myReadProcMem(nullptr, address, &found, sizeof(found), &count), 1);
  EXPECT_EQ(count, sizeof(found));
  EXPECT_EQ(found, value);
  EXPECT_EQ(Recorder::myReadProcMem(nullptr, 8, &found, sizeof(found), &count), 0);
  EXPECT_EQ(count, 0u);
}

TEST(StackWalker, TakesDecoratedNamesApart) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"main", "main", "main"},
      {"_ZNK1AclEi", "A::operator()", "A::operator()(int) const"},
      {"_ZN1AcviEv", "A::operator int", "A::operator int()"},
      {"_Z1fIiEvT_", "f<int>", "void f<int>(int)"},
      {"_ZZ1fvENKUlvE_clEv", "f()::{lambda()#1}::operator()",
       "f()::{lambda()#1}::operator()() const"},
      {"_ZN12_GLOBAL__N_11fEv", "(anonymous namespace)::f", "(anonymous namespace)::f()"},
      {"_Zbroken", "_Zbroken", "_Zbroken"}};
  for (const auto& [symbol, name, full] : cases) {
    EXPECT_EQ(diagnostics::UndecorateName(symbol), name);
    EXPECT_EQ(diagnostics::UndecorateFull(symbol), full);
  }
}

// A thread that does something over and over below the traced functions.
class Busy {
 public:
  explicit Busy(std::function<void()> step)
      : thread_([this, step = std::move(step)](const std::stop_token& stop) {
          CallTraced([&] {
            id_ = platform::CurrentThreadId();
            id_.notify_all();
            while (!stop.stop_requested()) {
              step();
              ++rounds_;
              rounds_.notify_all();
            }
          });
        }) {
    id_.wait(0);
  }

  unsigned long Id() const { return id_; }
  void Stop() { thread_.request_stop(); }
  unsigned Rounds() const { return rounds_; }
  // Waits until the thread has gone on since then.
  void ExpectProgress(unsigned before) const { rounds_.wait(before); }

 private:
  std::atomic<std::uint32_t> id_{0};
  std::atomic<unsigned> rounds_{0};
  std::jthread thread_;
};

TEST(StackWalker, ShowsOtherThreadsWhateverTheyDo) {
  const std::function<void()> steps[] = {
      [] { sched_yield(); },                            // runs
      [] { usleep(200); },                              // sleeps in the system
      [] { std::string(100000, 'x').assign(5, 'y'); },  // holds the allocator's lock at times
  };
  for (const auto& step : steps) {
    Busy busy(step);
    Recorder walker;
    for (int i = 0; i < 30; ++i) {
      walker.Forget();
      ASSERT_EQ(walker.Walk(busy.Id()), 1);
      ASSERT_FALSE(walker.entries.empty());
    }
#if !defined(__SANITIZE_THREAD__)
    ExpectTracedChain(walker);
#endif
    busy.ExpectProgress(busy.Rounds());
  }
}

TEST(StackWalker, GivesUpOnThreadsThatDoNotAnswer) {
  sigset_t all, former;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &former);
  Busy deaf([] { usleep(200); });
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  Recorder walker;
  EXPECT_EQ(walker.Walk(deaf.Id()), 0);
  EXPECT_EQ(walker.Walk(0x3FFFFFFF), 0);  // no such thread
  EXPECT_TRUE(walker.entries.empty());
  deaf.ExpectProgress(deaf.Rounds());
}

TEST(StackWalker, LeavesASignalOfTheHostsAlone) {
  EXPECT_EQ(SetStackDumpSignal(SIGTERM), 0);
  struct sigaction host {};
  host.sa_handler = [](int) {};
  const int number = SIGRTMAX - 7;
  sigaction(number, &host, nullptr);
  ASSERT_EQ(SetStackDumpSignal(number), 1);
  Busy busy([] { usleep(200); });
  Recorder walker;
  EXPECT_EQ(walker.Walk(busy.Id()), 0);
  SetStackDumpSignal(SIGRTMAX - 2);
  EXPECT_EQ(walker.Walk(busy.Id()), 1);
  signal(number, SIG_DFL);
}

// Memory of the test's own making: frames of [former base, return address].
using FalseStack = std::vector<std::uint64_t>;
constexpr std::uint64_t kFalseBase = 0x10000;

int ReadFalseStack(void*, std::uint64_t address, void* buffer, unsigned long size,
                   unsigned long* count, void* stack) {
  const auto& words = *static_cast<const FalseStack*>(stack);
  const std::uint64_t index = (address - kFalseBase) / 8;
  if (address < kFalseBase || index >= words.size() || size != 8) return 0;
  std::memcpy(buffer, &words[index], 8);
  *count = 8;
  return 1;
}

TEST(StackWalker, EndsOnCorruptStacks) {
  Recorder walker;
  const auto walk = [&](FalseStack stack) {
    CONTEXT context{};
    context.Rip = 0x5000;
    context.Rsp = context.Rbp = kFalseBase;
    walker.Forget();
    EXPECT_EQ(walker.ShowCallstack(OwnId(), &context, &ReadFalseStack, &stack), 1);
  };
  const auto ended = [&] {
    return std::count(walker.types.begin(), walker.types.end(), StackWalker::LastEntry);
  };
  walk({0x10010, 0x5000, 0x10020, 0x5000});  // returns to itself
  EXPECT_EQ(ended(), 0);
  EXPECT_EQ(walker.errors.back(), "StackWalk64-Endless-Callstack!");

  walk({0x10010, 0x6000, 0, 0});  // returns to nowhere, as a whole stack may
  EXPECT_EQ(ended(), 1);
  EXPECT_EQ(walker.types.size(), 3u);
  EXPECT_EQ(walker.entries.back().offset, 0x6000u);
  EXPECT_NE(walker.errors.back(), "StackWalk64");

  walk({0x10010, 0x6000, 0x10000, 0x7000});  // a circle
  EXPECT_EQ(ended(), 0);
  EXPECT_EQ(walker.errors.back(), "StackWalk64");
  EXPECT_LT(walker.entries.size(), 100u);

  walk({0xFFFFFFFFFFFFFFF0, 0x6000});  // unreadable
  EXPECT_EQ(walker.entries.front().offset, 0x5000u);
  EXPECT_EQ(walker.errors.front(), "SymGetSymFromAddr64");  // once more, as it was at first
  EXPECT_TRUE(Holds(walker.output, "(function-name not available)"));
}

// The thread sanitizer runs handlers later, with another context.
#if !defined(__SANITIZE_THREAD__)
CONTEXT signal_context;
Recorder* signal_walker = nullptr;

void WalkInHandler(int, siginfo_t*, void* context) {
  GetSignalContext(context, &signal_context);
  signal_walker->ShowCallstack(OwnId(), &signal_context, nullptr, nullptr);
}

TEST(StackWalker, WalksFromTheContextOfASignal) {
  Recorder walker;
  signal_walker = &walker;
  struct sigaction action {};
  action.sa_sigaction = &WalkInHandler;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGUSR2, &action, nullptr);
  CallTraced([] { raise(SIGUSR2); });
  signal(SIGUSR2, SIG_DFL);
  ExpectTracedChain(walker);
  EXPECT_EQ(walker.Find("WalkInHandler"), -1) << walker.output;
  EXPECT_EQ(walker.entries.front().offset, signal_context.Rip);
}
#endif

TEST(StackWalker, ShowsAnotherProcess) {
  pid_t child = 0;
  const char* arguments[] = {"sleep", "1000", nullptr};
  ASSERT_EQ(posix_spawnp(&child, "sleep", nullptr, nullptr, const_cast<char**>(arguments), environ),
            0);
  std::string output, module;
  bool allowed = true;
  bool without_symbols = false;
  // Its first frames are those of the program's start.
  while (allowed && !Holds(output, "nanosleep")) {
    Recorder walker(nullptr, static_cast<std::uint32_t>(child), nullptr);
    allowed = walker.Walk(static_cast<unsigned long>(child));
    output = walker.output;
    if (allowed && !walker.entries.empty()) module = walker.entries[0].moduleName;
    without_symbols =
        Holds(output, " (sleep): (filename not available): (function-name not available)\r\n");
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, WNOHANG), 0);  // it lives
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  if (!allowed) GTEST_SKIP() << "no ptrace here";
  EXPECT_EQ(module, "libc.so.6") << output;
  EXPECT_TRUE(without_symbols) << output;

  Recorder gone(nullptr, static_cast<std::uint32_t>(child), nullptr);
  EXPECT_EQ(gone.LoadModules(), 0);
  EXPECT_EQ(gone.Walk(static_cast<unsigned long>(child)), 0);
}

TEST(ThreadDump, ShowsEveryThreadAndEveryThreadGoesOn) {
  TempFolder folder;
  const std::string path = folder.Path("stacks");
  std::deque<Busy> threads;
  while (threads.size() < 200) threads.emplace_back([] { usleep(20000); });
  CBaseThread of_the_library;
  struct Sleeper : IThreadFuncInterface {
    int ThreadLoop(std::uint64_t) override {
      usleep(20000);
      return 1;
    }
  } sleeper;
  of_the_library.StartThread("Sleeper", &sleeper, 0, 0, 0, 0);

  DebugLines lines;
  DumpAllThreadsStack(platform::FromNativePath<WCHAR>(path)->c_str());
  const std::string text = ReadWhole(path);
  const auto shown = [&](unsigned long id) {
    const std::string number = std::to_string(id);
    return Holds(text, "ShowCallstack: thread id=" + number + "\r\n") &&
           Holds(text, "ShowCallstack End: thread id=" + number + "\r\n");
  };
  EXPECT_TRUE(shown(OwnId()));
  EXPECT_TRUE(shown(of_the_library.GetThreadId()));
  EXPECT_FALSE(Holds(text, "THREAD ID="));
  std::deque<unsigned> rounds;
  for (const Busy& thread : threads) {
    EXPECT_TRUE(shown(thread.Id()));
    rounds.push_back(thread.Rounds());
  }
  for (Busy& thread : threads) {
    thread.ExpectProgress(rounds.front());
    thread.Stop();
    rounds.pop_front();
  }
  of_the_library.StopThread();
}

TEST(ThreadDump, TellsTheTimesOfThreads) {
  std::uint64_t kernel = 1, user = 1;
  EXPECT_EQ(GetThreadRunTimeInfoIn_Win32(nullptr, &kernel, &user), 0);
  EXPECT_EQ(kernel + user, 0u);
  EXPECT_EQ(GetThreadRunTimeInfoIn_Win32(nullptr, &kernel, nullptr), 0);
  CONTEXT context;
  EXPECT_EQ(GetSignalContext(&kernel, nullptr) + GetSignalContext(nullptr, &context), 0);
  auto* own = reinterpret_cast<void*>(static_cast<std::uintptr_t>(OwnId()));
  do {
    ASSERT_EQ(GetThreadRunTimeInfoIn_Win32(own, &kernel, &user), 1);
  } while (kernel + user < 20);
}

// For a process of its own whose loader finds no usable library.
TEST(StackWalker, DISABLED_FailsAsTold) {
  Recorder walker;
  EXPECT_EQ(walker.LoadModules(), 0);
  EXPECT_EQ(walker.errors, std::vector<std::string>{"Error while initializing dbghelp.dll"});
  EXPECT_EQ(GetLastErrorCode(), 1114u);
  EXPECT_EQ(walker.Walk(OwnId()), 0);
  EXPECT_EQ(GetLastErrorCode(), 1114u);
  EXPECT_TRUE(walker.output.empty());
  DumpThreadStack();
}

// The same for a library that has no function for source lines.
TEST(StackWalker, DISABLED_GoesOnWithoutLines) {
  Recorder walker;
  CallTraced([&] { walker.Walk(OwnId()); });
  ExpectTracedChain(walker);
  EXPECT_EQ(walker.At(walker.Find("traced_inner")).lineNumber, 0u);
  EXPECT_TRUE(
      Holds(walker.output, " (diagnostics_test): (filename not available): traced_inner\r\n"));
  EXPECT_EQ(std::count(walker.errors.begin(), walker.errors.end(), "SymGetLineFromAddr64"), 0);
}

TEST(StackWalker, LivesWithWhatTheLibraryLacks) {
  const Recorder loads_it;
  Dl_info library{};
  ASSERT_NE(dladdr(dlsym(dlopen("libdw.so.1", RTLD_LAZY), "dwfl_begin"), &library), 0);
  std::string without_lines = ReadWhole(library.dli_fname);
  const std::string name("\0dwfl_lineinfo\0", 15);
  const std::size_t place = without_lines.find(name);
  ASSERT_NE(place, std::string::npos);
  without_lines[place + 1] = 'x';

  TempFolder folder;
  folder.Write("libdw.so.1", "no library");
  EXPECT_EQ(RunWithLibraries(folder.Path(), "StackWalker.DISABLED_FailsAsTold"), 0);
  folder.Write("libdw.so.1", without_lines);
  EXPECT_EQ(RunWithLibraries(folder.Path(), "StackWalker.DISABLED_GoesOnWithoutLines"), 0);
}

TEST(StackWalker, LooksForTheLibraryAndForDebugFilesInTheToldOrder) {
  TempFolder folder;
  const std::string tools = folder.Path("Debugging Tools for Windows");
  mkdir(tools.c_str(), 0700);
  folder.Write("Debugging Tools for Windows/dbghelp.dll", "");
  setenv("ProgramFiles", folder.Path().c_str(), 1);
  EXPECT_EQ(diagnostics::DebugLibraryNames(),
            (std::vector<std::string>{tools + "/dbghelp.dll", "libdw.so.1"}));
  std::array<char, 4096> program{};
  ASSERT_GT(readlink("/proc/self/exe", program.data(), program.size() - 8), 0);
  const std::string local = std::string(program.data()) + ".local";
  std::ofstream(local).put('\n');
  EXPECT_EQ(diagnostics::DebugLibraryNames(), std::vector<std::string>{"libdw.so.1"});
  unlink(local.c_str());
  unsetenv("ProgramFiles");

  setenv("_NT_SYMBOL_PATH", "C:\\sym", 1);
  setenv("SYSTEMROOT", "C:\\win", 1);
  const std::string path = diagnostics::SymbolPath("C:\\mine");
  unsetenv("_NT_SYMBOL_PATH");
  unsetenv("SYSTEMROOT");
  EXPECT_EQ(path.find("C:\\mine;.;C:\\"), 0u) << path;
  EXPECT_TRUE(Holds(path, ";C:\\sym;C:\\win;C:\\win\\system32;SRV*c:\\websymbols*;")) << path;
}

}  // namespace
}  // namespace qvx::test
