#include "qvx/base_thread.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "core/threads.h"
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

// The body of a worker that goes on until it is stopped.
int GoOn(int) {
  std::this_thread::yield();
  return 1;
}

void Start(CBaseThread& thread, const char* name, Worker& worker, int auto_detach = 0) {
  ASSERT_EQ(1, thread.StartThread(name, &worker, 0, 0, 0, auto_detach));
}

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
  const std::vector<std::string> stages_of[] = {
      {"thread information", "thread exit", "prepare exit thread...", "thread exit over"},
      {"thread information", "thread exit", "thread auto detach exit over"}};
  for (int auto_detach : {0, 1}) {
    DebugLines lines;
    CBaseEvent go;
    Worker worker([&](int call) {
      if (call == 1) go.Wait();
      return call < 3;
    });
    CBaseThread thread;
    ASSERT_EQ(1, thread.StartThread("worker", &worker, 0x1'0000'0007, 0, 0, auto_detach));
    const std::string id = std::to_string(thread.GetThreadId());
    const std::string tail =
        ", name=worker, tid=" + id + "(0x" + Hex(thread.GetThreadId()) + ")\r\n";
    const std::string handle = Hex(reinterpret_cast<std::uintptr_t>(thread.GetThreadHandle()));
    go.Set();
    AwaitExit(thread);
    EXPECT_EQ(3, worker.Calls());
    EXPECT_EQ(0x1'0000'0007u, worker.Context());
    EXPECT_EQ(0, thread.IsThreadNeedExit());
    if (auto_detach == 0) {
      EXPECT_NE(nullptr, thread.GetThreadHandle());
      thread.StopThread();
    }
    const std::vector<std::string>& stages = stages_of[auto_detach];
    while (lines.Count(2, stages.back() + tail) == 0) std::this_thread::yield();
    ExpectIdle(thread);
    thread.StopThread();
    for (const std::string& stage : stages) EXPECT_EQ(1, lines.Count(2, stage + tail)) << stage;
    EXPECT_EQ(1, lines.Count(2, "thread create success, thread handle=0x" + handle + ", id=" + id +
                                    ", name=worker\r\n"));
    const auto all = lines.All();
    EXPECT_EQ(stages.size() + 1, std::count_if(all.begin(), all.end(), [](const auto& line) {
                return line.second.find("name=worker") != std::string::npos;
              }));
  }
}

TEST(BaseThread, ASecondStartAndACopyChangeNothing) {
  Worker first(&GoOn);
  Worker second(&GoOn);
  CBaseThread thread;
  ASSERT_EQ(1, thread.StartThread(std::string(200, 'n').c_str(), &first, 1, 0, 0, 0));
  const unsigned long id = thread.GetThreadId();
  EXPECT_EQ(1, thread.StartThread("other", &second, 2, 0, 0, 0));
  {
    CBaseThread copy(thread);
    ExpectIdle(copy);
    EXPECT_EQ(std::string(127, 'n'), copy.GetThreadName());
    copy = thread;
  }
  EXPECT_EQ(0, thread.IsThreadExit());
  EXPECT_EQ(id, thread.GetThreadId());
  EXPECT_EQ(std::string(127, 'n'), thread.GetThreadName());
  first.AwaitCall();
  EXPECT_EQ(1u, first.Context());
  thread.StopThread();
  EXPECT_EQ(0, second.Calls());
}

TEST(BaseThread, StartsAgainAfterTheEndWithOrWithoutAStop) {
  CBaseThread thread;
  for (int autoDetach : {0, 1}) {
    for (int round = 0; round < 3; ++round) {
      Worker worker([](int) { return 0; });
      Start(thread, nullptr, worker, autoDetach);
      EXPECT_STREQ("", thread.GetThreadName());
      AwaitExit(thread);
      if (round == 1) thread.StopThread();
      EXPECT_EQ(1, worker.Calls());
    }
  }
  ASSERT_EQ(1, thread.StartThread("no worker", nullptr, 0, 0, 0, 0));
  thread.StopThread();
  ExpectIdle(thread);
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
  Start(worker.thread, "pause", worker);
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
    Start(worker.thread, "parked", worker);
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
  Start(thread, "stop", worker);
  entered.Wait();
  thread.StopThread();
  EXPECT_TRUE(finished);
  EXPECT_EQ(1, worker.Calls());
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
    Start(thread, "brief", worker, 1);
    if (i % 2 == 0) entered.Wait();
    if (i % 3 == 0) AwaitExit(thread);
  }
}

