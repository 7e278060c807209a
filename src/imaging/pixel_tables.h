// The products of the colour formulas, each rounded by itself, and the formulas over them: the
// rule that every faster form keeps.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

namespace qvx::imaging {

using ProductTable = std::array<std::int32_t, 256>;

// Entry i is factor * (i - origin), rounded to the nearest integer, halves away from zero.
constexpr ProductTable Products(double factor, int origin) {
  ProductTable table{};
  for (int i = 0; i < 256; ++i) {
    const double product = factor * (i - origin);
    table[static_cast<std::size_t>(i)] =
        static_cast<std::int32_t>(product < 0 ? product - 0.5 : product + 0.5);
  }
  return table;
}

inline constexpr ProductTable kYR = Products(0.257, 0);
inline constexpr ProductTable kYG = Products(0.504, 0);
inline constexpr ProductTable kYB = Products(0.098, 0);
inline constexpr ProductTable kUR = Products(-0.148, 0);
inline constexpr ProductTable kUG = Products(-0.291, 0);
inline constexpr ProductTable kUB = Products(0.439, 0);
inline constexpr ProductTable kVR = Products(0.439, 0);
inline constexpr ProductTable kVG = Products(-0.368, 0);
inline constexpr ProductTable kVB = Products(-0.071, 0);

// Luma counts alike for red, green and blue.
inline constexpr ProductTable kRgbY = Products(1.164, 16);
inline constexpr ProductTable kRV = Products(1.596, 128);
inline constexpr ProductTable kGU = Products(-0.392, 128);
inline constexpr ProductTable kGV = Products(-0.813, 128);
inline constexpr ProductTable kBU = Products(2.017, 128);

struct Rgb {
  std::uint8_t r, g, b;
};

struct Yuv {
  std::uint8_t y, u, v;
};

constexpr std::uint8_t ClampToByte(std::int32_t value) {
  return static_cast<std::uint8_t>(std::clamp(value, 0, 255));
}

constexpr Yuv ToYuv(Rgb from) {
  return {ClampToByte(kYR[from.r] + kYG[from.g] + kYB[from.b] + 16),
          ClampToByte(kUR[from.r] + kUG[from.g] + kUB[from.b] + 128),
          ClampToByte(kVR[from.r] + kVG[from.g] + kVB[from.b] + 128)};
}

constexpr Rgb ToRgb(Yuv from) {
  return {ClampToByte(kRgbY[from.y] + kRV[from.v]),
          ClampToByte(kRgbY[from.y] + kGU[from.u] + kGV[from.v]),
          ClampToByte(kRgbY[from.y] + kBU[from.u])};
}

}  // namespace qvx::imaging
