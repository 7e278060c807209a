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

// A window for as long as it lives.
class Window {
 public:
  Window() : handle_(CreateMessageWindow()) { EXPECT_NE(nullptr, handle_); }
  ~Window() { DestroyMessageWindow(handle_); }
  HWND Get() const { return handle_; }

 private:
  HWND handle_;
};

bool Readable(int descriptor, int limit = 0) {
  pollfd entry{descriptor, POLLIN, 0};
  return poll(&entry, 1, limit) == 1;
}

std::uint32_t Next(HWND window, unsigned int first = 0, unsigned int last = 0) {
  tagWINDOWMESSAGE found{};
  return PeekWindowMessage(&found, window, first, last, 1) != 0 ? found.message : 0;
}

TEST(MessageQueue, KeepsTheOrderAndTheValues) {
  const Window a;
  const Window b;
  ASSERT_EQ(1, PostWindowMessage(a.Get(), 1, ~std::uint64_t{0}, INT64_MIN));
  PostWindowMessage(b.Get(), 2, 0, 0);
  PostWindowMessage(a.Get(), 3, 0, 0);
  tagWINDOWMESSAGE found{};
  EXPECT_EQ(1, PeekWindowMessage(&found, nullptr, 0, 0, 0));
  EXPECT_EQ(a.Get(), found.hwnd);
  EXPECT_EQ(1u, found.message);
  EXPECT_EQ(~std::uint64_t{0}, found.wParam);
  EXPECT_EQ(INT64_MIN, found.lParam);
  EXPECT_LE(MS_GetTime() - found.time, kLong);
  EXPECT_EQ(3u, Next(nullptr, 3, 9));
  EXPECT_EQ(2u, Next(b.Get()));
  EXPECT_EQ(0u, Next(b.Get()));
  EXPECT_EQ(0u, Next(a.Get(), 2, 9));
  EXPECT_EQ(1, GetWindowMessage(&found, nullptr, 0));
  EXPECT_EQ(1u, found.message);
  EXPECT_EQ(0, GetWindowMessage(&found, nullptr, 1));
}

TEST(MessageQueue, StaleAndForeignHandlesDoNothing) {
  HWND stale = nullptr;
  {
    const Window window;
    stale = window.Get();
    PostWindowMessage(stale, 1, 0, 0);
    EXPECT_EQ(1, IsMessageWindow(stale));
    std::thread([&] {
      EXPECT_EQ(0, DestroyMessageWindow(stale));
      EXPECT_EQ(0u, Next(stale));
      EXPECT_EQ(0, GetWindowMessage(nullptr, stale, 0xFFFFFFFF));
    }).join();
  }
  const Window reuser;  // likely in the same place
  EXPECT_NE(stale, reuser.Get());
  for (HWND bad : {stale, HWND{}, reinterpret_cast<HWND>(~std::uintptr_t{0}),
                   reinterpret_cast<HWND>(std::uintptr_t{1})}) {
    EXPECT_EQ(0, IsMessageWindow(bad));
    EXPECT_EQ(0, PostWindowMessage(bad, 1, 0, 0));
    EXPECT_EQ(0, DestroyMessageWindow(bad));
  }
  EXPECT_EQ(0u, Next(nullptr));
}

TEST(MessageQueue, WindowsGoWithTheirThread) {
  std::vector<HWND> windows;
  int descriptor = -1;
  std::thread([&] {
    for (int i = 0; i < 100; ++i) windows.push_back(CreateMessageWindow());
    descriptor = GetMessageQueueDescriptor();
    PostWindowMessage(windows[0], 1, 0, 0);
  }).join();
  for (HWND window : windows) {
    EXPECT_EQ(0, IsMessageWindow(window));
    EXPECT_EQ(0, PostWindowMessage(window, 1, 0, 0));
  }
  EXPECT_GE(descriptor, 0);
  EXPECT_EQ(0u, Next(nullptr));
}

TEST(MessageQueue, DescriptorIsReadableWhileMessagesWait) {
  const Window a;
  const Window b;
  PostWindowMessage(a.Get(), 1, 0, 0);
  const int descriptor = GetMessageQueueDescriptor();
  EXPECT_EQ(descriptor, GetMessageQueueDescriptor());
  EXPECT_TRUE(Readable(descriptor));
  PostWindowMessage(b.Get(), 2, 0, 0);
  Next(a.Get());
  EXPECT_TRUE(Readable(descriptor));
  Next(nullptr);
  EXPECT_FALSE(Readable(descriptor));
  {
    const Window brief;
    PostWindowMessage(brief.Get(), 3, 0, 0);
    EXPECT_TRUE(Readable(descriptor));
  }
  EXPECT_FALSE(Readable(descriptor));
}

// Threads post to a host that waits in poll; nothing is lost or reordered for a poster.
TEST(MessageQueue, ReceivesFromManyThreadsThroughPoll) {
  constexpr int kThreads = 4;
  constexpr std::uint64_t kEach = 2'000;
  const Window window;
  const int descriptor = GetMessageQueueDescriptor();
  std::vector<std::thread> posters;
  for (int i = 0; i < kThreads; ++i) {
    posters.emplace_back([&, i] {
      for (std::uint64_t k = 0; k < kEach; ++k) PostWindowMessage(window.Get(), 1, k, i);
    });
  }
  std::uint64_t expected[kThreads] = {};
  for (std::uint64_t seen = 0; seen < kThreads * kEach;) {
    ASSERT_TRUE(Readable(descriptor, kLong));
    tagWINDOWMESSAGE found{};
    while (PeekWindowMessage(&found, window.Get(), 1, 1, 1) != 0) {
      EXPECT_EQ(expected[found.lParam]++, found.wParam);
      ++seen;
    }
  }
  for (std::thread& poster : posters) poster.join();
  EXPECT_FALSE(Readable(descriptor));
}

TEST(MessageQueue, GetWakesForItsOwnWindowOnly) {
  const Window wanted;
  const Window other;
  std::thread poster([&] {
    PostWindowMessage(other.Get(), 1, 0, 0);
    PostWindowMessage(wanted.Get(), 2, 0, 0);
  });
  tagWINDOWMESSAGE found{};
  EXPECT_EQ(1, GetWindowMessage(&found, wanted.Get(), 0xFFFFFFFF));
  EXPECT_EQ(2u, found.message);
  poster.join();
  EXPECT_EQ(1u, Next(other.Get()));
}

}  // namespace
}  // namespace qvx::test
