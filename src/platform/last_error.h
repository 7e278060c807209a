// The code that a failed call leaves for GetLastErrorCode, one for each thread.
#pragma once

#include <cstdint>

namespace qvx::platform {

void SetLastErrorCode(std::uint32_t code) noexcept;
std::uint32_t LastErrorCode() noexcept;

}  // namespace qvx::platform
