// DOS dates: local calendar time from 1980 to 2107 in steps of 2 seconds, the date in the high
// half of the number and the time in the low half.
#pragma once

#include <cstdint>
#include <optional>

namespace qvx::archive {

// Of a moment in seconds of the system's clock; the nearest end of the range beyond it.
std::uint32_t DosFromSeconds(std::int64_t seconds);
// Nothing for a date that no calendar has.
std::optional<std::int64_t> SecondsFromDos(std::uint32_t dos);

}  // namespace qvx::archive
