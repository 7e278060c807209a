// Threads for tests that need traffic.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

namespace qvx::test {

// Runs body on count threads at once, each with its number.
inline void RunOnThreads(int count, const std::function<void(int thread)>& body) {
  std::vector<std::thread> threads;
  threads.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) threads.emplace_back([&body, i] { body(i); });
  for (std::thread& thread : threads) thread.join();
}

// Runs body again and again on a thread of its own for as long as it lives.
class Busy {
 public:
  explicit Busy(std::function<void()> body)
      : thread_([this, body = std::move(body)] {
          while (!stop_) body();
        }) {}
  ~Busy() {
    stop_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace qvx::test
