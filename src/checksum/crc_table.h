// The 256-entry tables of CRCs of 16 and 32 bits.
#pragma once

#include <cstdint>

#include "checksum/crc_bits.h"

namespace qvx::checksum {

// Fills a table whose entries are linear in their index from those of the powers of two.
template <typename T, typename Entry>
constexpr void FillLinear(T* table, Entry entry) {
  table[0] = 0;
  for (unsigned bit = 1; bit < 256; bit <<= 1) {
    table[bit] = entry(bit);
    for (unsigned below = 1; below < bit; ++below) {
      table[bit + below] = static_cast<T>(table[bit] ^ table[below]);
    }
  }
}

// Eight steps of a register of T that shifts left.
template <typename T>
constexpr T ShiftByteOut(T value, T polynomial) {
  constexpr T kTop = static_cast<T>(T{1} << (8 * sizeof(T) - 1));
  for (int i = 0; i < 8; ++i) {
    value = static_cast<T>((value & kTop) != 0 ? value << 1 ^ polynomial : value << 1);
  }
  return value;
}

constexpr void FillTable16(std::uint16_t polynomial, bool reflected, std::uint16_t* table) {
  FillLinear(table, [=](unsigned index) {
    const auto byte = static_cast<std::uint8_t>(index);
    const auto top = static_cast<std::uint16_t>((reflected ? Mirror8(byte) : byte) << 8);
    const std::uint16_t entry = ShiftByteOut(top, polynomial);
    return reflected ? Mirror16(entry) : entry;
  });
}

constexpr void FillTable32(std::uint32_t polynomial, bool reversed_input, std::uint32_t* table) {
  FillLinear(table, [=](unsigned index) {
    const auto byte = static_cast<std::uint8_t>(index);
    const auto top = std::uint32_t{reversed_input ? Mirror8(byte) : byte} << 24;
    const std::uint32_t entry = ShiftByteOut(top, polynomial);
    return reversed_input ? Mirror32(entry) : entry;
  });
}

}  // namespace qvx::checksum
