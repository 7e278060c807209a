#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "qvx/sync.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

void LockOurs(long long times) {
  CBaseLock lock;
  for (long long i = 0; i < times; ++i) {
    lock.Lock();
    benchmark::ClobberMemory();
    lock.Unlock();
  }
}

void LockPeer(long long times) {
  std::recursive_mutex lock;
  for (long long i = 0; i < times; ++i) {
    lock.lock();
    benchmark::ClobberMemory();
    lock.unlock();
  }
}

// An auto-reset event of nothing but a mutex and a condition variable.
class BareEvent {
 public:
  void Set() {
    std::lock_guard<std::mutex> guard(mutex_);
    set_ = true;
    condition_.notify_one();
  }
  void Wait() {
    std::unique_lock<std::mutex> guard(mutex_);
    condition_.wait(guard, [this] { return set_; });
    set_ = false;
  }

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
  bool set_ = false;
};

template <class Event>
void SetThenWait(long long times) {
  Event event;
  for (long long i = 0; i < times; ++i) {
    event.Set();
    event.Wait();
  }
}

template <class Event>
void PingPong(long long times) {
  Event ping;
  Event pong;
  std::thread other([&] {
    for (long long i = 0; i < times; ++i) {
      ping.Wait();
      pong.Set();
    }
  });
  for (long long i = 0; i < times; ++i) {
    ping.Set();
    pong.Wait();
  }
  other.join();
}

const bool kAdded =
    AddPair({"lock and unlock", 1.3, &LockOurs, &LockPeer}) &&
    AddPair({"event set and wait", 1.3, &SetThenWait<CBaseEvent>, &SetThenWait<BareEvent>}) &&
    AddPair({"event ping-pong", 1.3, &PingPong<CBaseEvent>, &PingPong<BareEvent>});

}  // namespace
}  // namespace qvx::bench
