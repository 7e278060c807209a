#include "imaging/pixel_frames.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include "platform/processor.h"

namespace qvx::imaging {
namespace {

// The most that a plane may hold, so that the offsets of three planes are numbers that pointers
// can take.
constexpr std::uint64_t kLargestPlane = PTRDIFF_MAX / 4;

std::size_t Magnitude(int value) {
  const std::int64_t wide = value;
  return static_cast<std::size_t>(wide < 0 ? -wide : wide);
}

// Width and height without their signs, both at most 2^31.
struct Extent {
  explicit Extent(FrameSize size) : width(Magnitude(size.width)), height(Magnitude(size.height)) {}

  std::size_t Area() const { return width * height; }
  std::size_t Pairs() const { return width / 2; }
  bool Fits() const { return Area() > 0 && Area() <= kLargestPlane; }

  std::size_t width;
  std::size_t height;
};

// The planes of a YUV picture of any layout with Byte as the type of a sample.
template <typename Byte>
struct Planes {
  Planes(Sampling sampling, Extent size, Byte* base, bool uv_swap)
      : width(size.width),
        chroma_width(sampling == Sampling::k444 ? size.width : size.Pairs()),
        luma_rows_a_chroma_row(sampling == Sampling::k420 ? 2 : 1),
        y(base),
        u(base + size.Area()),
        v(u + ChromaSize(sampling, size)) {
    if (uv_swap) std::swap(u, v);
  }

  static std::size_t ChromaSize(Sampling sampling, Extent size) {
    if (sampling == Sampling::k444) return size.Area();
    return size.Area() / (sampling == Sampling::k420 ? 4 : 2);
  }

  Byte* Luma(std::size_t row) const { return y + row * width; }
  Byte* U(std::size_t row) const { return u + row / luma_rows_a_chroma_row * chroma_width; }
  Byte* V(std::size_t row) const { return v + row / luma_rows_a_chroma_row * chroma_width; }

