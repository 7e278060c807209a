// What the library does when the process forks without exec. Before the fork the registered
// locks are taken, so that no thread is in the middle of a change of what they guard; after it
// they are released on both sides. That has a time limit: where a lock can't be had, the fork
// goes on without it, and in the child it is free all the same.
//
// A subsystem whose objects have threads, descriptors or waiters keeps a ForkGuard in each:
// its child function runs in the child, before fork returns there, on the one thread that the
// child has, with the locks that could be had still held. It must not wait, and not make or
// destroy guards. An object that needs no such function can compare ForkGeneration with the
// one that it was started in.
#pragma once

#include <cstdint>

#include "platform/lock.h"

namespace qvx::platform {

// 0 in the process that loaded the library, one more in each forked child.
std::uint32_t ForkGeneration() noexcept;

// Serial number of the calling thread: never 0, never used again. The thread that forks keeps
// its number in the child.
std::uint64_t ThreadSerial() noexcept;

// The thread that a forked child began with; 0 in the first process.
std::uint64_t ForkSurvivor() noexcept;

class ForkGuard {
 public:
  using ChildFunction = void (*)(void* context);

  // Either may be null. Both must be usable until the guard is gone. Locks that are held one
  // inside the other may be registered in any order. For a CBaseLock: *lock.GetCS().
  explicit ForkGuard(RecursiveLock* lock, ChildFunction child = nullptr,
                     void* context = nullptr) noexcept;
  // Waits for a fork in progress, so a lock that is held here delays that fork.
  ~ForkGuard();
  ForkGuard(const ForkGuard&) = delete;
  ForkGuard& operator=(const ForkGuard&) = delete;

 private:
  friend struct ForkRegistry;

  RecursiveLock* lock_;
  ChildFunction child_;
  void* context_;
  bool held_ = false;
  ForkGuard* previous_ = nullptr;
  ForkGuard* next_ = nullptr;
};

}  // namespace qvx::platform
