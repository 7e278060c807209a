// Locks, events and clocks. The objects are used in place and passed by pointer. All of
// this may be used from any thread; nothing here holds a lock while it waits.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "qvx/types.h"

// The lock inside a CBaseLock; opaque.
struct _RTL_CRITICAL_SECTION;

namespace qvx::core {
class EventWaitList;
}

// A re-entrant lock: the thread that holds it may lock it again and must unlock it as often.
// In a forked child a lock is free if the thread that held it didn't come along; what the
// thread that forked held, it still holds. Copying copies the inside as it stands, which
// gives no second working lock.
class QVX_API CBaseLock {
 public:
  CBaseLock();
  CBaseLock(const CBaseLock& other);
  CBaseLock& operator=(const CBaseLock& other);
  // The lock must be free, and nobody may wait for it.
  virtual ~CBaseLock();

  // Waits without limit for the lock.
  void Lock();
  // Gives the lock back. A thread that doesn't hold it changes nothing.
  void Unlock();
  // Takes the lock if that needs no waiting; non-zero if it was taken.
  int TryLock();
  // The lock inside. Valid as long as this object.
  _RTL_CRITICAL_SECTION* GetCS();

 private:
  alignas(8) unsigned char mSection[16];
};

// Holds a lock for a scope. A null lock is accepted and does nothing.
class QVX_API CAutoBaseLock {
 public:
  explicit CAutoBaseLock(CBaseLock* lock);
  CAutoBaseLock(const CAutoBaseLock& other) = delete;
  CAutoBaseLock& operator=(const CAutoBaseLock& other) = delete;
  virtual ~CAutoBaseLock();

 private:
  CBaseLock* mLock;
};

// An event that threads wait for. A manual-reset event stays signalled until Reset and lets
// all waiters through; an auto-reset event lets one waiter through and clears itself. Set
// releases the threads that wait at that moment, whatever follows it.
//
// Events may share a lock: Set, Reset and the changes of the waiting flag then happen with
// that lock held, which is never held during a wait. Without one an event is guarded by
// itself. A thread that was let through by Set may destroy the event at once, even while
// that call of Set is still on its way out.
//
// A copy is a second name for the same event and shares its lock; it has a waiting flag of
// its own. In a forked child no thread waits on an event any more.
class QVX_API CBaseEvent {
 public:
  // Auto-reset, not signalled, without a shared lock.
  CBaseEvent();
  // Not signalled. manualReset: non-zero for a manual-reset event. lock may be null; it isn't
  // owned and must live as long as the event is used. An event that can't be made logs that
  // at level 4 and lives on; its waits return at once, Wait() and Wait(all ones) with 1, the
  // others with 0.
  CBaseEvent(CBaseLock* lock, int manualReset);
  CBaseEvent(const CBaseEvent& other);
  CBaseEvent& operator=(const CBaseEvent& other);
  // Nobody may wait on the event. Doesn't touch a shared lock.
  virtual ~CBaseEvent();

  void Set();
  void Reset();
  // Waits without limit. Returns 1.
  int Wait();
  // Waits at most ms milliseconds; all ones is no limit. 1 if signalled, 0 after the time
  // limit or a failure.
  int Wait(std::uint64_t ms);
  // As Wait, with a limit in microseconds that is rounded down to whole milliseconds; below
  // 1,000 it only looks. All ones is no limit.
  int WaitUS(std::uint64_t us);
  // 1 while a thread is inside a wait. A hint, read without a lock: the return of one waiter
  // clears it for all. A wait that needs no waiting need not show.
  int IsWaiting();

 private:
  friend class qvx::core::EventWaitList;

  int WaitUntil(std::int64_t deadline);
  bool TakeWithoutWaiting();
  void SetWaiting(int waiting);

  std::atomic<int> mWaiting;
  void* mEvent;
  CBaseLock* mLock;
  int mForeignLock;
};

extern "C" {

// Waits until one of count events is signalled, or, with waitAll non-zero, until all are at
// the same time. An auto-reset event that the wait takes is cleared; a wait for all takes
// all or none. Any number of events; timeoutMs in milliseconds, 0xFFFFFFFF and above is no
// limit. While it waits, all events show as waited for.
// Returns 0 plus the index of the event (of the lowest one that was signalled already; 0
// with waitAll), 258 after the time limit, 0xFFFFFFFF on failure: count 0, a null event, an
// event that couldn't be made, or the same event twice in a wait for all.
QVX_API unsigned long WaitMultiEvent(unsigned long count, CBaseEvent** events, int waitAll,
                                     unsigned long timeoutMs);

// Milliseconds of the system's monotonic clock, cut to 32 bits; wraps after 49.7 days.
QVX_API unsigned int MS_GetTime();

// Sleeps for ms milliseconds.
QVX_API void HQ_Sleep(unsigned int ms);

// Spins for us microseconds without giving the processor away.
QVX_API void MS_BusyDelay(unsigned int us);
}
