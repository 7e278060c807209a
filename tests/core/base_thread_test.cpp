#include "qvx/base_thread.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "support/debug_lines.h"
#include "support/fault_plan.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

constexpr std::uint64_t kLong = 60'000;

// Calls a function once for each ThreadLoop and tells of each.
class Worker : public IThreadFuncInterface {
 public:
  explicit Worker(std::function<int(int call)> body) : body_(std::move(body)) {}

  int ThreadLoop(std::uint64_t context) override {
    context_ = context;
    const int result = body_(++calls_);
    called_.Set();
    return result;
  }

  int Calls() const { return calls_; }
  std::uint64_t Context() const { return context_; }
  void AwaitCall() { EXPECT_TRUE(IsCalledWithin(kLong)); }
  bool IsCalledWithin(std::uint64_t limit) { return called_.Wait(limit) != 0; }

 private:
  std::function<int(int)> body_;
  std::atomic<int> calls_{0};
  std::atomic<std::uint64_t> context_{0};
  CBaseEvent called_;
};

// A worker whose every call takes one step, until it is told to end.
class Stepper : public Worker {
 public:
  Stepper()
      : Worker([this](int) {
          step_.Wait();
          return ending_ ? 0 : 1;
        }) {}
  void Step() {
    step_.Set();
    AwaitCall();
  }
  void End() {
    ending_ = true;
    step_.Set();
  }

 private:
  CBaseEvent step_;
  std::atomic<bool> ending_{false};
};

void AwaitExit(CBaseThread& thread) {
  while (thread.IsThreadExit() == 0) std::this_thread::yield();
}

std::ptrdiff_t CountThreads() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return std::distance(begin(tasks), end(tasks));
}

// Until threads that nobody joins are gone, and with them their use of the test's objects.
void AwaitThreadCount(std::ptrdiff_t count) {
  while (CountThreads() > count) std::this_thread::yield();
}

void AwaitDetach(CBaseThread& thread) {
  while (thread.GetThreadHandle() != nullptr) std::this_thread::yield();
}

void ExpectIdle(CBaseThread& thread) {
  EXPECT_EQ(1, thread.IsThreadExit());
  EXPECT_EQ(nullptr, thread.GetThreadHandle());
  EXPECT_EQ(0u, thread.GetThreadId());
}

std::string Hex(unsigned long value) {
  char text[16];
  snprintf(text, sizeof(text), "%08x", static_cast<unsigned int>(value));
  return text;
}

TEST(BaseThread, FreshAndStoppedObjectsAreIdleAndSilent) {
  DebugLines lines;
  {
    CBaseThread thread;
    ExpectIdle(thread);
    EXPECT_EQ(0, thread.IsThreadNeedExit());
    EXPECT_STREQ("", thread.GetThreadName());
    thread.StopThread();
    thread.StopThreadImmediate();
    ExpectIdle(thread);
    EXPECT_EQ(1, thread.IsThreadNeedExit());
  }
  EXPECT_TRUE(lines.All().empty());
}

TEST(BaseThread, RunsUntilTheLoopEndsAndWritesItsLines) {
  DebugLines lines;
  Worker worker([](int call) { return call < 3; });
  CBaseThread thread;
  ASSERT_EQ(1, thread.StartThread("worker", &worker, 0x1'0000'0007, 0, 0, 0));
  const unsigned long id = thread.GetThreadId();
  const auto handle = reinterpret_cast<std::uintptr_t>(thread.GetThreadHandle());
  AwaitExit(thread);
  EXPECT_EQ(3, worker.Calls());
  EXPECT_EQ(0x1'0000'0007u, worker.Context());
  EXPECT_NE(nullptr, thread.GetThreadHandle());
  EXPECT_EQ(0, thread.IsThreadNeedExit());
  thread.StopThread();
  ExpectIdle(thread);
  const std::string tail = ", name=worker, tid=" + std::to_string(id) + "(0x" + Hex(id) + ")\r\n";
  int own_lines = 0;
  for (const auto& [level, line] : lines.All()) {
    if (line.find("name=worker") != std::string::npos) ++own_lines;
  }
  EXPECT_EQ(5, own_lines);
  EXPECT_EQ(1, lines.Count(2, "thread create success, thread handle=0x" + Hex(handle) +
                                  ", id=" + std::to_string(id) + ", name=worker\r\n"));
  EXPECT_EQ(1, lines.Count(2, "thread information" + tail));
  EXPECT_EQ(1, lines.Count(2, "thread exit" + tail));
  EXPECT_EQ(1, lines.Count(2, "prepare exit thread..." + tail));
  EXPECT_EQ(1, lines.Count(2, "thread exit over" + tail));
}

