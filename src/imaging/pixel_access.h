// One RGB pixel in memory, as three components: the first in memory or the low field of a word,
// green, and the third.
#pragma once

#include <cstddef>
#include <cstdint>

#include "imaging/pixel_rows.h"
#include "imaging/pixel_tables.h"

namespace qvx::imaging {

struct Components {
  std::uint8_t first, green, third;
};

constexpr Components Ordered(Rgb colour, bool bgr) {
  return bgr ? Components{colour.b, colour.g, colour.r} : Components{colour.r, colour.g, colour.b};
}

constexpr Rgb Colour(Components from, bool bgr) {
  return bgr ? Rgb{from.third, from.green, from.first} : Rgb{from.first, from.green, from.third};
}

constexpr std::uint8_t LowByte(unsigned value) {
  return static_cast<std::uint8_t>(value & 0xFF);
}

template <RgbLayout kLayout>
inline constexpr std::size_t kPixelBytes = kLayout == kRgb888 ? 3 : 2;

template <RgbLayout kLayout>
Components ReadPixel(const std::uint8_t* at) {
  if constexpr (kLayout == kRgb888) return {at[0], at[1], at[2]};
  const unsigned word = at[0] | static_cast<unsigned>(at[1]) << 8;
  const std::uint8_t first = LowByte(word << 3);
  if constexpr (kLayout == kRgb565) {
    return {first, LowByte(word >> 3 & 0xFC), LowByte(word >> 8 & 0xF8)};
  }
  return {first, LowByte(word >> 2 & 0xF8), LowByte(word >> 7 & 0xF8)};
}

template <RgbLayout kLayout>
constexpr unsigned ToWord(Components from) {
  if constexpr (kLayout == kRgb565) {
    return (from.third & 0xF8u) << 8 | (from.green & 0xFCu) << 3 | from.first >> 3;
  }
  return (from.third & 0xF8u) << 7 | (from.green & 0xF8u) << 2 | from.first >> 3;
}

template <RgbLayout kLayout>
void WritePixel(Components from, std::uint8_t* at) {
  if constexpr (kLayout == kRgb888) {
    at[0] = from.first;
    at[1] = from.green;
    at[2] = from.third;
  } else {
    const unsigned word = ToWord<kLayout>(from);
    at[0] = LowByte(word);
    at[1] = LowByte(word >> 8);
  }
}

}  // namespace qvx::imaging
