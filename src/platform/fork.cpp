#include "platform/fork.h"

#include <pthread.h>

#include <mutex>

#include "platform/fork_state.h"

namespace qvx::platform {
namespace detail {

constinit std::atomic<std::uint32_t> fork_generation{0};
constinit std::atomic<std::uint64_t> fork_survivor{0};
constinit thread_local std::uint64_t thread_serial __attribute__((tls_model("initial-exec"))) = 0;

std::uint64_t MakeThreadSerial() noexcept {
  static constinit std::atomic<std::uint64_t> last{0};
  thread_serial = last.fetch_add(1, std::memory_order_relaxed) + 1;
  return thread_serial;
}

}  // namespace detail

// How long a fork may be held up by locks that others hold.
constexpr std::uint64_t kPatienceMilliseconds = 500;

struct ForkRegistry {
  constinit static RecursiveLock lock;
  constinit static ForkGuard* first;
  constinit static bool installed;

  static void Add(ForkGuard& guard);
  static void Remove(ForkGuard& guard);

  static void Prepare();
  static void Parent();
  static void Child();

  static ForkGuard* TakeAll(ForkGuard* start);
  static void ReleaseAll();
};

constinit RecursiveLock ForkRegistry::lock;
constinit ForkGuard* ForkRegistry::first = nullptr;
constinit bool ForkRegistry::installed = false;

void ForkRegistry::Add(ForkGuard& guard) {
  std::lock_guard<RecursiveLock> hold(lock);
  if (!installed) installed = pthread_atfork(&Prepare, &Parent, &Child) == 0;
  guard.next_ = first;
  if (first != nullptr) first->previous_ = &guard;
  first = &guard;
}

void ForkRegistry::Remove(ForkGuard& guard) {
  std::lock_guard<RecursiveLock> hold(lock);
  if (guard.next_ != nullptr) guard.next_->previous_ = guard.previous_;
  (guard.previous_ != nullptr ? guard.previous_->next_ : first) = guard.next_;
}

// Takes every lock that is free right now. Gives back a guard whose lock another thread
// holds, or null if all are taken.
ForkGuard* ForkRegistry::TakeAll(ForkGuard* start) {
  ForkGuard* missing = nullptr;
  for (ForkGuard* guard = start; guard != nullptr; guard = guard->next_) {
    if (guard->lock_ == nullptr || guard->held_) continue;
    guard->held_ = guard->lock_->try_lock();
    if (!guard->held_) missing = guard;
  }
  return missing;
}

void ForkRegistry::ReleaseAll() {
  for (ForkGuard* guard = first; guard != nullptr; guard = guard->next_) {
    if (guard->held_) guard->lock_->unlock();
    guard->held_ = false;
  }
}

// Never waits for one lock with another one held, so it can't be part of a deadlock.
void ForkRegistry::Prepare() {
  const Deadline deadline = DeadlineAfterMilliseconds(kPatienceMilliseconds);
  if (!lock.LockUntil(deadline)) return;
  while (ForkGuard* missing = TakeAll(first)) {
    if (DeadlineReached(deadline)) return;
    ReleaseAll();
    missing->held_ = missing->lock_->LockUntil(deadline);
  }
}

void ForkRegistry::Parent() {
  if (!lock.HeldByThisThread()) return;
  ReleaseAll();
  lock.unlock();
}

void ForkRegistry::Child() {
  detail::fork_survivor.store(detail::ThreadSerial(), std::memory_order_relaxed);
  detail::fork_generation.fetch_add(1, std::memory_order_relaxed);
  lock.lock();
  for (ForkGuard* guard = first; guard != nullptr; guard = guard->next_) {
    if (guard->child_ != nullptr) guard->child_(guard->context_);
  }
  lock.unlock();
  Parent();
}

std::uint32_t ForkGeneration() noexcept {
  return detail::fork_generation.load(std::memory_order_relaxed);
}

std::uint64_t ThreadSerial() noexcept {
  return detail::ThreadSerial();
}

std::uint64_t ForkSurvivor() noexcept {
  return detail::fork_survivor.load(std::memory_order_relaxed);
}

ForkGuard::ForkGuard(RecursiveLock* lock, ChildFunction child, void* context) noexcept
    : lock_(lock), child_(child), context_(context) {
  ForkRegistry::Add(*this);
}

ForkGuard::~ForkGuard() {
  ForkRegistry::Remove(*this);
}

}  // namespace qvx::platform
