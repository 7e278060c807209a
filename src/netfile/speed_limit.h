// Keeps a transfer near a rate by sleeping after each block.
#pragma once

#include <cstdint>

#include "qvx/sync.h"

namespace qvx::netfile {

// Made when the block begins.
class SpeedLimit {
 public:
  SpeedLimit() : start_(MS_GetTime()) {}

  std::uint32_t Start() const { return start_; }

  // Sleeps for all the time that the bytes should take if less has gone so far. 0 is no limit.
  // The product is one of 32 bits, so blocks beyond 4 MiB come out faster.
  void Keep(std::uint32_t bytes, std::uint64_t bytes_per_second) const {
    if (bytes_per_second == 0) return;
    auto needed = static_cast<std::uint32_t>(std::uint32_t{bytes * 1000u} / bytes_per_second);
    if (needed > MS_GetTime() - start_) HQ_Sleep(needed);
  }

 private:
  std::uint32_t start_;
};

}  // namespace qvx::netfile
