#include "qvx/buffer_draw.h"

#include <cstring>

#include "imaging/buffer_draw_layout.h"
#include "imaging/buffer_draw_rows.h"
#include "imaging/buffer_draw_stretch.h"

using qvx::imaging::kArgbBytes;
using qvx::imaging::RowPair;
using qvx::imaging::Source;
using qvx::imaging::Target;

namespace {

// Whether the rows of both sides follow each other without a gap, and the whole may be moved at
// once with the same result.
bool IsOneBlock(const RowPair& rows, std::size_t row_bytes) {
  const auto pitch = static_cast<std::int64_t>(row_bytes);
  return rows.dst_pitch == pitch && rows.src_pitch == pitch &&
         qvx::imaging::MayReadAhead(rows.dst, rows.src,
                                    row_bytes * static_cast<std::size_t>(rows.height));
}

}  // namespace

extern "C" {

void DrawBufferOnBuffer(unsigned char* dst, RECT* dstRect, int dstPitch, const unsigned char* src,
                        RECT* srcRect, int srcPitch, int bytesPerPixel) {
  const RowPair rows = qvx::imaging::CommonRows({dst, dstRect, dstPitch, bytesPerPixel},
                                                {src, srcRect, srcPitch, bytesPerPixel});
  const std::size_t bytes = rows.width * static_cast<std::size_t>(bytesPerPixel);
  if (rows.height > 0 && IsOneBlock(rows, bytes)) {
    std::memmove(rows.dst, rows.src, bytes * static_cast<std::size_t>(rows.height));
    return;
  }
  rows.ForEach([bytes](std::uint8_t* dst_row, const std::uint8_t* src_row) {
    std::memmove(dst_row, src_row, bytes);
  });
}

void AlphaDrawBufferOnBuffer_ARGB(unsigned char* dst, RECT* dstRect, int dstPitch,
                                  const unsigned char* src, RECT* srcRect, int srcPitch) {
  const RowPair rows = qvx::imaging::CommonRows({dst, dstRect, dstPitch, kArgbBytes},
                                                {src, srcRect, srcPitch, kArgbBytes});
  rows.ForEach([&rows](std::uint8_t* dst_row, const std::uint8_t* src_row) {
    qvx::imaging::BlendRowExact(dst_row, src_row, rows.width);
  });
}

void SetAlphaBufferColor_ARGB(unsigned int color, unsigned char* dst, RECT* dstRect, int dstPitch,
                              const unsigned char* mask, RECT* maskRect, int maskPitch) {
  const RowPair rows = qvx::imaging::CommonRows({dst, dstRect, dstPitch, kArgbBytes},
                                                {mask, maskRect, maskPitch, 1});
  rows.ForEach([&rows, color](std::uint8_t* dst_row, const std::uint8_t* mask_row) {
    qvx::imaging::TintRow(dst_row, mask_row, rows.width, color);
  });
}

void StretchBufferOnBuffer(unsigned char* dst, RECT* dstRect, int dstPitch,
                           const unsigned char* src, RECT* srcRect, int srcPitch,
                           int bytesPerPixel) {
  qvx::imaging::Stretch({dst, dstRect, dstPitch, bytesPerPixel},
                        {src, srcRect, srcPitch, bytesPerPixel});
}

void AlphaStretchBufferOnBuffer_ARGB(unsigned char* dst, RECT* dstRect, int dstPitch,
                                     const unsigned char* src, RECT* srcRect, int srcPitch) {
  qvx::imaging::StretchBlended({dst, dstRect, dstPitch, kArgbBytes},
                               {src, srcRect, srcPitch, kArgbBytes});
}

void DrawColorOnBuffer(unsigned int color, unsigned char* dst, RECT* rect, int pitch) {
  const Target target{dst, rect, pitch, kArgbBytes};
  if (target.IsEmpty()) return;
  const auto width = static_cast<std::size_t>(qvx::imaging::Width(*rect));
  const std::int64_t height = qvx::imaging::Height(*rect);
  std::uint8_t* const first = target.First();
  if (pitch == qvx::imaging::Width(*rect) * kArgbBytes) {
    return qvx::imaging::FillRow(first, width * static_cast<std::size_t>(height), color);
  }
  for (std::int64_t y = 0; y < height; ++y) {
    qvx::imaging::FillRow(first + y * pitch, width, color);
  }
}

}  // extern "C"
