// Series of measured values: repairing spikes, and fitting a polynomial. The functions keep no
// state and may run on any thread; they throw std::bad_alloc if there is no memory for their
// work. Sums are taken in the order of the points, so results do not depend on the machine.
#pragma once

#include "qvx/types.h"

extern "C" {

// Repairs count evenly spaced samples of data into out, which holds count values and does not
// overlap data. A step between neighbours is clean if it is smaller than threshold and ends
// within two standard deviations of the mean without the smallest and the largest sample. The
// longest run of at least two clean steps is taken over; from there in both directions, what
// lies between clean steps is replaced by straight lines, and at the ends the last clean step
// goes on. Returns 1 if at most a third of the samples were replaced, else 0, with out filled;
// 0 with out untouched if there is no such run, for a count below 3 and for null arguments.
QVX_API int SmoothData(double* data, double* out, int count, double threshold);

// Fits y = c[0] + c[1] x + ... + c[degree] x^degree to count points by least squares (normal
// equations, Gaussian elimination) and writes degree + 1 coefficients. Points too few or too
// alike for the degree give infinities or values that are no numbers. A negative degree or a
// null argument does nothing.
QVX_API void Gauss_PolyFit(int count, const double* x, const double* y, int degree,
                           double* coefficients);

}  // extern "C"
