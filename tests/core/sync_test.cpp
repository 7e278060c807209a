#include "qvx/sync.h"

#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <optional>
#include <thread>
#include <vector>

#include "core/threads.h"
#include "platform/clock.h"
#include "platform/event.h"
#include "support/debug_lines.h"
#include "support/failing_new.h"
#include "support/fault_plan.h"

namespace qvx::test {
namespace {

constexpr std::uint64_t kForever = ~std::uint64_t{0};
constexpr unsigned long kLong = 60'000;
constexpr unsigned long kTimedOut = 258;
constexpr unsigned long kFailed = 0xFFFFFFFF;

TEST(BaseLock, BelongsToOneThreadAsOftenAsItLocks) {
  CBaseLock lock;
  const auto free_for_others = [&lock] {
    bool taken = false;
    std::thread([&] {
      taken = lock.TryLock() != 0;
      lock.Unlock();  // of no effect where the lock wasn't taken
    }).join();
    return taken;
  };
  lock.Lock();
  EXPECT_NE(0, lock.TryLock());
  lock.Unlock();
  EXPECT_FALSE(free_for_others());
  lock.Unlock();
  EXPECT_TRUE(free_for_others());
  lock.Unlock();
  EXPECT_TRUE(free_for_others());
  CAutoBaseLock none(nullptr);
}

TEST(BaseLock, KeepsThreadsApart) {
  CBaseLock lock;
  int count = 0;
  RunOnThreads(8, [&](int) {
    for (int i = 0; i < 5'000; ++i) {
      CAutoBaseLock outer(&lock);
      CAutoBaseLock inner(&lock);
      ++count;
    }
  });
  EXPECT_EQ(40'000, count);
}

TEST(BaseEvent, LetsThroughAsItsKindSays) {
  CBaseEvent automatic;
  CBaseEvent manual(nullptr, 1);
  for (CBaseEvent* event : {&automatic, &manual}) {
    const int after_one_wait = event == &manual ? 1 : 0;
    EXPECT_EQ(0, event->Wait(0));
    EXPECT_EQ(0, event->WaitUS(999));
    EXPECT_EQ(0, event->Wait(1));
    event->Set();
    event->Set();
    EXPECT_EQ(1, event->Wait());
    EXPECT_EQ(after_one_wait, event->WaitUS(999));
    event->Set();
    EXPECT_EQ(1, event->Wait(kForever));
    event->Set();
    EXPECT_EQ(1, event->WaitUS(kForever));
    event->Set();
    event->Reset();
    EXPECT_EQ(0, event->Wait(0));
    EXPECT_EQ(0, event->IsWaiting());
  }
}

TEST(BaseEvent, ShowsThatSomebodyWaits) {
  CBaseLock lock;
  for (CBaseLock* shared : {static_cast<CBaseLock*>(nullptr), &lock}) {
    CBaseEvent event(shared, 0);
    std::thread waiter([&] { EXPECT_EQ(1, event.Wait(kLong)); });
    while (event.IsWaiting() == 0) std::this_thread::yield();
    {
      CAutoBaseLock guard(shared);  // Set may be called with the lock held
      event.Set();
    }
    waiter.join();
    EXPECT_EQ(0, event.IsWaiting());
  }
}

TEST(BaseEvent, ChangesUnderItsSharedLockOnly) {
  CBaseLock lock;
  CBaseEvent event(&lock, 0);
  lock.Lock();
  std::thread setter([&] { event.Set(); });
  std::thread waiter([&] { EXPECT_EQ(1, event.Wait(kLong)); });
  EXPECT_EQ(0, event.Wait(5));
  EXPECT_EQ(0, event.IsWaiting());
  lock.Unlock();
  setter.join();
  waiter.join();
}

TEST(BaseEvent, ManualResetReleasesEveryWaiter) {
  CBaseEvent gate(nullptr, 1);
  std::atomic<int> through{0};
  RunOnThreads(8, [&](int thread) {
    if (thread == 0) gate.Set();
    through += gate.Wait(kLong);
  });
  EXPECT_EQ(8, through);
  EXPECT_EQ(1, gate.Wait(0));
}

TEST(BaseEvent, CopiesNameTheSameEvent) {
  CBaseEvent copy;
  {
    CBaseEvent original;
    copy = original;
    CBaseEvent second(original);
    second.Set();
  }
  EXPECT_EQ(1, copy.Wait(0));
  EXPECT_EQ(0, copy.Wait(0));
}

TEST(BaseEvent, LivesOnWithoutMemory) {
  DebugLines lines;
  std::optional<CBaseEvent> event;
  {
    FailingAllocations failing(1);
    event.emplace();
  }
  const auto all = lines.All();
  ASSERT_EQ(1u, all.size());
  EXPECT_EQ(4, all[0].first);
  EXPECT_NE(std::string::npos,
            all[0].second.find(") Construct: cannot create event (condition)\r\n"));
  EXPECT_EQ(1, event->Wait());
  EXPECT_EQ(0, event->WaitUS(5'000'000));
  EXPECT_EQ(1, event->Wait(kForever));
  EXPECT_EQ(0, event->WaitUS(kForever));
  event->Set();
  event->Reset();
  CBaseEvent* one[] = {&*event};
  EXPECT_EQ(kFailed, WaitMultiEvent(1, one, 0, 0));
}

// A waiter that destroys its event as soon as it is through, while Set may be on its way out.
TEST(BaseEvent, MayBeDestroyedByWhomItLetsThrough) {
  std::atomic<CBaseEvent*> slot{nullptr};
  CBaseEvent full;
  std::atomic<bool> stop{false};
  std::thread setter([&] {
    while (full.Wait() && !stop) slot.exchange(nullptr)->Set();
  });
  for (int i = 0; i < 20'000; ++i) {
    auto* event = new CBaseEvent(nullptr, i & 1);
    slot = event;
    full.Set();
    if (i % 3 == 0) {
      CBaseEvent never;
      CBaseEvent* both[] = {&never, event};
      EXPECT_EQ(1u, WaitMultiEvent(2, both, 0, kLong));
    } else {
      while (event->Wait(i % 3 == 1 ? 0 : kLong) == 0) std::this_thread::yield();
    }
    delete event;
  }
  stop = true;
  full.Set();
  setter.join();
}

// Pointers to a row of fresh events, auto-reset but for those at odd places.
class Row {
 public:
  explicit Row(std::size_t count) : events_(count) {
    for (std::size_t i = 0; i < count; ++i) {
      if (i % 2 != 0) events_[i] = CBaseEvent(nullptr, 1);
      pointers_.push_back(&events_[i]);
    }
  }
  CBaseEvent& operator[](std::size_t index) { return events_[index]; }
  unsigned long Wait(bool all, unsigned long limit) {
    return WaitMultiEvent(pointers_.size(), pointers_.data(), all, limit);
  }

 private:
  std::vector<CBaseEvent> events_;
  std::vector<CBaseEvent*> pointers_;
};

TEST(WaitMultiEvent, TakesTheLowestSignalledOrAllOfThem) {
  for (std::size_t count : {1u, 3u, 200u}) {
    Row row(count);
    EXPECT_EQ(kTimedOut, row.Wait(false, 1));
    row[count - 1].Set();
    row[count / 3].Set();
    EXPECT_EQ(count / 3, row.Wait(false, kLong));
    row[count / 3].Reset();
    EXPECT_EQ(count == 1 ? kTimedOut : count - 1, row.Wait(false, 0));
    if (count % 2 == 0) {
      EXPECT_EQ(1, row[count - 1].Wait(0));  // manual-reset: not cleared
    }
    EXPECT_EQ(0, row[0].IsWaiting());

    for (std::size_t i = 1; i < count; ++i) row[i].Set();
    EXPECT_EQ(kTimedOut, row.Wait(true, 1));
    row[0].Set();
    EXPECT_EQ(0u, row.Wait(true, 0));
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(i % 2 == 0 ? 0 : 1, row[i].Wait(0)) << i;
  }
}

TEST(WaitMultiEvent, RefusesWhatItCannotWaitFor) {
  CBaseEvent event;
  event.Set();
  CBaseEvent* twins[] = {&event, &event, nullptr};
  EXPECT_EQ(kFailed, WaitMultiEvent(0, twins, 0, 0));
  EXPECT_EQ(kFailed, WaitMultiEvent(1, nullptr, 0, 0));
  EXPECT_EQ(kFailed, WaitMultiEvent(3, twins, 0, 0));
  EXPECT_EQ(kFailed, WaitMultiEvent(2, twins, 1, 0));
  EXPECT_EQ(0u, WaitMultiEvent(2, twins, 0, 0));
}

TEST(WaitMultiEvent, WaitsOnAllItsEvents) {
  Row row(3);
  for (bool all : {false, true}) {
    std::thread waiter([&] { EXPECT_EQ(all ? 0u : 2u, row.Wait(all, kLong)); });
    while (row[2].IsWaiting() == 0) std::this_thread::yield();
    EXPECT_EQ(1, row[0].IsWaiting());
    row[2].Set();
    if (all) {
      row[0].Set();
      row[1].Set();
    }
    waiter.join();
    EXPECT_EQ(0, row[0].IsWaiting());
  }
}

// Every signal lets exactly one thread through, whoever waits for what.
TEST(WaitMultiEvent, LosesNoSignalUnderStress) {
  constexpr int kEvents = 12;
  constexpr int kSignals = 4'000;
  std::vector<CBaseEvent> events(kEvents);
  CBaseEvent quit(nullptr, 1);
  CBaseEvent taken;
  RunOnThreads(5, [&](int thread) {
    if (thread < 4) {
      std::vector<CBaseEvent*> mine(kEvents + 1, &quit);
      for (int i = 0; i < kEvents; ++i) mine[i] = &events[(i * 5 + thread) % kEvents];
      while (WaitMultiEvent(mine.size(), mine.data(), 0, kLong) < kEvents) taken.Set();
      return;
    }
    int seen = 0;
    for (int i = 0; i < kSignals; ++i) {
      events[i * 7 % kEvents].Set();
      seen += taken.Wait(kLong);
    }
    EXPECT_EQ(kSignals, seen);
    EXPECT_EQ(0, taken.Wait(0));
    quit.Set();
  });
}

// Three threads wait for all of the same events, others set them one by one: each full set
// lets one through and is taken whole. Single waits and time-outs interfere.
TEST(WaitMultiEvent, TakesAllOrNoneUnderStress) {
  constexpr int kRounds = 1'500;
  std::array<CBaseEvent, 3> events;
  CBaseEvent* all[] = {&events[0], &events[1], &events[2]};
  CBaseEvent round_done;
  std::atomic<int> rounds{0};
  std::deque<Busy> busy;
  for (unsigned long limit : {500ul, 1ul, 20ul}) {
    busy.emplace_back([&, limit] {
      if (WaitMultiEvent(3, all, 1, limit) != 0) return;
      ++rounds;
      round_done.Set();
    });
  }
  busy.emplace_back([&] {
    if (events[1].Wait(1)) events[1].Set();
  });
  for (int i = 0; i < kRounds; ++i) {
    std::thread other([&] { events[0].Set(); });
    events[1].Set();
    events[2].Set();
    other.join();
    ASSERT_EQ(1, round_done.Wait(kLong));
  }
  EXPECT_EQ(kRounds, rounds);
}

TEST(Clock, TickWrapsAndSleepsPassTheSeam) {
  FaultPlan plan;
  plan.FakeClock(((std::int64_t{1} << 32) - 5) * 1'000'000);
  EXPECT_EQ(0xFFFFFFFBu, MS_GetTime());
  HQ_Sleep(7);
  EXPECT_EQ(2u, MS_GetTime());
  EXPECT_EQ(7'000'000, plan.Slept());
}

TEST(Clock, BusyDelayOfNothingLooksOnce) {
  FaultPlan plan;
  const int before = plan.Calls(platform::Operation::kClock);
  MS_BusyDelay(0);
  EXPECT_EQ(2, plan.Calls(platform::Operation::kClock) - before);
  const std::int64_t start = platform::MonotonicNanoseconds();
  MS_BusyDelay(300);
  EXPECT_GE(platform::MonotonicNanoseconds() - start, 300'000);
}

// The other fields show in a debug line.
TEST(Clock, LocalTimeKnowsTheDayOfTheWeek) {
  const time_t moment = 1'700'000'000;
  tm calendar{};
  localtime_r(&moment, &calendar);
  EXPECT_EQ(calendar.tm_wday, platform::LocalTimeOf(moment, 0).wDayOfWeek);
}

TEST(Clock, DeadlinesKeepTheirRange) {
  using namespace platform;
  EXPECT_EQ(kNoDeadline, DeadlineAfterMilliseconds(kForever));
  EXPECT_EQ(-1, PollMilliseconds(kNoDeadline));
  EXPECT_EQ(0, PollMilliseconds(DeadlineAfterMilliseconds(0)));
  EXPECT_EQ(INT32_MAX, PollMilliseconds(DeadlineAfterMilliseconds(1ull << 40)));
  EXPECT_FALSE(DeadlineReached(DeadlineAfterMilliseconds(kLong)));
}

}  // namespace
}  // namespace qvx::test
