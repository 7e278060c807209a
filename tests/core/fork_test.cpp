#include "platform/fork.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <functional>
#include <memory>
#include <thread>

#include "core/threads.h"
#include "platform/event.h"
#include "qvx/base_thread.h"
#include "qvx/debug_output.h"
#include "qvx/delay_message.h"
#include "qvx/message_queue.h"
#include "qvx/sync.h"
#include "support/fork_child.h"

namespace qvx::test {
namespace {

constexpr std::uint64_t kLong = 60'000;

// A thread that holds something until it is let go.
class Holder {
 public:
  explicit Holder(std::function<void(const std::function<void()>&)> body)
      : thread_([this, body = std::move(body)] {
          body([this] {
            ready_.Set();
            go_.Wait();
          });
        }) {
    ready_.Wait();
  }
  ~Holder() {
    go_.Set();
    thread_.join();
  }

 private:
  CBaseEvent ready_;
  CBaseEvent go_;
  std::thread thread_;
};

TEST(Fork, LeavesNoLockHeldByAThreadThatStayedBehind) {
  QVX_STARTS_THREADS_AFTER_FORK();
  CBaseLock theirs;
  CBaseLock ours;
  const Holder holder([&](const std::function<void()>& hold) {
    CAutoBaseLock outer(&theirs);
    CAutoBaseLock inner(&theirs);
    hold();
  });
  ours.Lock();
  EXPECT_TRUE(HoldsInChild([&] {
    int taken_by_others = 0;
    std::thread([&] { taken_by_others = ours.TryLock(); }).join();
    const bool still_ours = taken_by_others == 0 && ours.TryLock() != 0;
    ours.Unlock();
    std::thread waiter([&] { CAutoBaseLock guard(&ours); });
    ours.Unlock();
    waiter.join();
    std::thread([&] { CAutoBaseLock guard(&theirs); }).join();
    theirs.Lock();
    const bool forks_again = HoldsInChild([&] {
      theirs.Unlock();
      return theirs.TryLock() != 0;
    });
    return still_ours && forks_again;
  }));
  ours.Unlock();
  EXPECT_EQ(0, theirs.TryLock());
}

TEST(Fork, RunsGuardsWithTheirLocksHeld) {
  QVX_STARTS_THREADS_AFTER_FORK();
  struct Guarded {
    platform::RecursiveLock lock;
    int value = 1;
    bool child_saw_lock = false;
    platform::ForkGuard guard{&lock, &Guarded::InChild, this};

    static void InChild(void* context) {
      auto* self = static_cast<Guarded*>(context);
      self->child_saw_lock = self->lock.HeldByThisThread();
      self->value = 2;
    }
  } guarded;
  const std::uint32_t generation = platform::ForkGeneration();
  EXPECT_TRUE(HoldsInChild([&] {
    return guarded.child_saw_lock && guarded.value == 2 && !guarded.lock.HeldByThisThread() &&
           platform::ForkGeneration() == generation + 1;
  }));
  EXPECT_EQ(1, guarded.value);
  EXPECT_FALSE(guarded.lock.HeldByThisThread());
  const Holder holder([&](const std::function<void()>& hold) {
    std::lock_guard<platform::RecursiveLock> guard(guarded.lock);
    hold();
  });
  EXPECT_TRUE(HoldsInChild([&] { return guarded.value == 2 && guarded.lock.try_lock(); }));
}

// Two locks that threads take in both orders all the time never stop a fork.
TEST(Fork, FindsConsistentDataBehindBusyLocks) {
  QVX_FORKS_BUSY_THREADS();
  QVX_STARTS_THREADS_AFTER_FORK();
  platform::RecursiveLock first;
  platform::RecursiveLock second;
  const platform::ForkGuard first_guard(&first);
  const platform::ForkGuard second_guard(&second);
  volatile int one = 0;
  volatile int two = 0;
  const Busy writer([&] {
    std::lock_guard<platform::RecursiveLock> outer(first);
    one = one + 1;
    std::lock_guard<platform::RecursiveLock> inner(second);
    two = one;
  });
  for (int i = 0; i < 50; ++i) {
    EXPECT_TRUE(HoldsInChild([&] { return one == two; }));
  }
}

TEST(Fork, LeavesThreadObjectsIdleAndUsable) {
  QVX_STARTS_THREADS_AFTER_FORK();
  struct Worker : IThreadFuncInterface {
    int ThreadLoop(std::uint64_t) override {
      ran.Set();
      HQ_Sleep(1);
      return 1;
    }
    CBaseEvent ran;
  } worker;
  CBaseThread thread;
  thread.StartThread("running", &worker, 0, 0, 0, 0);
  worker.ran.Wait();
  for (int i = 0; i < 10; ++i) {
    EXPECT_TRUE(HoldsInChild([&] {
      const bool idle = thread.IsThreadExit() && !thread.GetThreadHandle() && !thread.GetThreadId();
      if (i % 2 == 0) thread.StopThread();
      worker.ran.Reset();
      const bool runs = thread.StartThread("again", &worker, 0, 0, 0, 0) && worker.ran.Wait(kLong);
      thread.StopThread();
      return idle && runs;
    }));
  }
  EXPECT_EQ(0, thread.IsThreadExit());
}

TEST(Fork, NobodyWaitsOnAnEventInTheChild) {
  QVX_STARTS_THREADS_AFTER_FORK();
  CBaseEvent event;
  std::thread waiter([&] { event.Wait(); });
  while (event.IsWaiting() == 0) std::this_thread::yield();
  EXPECT_TRUE(HoldsInChild([&] {
    event.Set();
    return event.Wait(0) == 1 && event.Wait(0) == 0;
  }));
  event.Set();
  waiter.join();
}

TEST(Fork, KeepsTheWindowsOfItsThreadAndItsPendingMessages) {
  QVX_STARTS_THREADS_AFTER_FORK();
  const HWND own = CreateMessageWindow();
  HWND foreign = nullptr;
  const Holder holder([&](const std::function<void()>& hold) {
    foreign = CreateMessageWindow();
    hold();
  });
  const int descriptor = GetMessageQueueDescriptor();
  gDelayPostMsgEngine.DelayPostMsg(500, own, own, 7, 1, 2, nullptr, 0);
  tagWINDOWMESSAGE first{};
  EXPECT_TRUE(HoldsInChild([&] {
    const bool windows = IsMessageWindow(own) && !IsMessageWindow(foreign);
    gDelayPostMsgEngine.DelayPostMsg(0, own, own, 8, 0, 0, nullptr, 0);
    tagWINDOWMESSAGE second{};
    const bool came = GetWindowMessage(&first, own, kLong) && GetWindowMessage(&second, own, kLong);
    return windows && came && first.message + second.message == 15 &&
           GetMessageQueueDescriptor() == descriptor;
  }));
  EXPECT_EQ(1, GetWindowMessage(&first, own, kLong));
  EXPECT_EQ(7u, first.message);
  EXPECT_EQ(0, PeekWindowMessage(&first, own, 0, 0, 1));
  DestroyMessageWindow(own);
}

// Children forked in the middle of logging and thread traffic, which leave by exit, so that
// everything is destroyed there as at the end of a program.
TEST(Fork, ChildrenOfABusyProcessLeaveCleanly) {
  QVX_FORKS_BUSY_THREADS();
  QVX_STARTS_THREADS_AFTER_FORK();
  const auto nothing = [](void*, int, const char*, int) { return 0; };
  DbgOutputAddCallback(nothing, nullptr);  // where nobody sees a line, none is built
  const auto post = [] {
    gDelayPostMsgEngine.DelayPostMsg(1, nullptr, nullptr, 1, 0, 0, nullptr, 0);
  };
  const Busy logger([] { DbgOutputA(1, "busy\r\n"); });
  const Busy starter([&] {
    struct Once : IThreadFuncInterface {
      int ThreadLoop(std::uint64_t) override { return 0; }
    } once;
    CBaseThread thread;
    thread.StartThread("once", &once, 0, 0, 0, 0);
    post();
  });
  for (int i = 0; i < 30; ++i) {
    EXPECT_TRUE(HoldsInChild([&] {
      DbgOutputA(1, "child\r\n");
      if (i % 2 == 0) post();
      exit(0);
      return false;
    }));
  }
  DbgOutputDelCallback(nothing);
}

}  // namespace
}  // namespace qvx::test
