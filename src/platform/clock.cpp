#include "platform/clock.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>

#include "platform/fork.h"
#include "platform/seam.h"

namespace qvx::platform {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kMillisecond = 1'000'000;

std::int64_t Read(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return now.tv_sec * kSecond + now.tv_nsec;
}

timespec ToTimespec(std::int64_t nanoseconds) {
  return {nanoseconds / kSecond, nanoseconds % kSecond};
}

// The C library's own lock for time zone data stays held in a child whose parent was inside
// it; with this one registered, none of our threads is there while the process forks.
constinit RecursiveLock calendar_lock;
const ForkGuard calendar_guard(&calendar_lock);

tm CalendarTime(time_t seconds) {
  std::lock_guard<RecursiveLock> guard(calendar_lock);
  tm calendar{};
  localtime_r(&seconds, &calendar);
  return calendar;
}

}  // namespace

std::int64_t MonotonicNanoseconds() noexcept {
  return AskSeam(Operation::kClock, Read(CLOCK_MONOTONIC)).value;
}

std::uint32_t TickMilliseconds() noexcept {
  return static_cast<std::uint32_t>(MonotonicNanoseconds() / kMillisecond);
}

Deadline DeadlineAfterMilliseconds(std::uint64_t milliseconds) noexcept {
  const std::int64_t now = Read(CLOCK_MONOTONIC);
  const auto room = static_cast<std::uint64_t>((kNoDeadline - now) / kMillisecond);
  if (milliseconds >= room) return kNoDeadline;
  return now + static_cast<std::int64_t>(milliseconds) * kMillisecond;
}

bool DeadlineReached(Deadline deadline) noexcept {
  return deadline != kNoDeadline && Read(CLOCK_MONOTONIC) >= deadline;
}

int PollMilliseconds(Deadline deadline) noexcept {
  if (deadline == kNoDeadline) return -1;
  const std::int64_t left = deadline - Read(CLOCK_MONOTONIC);
  if (left <= 0) return 0;
  if (left / kMillisecond >= INT32_MAX) return INT32_MAX;
  return static_cast<int>((left + kMillisecond - 1) / kMillisecond);
}

bool SkipsSleep(std::uint64_t milliseconds) noexcept {
  constexpr std::uint64_t kMost = INT64_MAX / kMillisecond;
  const auto wanted = static_cast<std::int64_t>(std::min(milliseconds, kMost)) * kMillisecond;
  return AskSeam(Operation::kSleep, wanted).error != 0;
}

void SleepMilliseconds(std::uint32_t milliseconds) noexcept {
  if (SkipsSleep(milliseconds)) return;
  const timespec end = ToTimespec(Read(CLOCK_MONOTONIC) + milliseconds * kMillisecond);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
  }
}

SYSTEMTIME LocalTimeNow() noexcept {
  const std::int64_t now = AskSeam(Operation::kClock, Read(CLOCK_REALTIME)).value;
  return LocalTimeOf(now / kSecond, static_cast<std::int32_t>(now % kSecond));
}

SYSTEMTIME LocalTimeOf(std::int64_t seconds, std::int32_t nanoseconds) noexcept {
  const tm calendar = CalendarTime(seconds);
  const auto field = [](int value) { return static_cast<std::uint16_t>(value); };
  SYSTEMTIME result{};
  result.wYear = field(calendar.tm_year + 1900);
  result.wMonth = field(calendar.tm_mon + 1);
  result.wDayOfWeek = field(calendar.tm_wday);
  result.wDay = field(calendar.tm_mday);
  result.wHour = field(calendar.tm_hour);
  result.wMinute = field(calendar.tm_min);
  result.wSecond = field(calendar.tm_sec);
  result.wMilliseconds = static_cast<std::uint16_t>(nanoseconds / kMillisecond);
  return result;
}

std::optional<std::int64_t> SecondsOfLocalTime(const SYSTEMTIME& time) noexcept {
  tm calendar{};
  calendar.tm_year = time.wYear - 1900;
  calendar.tm_mon = time.wMonth - 1;
  calendar.tm_mday = time.wDay;
  calendar.tm_hour = time.wHour;
  calendar.tm_min = time.wMinute;
  calendar.tm_sec = time.wSecond;
  calendar.tm_isdst = -1;
  const tm wanted = calendar;
  std::lock_guard<RecursiveLock> guard(calendar_lock);
  const time_t seconds = mktime(&calendar);
  if (calendar.tm_mon != wanted.tm_mon || calendar.tm_mday != wanted.tm_mday) return std::nullopt;
  return seconds;
}

std::uint32_t CurrentProcessId() noexcept {
  return static_cast<std::uint32_t>(getpid());
}

std::uint32_t CurrentThreadId() noexcept {
  return static_cast<std::uint32_t>(gettid());
}

}  // namespace qvx::platform