TEST(BaseThread, ASecondStartChangesNothing) {
  Stepper first;
  Stepper second;
  CBaseThread thread;
  ASSERT_EQ(1, thread.StartThread(std::string(200, 'n').c_str(), &first, 1, 0, 0, 0));
  const unsigned long id = thread.GetThreadId();
  EXPECT_EQ(1, thread.StartThread("other", &second, 2, 0, 0, 0));
  EXPECT_EQ(id, thread.GetThreadId());
  EXPECT_EQ(std::string(127, 'n'), thread.GetThreadName());
  first.Step();
  EXPECT_EQ(1u, first.Context());
  first.End();
  thread.StopThread();
  EXPECT_EQ(0, second.Calls());
}

TEST(BaseThread, StartsAgainAfterTheEndWithOrWithoutAStop) {
  CBaseThread thread;
  for (int autoDetach : {0, 1}) {
    for (int round = 0; round < 3; ++round) {
      Worker worker([](int) { return 0; });
      ASSERT_EQ(1, thread.StartThread(nullptr, &worker, 0, 0, 0, autoDetach));
      EXPECT_STREQ("", thread.GetThreadName());
      AwaitExit(thread);
      if (round == 1) thread.StopThread();
      EXPECT_EQ(1, worker.Calls());
    }
  }
}

// Its thread pauses itself in each call.
struct SelfPauser : Worker {
  SelfPauser()
      : Worker([this](int) {
          thread.PauseThread();
          return 1;
        }) {}
  CBaseThread thread;
};

TEST(BaseThread, ParksWhilePaused) {
  SelfPauser worker;
  worker.thread.StartThread("pause", &worker, 0, 0, 0, 0);
  worker.AwaitCall();
  EXPECT_FALSE(worker.IsCalledWithin(20));
  worker.thread.ResumeThread();
  worker.AwaitCall();
  worker.thread.StopThread();
  ExpectIdle(worker.thread);
  EXPECT_EQ(2, worker.Calls());
}

TEST(BaseThread, AnImmediateStopEndsAParkedThread) {
  const std::ptrdiff_t before = CountThreads();
  for (int i = 0; i < 50; ++i) {
    SelfPauser worker;
    worker.thread.StartThread("parked", &worker, 0, 0, 0, 0);
    worker.AwaitCall();
    worker.thread.StopThreadImmediate();
    worker.thread.PauseThread();
    ExpectIdle(worker.thread);
    AwaitThreadCount(before);
    EXPECT_EQ(1, worker.Calls());
  }
}

TEST(BaseThread, AStopLetsTheCallInProgressFinish) {
  CBaseThread thread;
  CBaseEvent entered;
  bool finished = false;
  Worker worker([&](int) {
    entered.Set();
    while (thread.IsThreadNeedExit() == 0) std::this_thread::yield();
    finished = true;
    return 1;
  });
  thread.StartThread("stop", &worker, 0, 0, 0, 0);
  entered.Wait();
  thread.StopThread();
  EXPECT_TRUE(finished);
  EXPECT_EQ(1, worker.Calls());
}

TEST(BaseThread, WithoutAWorkerTheThreadEndsButDoesNotShowIt) {
  CBaseThread thread;
  ASSERT_EQ(1, thread.StartThread("none", nullptr, 0, 0, 0, 0));
  thread.StopThread();
  ExpectIdle(thread);
}

