#include "qvx/sync.h"

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <new>

#include "core/quiet_log.h"
#include "platform/clock.h"
#include "platform/event.h"
#include "platform/lock.h"
#include "qvx/debug_output.h"

namespace {

using qvx::platform::Deadline;
using qvx::platform::DeadlineAfterMilliseconds;
using qvx::platform::Event;
using qvx::platform::kNoDeadline;
using qvx::platform::RecursiveLock;
using qvx::platform::WaitLink;

constexpr std::uint64_t kNoLimit = ~std::uint64_t{0};
constexpr unsigned long kTimedOut = 258;
constexpr unsigned long kFailed = 0xFFFFFFFF;

// What a CBaseEvent and its copies refer to.
struct SharedEvent {
  explicit SharedEvent(bool manual_reset) : event(manual_reset) {}
  Event event;
  std::atomic<int> users{1};
};

SharedEvent* SharedOf(void* handle) {
  return static_cast<SharedEvent*>(handle);
}

void* AddUser(void* handle) {
  if (handle != nullptr) SharedOf(handle)->users.fetch_add(1, std::memory_order_relaxed);
  return handle;
}

void RemoveUser(void* handle) {
  SharedEvent* shared = SharedOf(handle);
  if (shared != nullptr && shared->users.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete shared;
  }
}

}  // namespace

static_assert(sizeof(RecursiveLock) == sizeof(CBaseLock) - sizeof(void*));
static_assert(std::is_trivially_destructible_v<RecursiveLock>);

CBaseLock::CBaseLock() {
  new (mSection) RecursiveLock;
}
CBaseLock::CBaseLock(const CBaseLock& other) = default;
CBaseLock& CBaseLock::operator=(const CBaseLock& other) = default;
CBaseLock::~CBaseLock() = default;

_RTL_CRITICAL_SECTION* CBaseLock::GetCS() {
  return std::launder(reinterpret_cast<RecursiveLock*>(mSection));
}

void CBaseLock::Lock() {
  GetCS()->lock();
}
void CBaseLock::Unlock() {
  GetCS()->unlock();
}
int CBaseLock::TryLock() {
  return GetCS()->try_lock() ? 1 : 0;
}

CAutoBaseLock::CAutoBaseLock(CBaseLock* lock) : mLock(lock) {
  if (mLock != nullptr) mLock->Lock();
}

CAutoBaseLock::~CAutoBaseLock() {
  if (mLock != nullptr) mLock->Unlock();
}

CBaseEvent::CBaseEvent() : CBaseEvent(nullptr, 0) {}

CBaseEvent::CBaseEvent(CBaseLock* lock, int manualReset)
    : mWaiting(0),
      mEvent(new (std::nothrow) SharedEvent(manualReset != 0)),
      mLock(lock),
      mForeignLock(lock != nullptr) {
  if (mEvent == nullptr) {
    qvx::core::LogQuietly([&] {
      DbgOutputA(4, "Event(%p) Construct: cannot create event (condition)\r\n",
                 static_cast<void*>(this));
    });
  }
}

CBaseEvent::CBaseEvent(const CBaseEvent& other)
    : mWaiting(other.mWaiting.load(std::memory_order_relaxed)),
      mEvent(AddUser(other.mEvent)),
      mLock(other.mLock),
      mForeignLock(other.mForeignLock) {}

CBaseEvent& CBaseEvent::operator=(const CBaseEvent& other) {
  void* former = mEvent;
  mEvent = AddUser(other.mEvent);
  RemoveUser(former);
  mWaiting.store(other.mWaiting.load(std::memory_order_relaxed), std::memory_order_relaxed);
  mLock = other.mLock;
  mForeignLock = other.mForeignLock;
  return *this;
}

CBaseEvent::~CBaseEvent() {
  RemoveUser(mEvent);
}

void CBaseEvent::Set() {
  if (mEvent == nullptr) return;
  CAutoBaseLock guard(mLock);
  SharedOf(mEvent)->event.Set();
}

void CBaseEvent::Reset() {
  if (mEvent == nullptr) return;
  CAutoBaseLock guard(mLock);
  SharedOf(mEvent)->event.Reset();
}

int CBaseEvent::Wait() {
  WaitUntil(kNoDeadline);
  return 1;
}