TEST(BaseThread, AnAbandonedThreadNeverTouchesTheObjectAgain) {
  CBaseEvent entered;
  CBaseEvent go_on;
  std::atomic<int> need_exit{-1};
  const std::ptrdiff_t before_all = CountThreads();
  auto thread = std::make_unique<CBaseThread>();
  CBaseThread* raw = thread.get();
  Worker stuck([&](int) {
    entered.Set();
    go_on.Wait();
    need_exit = raw->IsThreadNeedExit();
    return 1;
  });
  DebugLines lines;
  Start(*thread, "stuck", stuck);
  entered.Wait();
  const std::size_t before = lines.All().size();
  thread->StopThreadImmediate();
  EXPECT_EQ(before, lines.All().size());
  ExpectIdle(*thread);

  Worker next(&GoOn);
  Start(*thread, "next", next);
  next.AwaitCall();
  go_on.Set();
  stuck.AwaitCall();
  EXPECT_EQ(1, need_exit);
  EXPECT_EQ(0, thread->IsThreadNeedExit());
  EXPECT_EQ(0, thread->IsThreadExit());
  thread.reset();
  AwaitThreadCount(before_all);
  EXPECT_EQ(1, stuck.Calls());
}

TEST(BaseThread, StopsFromItsOwnThreadWithoutWaiting) {
  CBaseThread thread;
  Worker worker([&](int) {
    thread.StopThread();
    return 1;
  });
  Start(thread, "own", worker);
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
  Start(*thread, "own", worker);
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
  AwaitExit(thread);
  plan.Fail(platform::Operation::kThreadCreate, 1, EAGAIN);
  EXPECT_EQ(0, thread.StartThread("failing again", &worker, 0, 0, 0, 0));
  ExpectIdle(thread);
}

TEST(BaseThread, GoesOnAfterAFailedAllocation) {
  Worker worker([](int call) -> int {
    if (call == 1) throw std::bad_alloc();
    return 0;
  });
  CBaseThread thread;
  Start(thread, "memory", worker);
  AwaitExit(thread);
  EXPECT_EQ(2, worker.Calls());
}

TEST(BaseThread, TellsTheSystemItsNameStackAndSignalMask) {
  std::size_t stack = 0;
  int blocked = 0;
  bool faults_pass = false;
  std::string name;
  pid_t id = 0;
  Worker worker([&](int) {
    id = gettid();
    name = ReadWhole("/proc/thread-self/comm");
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &stack);
    pthread_attr_destroy(&attributes);
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    for (int signal : {SIGINT, SIGTERM, SIGUSR1, SIGPIPE, SIGALRM, SIGCHLD}) {
      blocked += sigismember(&mask, signal);
    }
    faults_pass = sigismember(&mask, SIGSEGV) == 0 && sigismember(&mask, SIGFPE) == 0;
    return 0;
  });
  CBaseThread thread;
  thread.StartThread("a name beyond fifteen", &worker, 0, -2, 0x1000000, 0);
  AwaitExit(thread);
  EXPECT_EQ(static_cast<unsigned long>(id), thread.GetThreadId());
  thread.StopThread();
  EXPECT_LE(0x1000000u, stack);  // beyond the default, which a stack may be reused from
  EXPECT_EQ(6, blocked);
  EXPECT_TRUE(faults_pass);
  EXPECT_EQ("a name beyond f\n", name);
}

TEST(BaseThread, HoldsUnderStress) {
  const std::ptrdiff_t before = CountThreads();
  CBaseThread shared;
  // Never destroyed: abandoned threads may be in their last call.
  static Worker& worker = *new Worker([](int call) { return call % 4; });
  RunOnThreads(6, [&](int user) {
    for (int i = 0; i < 60; ++i) {
      shared.StartThread("shared", &worker, 0, 0, 0, i % 2);
      if (i % 3 == user % 3) shared.PauseThread();
      if (i % 5 == 0) shared.ResumeThread();
      (i % 7 == 0) ? shared.StopThreadImmediate() : shared.StopThread();
      CBaseThread own;
      own.StartThread("own", &worker, 0, 0, 0, i % 2);
    }
  });
  shared.StopThread();
  ExpectIdle(shared);
  AwaitThreadCount(before);
}

}  // namespace
}  // namespace qvx::test
