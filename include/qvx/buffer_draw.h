// Drawing on raw pixel buffers that belong to the caller: copies, alpha blends, stretches,
// fills, a tint through an 8-bit mask and a thick straight line.
//
// A buffer is a start pointer and a pitch: the signed distance in bytes from one row to the
// next. Pixel (x, y) stands at y * pitch + x * bytesPerPixel, at any alignment. Rectangles are
// in pixels relative to the start. Nothing but DrawLineOnBuffer knows a buffer's size: the
// caller's rectangles lie inside. A rectangle without width or height, a null pointer and a
// bytesPerPixel below 1 draw nothing.
//
// An ARGB pixel is a little-endian word A << 24 | R << 16 | G << 8 | B with straight alpha:
// 0 is transparent, 255 opaque. Where a source and a destination overlap, pixels are done row by
// row from the top, in a row from the left, except for the plain copy, which moves whole rows.
//
// Nothing here allocates, blocks or keeps state, so threads may draw on separate buffers at once.
#pragma once

#include "qvx/ptr_ctrl.h"
#include "qvx/types.h"

extern "C" {

// The next three work on the top left min(widths) by min(heights) pixels of both rectangles.

// Copies. Each row is moved as a whole, so it may overlap itself.
QVX_API void DrawBufferOnBuffer(unsigned char* dst, RECT* dstRect, int dstPitch,
                                const unsigned char* src, RECT* srcRect, int srcPitch,
                                int bytesPerPixel);

// Blends ARGB pixels, computed in double precision and truncated. With a and b the alphas of
// source and destination divided by 255, the result covers c = 1 - (1 - a)(1 - b), and each
// colour is (dst * (1 - a) * b + src * a) / c. A transparent source leaves the destination; a
// transparent destination takes the source as it is.
QVX_API void AlphaDrawBufferOnBuffer_ARGB(unsigned char* dst, RECT* dstRect, int dstPitch,
                                          const unsigned char* src, RECT* srcRect, int srcPitch);

// Writes, for each byte of the mask, the colour with its alpha scaled to mask * alpha / 256,
// so a full mask makes alpha 254 of 255. maskRect is in bytes of the mask.
QVX_API void SetAlphaBufferColor_ARGB(unsigned int color, unsigned char* dst, RECT* dstRect,
                                      int dstPitch, const unsigned char* mask, RECT* maskRect,
                                      int maskPitch);

// Fills the destination rectangle from the source rectangle, taking the pixel that is nearest
// to the centre (Bresenham's steps, no interpolation). bytesPerPixel may be any positive number.
QVX_API void StretchBufferOnBuffer(unsigned char* dst, RECT* dstRect, int dstPitch,
                                   const unsigned char* src, RECT* srcRect, int srcPitch,
                                   int bytesPerPixel);

// The same steps with a blend of ARGB pixels in integers. It is not the formula of
// AlphaDrawBufferOnBuffer_ARGB and gives other bytes:
//   outA = sA + dA - sA * dA / 255,  out = dst + (src - dst) * sA / outA
// with divisions that truncate toward zero, and the same rules for transparent pixels.
QVX_API void AlphaStretchBufferOnBuffer_ARGB(unsigned char* dst, RECT* dstRect, int dstPitch,
                                             const unsigned char* src, RECT* srcRect, int srcPitch);

// Writes the 32-bit color to every pixel of the rectangle.
QVX_API void DrawColorOnBuffer(unsigned int color, unsigned char* dst, RECT* rect, int pitch);

// Aligns the two rectangles, or fits the destination to the source's shape.
// mode: 0x01 centre horizontally, else 0x04 right; 0x10 centre vertically, else 0x40 bottom.
// Without stretch, or with equal sizes: moves left and top of the larger rectangle, so that
// the smaller one lies in it as the mode says; right and bottom stay.
// With stretch: neither 0x01 nor 0x10 changes nothing; with either, the destination becomes the
// largest rectangle of the source's shape, centred both ways inside its former place.
QVX_API void GetRectByMode(RECT* dstRect, RECT* srcRect, int stretch, unsigned int mode);

// Applies GetRectByMode to the caller's rectangles, which come back changed, then draws:
// stretched if stretch is non-zero and the sizes differ, else one to one; blended if useAlpha is
// non-zero and bytesPerPixel is 4, else plain.
QVX_API void DrawBuffer(unsigned char* dst, RECT* dstRect, int dstPitch, const unsigned char* src,
                        RECT* srcRect, int srcPitch, int bytesPerPixel, int stretch, int useAlpha,
                        unsigned int mode);

// Draws a straight line (Bresenham) with a square pen of penSize pixels, whose position is its
// top left corner, on a buffer of width by height pixels. Both ends are moved so that the pen
// stays inside; a pen that is larger than the buffer draws nothing; a penSize below 1 is 1.
// penPixels is one row of penSize ready-made pixels; each pixel of the pen's square is that of
// its column.
// points, which may be null, gets the points of the line's growing edges, each as an entry with
// x in the low and y in the high 32 bits; equal neighbours are left out. With a null dst only
// points is filled. If points can't grow, std::bad_alloc passes through, and points and the
// buffer are as they were.
QVX_API void DrawLineOnBuffer(unsigned char* dst, POINT from, POINT to, int width, int height,
                              int pitch, int bytesPerPixel, int penSize,
                              const unsigned char* penPixels, CPtrCtrl* points);

}  // extern "C"
