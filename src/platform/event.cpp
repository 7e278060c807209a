#include "platform/event.h"

#include <mutex>

#include "platform/fork_state.h"
#include "platform/futex.h"

namespace qvx::platform {

// The phase goes from waiting to claimed once, by whoever lets the waiter through or by the
// waiter that gives up, and then to released, after which only the waiter uses its memory.
struct Waiter {
  static constexpr std::uint32_t kWaiting = 0;
  static constexpr std::uint32_t kClaimed = 1;
  static constexpr std::uint32_t kReleased = 2;

  std::atomic<std::uint32_t> phase{kWaiting};
  std::size_t index = 0;           // of the event that let it through
  Event* const* events = nullptr;  // set for a wait for all
  WaitLink* links = nullptr;
  std::size_t count = 0;

  bool ForAll() const { return events != nullptr; }

  bool Claim() {
    std::uint32_t expected = kWaiting;
    return phase.compare_exchange_strong(expected, kClaimed, std::memory_order_acq_rel);
  }

  // False if the deadline came first and the waiter has claimed itself.
  bool Sleep(Deadline deadline) {
    for (;;) {
      const std::uint32_t seen = phase.load(std::memory_order_acquire);
      if (seen == kReleased) return true;
      if (FutexWait(phase, seen, deadline)) continue;
      if (Claim()) return false;
      deadline = kNoDeadline;
    }
  }

