// Sleeping on a word of memory until another thread changes it. Leaves errno alone.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/clock.h"

namespace qvx::platform {

// Sleeps while word holds expected, until woken (also for no reason) or until the deadline.
// False only once the deadline is reached.
bool FutexWait(const std::atomic<std::uint32_t>& word, std::uint32_t expected,
               Deadline deadline) noexcept;

// Wakes at most count sleepers. The word itself isn't touched and may be gone already.
void FutexWake(const std::atomic<std::uint32_t>* word, int count) noexcept;

}  // namespace qvx::platform
