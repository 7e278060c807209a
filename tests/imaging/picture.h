// Pictures of every layout as a plain set of samples, written from the description of the layouts
// alone: what conversions are checked against.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace qvx::test {

enum class Layout {
  kRgb888,
  kRgb565,
  kRgb555,
  kArgb32,
  kYuv420,
  kYuv422,
  kYuv444,
  kYuyv,
  kYvy2,
  kSemiPlanar
};

inline bool IsRgb(Layout layout) {
  return layout <= Layout::kArgb32;
}

using Colour = std::array<std::uint8_t, 3>;  // R, G, B or Y, U, V

struct Picture {
  // flag: bgrOrder with the meaning of conversions from and to YUV, or uvSwap.
  Layout layout;
  std::size_t width, height;
  bool flag;
  std::ptrdiff_t stride = 0;     // of RGB layouts
  std::uint8_t* data = nullptr;  // the first row

  std::size_t PixelBytes() const {
    if (layout == Layout::kRgb888) return 3;
    return layout == Layout::kArgb32 ? 4 : 2;
  }

  std::size_t Bytes() const {
    const std::size_t area = width * height;
    if (IsRgb(layout)) {
      const auto rows = static_cast<std::size_t>(std::abs(stride)) * (height - (height > 0));
      return area == 0 ? 0 : rows + width * PixelBytes();
    }
    if (layout == Layout::kYuv422) return area + 2 * (area / 2);
    if (layout == Layout::kYuv444) return 3 * area;
    if (layout == Layout::kYuyv || layout == Layout::kYvy2) return 4 * (width / 2) * height;
    return area + 2 * (area / 4);
  }

  // The sample of luma (0), U (1) or V (2) that serves a pixel.
  std::uint8_t& Sample(std::size_t x, std::size_t y, std::size_t channel) const {
    const std::size_t area = width * height;
    const std::size_t second = channel == (flag ? 1 : 2);
    if (layout == Layout::kYuyv || layout == Layout::kYvy2) {
      const std::size_t place = channel == (layout == Layout::kYuyv ? 1 : 2) ? 1 : 3;
      return data[(y * (width / 2) + x / 2) * 4 + (channel == 0 ? x % 2 * 2 : place)];
    }
    if (channel == 0) return data[y * width + x];
    switch (layout) {
      case Layout::kYuv444:
        return data[area * (1 + second) + y * width + x];
      case Layout::kYuv422:
        return data[area + second * (area / 2) + y * (width / 2) + x / 2];
      default:
        return data[area + second * (area / 4) + y / 2 * (width / 2) + x / 2];
    }
  }

  std::uint8_t* Pixel(std::size_t x, std::size_t y) const {
    return data + static_cast<std::ptrdiff_t>(y) * stride + x * PixelBytes();
  }

  Colour Get(std::size_t x, std::size_t y) const {
    const std::uint8_t* p = Pixel(x, y);
    Colour low_first{p[0], p[1], layout == Layout::kRgb888 ? p[2] : p[1]};
    if (layout != Layout::kRgb888) {
      const int word = p[0] + 256 * p[1];
      const int greens = layout == Layout::kRgb565 ? 64 : 32;
      low_first = {static_cast<std::uint8_t>(word % 32 * 8),
                   static_cast<std::uint8_t>(word / 32 % greens * (256 / greens)),
                   static_cast<std::uint8_t>(word / 32 / greens % 32 * 8)};
    }
    return flag ? Colour{low_first[2], low_first[1], low_first[0]} : low_first;
  }

  void Put(std::size_t x, std::size_t y, Colour colour, std::uint8_t alpha = 0) const {
    if (flag || layout == Layout::kArgb32) colour = {colour[2], colour[1], colour[0]};
    std::uint8_t* p = Pixel(x, y);
    if (layout == Layout::kRgb565 || layout == Layout::kRgb555) {
      const int greens = layout == Layout::kRgb565 ? 64 : 32;
      const int word =
          colour[0] / 8 + 32 * (colour[1] / (256 / greens)) + 32 * greens * (colour[2] / 8);
      p[0] = static_cast<std::uint8_t>(word % 256);
      p[1] = static_cast<std::uint8_t>(word / 256);
      return;
    }
    for (std::size_t i = 0; i < 3; ++i) p[i] = colour[i];
    if (layout == Layout::kArgb32) p[3] = alpha;
  }
};

// The formulas, over tables of their products.
struct Formulas {
  using Table = std::array<int, 256>;
  Table forward[3][3];
  Table inverse[3][3];

  Formulas() {
    const double to_yuv[3][3] = {
        {0.257, 0.504, 0.098}, {-0.148, -0.291, 0.439}, {0.439, -0.368, -0.071}};
    const double to_rgb[3][3] = {{1.164, 0, 1.596}, {1.164, -0.392, -0.813}, {1.164, 2.017, 0}};
    for (std::size_t row = 0; row < 3; ++row) {
      for (std::size_t column = 0; column < 3; ++column) {
        for (std::size_t i = 0; i < 256; ++i) {
          const double value = static_cast<double>(i);
          const double above = value - (column == 0 ? 16 : 128);
          forward[row][column][i] = static_cast<int>(std::round(to_yuv[row][column] * value));
          inverse[row][column][i] = static_cast<int>(std::round(to_rgb[row][column] * above));
        }
      }
    }
  }

  static Colour Sum(const Table (&tables)[3][3], Colour of, int first, int others) {
    Colour result{};
    for (std::size_t row = 0; row < 3; ++row) {
      const auto& t = tables[row];
      const int sum = t[0][of[0]] + t[1][of[1]] + t[2][of[2]] + (row == 0 ? first : others);
      result[row] = static_cast<std::uint8_t>(sum < 0 ? 0 : sum > 255 ? 255 : sum);
    }
    return result;
  }

  Colour ToYuv(Colour rgb) const { return Sum(forward, rgb, 16, 128); }
  Colour ToRgb(Colour yuv) const { return Sum(inverse, yuv, 0, 0); }
};

}  // namespace qvx::test
