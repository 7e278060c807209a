// Small functions on whole numbers, decimals, polygons and rectangles. None keeps state or
// blocks; all may be called from any thread. Whole numbers are 32-bit and wrap on overflow
// unless told otherwise. Null arrays count as empty; null records change nothing.
#pragma once

#include <cstdint>

#include "qvx/base_string.h"
#include "qvx/types.h"

extern "C" {

// Whole numbers ------------------------------------------------------------------------------

// The greatest common divisor; 1 if an argument is below 1. Of an array, folded from its first
// element on: 1 for no elements, a single element as it is.
QVX_API int calc_gcd(int a, int b);
QVX_API int calc_gcd_array(const int* values, int count);

// a / gcd * b. If an argument is below 1 the divisor counts as 1, so the result is a * b.
QVX_API int calc_lcm(int a, int b);
QVX_API int calc_lcm_array(const int* values, int count);

// n!, exact up to 20, wrapping in 64 bits above; 1 for an n below 1.
QVX_API unsigned long long Factorial(int n);

// n! / (k! * (n - k)!) of factorials as above, exact up to an n of 20; 0 if the divisor wraps
// to 0.
QVX_API unsigned long long calc_combine(int n, int k);

// The number of bits that are 1.
QVX_API int GetOneBitCount(unsigned int value);

// Powers: of a base of 2 or more; a base below 2 gives value. Of a value below 2 the result
// is 1. A power beyond 31 bits wraps.
QVX_API int IncreaseToPowerOf(int value, int base);  // the smallest power not below value
QVX_API int DecreaseToPowerOf(int value, int base);  // the largest power below value
QVX_API int GetNearestPowerOf(int value, int base);  // of both the nearer one, at a tie the lower

// About 1 / sqrt(x), within 0.2 %, for an x above 0: a start value from the bits of x
// (0x5F3759DF - bits / 2) and one step of Newton's method in single precision.
QVX_API float FastInvSqrt(float x);

// Polygons -----------------------------------------------------------------------------------

// 1 inside, 0 on the outline, -1 outside and for fewer than 3 corners; even-odd rule. Where a
// slanted side passes is cut to a whole number toward its corner points[i].
QVX_API int IsPointInPolygonSides(int x, int y, const POINT* points, int count);

// The same; on the outline is whatever is less than half a unit left or right of a side. A
// horizontal side has no outline of its own.
QVX_API int IsPointInPolygonSides_Double(double x, double y, const double* xs, const double* ys,
                                         int count);

// Decimals -----------------------------------------------------------------------------------

// 0 if both values agree when rounded to decimals places, half away from zero, else 1. The
// places count modulo 2^32, so 9 is the most that is useful.
QVX_API int CompareValueByDecimal(double a, double b, int decimals);

// How many decimal places of value are worth showing, at most maxDecimals.
QVX_API int GetSuitableDecimalFormatCount(double value, int maxDecimals);

// The printf format for that many places, as "%.2f".
QVX_API void GetDoubleSuitableDisplayFormatA(double value, int maxDecimals, CBaseStringA& format);
QVX_API void GetDoubleSuitableDisplayFormatW(double value, int maxDecimals, CBaseStringW& format);

// Rectangles ---------------------------------------------------------------------------------

QVX_API void SetPointXY(POINT* p, int x, int y);
QVX_API void SetRectXY(RECT* r, int left, int top, int width, int height);

// out gets the size of r at the origin; it may be r.
QVX_API void GetRelativeRect(const RECT* r, RECT* out);

// Multiplies the fields, cut toward zero. What does not fit a field becomes its largest or
// smallest value; what is no number becomes 0.
QVX_API void ScaleRect(RECT* r, double scaleX, double scaleY);

// Moves r by dx and dy; its size stays.
QVX_API void InflatRect(RECT* r, int dx, int dy);

// 1 if all four fields agree, else 0, also for a null argument.
QVX_API int IsRectEqual(const RECT* a, const RECT* b);

// out gets what a and b have in common, without a negative width or height; it may be a or b.
QVX_API void BoundRect(RECT* out, const RECT* a, const RECT* b);

}  // extern "C"
