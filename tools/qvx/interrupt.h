// SIGINT and SIGTERM, taken by waiting for them instead of by handlers.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace qvx::tool {

// Blocks until one of the two signals comes. Signals must be blocked since before the first
// thread was made.
void BlockInterrupts();
void WaitForInterrupt();
// True if one came within the time.
bool WaitForInterrupt(int milliseconds);

// While it lives, the first interrupt sets a flag that the work looks at. If the work is still
// going on 2 s later, or at a second interrupt, give_up is called once, on another thread.
class InterruptGuard {
 public:
  explicit InterruptGuard(std::function<void()> give_up);
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

  bool Interrupted() const { return interrupted_.load(); }

 private:
  void Watch();

  std::function<void()> give_up_;
  std::atomic<bool> interrupted_{false};
  std::atomic<bool> over_{false};
  std::thread thread_;
};

}  // namespace qvx::tool
