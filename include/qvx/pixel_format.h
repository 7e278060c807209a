// Conversion of pictures between pixel layouts: RGB888, RGB565 and RGB555 to and from planar
// YUV, packed YUV to RGB, and repacking within each family.
//
// Layouts of a picture of W x H pixels; all divisions cut:
//   RGB888    3 bytes a pixel.
//   RGB565    a little-endian 16-bit word: high field 15..11, green 10..5, low field 4..0.
//   RGB555    a little-endian 16-bit word: high field 14..10, green 9..5, low field 4..0; bit 15
//             is ignored when read and written as 0.
//   ARGB32    a little-endian 32-bit word of A, R, G, B: bytes B, G, R, A.
//   YUV420    luma of W*H bytes, two chroma planes at W*H and W*H + W*H/4, W/2 bytes a row and
//             H/2 rows.
//   YUV422    luma of W*H bytes, two chroma planes at W*H and W*H + W*H/2, W/2 bytes a row and H
//             rows.
//   YUV444    three planes of W*H bytes.
//   YUYV, YUY2  4 bytes for two pixels side by side: Y0, U, Y1, V, W/2 of them a row. YVY2: Y0,
//             V, Y1, U.
//   YUV420SP  luma of W*H bytes, then W*H/4 pairs of chroma bytes.
// YUV pictures are packed without gaps; rows of RGB pictures and of alpha lie a stride apart: a
// number of bytes, which may be negative for a picture whose first row comes last in memory. With
// an odd size the planes stay where they are and the rest of them is neither read nor written.
//
// Arguments:
//   uvSwap    0: the first chroma plane (or byte of a pair) is U and the second V; else V and U.
//   bgrOrder  between YUV and RGB. 0: RGB888 is R, G, B in memory, and B is the high field of a
//             word; else B, G, R, and R is the high field.
//   swapFields  between RGB layouts. 0: the first byte of an RGB888 pixel is the low field of a
//             word; else the high field.
//
// Colours are those of ITU-R BT.601 in limited range, with coefficients of three decimals. Each
// product is rounded to the nearest integer by itself, halves away from zero, before three are
// added:
//   Y = 0.257 R + 0.504 G + 0.098 B + 16       R = 1.164 (Y-16) + 1.596 (V-128)
//   U = -0.148 R - 0.291 G + 0.439 B + 128     G = 1.164 (Y-16) - 0.392 (U-128) - 0.813 (V-128)
//   V = 0.439 R - 0.368 G - 0.071 B + 128      B = 1.164 (Y-16) + 2.017 (U-128)
// Results are held within 0 and 255. Fields of words fill the high bits of a component, with
// zeros below; writing a word drops the low bits.
//
// Every function ignores a null src or dst, reports nothing, allocates nothing, keeps no state
// and may run in any number of threads at once. The caller's buffers must hold the layout; src
// and dst must not overlap, but for RGB565ToRGB555 and RGB555ToRGB565 with dst and dstStride the
// same as src and srcStride. A size whose planes no memory could hold does nothing.
#pragma once

#include "qvx/types.h"

