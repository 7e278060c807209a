// Debug lines from places that must go on, such as destructors and threads, when there is no
// memory left for the line.
#pragma once

#include <new>

namespace qvx::core {

// Runs a call of DbgOutputA; a failed allocation only loses the line.
template <typename Log>
void LogQuietly(Log log) noexcept {
  try {
    log();
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace qvx::core
