// A sleep that an event cuts short.
#pragma once

#include <cstdint>

#include "platform/clock.h"
#include "qvx/sync.h"

namespace qvx::http {

inline void Pause(CBaseEvent& wake, std::uint64_t milliseconds) {
  if (!platform::SkipsSleep(milliseconds)) wake.Wait(milliseconds);
}

}  // namespace qvx::http
