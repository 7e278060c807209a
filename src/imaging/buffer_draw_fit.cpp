#include <cmath>

#include "imaging/buffer_draw_layout.h"
#include "qvx/buffer_draw.h"

using qvx::imaging::Height;
using qvx::imaging::Width;

namespace {

constexpr unsigned int kCentreX = 0x01;
constexpr unsigned int kRight = 0x04;
constexpr unsigned int kCentreY = 0x10;
constexpr unsigned int kBottom = 0x40;

bool SameSize(const RECT& a, const RECT& b) {
  return Width(a) == Width(b) && Height(a) == Height(b);
}

// Truncates; what no rectangle can hold is 0.
std::int64_t Truncated(double value) {
  constexpr double kLimit = 4294967296.0;
  return std::fabs(value) < kLimit ? static_cast<std::int64_t>(value) : 0;
}

// Moves the near side of the larger one. Half of the difference centres.
void Align(std::int32_t& dst, std::int64_t dst_size, std::int32_t& src, std::int64_t src_size,
           bool centre, bool far) {
  if (!centre && !far) return;
  const std::int64_t parts = centre ? 2 : 1;
  std::int32_t& side = dst_size > src_size ? dst : src;
  const std::int64_t difference = std::abs(dst_size - src_size);
  side = static_cast<std::int32_t>(side + difference / parts);
}

void AlignBoth(RECT& dst, RECT& src, unsigned int mode) {
  Align(dst.left, Width(dst), src.left, Width(src), (mode & kCentreX) != 0, (mode & kRight) != 0);
  Align(dst.top, Height(dst), src.top, Height(src), (mode & kCentreY) != 0, (mode & kBottom) != 0);
}

void Fit(RECT& dst, const RECT& src) {
  const std::int64_t width = Width(dst);
  const std::int64_t height = Height(dst);
  const auto src_width = static_cast<double>(Width(src));
  const auto src_height = static_cast<double>(Height(src));
  const double scale = 1.0 / std::max(src_width / static_cast<double>(width),
                                      src_height / static_cast<double>(height));
  const std::int64_t fit_width = Truncated(scale * src_width);
  const std::int64_t fit_height = Truncated(scale * src_height);
  dst.left = static_cast<std::int32_t>(dst.left + (width - fit_width) / 2);
  dst.top = static_cast<std::int32_t>(dst.top + (height - fit_height) / 2);
  dst.right = static_cast<std::int32_t>(dst.left + fit_width);
  dst.bottom = static_cast<std::int32_t>(dst.top + fit_height);
}

}  // namespace

extern "C" {

void GetRectByMode(RECT* dstRect, RECT* srcRect, int stretch, unsigned int mode) {
  if (dstRect == nullptr || srcRect == nullptr) return;
  if (stretch == 0 || SameSize(*dstRect, *srcRect)) return AlignBoth(*dstRect, *srcRect, mode);
  if ((mode & (kCentreX | kCentreY)) != 0) Fit(*dstRect, *srcRect);
}

void DrawBuffer(unsigned char* dst, RECT* dstRect, int dstPitch, const unsigned char* src,
                RECT* srcRect, int srcPitch, int bytesPerPixel, int stretch, int useAlpha,
                unsigned int mode) {
  if (dstRect == nullptr || srcRect == nullptr) return;
  const bool scale = stretch != 0 && !SameSize(*dstRect, *srcRect);
  const bool blend = useAlpha != 0 && bytesPerPixel == qvx::imaging::kArgbBytes;
  GetRectByMode(dstRect, srcRect, scale ? 1 : 0, mode);
  if (scale && blend) {
    AlphaStretchBufferOnBuffer_ARGB(dst, dstRect, dstPitch, src, srcRect, srcPitch);
  } else if (scale) {
    StretchBufferOnBuffer(dst, dstRect, dstPitch, src, srcRect, srcPitch, bytesPerPixel);
  } else if (blend) {
    AlphaDrawBufferOnBuffer_ARGB(dst, dstRect, dstPitch, src, srcRect, srcPitch);
  } else {
    DrawBufferOnBuffer(dst, dstRect, dstPitch, src, srcRect, srcPitch, bytesPerPixel);
  }
}

}  // extern "C"
