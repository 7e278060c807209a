#include "imaging/buffer_draw_stretch.h"

#include <array>
#include <cstring>

#include "imaging/buffer_draw_rows.h"

namespace qvx::imaging {
namespace {

// So many columns at a time: their places and pixels stay in the first cache.
constexpr std::int64_t kBlock = 2048;

using Places = std::array<std::uint32_t, kBlock>;
using Pixels = std::array<std::uint8_t, kBlock * kArgbBytes>;

struct ByteRange {
  std::uintptr_t begin;
  std::uintptr_t end;
};

template <typename Byte>
ByteRange Covered(const Side<Byte>& side) {
  const auto first = reinterpret_cast<std::uintptr_t>(side.First());
  const auto last = first + static_cast<std::uintptr_t>((Height(*side.rect) - 1) * side.pitch);
  const auto row = static_cast<std::uintptr_t>(Width(*side.rect) * side.pixel_bytes);
  return {std::min(first, last), std::max(first, last) + row};
}

bool Overlap(const Target& dst, const Source& src) {
  const ByteRange a = Covered(dst);
  const ByteRange b = Covered(src);
  return a.begin < b.end && b.begin < a.end;
}

bool SameWidth(const Target& dst, const Source& src) {
  return Width(*dst.rect) == Width(*src.rect);
}

bool SameSize(const Target& dst, const Source& src) {
  return SameWidth(dst, src) && Height(*dst.rect) == Height(*src.rect);
}

// Calls draw(dst row, src row) for each target row.
template <typename Draw>
void ForEachRow(const Target& dst, const Source& src, Draw draw) {
  StretchSteps rows(Height(*src.rect), Height(*dst.rect));
  std::uint8_t* const dst_first = dst.First();
  const std::uint8_t* const src_first = src.First();
  const std::int64_t height = Height(*dst.rect);
  for (std::int64_t y = 0; y < height; ++y, rows.Next()) {
    draw(dst_first + y * dst.pitch, src_first + rows.Place() * src.pitch);
  }
}

// Pixel by pixel, for sides that overlap.
template <typename Draw>
void ForEachPixel(const Target& dst, const Source& src, Draw draw) {
  ForEachRow(dst, src, [&](std::uint8_t* dst_row, const std::uint8_t* src_row) {
    StretchSteps columns(Width(*src.rect), Width(*dst.rect));
    const std::int64_t bytes = Width(*dst.rect) * dst.pixel_bytes;
    for (std::int64_t x = 0; x < bytes; x += dst.pixel_bytes, columns.Next()) {
      draw(dst_row + x, src_row + columns.Place() * src.pixel_bytes);
    }
  });
}

// A run of target columns: which source pixels they take.
struct Block {
  std::int64_t target;          // the first column
  std::size_t count;            // at most kBlock
  std::int64_t source;          // where the first one's pixel is
  std::ptrdiff_t source_count;  // how many pixels follow it in the source's row
  Places places;                // counted from there
};

// Cuts the columns into blocks, the outer loop, and calls draw(block) for each.
template <typename Draw>
void ForEachBlock(const Target& dst, const Source& src, Draw draw) {
  const std::int64_t width = Width(*dst.rect);
  StretchSteps columns(Width(*src.rect), width);
  Block block;
  for (block.target = 0; block.target < width; block.target += kBlock) {
    block.count = static_cast<std::size_t>(std::min(kBlock, width - block.target));
    block.source = columns.Place();
    block.source_count = Width(*src.rect) - block.source;
    for (std::size_t i = 0; i < block.count; ++i, columns.Next()) {
      block.places[i] = static_cast<std::uint32_t>(columns.Place() - block.source);
    }
    draw(block);
  }
}

template <std::size_t kBytes>
void PickPixels(std::uint8_t* dst, const std::uint8_t* src, const Block& block) {
  for (std::size_t i = 0; i < block.count; ++i) {
    std::memcpy(dst + i * kBytes, src + std::size_t{block.places[i]} * kBytes, kBytes);
  }
}

void PickAnyPixels(std::uint8_t* dst, const std::uint8_t* src, const Block& block,
                   std::size_t pixel_bytes) {
  for (std::size_t i = 0; i < block.count; ++i) {
    std::memcpy(dst + i * pixel_bytes, src + block.places[i] * pixel_bytes, pixel_bytes);
  }
}

void Pick(std::uint8_t* dst, const std::uint8_t* src, const Block& block, int pixel_bytes) {
  switch (pixel_bytes) {
    case 1:
      return PickPixels<1>(dst, src, block);
    case 2:
      return PickPixels<2>(dst, src, block);
    case 3:
      return PickPixels<3>(dst, src, block);
    case 4:
      return PickRow(dst, src, block.places.data(), block.count, block.source_count);
    default:
      return PickAnyPixels(dst, src, block, static_cast<std::size_t>(pixel_bytes));
  }
}

// A row that comes from the same source row as the one before is copied from that one.
void StretchBlock(const Target& dst, const Source& src, const Block& block) {
  const std::size_t bytes = block.count * static_cast<std::size_t>(dst.pixel_bytes);
  const bool same_width = SameWidth(dst, src);
  const std::uint8_t* last_src = nullptr;
  std::uint8_t* last_dst = nullptr;
  ForEachRow(dst, src, [&](std::uint8_t* dst_row, const std::uint8_t* src_row) {
    std::uint8_t* const out = dst_row + block.target * dst.pixel_bytes;
    const std::uint8_t* const in = src_row + block.source * src.pixel_bytes;
    if (in == last_src) {
      std::memmove(out, last_dst, bytes);
    } else if (same_width) {
      std::memcpy(out, in, bytes);
    } else {
      Pick(out, in, block, dst.pixel_bytes);
    }
    last_src = in;
    last_dst = out;
  });
}

void BlendBlock(const Target& dst, const Source& src, const Block& block) {
  Pixels pixels;
  const std::uint8_t* last_src = nullptr;
  ForEachRow(dst, src, [&](std::uint8_t* dst_row, const std::uint8_t* src_row) {
    const std::uint8_t* const in = src_row + block.source * kArgbBytes;
    if (in != last_src) Pick(pixels.data(), in, block, kArgbBytes);
    last_src = in;
    BlendRow(dst_row + block.target * kArgbBytes, pixels.data(), block.count);
  });
}

void CopySameSize(const Target& dst, const Source& src) {
  const RowPair rows = CommonRows(dst, src);
  const auto pixel_bytes = static_cast<std::size_t>(dst.pixel_bytes);
  const std::size_t bytes = rows.width * pixel_bytes;
  rows.ForEach([&](std::uint8_t* dst_row, const std::uint8_t* src_row) {
    if (MayReadAhead(dst_row, src_row, bytes)) {
      std::memmove(dst_row, src_row, bytes);
      return;
    }
    for (std::size_t x = 0; x < bytes; x += pixel_bytes) {
      std::memmove(dst_row + x, src_row + x, pixel_bytes);
    }
  });
}

void BlendSameSize(const Target& dst, const Source& src) {
  const RowPair rows = CommonRows(dst, src);
  rows.ForEach([&](std::uint8_t* dst_row, const std::uint8_t* src_row) {
    const bool ahead = MayReadAhead(dst_row, src_row, rows.width * kArgbBytes);
    (ahead ? BlendRow : BlendRowPlain)(dst_row, src_row, rows.width);
  });
}

}  // namespace

StretchSteps::StretchSteps(std::int64_t source, std::int64_t target)
    : whole_step_(source / target), rest_step_(2 * (source % target)), divisor_(2 * target) {
  // Bresenham's error terms in closed form: enlarging takes the place below source * (2i + 1),
  // shrinking the place above source * (2i - 1), both divided by 2 * target.
  const std::int64_t start = source > target ? divisor_ - 1 - source : source;
  place_ = start / divisor_;
  rest_ = start % divisor_;
  if (rest_ < 0) {
    rest_ += divisor_;
    --place_;
  }
}

void StretchSteps::Next() {
  place_ += whole_step_;
  rest_ += rest_step_;
  if (rest_ < divisor_) return;
  rest_ -= divisor_;
  ++place_;
}

void Stretch(const Target& dst, const Source& src) {
  if (dst.IsEmpty() || src.IsEmpty()) return;
  if (SameSize(dst, src)) return CopySameSize(dst, src);
  if (!Overlap(dst, src)) {
    return ForEachBlock(dst, src, [&](const Block& block) { StretchBlock(dst, src, block); });
  }
  ForEachPixel(dst, src, [&](std::uint8_t* out, const std::uint8_t* in) {
    std::memmove(out, in, static_cast<std::size_t>(dst.pixel_bytes));
  });
}

void StretchBlended(const Target& dst, const Source& src) {
  if (dst.IsEmpty() || src.IsEmpty()) return;
  if (SameSize(dst, src)) return BlendSameSize(dst, src);
  if (!Overlap(dst, src)) {
    return ForEachBlock(dst, src, [&](const Block& block) { BlendBlock(dst, src, block); });
  }
  ForEachPixel(dst, src,
               [](std::uint8_t* out, const std::uint8_t* in) { BlendRowPlain(out, in, 1); });
}

}  // namespace qvx::imaging
