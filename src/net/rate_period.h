// The rule behind the byte rates of clients and servers.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>

#include "platform/clock.h"

namespace qvx::net {

// Adds bytes to a period. A period that is longer than a second ends: its rate is stored and
// the next one starts now. The caller guards bytes and start.
inline void CountInPeriod(std::uint64_t added, std::uint64_t& bytes, std::atomic<int>& rate,
                          std::uint32_t& start) {
  constexpr double kMost = std::numeric_limits<int>::max();
  bytes += added;
  const std::uint32_t now = platform::TickMilliseconds();
  const std::uint32_t elapsed = now - start;
  if (elapsed <= 1000) return;
  const double per_second = static_cast<double>(bytes) / elapsed * 1000.0;
  rate.store(static_cast<int>(std::min(per_second, kMost)), std::memory_order_relaxed);
  bytes = 0;
  start = now;
}

}  // namespace qvx::net
