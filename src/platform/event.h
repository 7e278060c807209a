// Events to wait for, alone or several at once. Memory only, no descriptors. Set hands an
// event over to threads that wait at that moment; whoever is let through may destroy the
// event at once, as Set touches nothing of it afterwards. In a forked child nobody waits.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "platform/clock.h"
#include "platform/lock.h"

namespace qvx::platform {

struct Waiter;

// The place of a waiter in the list of one event.
struct WaitLink {
  Waiter* waiter = nullptr;
  std::size_t index = 0;  // of the event in the wait
  WaitLink* previous = nullptr;
  WaitLink* next = nullptr;
  bool linked = false;
};

class Event {
 public:
  explicit Event(bool manual_reset) noexcept;
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  void Set() noexcept;
  void Reset() noexcept;
  // Lets the caller through if the event is signalled; clears an auto-reset event.
  bool TryTake() noexcept;
  // False if the deadline came first.
  bool Wait(Deadline deadline) noexcept;

 private:
  friend class AnyWait;
  friend class AllWait;

  enum class Admission { kTaken, kClaimed, kEnlisted };

  bool SetUnlisted() noexcept;
  bool SetListed(bool has_all_lock) noexcept;
  bool NeedsAllLock() const noexcept;
  WaitLink* Claim() noexcept;
  WaitLink* ClaimAll() noexcept;
  bool TakeLocked() noexcept;
  bool IsSignalled() const noexcept;
  void DropVanished() noexcept;
  void Enlist(WaitLink& link, bool for_all) noexcept;
  void Delist(WaitLink& link, bool for_all) noexcept;
  Admission Admit(WaitLink& link) noexcept;
  void Leave(WaitLink& link) noexcept;

  std::atomic<std::uint32_t> state_{0};
  const bool manual_;
  LeafLock mutex_;
  std::uint32_t generation_;
  std::uint32_t all_waiters_ = 0;
  WaitLink* first_ = nullptr;
  WaitLink* last_ = nullptr;
};

// Waits for one of count events. links has count elements and is scratch. The index of the
// event that let the caller through, or -1 once the deadline is reached.
std::ptrdiff_t WaitAny(Event* const* events, WaitLink* links, std::size_t count,
                       Deadline deadline) noexcept;

// Waits until all of count different events are signalled at the same time and takes all.
// False, with nothing taken, once the deadline is reached.
bool WaitAll(Event* const* events, WaitLink* links, std::size_t count, Deadline deadline) noexcept;

}  // namespace qvx::platform