TEST(BaseThread, DetachesItself) {
  DebugLines lines;
  CBaseThread thread;
  Worker worker([](int) { return 0; });
  ASSERT_EQ(1, thread.StartThread("auto", &worker, 0, 0, 0, 1));
  AwaitDetach(thread);
  ExpectIdle(thread);
  thread.StopThread();
  for (const auto& [level, line] : lines.All()) {
    EXPECT_EQ(std::string::npos, line.find("prepare")) << line;
  }
}

// The object and its worker go while the thread is ending.
TEST(BaseThread, MayBeDestroyedWhileItDetaches) {
  for (int i = 0; i < 500; ++i) {
    CBaseEvent entered;
    Worker worker([&](int) {
      entered.Set();
      return 0;
    });
    CBaseThread thread;
    ASSERT_EQ(1, thread.StartThread("brief", &worker, 0, 0, 0, 1));
    if (i % 2 == 0) entered.Wait();
    if (i % 3 == 0) AwaitExit(thread);
  }
}

TEST(BaseThread, AnAbandonedThreadNeverTouchesTheObjectAgain) {
  struct State {
    CBaseEvent entered;
    CBaseEvent go_on;
    CBaseEvent left;
    std::atomic<int> need_exit{-1};
  } state;
  const std::ptrdiff_t before_all = CountThreads();
  auto thread = std::make_unique<CBaseThread>();
  CBaseThread* raw = thread.get();
  Worker stuck([&](int) {
    state.entered.Set();
    state.go_on.Wait();
    state.need_exit = raw->IsThreadNeedExit();
    state.left.Set();
    return 1;
  });
  DebugLines lines;
  thread->StartThread("stuck", &stuck, 0, 0, 0, 0);
  state.entered.Wait();
  const std::size_t before = lines.All().size();
  thread->StopThreadImmediate();
  EXPECT_EQ(before, lines.All().size());
  ExpectIdle(*thread);

  Stepper next;
  ASSERT_EQ(1, thread->StartThread("next", &next, 0, 0, 0, 0));
  next.Step();
  state.go_on.Set();
  EXPECT_EQ(1, state.left.Wait(kLong));
  EXPECT_EQ(1, state.need_exit);
  EXPECT_EQ(0, thread->IsThreadNeedExit());
  EXPECT_EQ(0, thread->IsThreadExit());
  next.End();
  thread.reset();
  stuck.AwaitCall();
  AwaitThreadCount(before_all);
  EXPECT_EQ(1, stuck.Calls());
}

TEST(BaseThread, StopsFromItsOwnThreadWithoutWaiting) {
  CBaseThread thread;
  Worker worker([&](int) {
    thread.StopThread();
    return 1;
  });
  thread.StartThread("own", &worker, 0, 0, 0, 0);
  AwaitExit(thread);
  EXPECT_EQ(1, worker.Calls());
  EXPECT_EQ(1, thread.IsThreadNeedExit());
  thread.StopThread();
  ExpectIdle(thread);
}

TEST(BaseThread, MayBeDestroyedByItsOwnThread) {
  const std::ptrdiff_t before = CountThreads();
  CBaseEvent gone;
  auto* thread = new CBaseThread;
  Worker worker([&](int) {
    delete thread;
    gone.Set();
    return 1;
  });
  thread->StartThread("own", &worker, 0, 0, 0, 0);
  EXPECT_EQ(1, gone.Wait(kLong));
  worker.AwaitCall();
  AwaitThreadCount(before);
  EXPECT_EQ(1, worker.Calls());
}

