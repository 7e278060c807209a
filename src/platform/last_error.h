// The code that a failed call leaves for GetLastErrorCode, one for each thread, and the system's
// own texts for its error numbers.
#pragma once

#include <cstdint>

namespace qvx::platform {

void SetLastErrorCode(std::uint32_t code) noexcept;
std::uint32_t LastErrorCode() noexcept;

// In English, whatever the host's locale; lives as long as the process.
const char* SystemErrorText(int error) noexcept;

}  // namespace qvx::platform
