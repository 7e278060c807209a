// Mirroring of bits, as CRCs with reflected parameters ask for.
#pragma once

#include <cstdint>

namespace qvx::checksum {

constexpr std::uint32_t Mirror32(std::uint32_t value) {
  value = (value & 0x55555555) << 1 | (value >> 1 & 0x55555555);
  value = (value & 0x33333333) << 2 | (value >> 2 & 0x33333333);
  value = (value & 0x0F0F0F0F) << 4 | (value >> 4 & 0x0F0F0F0F);
  value = (value & 0x00FF00FF) << 8 | (value >> 8 & 0x00FF00FF);
  return value << 16 | value >> 16;
}

constexpr std::uint16_t Mirror16(std::uint16_t value) {
  return static_cast<std::uint16_t>(Mirror32(value) >> 16);
}

constexpr std::uint8_t Mirror8(std::uint8_t value) {
  return static_cast<std::uint8_t>(Mirror32(value) >> 24);
}

}  // namespace qvx::checksum
