#include "qvx/delay_message.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <vector>

#include "qvx/message_queue.h"
#include "support/debug_lines.h"
#include "support/failing_new.h"
#include "support/fault_plan.h"

namespace qvx::test {
namespace {

constexpr unsigned int kLong = 60'000;
constexpr std::uint32_t kAny = 0xFFFFFFFF;

// An engine of the test's own and two windows of the calling thread.
class DelayMessage : public testing::Test {
 protected:
  ~DelayMessage() override {
    engine_.Stop();
    DestroyMessageWindow(a_);
    DestroyMessageWindow(b_);
  }

  void Ask(unsigned int delay, HWND target, unsigned int message, std::uint64_t w = 0,
           std::int64_t l = 0, IDelayMSGPostCallback* callback = nullptr) {
    engine_.DelayPostMsg(delay, a_, target, message, w, l, callback, 99);
  }
  int Pending(HWND target, std::uint32_t message = kAny, const std::uint64_t* w = nullptr,
              const std::int64_t* l = nullptr) {
    return engine_.HasDelayPostMsg(a_, target, message, w, l);
  }

  // The number of the next message; 0 if none comes.
  std::uint32_t Next(unsigned int limit = kLong) {
    last_ = {};
    return GetWindowMessage(&last_, nullptr, limit) != 0 ? last_.message : 0;
  }

