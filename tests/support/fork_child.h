// Forked children that go on working.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>

// The address sanitizer's run time has locks that nobody takes before a fork: the child of a
// process with busy threads may find them held for ever. The thread sanitizer can't start threads
// in such a child.
#define QVX_SKIP_FORK() GTEST_SKIP() << "the sanitizer can't follow such a fork"
#if defined(__SANITIZE_ADDRESS__)
#define QVX_FORKS_BUSY_THREADS() QVX_SKIP_FORK()
#else
#define QVX_FORKS_BUSY_THREADS() static_cast<void>(0)
#endif
#if defined(__SANITIZE_THREAD__)
inline constexpr bool kThreadsStartAfterFork = false;
#define QVX_STARTS_THREADS_AFTER_FORK() QVX_SKIP_FORK()
#else
inline constexpr bool kThreadsStartAfterFork = true;
#define QVX_STARTS_THREADS_AFTER_FORK() static_cast<void>(0)
#endif

namespace qvx::test {

// Forks, with the address sanitizer once all other threads rest (or after half a minute), so that
// they hold none of its locks.
pid_t Fork();

// Waits for the child's end; true if it left with code 0.
bool EndedWell(pid_t child);

// Runs a check in a forked child, which must end within a minute. True if it held there.
bool HoldsInChild(const std::function<bool()>& check);

}  // namespace qvx::test
