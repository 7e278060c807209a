#include "imaging/buffer_draw_stretch.h"

#include <array>
#include <cstring>

#include "imaging/buffer_draw_rows.h"

namespace qvx::imaging {
namespace {

// Columns whose places are worked out once for all rows: those of any screen. Rows go whole,
// since memory likes that better than columns do; wider ones are cut into blocks of columns.
constexpr std::int64_t kBlock = 8192;

using Places = std::array<std::uint32_t, kBlock>;

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

bool SameSize(const Target& dst, const Source& src) {
  return Width(*dst.rect) == Width(*src.rect) && Height(*dst.rect) == Height(*src.rect);
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
  std::int64_t target;  // the first column, and where its source pixel is
  std::int64_t source;
  PickPlan plan;
};

// Cuts the columns into blocks, the outer loop, and calls draw(block) for each.
template <typename Draw>
void ForEachBlock(const Target& dst, const Source& src, Draw draw) {
  const std::int64_t width = Width(*dst.rect);
  StretchSteps columns(Width(*src.rect), width);
  Places places;
  for (std::int64_t target = 0; target < width; target += kBlock) {
    const std::int64_t source = columns.Place();
    const auto count = static_cast<std::size_t>(std::min(kBlock, width - target));
    for (std::size_t i = 0; i < count; ++i, columns.Next()) {
      places[i] = static_cast<std::uint32_t>(columns.Place() - source);
    }
    draw(Block{target, source, {places.data(), count, Width(*src.rect) - source}});
  }
}

template <std::size_t kBytes>
void PickPixels(std::uint8_t* dst, const std::uint8_t* src, const PickPlan& plan) {
  for (std::size_t i = 0; i < plan.count; ++i) {
    std::memcpy(dst + i * kBytes, src + std::size_t{plan.places[i]} * kBytes, kBytes);
  }
}

void PickAnyPixels(std::uint8_t* dst, const std::uint8_t* src, const PickPlan& plan,
                   std::size_t pixel_bytes) {
  for (std::size_t i = 0; i < plan.count; ++i) {
    std::memcpy(dst + i * pixel_bytes, src + plan.places[i] * pixel_bytes, pixel_bytes);
  }
}

void Pick(std::uint8_t* dst, const std::uint8_t* src, const PickPlan& plan, int pixel_bytes) {
  switch (pixel_bytes) {
    case 1:
      return PickPixels<1>(dst, src, plan);
    case 2:
      return PickPixels<2>(dst, src, plan);
    case 3:
      return PickPixels<3>(dst, src, plan);
    case 4:
      return PickRow(dst, src, plan);
    default:
      return PickAnyPixels(dst, src, plan, static_cast<std::size_t>(pixel_bytes));
  }
}

void StretchBlock(const Target& dst, const Source& src, const Block& block) {
  ForEachRow(dst, src, [&](std::uint8_t* dst_row, const std::uint8_t* src_row) {
    Pick(dst_row + block.target * dst.pixel_bytes, src_row + block.source * src.pixel_bytes,
         block.plan, dst.pixel_bytes);
  });
}

// The same columns: only rows are stretched.
void StretchRows(const Target& dst, const Source& src) {
  const auto bytes = static_cast<std::size_t>(Width(*dst.rect) * dst.pixel_bytes);
  ForEachRow(dst, src, [bytes](std::uint8_t* dst_row, const std::uint8_t* src_row) {
    std::memcpy(dst_row, src_row, bytes);
  });
}

// Through a few pixels at a time that are stretched first.
void BlendPicked(std::uint8_t* dst, const std::uint8_t* src, const PickPlan& plan) {
  constexpr std::size_t kPiece = 256;
  std::array<std::uint8_t, kPiece * kArgbBytes> pixels;
  for (std::size_t done = 0; done < plan.count; done += kPiece) {
    const PickPlan piece = plan.Piece(done, kPiece);
    PickRow(pixels.data(), src, piece);
    BlendRow(dst + done * kArgbBytes, pixels.data(), piece.count);
  }
}

void BlendBlock(const Target& dst, const Source& src, const Block& block) {
  ForEachRow(dst, src, [&](std::uint8_t* dst_row, const std::uint8_t* src_row) {
    BlendPicked(dst_row + block.target * kArgbBytes, src_row + block.source * kArgbBytes,
                block.plan);
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
    BlendRow(dst_row, src_row, rows.width);
  });
}

}  // namespace

StretchSteps::StretchSteps(std::int64_t source, std::int64_t target)
    : whole_step_(source / target),
      rest_step_(2 * (source % target)),
      rest_limit_(2 * target - rest_step_) {
  // Bresenham's error terms in closed form: enlarging takes the place below source * (2i + 1),
  // shrinking the place above source * (2i - 1), both divided by 2 * target.
  const std::int64_t divisor = 2 * target;
  const std::int64_t start = source > target ? divisor - 1 - source : source;
  place_ = start / divisor;
  rest_ = start % divisor;
  if (rest_ < 0) {
    rest_ += divisor;
    --place_;
  }
}

void Stretch(const Target& dst, const Source& src) {
  if (dst.IsEmpty() || src.IsEmpty()) return;
  if (SameSize(dst, src)) return CopySameSize(dst, src);
  if (!Overlap(dst, src)) {
    if (Width(*dst.rect) == Width(*src.rect)) return StretchRows(dst, src);
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