int CBaseEvent::Wait(std::uint64_t ms) {
  return ms == kNoLimit ? Wait() : WaitUntil(DeadlineAfterMilliseconds(ms));
}

int CBaseEvent::WaitUS(std::uint64_t us) {
  return us == kNoLimit ? WaitUntil(kNoDeadline) : Wait(us / 1000);
}

int CBaseEvent::WaitUntil(Deadline deadline) {
  if (mEvent == nullptr) return 0;
  Event& event = SharedOf(mEvent)->event;
  if (TakeWithoutWaiting()) return 1;
  SetWaiting(1);
  const bool signalled = event.Wait(deadline);
  SetWaiting(0);
  return signalled ? 1 : 0;
}

// A wait that finds the event signalled raises and clears the flag in one step.
bool CBaseEvent::TakeWithoutWaiting() {
  CAutoBaseLock guard(mLock);
  if (!SharedOf(mEvent)->event.TryTake()) return false;
  mWaiting.store(0, std::memory_order_relaxed);
  return true;
}

void CBaseEvent::SetWaiting(int waiting) {
  CAutoBaseLock guard(mLock);
  mWaiting.store(waiting, std::memory_order_relaxed);
}

int CBaseEvent::IsWaiting() {
  return mWaiting.load(std::memory_order_relaxed);
}

namespace qvx::core {

// The events of one WaitMultiEvent and their places in the lists; short ones without memory
// from the heap.
class EventWaitList {
 public:
  EventWaitList(CBaseEvent** events, std::size_t count) : events_(events), count_(count) {
    if (count > kShort) {
      long_handles_ = std::make_unique<Event*[]>(count);
      long_links_ = std::make_unique<WaitLink[]>(count);
      handles_ = long_handles_.get();
      links_ = long_links_.get();
    }
  }

  // False if one of the events can't be waited for.
  bool Collect() {
    for (std::size_t i = 0; i < count_; ++i) {
      if (events_[i] == nullptr || events_[i]->mEvent == nullptr) return false;
      handles_[i] = &SharedOf(events_[i]->mEvent)->event;
    }
    return true;
  }

  bool HasTwins() const {
    const auto sorted = std::make_unique<Event*[]>(count_);
    Event** const end = std::copy_n(handles_, count_, sorted.get());
    std::sort(sorted.get(), end, std::less<>());
    return std::adjacent_find(sorted.get(), end) != end;
  }

  unsigned long Wait(bool all, Deadline deadline) {
    if (all && HasTwins()) return kFailed;
    SetWaiting(1);
    const std::ptrdiff_t index = all ? (platform::WaitAll(handles_, links_, count_, deadline) - 1)
                                     : platform::WaitAny(handles_, links_, count_, deadline);
    SetWaiting(0);
    return index < 0 ? kTimedOut : static_cast<unsigned long>(index);
  }

 private:
  static constexpr std::size_t kShort = 8;

  void SetWaiting(int waiting) {
    for (std::size_t i = 0; i < count_; ++i) events_[i]->SetWaiting(waiting);
  }

  CBaseEvent** events_;
  std::size_t count_;
  std::array<Event*, kShort> short_handles_;
  std::array<WaitLink, kShort> short_links_;
  std::unique_ptr<Event*[]> long_handles_;
  std::unique_ptr<WaitLink[]> long_links_;
  Event** handles_ = short_handles_.data();
  WaitLink* links_ = short_links_.data();
};

}  // namespace qvx::core

unsigned long WaitMultiEvent(unsigned long count, CBaseEvent** events, int waitAll,
                             unsigned long timeoutMs) {
  if (count == 0 || events == nullptr) return kFailed;
  qvx::core::EventWaitList list(events, count);
  if (!list.Collect()) return kFailed;
  const Deadline deadline =
      timeoutMs >= 0xFFFFFFFF ? kNoDeadline : DeadlineAfterMilliseconds(timeoutMs);
  return list.Wait(waitAll != 0, deadline);
}

unsigned int MS_GetTime() {
  return qvx::platform::TickMilliseconds();
}

void HQ_Sleep(unsigned int ms) {
  qvx::platform::SleepMilliseconds(ms);
}

void MS_BusyDelay(unsigned int us) {
  const std::int64_t start = qvx::platform::MonotonicNanoseconds();
  while ((qvx::platform::MonotonicNanoseconds() - start) / 1000 < us) {
  }
}