extern "C" {

// Prepares what the colour conversions need. That is part of the library's constant data, so the
// call costs nothing and may be left out.
QVX_API void InitLookupTable();

// One pixel by the formulas above. A null among the results' addresses writes nothing.
QVX_API void RGBToYUV(unsigned char r, unsigned char g, unsigned char b, unsigned char* y,
                      unsigned char* u, unsigned char* v);
QVX_API void YUVToRGB(unsigned char y, unsigned char u, unsigned char v, unsigned char* r,
                      unsigned char* g, unsigned char* b);

// RGB to planar YUV. The sign of width and of height means nothing. A chroma sample is the mean,
// cut to an integer, of those of the two pixels (YUV422) or the block of 2 x 2 pixels (YUV420)
// that it serves. A last column without a partner is left out, in YUV420 also a last row; their
// luma bytes stay as they are.
QVX_API void RGB888ToYUV420(int width, int height, const void* src, void* dst, int uvSwap,
                            int srcStride, int bgrOrder);
QVX_API void RGB565ToYUV420(int width, int height, const void* src, void* dst, int uvSwap,
                            int srcStride, int bgrOrder);
QVX_API void RGB555ToYUV420(int width, int height, const void* src, void* dst, int uvSwap,
                            int srcStride, int bgrOrder);
QVX_API void RGB888ToYUV422(int width, int height, const void* src, void* dst, int uvSwap,
                            int srcStride, int bgrOrder);
QVX_API void RGB565ToYUV422(int width, int height, const void* src, void* dst, int uvSwap,
                            int srcStride, int bgrOrder);
QVX_API void RGB555ToYUV422(int width, int height, const void* src, void* dst, int uvSwap,
                            int srcStride, int bgrOrder);
QVX_API void RGB888ToYUV444(int width, int height, const void* src, void* dst, int uvSwap,
                            int srcStride, int bgrOrder);
QVX_API void RGB565ToYUV444(int width, int height, const void* src, void* dst, int uvSwap,
                            int srcStride, int bgrOrder);
QVX_API void RGB555ToYUV444(int width, int height, const void* src, void* dst, int uvSwap,
                            int srcStride, int bgrOrder);

// Planar YUV to RGB. The sign of width and of height means nothing. A chroma sample serves its
// pixels as it is, without interpolation. A last column without a partner, in YUV420 also a last
// row, stays as it is in dst.
QVX_API void YUV420ToRGB888(int width, int height, const void* src, int uvSwap, void* dst,
                            int dstStride, int bgrOrder);
QVX_API void YUV420ToRGB565(int width, int height, const void* src, int uvSwap, void* dst,
                            int dstStride, int bgrOrder);
QVX_API void YUV420ToRGB555(int width, int height, const void* src, int uvSwap, void* dst,
                            int dstStride, int bgrOrder);
QVX_API void YUV422ToRGB888(int width, int height, const void* src, int uvSwap, void* dst,
                            int dstStride, int bgrOrder);
QVX_API void YUV422ToRGB565(int width, int height, const void* src, int uvSwap, void* dst,
                            int dstStride, int bgrOrder);
QVX_API void YUV422ToRGB555(int width, int height, const void* src, int uvSwap, void* dst,
                            int dstStride, int bgrOrder);
QVX_API void YUV444ToRGB888(int width, int height, const void* src, int uvSwap, void* dst,
                            int dstStride, int bgrOrder);
QVX_API void YUV444ToRGB565(int width, int height, const void* src, int uvSwap, void* dst,
                            int dstStride, int bgrOrder);

// Packed YUV to RGB, W/2 pairs of pixels a row. The sign of width and of height means nothing.
// alpha gives a byte of A for each pixel, its rows alphaStride bytes apart; a null one writes
// nothing. ARGB32 has one order of bytes, so bgrOrder makes no difference there.
QVX_API void YUY2ToRGB888(int width, int height, const void* src, void* dst, int dstStride,
                          int bgrOrder);
QVX_API void YVY2ToRGB888(int width, int height, const void* src, void* dst, int dstStride,
                          int bgrOrder);
QVX_API void YUY2ToARGB32(int width, int height, const void* src, void* dst, int dstStride,
                          int bgrOrder, const unsigned char* alpha, int alphaStride);
QVX_API void YVY2ToARGB32(int width, int height, const void* src, void* dst, int dstStride,
                          int bgrOrder, const unsigned char* alpha, int alphaStride);

// Between YUV layouts; the samples move, no colour changes. The sign of width and of height means
// nothing. A last column without a partner is left out where pixels go in pairs, a last row where
// rows do, but for luma that goes from plane to plane: that is copied whole.
QVX_API void YUVToYUYV_422(int width, int height, const void* src, int uvSwap, void* dst);
QVX_API void YUYVToYUV_422(int width, int height, const void* src, void* dst, int uvSwap);
// Takes the chroma of the upper row of each two.
QVX_API void YUYV422ToYUV420(int width, int height, const void* src, void* dst, int uvSwap);
// Takes the mean, cut to an integer, of the chroma of each two rows.
QVX_API void YUV422ToYUV420(int width, int height, const void* src, int srcUvSwap, void* dst,
                            int dstUvSwap);
// Writes each row of chroma twice.
QVX_API void YUV420ToYUV422(int width, int height, const void* src, int srcUvSwap, void* dst,
                            int dstUvSwap);
// These take width * height as one number with its sign, n: luma is n bytes, each chroma plane
// and the number of pairs n/4. With n of 0 or less they do nothing. uvSwap 0: the first bytes of
// the pairs are the first plane; else they are the second.
QVX_API void YUV420SPToYUV420(int width, int height, const void* src, void* dst, int uvSwap);
QVX_API void YUV420ToYUV420SP(int width, int height, const void* src, int uvSwap, void* dst);

// Between RGB layouts. A width or a height of 0 or less does nothing.
QVX_API void RGB888ToRGB565(int width, int height, const void* src, void* dst, int srcStride,
                            int dstStride, int swapFields);
QVX_API void RGB888ToRGB555(int width, int height, const void* src, void* dst, int srcStride,
                            int dstStride, int swapFields);
QVX_API void RGB565ToRGB888(int width, int height, const void* src, void* dst, int srcStride,
                            int dstStride, int swapFields);
QVX_API void RGB555ToRGB888(int width, int height, const void* src, void* dst, int srcStride,
                            int dstStride, int swapFields);
// Here swapFields exchanges the high and the low field.
QVX_API void RGB565ToRGB555(int width, int height, const void* src, void* dst, int srcStride,
                            int dstStride, int swapFields);
QVX_API void RGB555ToRGB565(int width, int height, const void* src, void* dst, int srcStride,
                            int dstStride, int swapFields);

}  // extern "C"