TEST(BaseThread, TellsOfAThreadThatCannotBeMade) {
  FaultPlan plan;
  plan.Fail(platform::Operation::kThreadCreate, 1, EAGAIN, 2);
  DebugLines lines;
  Worker worker([](int) { return 0; });
  CBaseThread thread;
  EXPECT_EQ(0, thread.StartThread("failing", &worker, 0, 0, 0, 0));
  ExpectIdle(thread);
  EXPECT_STREQ("failing", thread.GetThreadName());
  EXPECT_EQ(0, thread.StartThread(nullptr, &worker, 0, 0, 0, 0));
  EXPECT_EQ(1, lines.Count(2, "thread create failed, thread name=failing\r\n"));
  EXPECT_EQ(1, lines.Count(2, "thread create failed, thread name=unknown\r\n"));
  EXPECT_EQ(1, thread.StartThread("working", &worker, 0, 0, 0, 0));
}

TEST(BaseThread, GoesOnAfterAFailedAllocation) {
  Worker worker([](int call) -> int {
    if (call == 1) throw std::bad_alloc();
    return 0;
  });
  CBaseThread thread;
  thread.StartThread("memory", &worker, 0, 0, 0, 0);
  AwaitExit(thread);
  EXPECT_EQ(2, worker.Calls());
}

TEST(BaseThread, TellsTheSystemItsNameStackAndSignalMask) {
  std::size_t stack = 0;
  bool all_blocked = true;
  bool faults_pass = false;
  std::string name;
  Worker worker([&](int) {
    name = ReadWhole("/proc/thread-self/comm");
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &stack);
    pthread_attr_destroy(&attributes);
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    for (int signal : {SIGINT, SIGTERM, SIGUSR1, SIGPIPE, SIGALRM, SIGCHLD}) {
      all_blocked = all_blocked && sigismember(&mask, signal) == 1;
    }
    faults_pass = sigismember(&mask, SIGSEGV) == 0 && sigismember(&mask, SIGFPE) == 0;
    return 0;
  });
  CBaseThread thread;
  thread.StartThread("a name beyond fifteen", &worker, 0, -2, 0x1000000, 0);
  AwaitExit(thread);
  thread.StopThread();
  EXPECT_LE(0x1000000u, stack);  // beyond the default, which a stack may be reused from
  EXPECT_TRUE(all_blocked);
  EXPECT_TRUE(faults_pass);
  EXPECT_EQ("a name beyond f\n", name);

  Stepper stepper;
  thread.StartThread("a name beyond fifteen", &stepper, 0, -2, 0x400000, 0);
  const std::string folder = "/proc/self/task/" + std::to_string(thread.GetThreadId());
  EXPECT_TRUE(std::filesystem::exists(folder));
  stepper.End();
  thread.StopThread();
}

TEST(BaseThread, ACopyHasNoThread) {
  Stepper worker;
  CBaseThread thread;
  thread.StartThread("first", &worker, 0, 0, 0, 0);
  {
    CBaseThread copy(thread);
    ExpectIdle(copy);
    EXPECT_STREQ("first", copy.GetThreadName());
    copy = thread;
  }
  EXPECT_EQ(0, thread.IsThreadExit());
  worker.End();
  thread.StopThread();
}

TEST(BaseThread, HoldsUnderStress) {
  const std::ptrdiff_t before = CountThreads();
  CBaseThread shared;
  // Never destroyed: abandoned threads may be in their last call.
  static Worker& worker = *new Worker([](int call) { return call % 4; });
  std::vector<std::thread> users;
  users.reserve(6);
  for (int user = 0; user < 6; ++user) {
    users.emplace_back([&, user] {
      for (int i = 0; i < 60; ++i) {
        shared.StartThread("shared", &worker, 0, 0, 0, i % 2);
        if (i % 3 == user % 3) shared.PauseThread();
        if (i % 5 == 0) shared.ResumeThread();
        (i % 7 == 0) ? shared.StopThreadImmediate() : shared.StopThread();
        CBaseThread own;
        own.StartThread("own", &worker, 0, 0, 0, i % 2);
      }
    });
  }
  for (std::thread& user : users) user.join();
  shared.StopThread();
  ExpectIdle(shared);
  AwaitThreadCount(before);
}

}  // namespace
}  // namespace qvx::test