  std::size_t width;
  std::size_t chroma_width;
  std::size_t luma_rows_a_chroma_row;
  Byte* y;
  Byte* u;
  Byte* v;
};

using SourcePlanes = Planes<const std::uint8_t>;
using TargetPlanes = Planes<std::uint8_t>;

YuvSource Row(const SourcePlanes& planes, std::size_t row) {
  return {planes.Luma(row), planes.U(row), planes.V(row)};
}

YuvTarget Row(const TargetPlanes& planes, std::size_t row) {
  return {planes.Luma(row), planes.U(row), planes.V(row)};
}

const std::uint8_t* Bytes(const void* data) {
  return static_cast<const std::uint8_t*>(data);
}

std::uint8_t* Bytes(void* data) {
  return static_cast<std::uint8_t*>(data);
}

std::ptrdiff_t Offset(std::size_t row, int stride) {
  return static_cast<std::ptrdiff_t>(row) * stride;
}

const std::uint8_t* RowAt(SourceRows rows, std::size_t row) {
  return Bytes(rows.data) + Offset(row, rows.stride);
}

std::uint8_t* RowAt(TargetRows rows, std::size_t row) {
  return Bytes(rows.data) + Offset(row, rows.stride);
}

bool Usable(const void* src, const void* dst, Extent size) {
  return src != nullptr && dst != nullptr && size.Fits();
}

// The processor's string instruction moves a whole plane quicker than the C library, which takes
// its own loop for blocks of this size.
void CopyPlane(const std::uint8_t* from, std::size_t size, std::uint8_t* to) {
#if defined(__x86_64__)
  if (platform::HasFastStringMove()) {
    asm volatile("rep movsb" : "+S"(from), "+D"(to), "+c"(size) : : "memory");
    return;
  }
#endif
  std::memcpy(to, from, size);
}

// The packed rows lie without gaps, four bytes a pair.
std::size_t PackedRow(Extent size) {
  return 4 * size.Pairs();
}

}  // namespace

void RgbToPlanar(const ColourRows& rows, RgbLayout from, Sampling to, FrameSize size,
                 SourceRows src, void* dst, bool uv_swap, bool bgr) {
  const Extent extent(size);
  if (!Usable(src.data, dst, extent)) return;
  const TargetPlanes planes(to, extent, Bytes(dst), uv_swap);
  if (to == Sampling::k420) {
    for (std::size_t row = 0; row + 1 < extent.height; row += 2) {
      rows.rgb_to_blocks[from](RowAt(src, row), RowAt(src, row + 1), extent.Pairs(), bgr,
                               Row(planes, row), planes.Luma(row + 1));
    }
    return;
  }
  const auto convert = to == Sampling::k422 ? rows.rgb_to_pairs[from] : rows.rgb_to_pixels[from];
  for (std::size_t row = 0; row < extent.height; ++row) {
    convert(RowAt(src, row), planes.chroma_width, bgr, Row(planes, row));
  }
}

void PlanarToRgb(const ColourRows& rows, Sampling from, RgbLayout to, FrameSize size,
                 const void* src, bool uv_swap, TargetRows dst, bool bgr) {
  const Extent extent(size);
  if (!Usable(src, dst.data, extent)) return;
  const SourcePlanes planes(from, extent, Bytes(src), uv_swap);
  const auto convert = from == Sampling::k444 ? rows.pixels_to_rgb[to] : rows.pairs_to_rgb[to];
  const std::size_t odd_row = from == Sampling::k420 ? extent.height % 2 : 0;
  for (std::size_t row = 0; row < extent.height - odd_row; ++row) {
    convert(Row(planes, row), planes.chroma_width, bgr, RowAt(dst, row));
  }
}

void PackedToRgb888(const ColourRows& rows, FrameSize size, const void* src, bool v_first,
                    TargetRows dst, bool bgr) {
  const Extent extent(size);
  if (!Usable(src, dst.data, extent)) return;
  for (std::size_t row = 0; row < extent.height; ++row) {
    rows.packed_to_rgb888(Bytes(src) + row * PackedRow(extent), extent.Pairs(), v_first, bgr,
                          RowAt(dst, row));
  }
}

void PackedToArgb32(const ColourRows& rows, FrameSize size, const void* src, bool v_first,
                    TargetRows dst, SourceRows alpha) {
  const Extent extent(size);
  if (!Usable(src, dst.data, extent) || alpha.data == nullptr) return;
  for (std::size_t row = 0; row < extent.height; ++row) {
    rows.packed_to_argb(Bytes(src) + row * PackedRow(extent), extent.Pairs(), v_first,
                        RowAt(alpha, row), RowAt(dst, row));
  }
}

void PlanarToPacked(const RepackRows& rows, FrameSize size, const void* src, bool uv_swap,
                    void* dst) {
  const Extent extent(size);
  if (!Usable(src, dst, extent)) return;
  const SourcePlanes planes(Sampling::k422, extent, Bytes(src), uv_swap);
  for (std::size_t row = 0; row < extent.height; ++row) {
    rows.join_packed(Row(planes, row), extent.Pairs(), Bytes(dst) + row * PackedRow(extent));
  }
}

void PackedToPlanar(const RepackRows& rows, Sampling to, FrameSize size, const void* src, void* dst,
                    bool uv_swap) {
  const Extent extent(size);
  if (!Usable(src, dst, extent)) return;
  const TargetPlanes planes(to, extent, Bytes(dst), uv_swap);
  const std::size_t odd_row = to == Sampling::k420 ? extent.height % 2 : 0;
  for (std::size_t row = 0; row < extent.height - odd_row; ++row) {
    const std::uint8_t* in = Bytes(src) + row * PackedRow(extent);
    if (row % planes.luma_rows_a_chroma_row == 0) {
      rows.split_packed(in, extent.Pairs(), Row(planes, row));
    } else {
      rows.luma_of_packed(in, extent.Pairs(), planes.Luma(row));
    }
  }
}

void HalveChromaRows(const RepackRows& rows, FrameSize size, const void* src, bool src_uv_swap,
                     void* dst, bool dst_uv_swap) {
  const Extent extent(size);
  if (!Usable(src, dst, extent)) return;
  const SourcePlanes from(Sampling::k422, extent, Bytes(src), src_uv_swap);
  const TargetPlanes to(Sampling::k420, extent, Bytes(dst), dst_uv_swap);
  CopyPlane(from.y, extent.Area(), to.y);
  // One plane after the other: fewer streams of memory at a time.
  for (std::size_t row = 0; row + 1 < extent.height; row += 2) {
    rows.average(from.U(row), from.U(row + 1), from.chroma_width, to.U(row));
  }
  for (std::size_t row = 0; row + 1 < extent.height; row += 2) {
    rows.average(from.V(row), from.V(row + 1), from.chroma_width, to.V(row));
  }
}

void DoubleChromaRows(FrameSize size, const void* src, bool src_uv_swap, void* dst,
                      bool dst_uv_swap) {
  const Extent extent(size);
  if (!Usable(src, dst, extent)) return;
  const SourcePlanes from(Sampling::k420, extent, Bytes(src), src_uv_swap);
  const TargetPlanes to(Sampling::k422, extent, Bytes(dst), dst_uv_swap);
  CopyPlane(from.y, extent.Area(), to.y);
  const std::size_t even_height = extent.height / 2 * 2;
  for (std::size_t row = 0; row < even_height; ++row) {
    std::memcpy(to.U(row), from.U(row), from.chroma_width);
  }
  for (std::size_t row = 0; row < even_height; ++row) {
    std::memcpy(to.V(row), from.V(row), from.chroma_width);
  }
}

namespace {

// The semi-planar pair counts pixels only: their number, or 0 where there is nothing to do.
std::size_t PlainArea(FrameSize size) {
  const std::int64_t area = std::int64_t{size.width} * size.height;
  return area <= 0 || static_cast<std::uint64_t>(area) > kLargestPlane
             ? 0
             : static_cast<std::size_t>(area);
}

}  // namespace

void SplitChroma(const RepackRows& rows, FrameSize size, const void* src, void* dst, bool uv_swap) {
  const std::size_t area = PlainArea(size);
  if (src == nullptr || dst == nullptr || area == 0) return;
  CopyPlane(Bytes(src), area, Bytes(dst));
  std::uint8_t* first = Bytes(dst) + area;
  std::uint8_t* second = first + area / 4;
  if (uv_swap) std::swap(first, second);
  rows.split_two(Bytes(src) + area, area / 4, first, second);
}

void JoinChroma(const RepackRows& rows, FrameSize size, const void* src, bool uv_swap, void* dst) {
  const std::size_t area = PlainArea(size);
  if (src == nullptr || dst == nullptr || area == 0) return;
  CopyPlane(Bytes(src), area, Bytes(dst));
  const std::uint8_t* first = Bytes(src) + area;
  const std::uint8_t* second = first + area / 4;
  if (uv_swap) std::swap(first, second);
  rows.join_two(first, second, area / 4, Bytes(dst) + area);
}

void RgbToRgb(const RepackRows& rows, RgbLayout from, RgbLayout to, FrameSize size, SourceRows src,
              TargetRows dst, bool swap) {
  if (src.data == nullptr || dst.data == nullptr || size.width <= 0 || size.height <= 0) return;
  const auto width = static_cast<std::size_t>(size.width);
  for (std::size_t row = 0; row < static_cast<std::size_t>(size.height); ++row) {
    rows.rgb[from][to](RowAt(src, row), width, swap, RowAt(dst, row));
  }
}

}  // namespace qvx::imaging
