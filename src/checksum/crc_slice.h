// CRCs of long data where nothing multiplies: 16 bytes a step through 16 tables, which are made
// for the call. Works for any update by a table that is linear, so for every table that a
// polynomial gives, whichever way the register shifts.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvx::checksum {

// Below this many bytes the tables cost more than they save.
inline constexpr std::size_t kLeastSliced = 8192;

// The register after size bytes. table holds 256 entries of an update that shifts a 32-bit
// register right, or left; data bytes are taken as they are.
std::uint32_t SliceCrc(const std::uint32_t* table, bool shifts_right, std::uint32_t crc,
                       const std::uint8_t* data, std::size_t size);

// The same one byte at a time: the rule for all others.
constexpr std::uint32_t PlainCrc(const std::uint32_t* table, bool shifts_right, std::uint32_t crc,
                                 const std::uint8_t* data, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    crc = shifts_right ? crc >> 8 ^ table[(crc & 0xFF) ^ data[i]]
                       : crc << 8 ^ table[crc >> 24 ^ data[i]];
  }
  return crc;
}

}  // namespace qvx::checksum
