#include "qvx/pixel_format.h"

#include "imaging/pixel_frames.h"
#include "imaging/pixel_tables.h"

using namespace qvx::imaging;

void InitLookupTable() {}

void RGBToYUV(unsigned char r, unsigned char g, unsigned char b, unsigned char* y, unsigned char* u,
              unsigned char* v) {
  if (y == nullptr || u == nullptr || v == nullptr) return;
  const Yuv pixel = ToYuv({r, g, b});
  *y = pixel.y;
  *u = pixel.u;
  *v = pixel.v;
}

void YUVToRGB(unsigned char y, unsigned char u, unsigned char v, unsigned char* r, unsigned char* g,
              unsigned char* b) {
  if (r == nullptr || g == nullptr || b == nullptr) return;
  const Rgb pixel = ToRgb({y, u, v});
  *r = pixel.r;
  *g = pixel.g;
  *b = pixel.b;
}

void RGB888ToYUV420(int width, int height, const void* src, void* dst, int uvSwap, int srcStride,
                    int bgrOrder) {
  RgbToPlanar(BestColourRows(), kRgb888, Sampling::k420, {width, height}, {src, srcStride}, dst,
              uvSwap != 0, bgrOrder != 0);
}

void RGB565ToYUV420(int width, int height, const void* src, void* dst, int uvSwap, int srcStride,
                    int bgrOrder) {
  RgbToPlanar(BestColourRows(), kRgb565, Sampling::k420, {width, height}, {src, srcStride}, dst,
              uvSwap != 0, bgrOrder != 0);
}

void RGB555ToYUV420(int width, int height, const void* src, void* dst, int uvSwap, int srcStride,
                    int bgrOrder) {
  RgbToPlanar(BestColourRows(), kRgb555, Sampling::k420, {width, height}, {src, srcStride}, dst,
              uvSwap != 0, bgrOrder != 0);
}

void RGB888ToYUV422(int width, int height, const void* src, void* dst, int uvSwap, int srcStride,
                    int bgrOrder) {
  RgbToPlanar(BestColourRows(), kRgb888, Sampling::k422, {width, height}, {src, srcStride}, dst,
              uvSwap != 0, bgrOrder != 0);
}

void RGB565ToYUV422(int width, int height, const void* src, void* dst, int uvSwap, int srcStride,
                    int bgrOrder) {
  RgbToPlanar(BestColourRows(), kRgb565, Sampling::k422, {width, height}, {src, srcStride}, dst,
              uvSwap != 0, bgrOrder != 0);
}

void RGB555ToYUV422(int width, int height, const void* src, void* dst, int uvSwap, int srcStride,
                    int bgrOrder) {
  RgbToPlanar(BestColourRows(), kRgb555, Sampling::k422, {width, height}, {src, srcStride}, dst,
              uvSwap != 0, bgrOrder != 0);
}

void RGB888ToYUV444(int width, int height, const void* src, void* dst, int uvSwap, int srcStride,
                    int bgrOrder) {
  RgbToPlanar(BestColourRows(), kRgb888, Sampling::k444, {width, height}, {src, srcStride}, dst,
              uvSwap != 0, bgrOrder != 0);
}

void RGB565ToYUV444(int width, int height, const void* src, void* dst, int uvSwap, int srcStride,
                    int bgrOrder) {
  RgbToPlanar(BestColourRows(), kRgb565, Sampling::k444, {width, height}, {src, srcStride}, dst,
              uvSwap != 0, bgrOrder != 0);
}

void RGB555ToYUV444(int width, int height, const void* src, void* dst, int uvSwap, int srcStride,
                    int bgrOrder) {
  RgbToPlanar(BestColourRows(), kRgb555, Sampling::k444, {width, height}, {src, srcStride}, dst,
              uvSwap != 0, bgrOrder != 0);
}

void YUV420ToRGB888(int width, int height, const void* src, int uvSwap, void* dst, int dstStride,
                    int bgrOrder) {
  PlanarToRgb(BestColourRows(), Sampling::k420, kRgb888, {width, height}, src, uvSwap != 0,
              {dst, dstStride}, bgrOrder != 0);
}

void YUV420ToRGB565(int width, int height, const void* src, int uvSwap, void* dst, int dstStride,
                    int bgrOrder) {
  PlanarToRgb(BestColourRows(), Sampling::k420, kRgb565, {width, height}, src, uvSwap != 0,
              {dst, dstStride}, bgrOrder != 0);
}

void YUV420ToRGB555(int width, int height, const void* src, int uvSwap, void* dst, int dstStride,
                    int bgrOrder) {
  PlanarToRgb(BestColourRows(), Sampling::k420, kRgb555, {width, height}, src, uvSwap != 0,
              {dst, dstStride}, bgrOrder != 0);
}

void YUV422ToRGB888(int width, int height, const void* src, int uvSwap, void* dst, int dstStride,
                    int bgrOrder) {
  PlanarToRgb(BestColourRows(), Sampling::k422, kRgb888, {width, height}, src, uvSwap != 0,
              {dst, dstStride}, bgrOrder != 0);
}

void YUV422ToRGB565(int width, int height, const void* src, int uvSwap, void* dst, int dstStride,
                    int bgrOrder) {
  PlanarToRgb(BestColourRows(), Sampling::k422, kRgb565, {width, height}, src, uvSwap != 0,
              {dst, dstStride}, bgrOrder != 0);
}

