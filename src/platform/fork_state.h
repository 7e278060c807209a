// The two numbers behind fork.h, inline for the locks.
#pragma once

#include <atomic>
#include <cstdint>

namespace qvx::platform::detail {

extern constinit std::atomic<std::uint32_t> fork_generation;
extern constinit std::atomic<std::uint64_t> fork_survivor;

// The static model makes the access one instruction; eight bytes always fit the reserve that
// the loader keeps for libraries that are loaded at run time.
extern constinit thread_local std::uint64_t thread_serial
    __attribute__((tls_model("initial-exec")));

std::uint64_t MakeThreadSerial() noexcept;

inline std::uint64_t ThreadSerial() noexcept {
  const std::uint64_t serial = thread_serial;
  return serial != 0 ? serial : MakeThreadSerial();
}

}  // namespace qvx::platform::detail
