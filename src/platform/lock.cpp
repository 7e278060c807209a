#include "platform/lock.h"

#include "platform/fork_state.h"
#include "platform/futex.h"

// A lock word is 0 while free, else the fork generation above two bits of state.
namespace {

using qvx::platform::Deadline;
using qvx::platform::FutexWait;
using qvx::platform::FutexWake;
using qvx::platform::kNoDeadline;
namespace detail = qvx::platform::detail;

constexpr std::uint32_t kHeld = 1;
constexpr std::uint32_t kAwaited = 2;  // held, and somebody sleeps on the word
constexpr std::uint32_t kStateMask = 3;

std::uint32_t Generation() {
  return detail::fork_generation.load(std::memory_order_relaxed) << 2;
}

bool IsOld(std::uint32_t word) {
  return ((word ^ Generation()) & ~kStateMask) != 0;
}

bool Replace(std::atomic<std::uint32_t>& word, std::uint32_t& seen, std::uint32_t wanted) {
  return word.compare_exchange_weak(seen, wanted, std::memory_order_acquire,
                                    std::memory_order_relaxed);
}

// Takes the lock, whose word was seen as held, as soon as it is free or abandoned.
template <typename IsAbandoned>
bool Await(std::atomic<std::uint32_t>& word, Deadline deadline, IsAbandoned is_abandoned) {
  std::uint32_t seen = word.load(std::memory_order_relaxed);
  for (;;) {
    if (seen == 0 || is_abandoned(seen)) {
      if (Replace(word, seen, Generation() | kAwaited)) return true;
      continue;
    }
    const std::uint32_t awaited = (seen & ~kStateMask) | kAwaited;
    if (seen != awaited && !Replace(word, seen, awaited)) continue;
    if (!FutexWait(word, awaited, deadline)) return false;
    seen = word.load(std::memory_order_relaxed);
  }
}

void Free(std::atomic<std::uint32_t>& word) {
  const std::uint32_t seen = word.exchange(0, std::memory_order_release);
  if ((seen & kStateMask) == kAwaited) FutexWake(&word, 1);
}

}  // namespace

bool _RTL_CRITICAL_SECTION::HeldByThisThread() const noexcept {
  return owner_.load(std::memory_order_relaxed) == detail::ThreadSerial();
}

void _RTL_CRITICAL_SECTION::Own(std::uint64_t self) noexcept {
  owner_.store(self, std::memory_order_relaxed);
  depth_ = 1;
}

// True if the holder didn't come along when the process forked.
bool _RTL_CRITICAL_SECTION::IsAbandoned(std::uint32_t word) const noexcept {
  return IsOld(word) && owner_.load(std::memory_order_acquire) !=
                            detail::fork_survivor.load(std::memory_order_relaxed);
}

bool _RTL_CRITICAL_SECTION::try_lock() noexcept {
  const std::uint64_t self = detail::ThreadSerial();
  if (owner_.load(std::memory_order_relaxed) == self) {
    ++depth_;
    return true;
  }
  std::uint32_t seen = 0;
  const std::uint32_t wanted = Generation() | kHeld;
  bool taken = word_.compare_exchange_strong(seen, wanted, std::memory_order_acquire,
                                             std::memory_order_relaxed);
  if (!taken && IsAbandoned(seen)) {
    taken = word_.compare_exchange_strong(seen, wanted, std::memory_order_acquire,
                                          std::memory_order_relaxed);
  }
  if (taken) Own(self);
  return taken;
}

bool _RTL_CRITICAL_SECTION::LockUntil(Deadline deadline) noexcept {
  if (try_lock()) return true;
  if (!Await(word_, deadline, [this](std::uint32_t word) { return IsAbandoned(word); })) {
    return false;
  }
  Own(detail::ThreadSerial());
  return true;
}

void _RTL_CRITICAL_SECTION::unlock() noexcept {
  if (!HeldByThisThread()) return;
  if (--depth_ != 0) return;
  // A lock that its holder took before the fork must look like one of this process before
  // the owner goes, or others would take it for abandoned.
  std::uint32_t seen = word_.load(std::memory_order_relaxed);
  while (IsOld(seen) && !word_.compare_exchange_weak(seen, Generation() | (seen & kStateMask),
                                                     std::memory_order_relaxed)) {
  }
  owner_.store(0, std::memory_order_release);
  Free(word_);
}

namespace qvx::platform {

void LeafLock::lock() noexcept {
  std::uint32_t seen = 0;
  if (word_.compare_exchange_strong(seen, Generation() | kHeld, std::memory_order_acquire,
                                    std::memory_order_relaxed)) {
    return;
  }
  Await(word_, kNoDeadline, [](std::uint32_t word) { return IsOld(word); });
}

void LeafLock::unlock() noexcept {
  Free(word_);
}

}  // namespace qvx::platform
