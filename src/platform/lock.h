// The two locks of the library. Both can be constants of the image, need no clean-up, and are
// free in a forked child if the thread that held them didn't come along: the lock word holds
// the fork generation in which it was taken. Unlocking touches nothing of a lock after it is
// free, so the next holder may destroy it.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/clock.h"

// The re-entrant lock.
struct _RTL_CRITICAL_SECTION {
 public:
  constexpr _RTL_CRITICAL_SECTION() noexcept = default;

  void lock() noexcept { LockUntil(qvx::platform::kNoDeadline); }
  bool try_lock() noexcept;
  // A thread that doesn't hold the lock changes nothing.
  void unlock() noexcept;
  // False if the lock couldn't be had in time.
  bool LockUntil(qvx::platform::Deadline deadline) noexcept;
  bool HeldByThisThread() const noexcept;

 private:
  bool IsAbandoned(std::uint32_t word) const noexcept;
  void Own(std::uint64_t self) noexcept;

  std::atomic<std::uint32_t> word_{0};
  std::uint32_t depth_ = 0;              // used by the holder only
  std::atomic<std::uint64_t> owner_{0};  // ThreadSerial of the holder, 0 while free
};

namespace qvx::platform {

using RecursiveLock = ::_RTL_CRITICAL_SECTION;

// A lock for short steps that call nothing foreign and never fork. Not re-entrant.
class LeafLock {
 public:
  constexpr LeafLock() noexcept = default;
  LeafLock(const LeafLock&) = delete;
  LeafLock& operator=(const LeafLock&) = delete;

  void lock() noexcept;
  void unlock() noexcept;

 private:
  std::atomic<std::uint32_t> word_{0};
};

}  // namespace qvx::platform
