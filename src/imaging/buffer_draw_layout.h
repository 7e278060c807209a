// Where rectangles lie in buffers.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "qvx/types.h"

namespace qvx::imaging {

constexpr int kArgbBytes = 4;

inline std::int64_t Width(const RECT& rect) {
  return std::int64_t{rect.right} - rect.left;
}

inline std::int64_t Height(const RECT& rect) {
  return std::int64_t{rect.bottom} - rect.top;
}

// The top left pixel of a rectangle.
template <typename Byte>
Byte* Corner(Byte* start, const RECT& rect, int pitch, int pixel_bytes) {
  return &start[std::int64_t{rect.top} * pitch + std::int64_t{rect.left} * pixel_bytes];
}

// Two sets of rows of equal size, one to draw on the other. A height of 0 is nothing to draw.
struct RowPair {
  std::uint8_t* dst = nullptr;
  const std::uint8_t* src = nullptr;
  std::int64_t dst_pitch = 0;
  std::int64_t src_pitch = 0;
  std::size_t width = 0;
  std::int64_t height = 0;

  template <typename Draw>
  void ForEach(Draw draw) const {
    for (std::int64_t y = 0; y < height; ++y) draw(dst + y * dst_pitch, src + y * src_pitch);
  }
};

// One side of a drawing as callers describe it.
template <typename Byte>
struct Side {
  Byte* start;
  const RECT* rect;
  int pitch;
  int pixel_bytes;

  bool IsEmpty() const {
    return start == nullptr || rect == nullptr || pixel_bytes < 1 || Width(*rect) < 1 ||
           Height(*rect) < 1;
  }
  Byte* First() const { return Corner(start, *rect, pitch, pixel_bytes); }
};

using Target = Side<std::uint8_t>;
using Source = Side<const std::uint8_t>;

// The top left part that both have.
inline RowPair CommonRows(const Target& dst, const Source& src) {
  if (dst.IsEmpty() || src.IsEmpty()) return {};
  return {dst.First(),
          src.First(),
          dst.pitch,
          src.pitch,
          static_cast<std::size_t>(std::min(Width(*dst.rect), Width(*src.rect))),
          std::min(Height(*dst.rect), Height(*src.rect))};
}

}  // namespace qvx::imaging
