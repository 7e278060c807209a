// Conversions between 8-bit RGB and the HSV and HLS colour models, in double precision.
//
// Red, green and blue are bytes, 0 to 255. Hue is in degrees, from 0 up to but not including
// 360; saturation, value and lightness are 0.0 to 1.0. A byte becomes a fraction by a product
// with 0.00392156862745098; a fraction becomes a byte by a product with 255.0, a clamp to 0 to
// 255 and a cut of what is behind the point, so that a way there and back may lose one. What is
// not a number becomes the byte 0.
//
// All pointers must be given. No state; any number of threads may call. The formulas are those
// of the hexagonal (HSV) and double hexagonal (HLS) cone.
#pragma once

#include "qvx/types.h"

extern "C" {

// A grey has hue 0 and saturation 0. Where two components are the greatest, red goes before
// green and green before blue. A null among the results' addresses writes nothing, here and below.
QVX_API void RGBToHSV(unsigned char r, unsigned char g, unsigned char b, double* h, double* s,
                      double* v);

// The hue is not brought into range: what is not below 300, 360 itself included, or is negative,
// counts as the last sixth of the circle, where 360 gives red and blue v and green p. With a
// saturation of 0 the hue is not looked at.
QVX_API void HSVToRGB(double h, double s, double v, unsigned char* r, unsigned char* g,
                      unsigned char* b);

// As RGBToHSV, with the results in front.
QVX_API void RGBToHLS(double* h, double* l, double* s, unsigned char r, unsigned char g,
                      unsigned char b);

// A hue below 0 or above 360 is brought into range by one turn at most; 360 is as 0. With a
// saturation of 0 the hue is not looked at.
QVX_API void HLSToRGB(unsigned char* r, unsigned char* g, unsigned char* b, double h, double l,
                      double s);

}  // extern "C"