  CDelayPostMsgEngine engine_;
  HWND a_ = CreateMessageWindow();
  HWND b_ = CreateMessageWindow();
  tagWINDOWMESSAGE last_{};
};

TEST_F(DelayMessage, WhatIsDueAtTheStartGoesOutByRequest) {
  FaultPlan plan;
  plan.FakeClock(1'000'000'000);
  for (std::uint32_t i = 1; i <= 5; ++i) Ask(10 - i, i % 2 != 0 ? a_ : b_, i, i, -5);
  plan.FakeClock(1'010'000'000);
  EXPECT_EQ(0u, Next(0));
  engine_.Start();
  for (std::uint32_t i = 1; i <= 5; ++i) {
    EXPECT_EQ(i, Next());
    EXPECT_EQ(i % 2 != 0 ? a_ : b_, last_.hwnd);
    EXPECT_EQ(i, last_.wParam);
    EXPECT_EQ(-5, last_.lParam);
  }
  EXPECT_EQ(0, Pending(a_));
}

TEST_F(DelayMessage, FindsByEachCriterion) {
  Ask(kLong, b_, 7, 6, -1);
  Ask(kLong, b_, 7, 5, -2);
  const std::uint64_t five = 5;
  const std::uint64_t four = 4;
  const std::int64_t minus_one = -1;
  const std::int64_t minus_two = -2;
  EXPECT_EQ(1, Pending(b_));
  EXPECT_EQ(1, Pending(b_, 7, &five));
  EXPECT_EQ(1, Pending(b_, 7, &five, &minus_two));
  EXPECT_EQ(0, Pending(b_, 7, &five, &minus_one));
  EXPECT_EQ(0, Pending(b_, 7, &four));
  EXPECT_EQ(0, Pending(b_, 8));
  EXPECT_EQ(0, Pending(a_));
  EXPECT_EQ(0, engine_.HasDelayPostMsg(b_, b_, kAny, nullptr, nullptr));

  engine_.RemoveDelayPostMsg(a_, b_, 7, &five, nullptr, 0);
  EXPECT_EQ(0, Pending(b_, 7, &five));
  EXPECT_EQ(1, Pending(b_, 7, nullptr, &minus_one));
  Ask(kLong, b_, 7, 6, -1);
  Ask(kLong, a_, 7, 6, -1);
  engine_.RemoveDelayPostMsg(a_, b_, kAny, nullptr, nullptr, 0);
  EXPECT_EQ(0, Pending(b_));
  engine_.RemoveAllDelayPostMsg(7, nullptr, &minus_two, 0);
  EXPECT_EQ(1, Pending(a_));
  engine_.RemoveAllDelayPostMsg(kAny, nullptr, nullptr, 0);
  EXPECT_EQ(0, Pending(a_));
}

TEST_F(DelayMessage, RemovesWhatIsQueuedAlready) {
  for (std::uint32_t message : {0u, 7u, 8u}) {
    PostWindowMessage(a_, message, 0, 0);
    PostWindowMessage(a_, message, 0, 0);
    PostWindowMessage(b_, message, 0, 0);
  }
  Ask(kLong, a_, 7);
  Ask(kLong, a_, 0);
  Ask(kLong, nullptr, 8);
  engine_.RemoveDelayPostMsg(a_, a_, 7, nullptr, nullptr, 0);
  EXPECT_EQ(1, PeekWindowMessage(nullptr, a_, 7, 7, 0));
  Ask(kLong, a_, 7);
  engine_.RemoveAllDelayPostMsg(kAny, nullptr, nullptr, 1);
  EXPECT_EQ(0, PeekWindowMessage(nullptr, a_, 7, 7, 0));
  EXPECT_EQ(0, PeekWindowMessage(&last_, a_, 0, 0, 0) != 0 && last_.message != 8);
  std::vector<std::uint32_t> left;
  while (PeekWindowMessage(&last_, b_, 0, 0, 1) != 0) left.push_back(last_.message);
  EXPECT_EQ((std::vector<std::uint32_t>{0, 7, 8}), left);
}

// Notes its calls; the first one asks for another message from within. Its notes may be read
// once the engine has stopped.
struct Recorder : IDelayMSGPostCallback {
  explicit Recorder(CDelayPostMsgEngine& asked) : engine(asked) {}

  int OnDelayMSGPost(HWND owner, HWND target, std::uint32_t message, std::uint64_t w,
                     std::int64_t l, std::uint64_t user) override {
    messages.push_back(message);
    EXPECT_TRUE(owner == target && w == 3 && l == -3 && user == 99);
    if (messages.size() == 1) {
      engine.DelayPostMsg(0, owner, target, message + 1, w, l, this, user);
      engine.RemoveAllDelayPostMsg(kAny, &w, &l, 0);  // not allowed, but harmless
      engine.DelayPostMsg(0, owner, target, message + 2, w, l, this, user);
    }
    return 0;
  }

  CDelayPostMsgEngine& engine;
  std::vector<std::uint32_t> messages;
};

TEST_F(DelayMessage, CallsBackAfterThePostAndTakesRequestsFromThere) {
  Recorder recorder(engine_);
  Ask(kLong, a_, 40, 3, -3);  // removed by the callback, before its own record in the list
  Ask(0, a_, 10, 3, -3, &recorder);
  engine_.Start();
  EXPECT_EQ(10u, Next());
  EXPECT_EQ(12u, Next());
  engine_.Stop();
  EXPECT_EQ((std::vector<std::uint32_t>{10, 12}), recorder.messages);
}

TEST_F(DelayMessage, StopDropsWhatIsPending) {
  Recorder recorder(engine_);
  engine_.Start();
  for (int i = 0; i < 100; ++i) Ask(kLong, a_, 1, 0, 0, &recorder);
  engine_.Stop();
  engine_.Stop();
  EXPECT_EQ(0, Pending(a_));
  engine_.Start();
  engine_.Start();
  Ask(0, a_, 2);
  EXPECT_EQ(2u, Next());
  engine_.Stop();
  EXPECT_TRUE(recorder.messages.empty());
}

TEST_F(DelayMessage, WhatIsDueBeyondTheWrapGoesOutAtOnce) {
  FaultPlan plan;
  plan.FakeClock((std::int64_t{0xFFFFFFFF} - 10) * 1'000'000);
  Ask(11, a_, 1);  // due at tick 0
  Ask(5, a_, 2);
  engine_.Start();
  EXPECT_EQ(1u, Next());
  EXPECT_EQ(0u, Next(0));
  EXPECT_EQ(1, Pending(a_, 2));
}

TEST_F(DelayMessage, WhatIsDueOvertakesAmongTenThousand) {
  constexpr std::uint64_t kCount = 10'000;
  engine_.Start();
  for (std::uint64_t i = 0; i < kCount; ++i) Ask(i % 2 != 0 ? 0 : 3'600'000, a_, 1, i);
  for (std::uint64_t i = 1; i < kCount; i += 2) {
    ASSERT_EQ(1u, Next());
    ASSERT_EQ(i, last_.wParam);
  }
  EXPECT_EQ(0u, Next(0));
  EXPECT_EQ(1, Pending(a_));
  engine_.RemoveDelayPostMsg(a_, a_, 1, nullptr, nullptr, 1);
  EXPECT_EQ(0, Pending(a_));
}

TEST_F(DelayMessage, AFailedAllocationAddsNothing) {
  for (int n = 1; n <= 2; ++n) {
    const FailingAllocations failing(n);
    EXPECT_THROW(Ask(kLong, a_, 1), std::bad_alloc);
  }
  EXPECT_EQ(0, Pending(a_));
}

TEST_F(DelayMessage, KeepsRequestsWhenItsThreadCannotStart) {
  {
    FaultPlan plan;
    plan.Fail(platform::Operation::kThreadCreate, 1, EAGAIN);
    DebugLines lines;
    engine_.Start();
    EXPECT_EQ(1, lines.Count(2, "thread create failed, thread name=DelayMsg\r\n"));
  }
  Ask(0, a_, 1);
  EXPECT_EQ(1, Pending(a_, 1));
  engine_.Start();
  EXPECT_EQ(1u, Next());
}

// A host whose loop is poll receives from the engine of the process.
TEST(DelayMessageOfTheProcess, ReachesAHostThatPolls) {
  const HWND window = CreateMessageWindow();
  const int descriptor = GetMessageQueueDescriptor();
  gDelayPostMsgEngine.DelayPostMsg(1, nullptr, window, 5, 1, 2, nullptr, 0);
  pollfd entry{descriptor, POLLIN, 0};
  EXPECT_EQ(1, poll(&entry, 1, kLong));
  tagWINDOWMESSAGE found{};
  EXPECT_EQ(1, PeekWindowMessage(&found, window, 5, 5, 1));
  EXPECT_EQ(0, poll(&entry, 1, 0));
  DestroyMessageWindow(window);
}

}  // namespace
}  // namespace qvx::test
