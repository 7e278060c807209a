// Clocks, sleeps and ids of the running process and thread. Every clock that is shown to
// callers passes through the seam (kClock, kSleep); time limits of waits use the system's
// monotonic clock itself, so that a test's false clock never stops a wait.
#pragma once

#include <cstdint>
#include <optional>

#include "qvx/types.h"

namespace qvx::platform {

// A moment of the monotonic clock in nanoseconds, as a limit of a wait.
using Deadline = std::int64_t;
inline constexpr Deadline kNoDeadline = INT64_MAX;

// The monotonic clock.
std::int64_t MonotonicNanoseconds() noexcept;
// The same in milliseconds, cut to 32 bits; wraps after 49.7 days.
std::uint32_t TickMilliseconds() noexcept;

// That far from now. All ones, and what is beyond the clock's range, is no limit.
Deadline DeadlineAfterMilliseconds(std::uint64_t milliseconds) noexcept;
// True once the limit is reached; never for kNoDeadline.
bool DeadlineReached(Deadline deadline) noexcept;
// Milliseconds left for poll and its like: rounded up, 0 once reached, -1 for no limit.
int PollMilliseconds(Deadline deadline) noexcept;

// For sleeps that an event may cut short: true if a test asks that this one be left out.
bool SkipsSleep(std::uint64_t milliseconds) noexcept;
// Sleeps at least that long, whatever signals arrive.
void SleepMilliseconds(std::uint32_t milliseconds) noexcept;

// The calendar time in the process's time zone. Safe in a forked child.
SYSTEMTIME LocalTimeNow() noexcept;
// The same for a moment of the system's calendar clock.
SYSTEMTIME LocalTimeOf(std::int64_t seconds, std::int32_t nanoseconds) noexcept;
// The moment of a calendar time in the process's time zone, milliseconds and day of week not
// looked at. Nothing for a time that no calendar holds.
std::optional<std::int64_t> SecondsOfLocalTime(const SYSTEMTIME& time) noexcept;

std::uint32_t CurrentProcessId() noexcept;
// The system's id of the calling thread.
std::uint32_t CurrentThreadId() noexcept;

}  // namespace qvx::platform
