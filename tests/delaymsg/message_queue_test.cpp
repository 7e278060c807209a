#include "qvx/message_queue.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "qvx/sync.h"

namespace qvx::test {
namespace {

constexpr unsigned int kLong = 60'000;

class MessageQueue : public testing::Test {
 protected:
  ~MessageQueue() override {
    DestroyMessageWindow(a_);
    DestroyMessageWindow(b_);
  }

  HWND a_ = CreateMessageWindow();
  HWND b_ = CreateMessageWindow();
};

bool Readable(int descriptor, int limit = 0) {
  pollfd entry{descriptor, POLLIN, 0};
  return poll(&entry, 1, limit) == 1;
}

std::uint32_t Next(HWND window, unsigned int first = 0, unsigned int last = 0) {
  tagWINDOWMESSAGE found{};
  return PeekWindowMessage(&found, window, first, last, 1) != 0 ? found.message : 0;
}

TEST_F(MessageQueue, KeepsTheOrderAndTheValues) {
  ASSERT_EQ(1, PostWindowMessage(a_, 1, ~std::uint64_t{0}, INT64_MIN));
  PostWindowMessage(b_, 2, 0, 0);
  PostWindowMessage(a_, 3, 0, 0);
  tagWINDOWMESSAGE found{};
  EXPECT_EQ(1, PeekWindowMessage(&found, nullptr, 0, 0, 0));
  EXPECT_EQ(a_, found.hwnd);
  EXPECT_EQ(1u, found.message);
  EXPECT_EQ(~std::uint64_t{0}, found.wParam);
  EXPECT_EQ(INT64_MIN, found.lParam);
  EXPECT_LE(MS_GetTime() - found.time, kLong);
  EXPECT_EQ(3u, Next(nullptr, 3, 9));
  EXPECT_EQ(2u, Next(b_));
  EXPECT_EQ(0u, Next(b_));
  EXPECT_EQ(0u, Next(a_, 2, 9));
  EXPECT_EQ(1, GetWindowMessage(&found, nullptr, 0));
  EXPECT_EQ(1u, found.message);
  EXPECT_EQ(0, GetWindowMessage(&found, nullptr, 1));
}

// Handles of a window that is gone, of windows that went with their thread, and inventions.
TEST_F(MessageQueue, StaleAndForeignHandlesDoNothing) {
  const HWND stale = CreateMessageWindow();
  PostWindowMessage(stale, 1, 0, 0);
  EXPECT_EQ(1, IsMessageWindow(stale));
  std::vector<HWND> bad = {stale, nullptr, reinterpret_cast<HWND>(~std::uintptr_t{0}),
                           reinterpret_cast<HWND>(std::uintptr_t{1})};
  std::thread([&] {
    EXPECT_EQ(0, DestroyMessageWindow(stale));
    EXPECT_EQ(0u, Next(stale));
    EXPECT_EQ(0, GetWindowMessage(nullptr, stale, 0xFFFFFFFF));
    for (int i = 0; i < 100; ++i) bad.push_back(CreateMessageWindow());
    EXPECT_GE(GetMessageQueueDescriptor(), 0);
    PostWindowMessage(bad.back(), 1, 0, 0);
  }).join();
  EXPECT_EQ(1, DestroyMessageWindow(stale));
  const HWND reuser = CreateMessageWindow();  // likely in the same place
  EXPECT_NE(stale, reuser);
  for (HWND window : bad) {
    EXPECT_EQ(0, IsMessageWindow(window));
    EXPECT_EQ(0, PostWindowMessage(window, 1, 0, 0));
    EXPECT_EQ(0, DestroyMessageWindow(window));
  }
  EXPECT_EQ(0u, Next(nullptr));
  EXPECT_EQ(1, DestroyMessageWindow(reuser));
}

TEST_F(MessageQueue, DescriptorIsReadableWhileMessagesWait) {
  PostWindowMessage(a_, 1, 0, 0);
  const int descriptor = GetMessageQueueDescriptor();
  EXPECT_EQ(descriptor, GetMessageQueueDescriptor());
  EXPECT_TRUE(Readable(descriptor));
  PostWindowMessage(b_, 2, 0, 0);
  Next(a_);
  EXPECT_TRUE(Readable(descriptor));
  Next(nullptr);
  EXPECT_FALSE(Readable(descriptor));
  const HWND brief = CreateMessageWindow();
  PostWindowMessage(brief, 3, 0, 0);
  EXPECT_TRUE(Readable(descriptor));
  DestroyMessageWindow(brief);
  EXPECT_FALSE(Readable(descriptor));
}

// Threads post to a host that waits in poll; nothing is lost or reordered for a poster.
TEST_F(MessageQueue, ReceivesFromManyThreadsThroughPoll) {
  constexpr int kThreads = 4;
  constexpr std::uint64_t kEach = 2'000;
  const int descriptor = GetMessageQueueDescriptor();
  std::vector<std::thread> posters;
  posters.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    posters.emplace_back([&, i] {
      for (std::uint64_t k = 0; k < kEach; ++k) PostWindowMessage(a_, 1, k, i);
    });
  }
  std::uint64_t expected[kThreads] = {};
  for (std::uint64_t seen = 0; seen < kThreads * kEach;) {
    ASSERT_TRUE(Readable(descriptor, kLong));
    tagWINDOWMESSAGE found{};
    while (PeekWindowMessage(&found, a_, 1, 1, 1) != 0) {
      EXPECT_EQ(expected[found.lParam]++, found.wParam);
      ++seen;
    }
  }
  for (std::thread& poster : posters) poster.join();
  EXPECT_FALSE(Readable(descriptor));
}

TEST_F(MessageQueue, GetWakesForItsOwnWindowOnly) {
  std::thread poster([&] {
    PostWindowMessage(b_, 1, 0, 0);
    PostWindowMessage(a_, 2, 0, 0);
  });
  tagWINDOWMESSAGE found{};
  EXPECT_EQ(1, GetWindowMessage(&found, a_, 0xFFFFFFFF));
  EXPECT_EQ(2u, found.message);
  poster.join();
  EXPECT_EQ(1u, Next(b_));
}

}  // namespace
}  // namespace qvx::test
