// Soft strokes: tapering, fading lines and discs in an 8-bit intensity plane, which
// SetAlphaBufferColor_ARGB of buffer_draw.h takes as a mask, and a small ARGB bitmap as a pen.
//
// An intensity plane has height rows of exactly width bytes: 0 is nothing, 255 full strength. A
// pixel only ever takes a larger value, so strokes never darken one another. Half-widths and
// radii are in pixels from the axis to the edge; strengths count 1.0 as 255. What lies outside
// the plane is left out. Numbers that are not finite or beyond 1e12, and a null plane, paint
// nothing.
//
// A point list holds values, not pointers: x in the low, y in the high 32 bits, both signed, as
// DrawLineOnBuffer hands them over. It must not change during a call.
//
// Nothing here allocates, blocks or keeps state; threads may paint on separate planes at once.
#pragma once

#include "qvx/ptr_ctrl.h"
#include "qvx/types.h"

extern "C" {

// One stroke from point 1 to point 2 with straight ends. The value falls linearly from the
// strength on the axis to half of it at the edge, and ends half a pixel further out. A row in
// which the stroke reaches column width is left out whole. A halfWidth1 of 0 and a stroke
// without length paint nothing.
QVX_API void DrawGradualLine(int width, int height, double x1, double y1, double x2, double y2,
                             double halfWidth1, double halfWidth2, double strength1,
                             double strength2, unsigned char* plane);

// A stroke along the points with round joints and ends; width and strength change evenly over
// the whole length. Fewer than 2 points, and points that all coincide, paint nothing.
QVX_API void DrawGradualMultiLine(int width, int height, CPtrCtrl* points, double halfWidth1,
                                  double halfWidth2, double strength1, double strength2,
                                  unsigned char* plane);

// A disc at each point. Radius and strength change by a step for each point that would reach the
// second values one point after the last. The value falls from the strength at the centre to
// half of it at the edge, where it ends.
QVX_API void DrawGradualPointList(int width, int height, CPtrCtrl* points, double radius1,
                                  double radius2, double strength1, double strength2,
                                  unsigned char* plane);

// Blends a pen of penSize by penSize ARGB words, row after row without a gap, onto a picture with
// rows of width words, with the pen's centre at (x, y). A side whose full argument is 0 is cut
// back to the centred square of innerSize, which never reaches beyond the pen. Pixels outside
// the picture are left out. A transparent pixel of the picture takes the pen's word as it is;
// else the pen's alpha counts as sA = penAlpha * alpha / 256 in
//   outA = sA + dA - sA * dA / 255,  out = dst + (pen - dst) * sA / outA
// with divisions that truncate toward zero.
QVX_API void DrawPointByPen(unsigned int* picture, int width, int height, int x, int y,
                            const unsigned int* pen, unsigned char alpha, int penSize,
                            int innerSize, int fullLeft, int fullRight, int fullTop,
                            int fullBottom);

}  // extern "C"