  void Release() {
    phase.store(kReleased, std::memory_order_release);
    FutexWake(&phase, 1);
  }
};

namespace {

constexpr std::uint32_t kSignalled = 1;
// With one of these the state changes under the event's mutex only, but for Reset.
constexpr std::uint32_t kListed = 2;     // the list isn't empty
constexpr std::uint32_t kAllListed = 4;  // somebody in it waits for all of several

// Guards the waits for all: held where such a waiter is looked at, and outside the mutexes
// of its events, of which then several may be held.
constinit LeafLock all_lock;

// Lets waiters go whose links, chained by next, are in no list any more.
void ReleaseChain(WaitLink* chain) {
  while (chain != nullptr) {
    WaitLink* next = chain->next;
    chain->waiter->Release();
    chain = next;
  }
}

}  // namespace

Event::Event(bool manual_reset) noexcept
    : manual_(manual_reset), generation_(detail::fork_generation.load(std::memory_order_relaxed)) {}

void Event::Set() noexcept {
  bool has_all_lock = false;
  while (!SetUnlisted()) {
    // Taken before the event changes: a waiter for all may be let through, and destroy the
    // event, by somebody else as soon as this event is signalled and its mutex is free.
    if (NeedsAllLock()) {
      all_lock.lock();
      has_all_lock = true;
    }
    if (SetListed(has_all_lock)) return;
    if (has_all_lock) all_lock.unlock();
    has_all_lock = false;
  }
}

bool Event::NeedsAllLock() const noexcept {
  return (state_.load(std::memory_order_relaxed) & kAllListed) != 0;
}

// Signals the event if nobody is in its list.
bool Event::SetUnlisted() noexcept {
  std::uint32_t seen = state_.load(std::memory_order_relaxed);
  while ((seen & kListed) == 0) {
    if (state_.compare_exchange_weak(seen, kSignalled, std::memory_order_acq_rel,
                                     std::memory_order_relaxed)) {
      return true;
    }
  }
  return false;
}

// Signals the event if somebody is in its list, and then frees both locks; else does nothing.
// Signalling an event without waiters here would let a thread destroy it that the mutex
// doesn't hold back. The waiters claimed here go only when nothing is touched any more.
bool Event::SetListed(bool has_all_lock) noexcept {
  mutex_.lock();
  DropVanished();
  if (first_ == nullptr || (all_waiters_ != 0 && !has_all_lock)) {
    mutex_.unlock();
    return false;
  }
  WaitLink* released = Claim();
  if (has_all_lock && IsSignalled()) {
    WaitLink** end = &released;
    while (*end != nullptr) end = &(*end)->next;
    *end = ClaimAll();
  }
  mutex_.unlock();
  if (has_all_lock) all_lock.unlock();
  ReleaseChain(released);
  return true;
}

// Signals the event and claims the waiters that this alone lets through: one, or all of them
// for a manual-reset event.
WaitLink* Event::Claim() noexcept {
  WaitLink* claimed = nullptr;
  WaitLink** end = &claimed;
  for (WaitLink *link = first_, *next = nullptr; link != nullptr; link = next) {
    next = link->next;
    if (link->waiter->ForAll() || !link->waiter->Claim()) continue;
    link->waiter->index = link->index;
    Delist(*link, false);
    *end = link;
    end = &link->next;
    if (!manual_) return claimed;
  }
  state_.fetch_or(kSignalled, std::memory_order_acq_rel);
  return claimed;
}

// Claims the waiters for all whose other events are signalled too, while this one still is.
WaitLink* Event::ClaimAll() noexcept {
  WaitLink* claimed = nullptr;
  for (WaitLink *link = first_, *next = nullptr; link != nullptr && IsSignalled(); link = next) {
    next = link->next;
    Waiter& waiter = *link->waiter;
    if (!waiter.ForAll()) continue;
    bool ready = true;
    for (std::size_t i = 0; i < waiter.count; ++i) {
      if (waiter.events[i] != this) waiter.events[i]->mutex_.lock();
      ready = ready && waiter.events[i]->IsSignalled();
    }
    ready = ready && waiter.Claim();
    for (std::size_t i = 0; i < waiter.count; ++i) {
      Event& event = *waiter.events[i];
      if (ready) {
        event.TakeLocked();
        event.Delist(waiter.links[i], true);
      }
      if (&event != this) event.mutex_.unlock();
    }
    if (!ready) continue;
    link->next = claimed;
    claimed = link;
  }
  return claimed;
}

void Event::Reset() noexcept {
  state_.fetch_and(~kSignalled, std::memory_order_acq_rel);
}

bool Event::IsSignalled() const noexcept {
  return (state_.load(std::memory_order_acquire) & kSignalled) != 0;
}

bool Event::TakeLocked() noexcept {
  if (manual_) return IsSignalled();
  return (state_.fetch_and(~kSignalled, std::memory_order_acq_rel) & kSignalled) != 0;
}

bool Event::TryTake() noexcept {
  std::uint32_t seen = state_.load(std::memory_order_acquire);
  if ((seen & kSignalled) == 0) return false;
  if (seen == kSignalled && manual_) return true;
  if (seen == kSignalled && state_.compare_exchange_strong(seen, 0, std::memory_order_acq_rel,
                                                           std::memory_order_relaxed)) {
    return true;
  }
  std::lock_guard<LeafLock> guard(mutex_);
  DropVanished();
  return TakeLocked();
}

void Event::DropVanished() noexcept {
  const std::uint32_t generation = detail::fork_generation.load(std::memory_order_relaxed);
  if (generation_ == generation) return;
  generation_ = generation;
  first_ = last_ = nullptr;
  all_waiters_ = 0;
  state_.fetch_and(kSignalled, std::memory_order_relaxed);
}

void Event::Enlist(WaitLink& link, bool for_all) noexcept {
  link.previous = last_;
  link.next = nullptr;
  link.linked = true;
  (last_ != nullptr ? last_->next : first_) = &link;
  last_ = &link;
  if (for_all) ++all_waiters_;
  state_.fetch_or(for_all ? kListed | kAllListed : kListed, std::memory_order_acq_rel);
}

void Event::Delist(WaitLink& link, bool for_all) noexcept {
  (link.previous != nullptr ? link.previous->next : first_) = link.next;
  (link.next != nullptr ? link.next->previous : last_) = link.previous;
  link.next = nullptr;
  link.linked = false;
  if (for_all) --all_waiters_;
  const std::uint32_t gone =
      (first_ == nullptr ? kListed : 0) | (all_waiters_ == 0 ? kAllListed : 0);
  if (gone != 0) state_.fetch_and(~gone, std::memory_order_acq_rel);
}

// Takes the event for a waiter that nobody has let through yet, else puts it into the list.
// While the waiter is in the list only Reset can interfere, and then came after the taking.
Event::Admission Event::Admit(WaitLink& link) noexcept {
  std::lock_guard<LeafLock> guard(mutex_);
  DropVanished();
  Enlist(link, false);
  if (!IsSignalled()) return Admission::kEnlisted;
  if (!link.waiter->Claim()) return Admission::kClaimed;
  TakeLocked();
  link.waiter->index = link.index;
  return Admission::kTaken;
}

void Event::Leave(WaitLink& link) noexcept {
  std::lock_guard<LeafLock> guard(mutex_);
  Delist(link, false);
}

class AnyWait {
 public:
  AnyWait(Event* const* events, WaitLink* links, std::size_t count)
      : events_(events), links_(links), count_(count) {}

