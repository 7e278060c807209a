#include <algorithm>
#include <cstdint>

#include "imaging/buffer_draw_rows.h"
#include "qvx/gradient_draw.h"

namespace {

struct Extent {
  std::int64_t begin;
  std::int64_t end;
};

// The pen's extent about its centre in one direction, each side in full or cut back.
Extent PenExtent(std::int64_t centre, std::int64_t pen, std::int64_t inner, bool full_begin,
                 bool full_end) {
  const std::int64_t first = centre - pen / 2;
  return {full_begin ? first : std::max(first, centre - inner / 2),
          full_end ? first + pen : std::min(first + pen, centre + (inner + 1) / 2)};
}

Extent Clipped(Extent extent, std::int64_t size) {
  return {std::max<std::int64_t>(extent.begin, 0), std::min(extent.end, size)};
}

}  // namespace

extern "C" {

void DrawPointByPen(unsigned int* picture, int width, int height, int x, int y,
                    const unsigned int* pen, unsigned char alpha, int penSize, int innerSize,
                    int fullLeft, int fullRight, int fullTop, int fullBottom) {
  if (picture == nullptr || pen == nullptr || penSize < 1) return;
  const Extent columns =
      Clipped(PenExtent(x, penSize, innerSize, fullLeft != 0, fullRight != 0), width);
  const Extent rows =
      Clipped(PenExtent(y, penSize, innerSize, fullTop != 0, fullBottom != 0), height);
  if (columns.begin >= columns.end) return;
  const auto count = static_cast<std::size_t>(columns.end - columns.begin);
  const std::int64_t pen_x = columns.begin - (std::int64_t{x} - penSize / 2);
  const std::int64_t pen_y = std::int64_t{y} - penSize / 2;
  for (std::int64_t row = rows.begin; row < rows.end; ++row) {
    auto* dst = reinterpret_cast<std::uint8_t*>(picture + (row * width + columns.begin));
    const auto* src =
        reinterpret_cast<const std::uint8_t*>(pen + ((row - pen_y) * penSize + pen_x));
    qvx::imaging::StampRow(dst, src, count, alpha);
  }
}

}  // extern "C"
