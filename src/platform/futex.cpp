#include "platform/futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace qvx::platform {

bool FutexWait(const std::atomic<std::uint32_t>& word, std::uint32_t expected,
               Deadline deadline) noexcept {
  const int saved = errno;
  const timespec limit{deadline / 1'000'000'000, deadline % 1'000'000'000};
  const long result =
      syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, expected,
              deadline == kNoDeadline ? nullptr : &limit, nullptr, FUTEX_BITSET_MATCH_ANY);
  const bool late = result != 0 && errno == ETIMEDOUT;
  errno = saved;
  return !late;
}

void FutexWake(const std::atomic<std::uint32_t>* word, int count) noexcept {
  const int saved = errno;
  syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, count);
  errno = saved;
}

}  // namespace qvx::platform