  std::ptrdiff_t Run(Deadline deadline) {
    const bool through = Admit() || waiter_.Sleep(deadline);
    for (std::size_t i = 0; i < count_; ++i) {
      if (links_[i].linked) events_[i]->Leave(links_[i]);
    }
    return through ? static_cast<std::ptrdiff_t>(waiter_.index) : -1;
  }

 private:
  bool Admit() {
    for (std::size_t i = 0; i < count_; ++i) {
      links_[i].waiter = &waiter_;
      links_[i].index = i;
      const Event::Admission admission = events_[i]->Admit(links_[i]);
      if (admission == Event::Admission::kTaken) return true;
      if (admission == Event::Admission::kClaimed) return false;
    }
    return false;
  }

  Event* const* events_;
  WaitLink* links_;
  std::size_t count_;
  Waiter waiter_;
};

class AllWait {
 public:
  AllWait(Event* const* events, WaitLink* links, std::size_t count)
      : events_(events), links_(links), count_(count) {}

  bool Run(Deadline deadline) {
    if (TakeOrEnlist()) return true;
    if (waiter_.Sleep(deadline)) return true;
    std::lock_guard<LeafLock> guard(all_lock);
    for (std::size_t i = 0; i < count_; ++i) {
      std::lock_guard<LeafLock> event_guard(events_[i]->mutex_);
      events_[i]->Delist(links_[i], true);
    }
    return false;
  }

 private:
  bool TakeOrEnlist() {
    std::lock_guard<LeafLock> guard(all_lock);
    waiter_.events = events_;
    waiter_.links = links_;
    waiter_.count = count_;
    for (std::size_t i = 0; i < count_; ++i) {
      events_[i]->mutex_.lock();
      events_[i]->DropVanished();
      links_[i].waiter = &waiter_;
      events_[i]->Enlist(links_[i], true);
    }
    bool ready = true;
    for (std::size_t i = 0; i < count_; ++i) ready = ready && events_[i]->IsSignalled();
    for (std::size_t i = 0; i < count_; ++i) {
      if (ready) {
        events_[i]->TakeLocked();
        events_[i]->Delist(links_[i], true);
      }
      events_[i]->mutex_.unlock();
    }
    return ready;
  }

  Event* const* events_;
  WaitLink* links_;
  std::size_t count_;
  Waiter waiter_;
};

std::ptrdiff_t WaitAny(Event* const* events, WaitLink* links, std::size_t count,
                       Deadline deadline) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    if (events[i]->TryTake()) return static_cast<std::ptrdiff_t>(i);
  }
  if (DeadlineReached(deadline)) return -1;
  return AnyWait(events, links, count).Run(deadline);
}

bool WaitAll(Event* const* events, WaitLink* links, std::size_t count, Deadline deadline) noexcept {
  return AllWait(events, links, count).Run(deadline);
}

bool Event::Wait(Deadline deadline) noexcept {
  if (TryTake()) return true;
  if (DeadlineReached(deadline)) return false;
  WaitLink link;
  Event* self = this;
  return AnyWait(&self, &link, 1).Run(deadline) == 0;
}

}  // namespace qvx::platform