void YUV422ToRGB555(int width, int height, const void* src, int uvSwap, void* dst, int dstStride,
                    int bgrOrder) {
  PlanarToRgb(BestColourRows(), Sampling::k422, kRgb555, {width, height}, src, uvSwap != 0,
              {dst, dstStride}, bgrOrder != 0);
}

void YUV444ToRGB888(int width, int height, const void* src, int uvSwap, void* dst, int dstStride,
                    int bgrOrder) {
  PlanarToRgb(BestColourRows(), Sampling::k444, kRgb888, {width, height}, src, uvSwap != 0,
              {dst, dstStride}, bgrOrder != 0);
}

void YUV444ToRGB565(int width, int height, const void* src, int uvSwap, void* dst, int dstStride,
                    int bgrOrder) {
  PlanarToRgb(BestColourRows(), Sampling::k444, kRgb565, {width, height}, src, uvSwap != 0,
              {dst, dstStride}, bgrOrder != 0);
}

void YUY2ToRGB888(int width, int height, const void* src, void* dst, int dstStride, int bgrOrder) {
  PackedToRgb888(BestColourRows(), {width, height}, src, false, {dst, dstStride}, bgrOrder != 0);
}

void YUY2ToARGB32(int width, int height, const void* src, void* dst, int dstStride,
                  int /*bgrOrder*/, const unsigned char* alpha, int alphaStride) {
  PackedToArgb32(BestColourRows(), {width, height}, src, false, {dst, dstStride},
                 {alpha, alphaStride});
}

void YVY2ToRGB888(int width, int height, const void* src, void* dst, int dstStride, int bgrOrder) {
  PackedToRgb888(BestColourRows(), {width, height}, src, true, {dst, dstStride}, bgrOrder != 0);
}

void YVY2ToARGB32(int width, int height, const void* src, void* dst, int dstStride,
                  int /*bgrOrder*/, const unsigned char* alpha, int alphaStride) {
  PackedToArgb32(BestColourRows(), {width, height}, src, true, {dst, dstStride},
                 {alpha, alphaStride});
}

void YUVToYUYV_422(int width, int height, const void* src, int uvSwap, void* dst) {
  PlanarToPacked(BestRepackRows(), {width, height}, src, uvSwap != 0, dst);
}

void YUYVToYUV_422(int width, int height, const void* src, void* dst, int uvSwap) {
  PackedToPlanar(BestRepackRows(), Sampling::k422, {width, height}, src, dst, uvSwap != 0);
}

void YUYV422ToYUV420(int width, int height, const void* src, void* dst, int uvSwap) {
  PackedToPlanar(BestRepackRows(), Sampling::k420, {width, height}, src, dst, uvSwap != 0);
}

void YUV422ToYUV420(int width, int height, const void* src, int srcUvSwap, void* dst,
                    int dstUvSwap) {
  HalveChromaRows(BestRepackRows(), {width, height}, src, srcUvSwap != 0, dst, dstUvSwap != 0);
}

void YUV420ToYUV422(int width, int height, const void* src, int srcUvSwap, void* dst,
                    int dstUvSwap) {
  DoubleChromaRows({width, height}, src, srcUvSwap != 0, dst, dstUvSwap != 0);
}

void YUV420SPToYUV420(int width, int height, const void* src, void* dst, int uvSwap) {
  SplitChroma(BestRepackRows(), {width, height}, src, dst, uvSwap != 0);
}

void YUV420ToYUV420SP(int width, int height, const void* src, int uvSwap, void* dst) {
  JoinChroma(BestRepackRows(), {width, height}, src, uvSwap != 0, dst);
}

void RGB888ToRGB565(int width, int height, const void* src, void* dst, int srcStride, int dstStride,
                    int swapFields) {
  RgbToRgb(BestRepackRows(), kRgb888, kRgb565, {width, height}, {src, srcStride}, {dst, dstStride},
           swapFields != 0);
}

void RGB888ToRGB555(int width, int height, const void* src, void* dst, int srcStride, int dstStride,
                    int swapFields) {
  RgbToRgb(BestRepackRows(), kRgb888, kRgb555, {width, height}, {src, srcStride}, {dst, dstStride},
           swapFields != 0);
}

void RGB565ToRGB888(int width, int height, const void* src, void* dst, int srcStride, int dstStride,
                    int swapFields) {
  RgbToRgb(BestRepackRows(), kRgb565, kRgb888, {width, height}, {src, srcStride}, {dst, dstStride},
           swapFields != 0);
}

void RGB555ToRGB888(int width, int height, const void* src, void* dst, int srcStride, int dstStride,
                    int swapFields) {
  RgbToRgb(BestRepackRows(), kRgb555, kRgb888, {width, height}, {src, srcStride}, {dst, dstStride},
           swapFields != 0);
}

void RGB565ToRGB555(int width, int height, const void* src, void* dst, int srcStride, int dstStride,
                    int swapFields) {
  RgbToRgb(BestRepackRows(), kRgb565, kRgb555, {width, height}, {src, srcStride}, {dst, dstStride},
           swapFields != 0);
}

void RGB555ToRGB565(int width, int height, const void* src, void* dst, int srcStride, int dstStride,
                    int swapFields) {
  RgbToRgb(BestRepackRows(), kRgb555, kRgb565, {width, height}, {src, srcStride}, {dst, dstStride},
           swapFields != 0);
}
