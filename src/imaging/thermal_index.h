// Values to bins of a range, 0 to 255. The plain form is the rule; the other gives the same
// results by a wide loop, chosen for the processor at run time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvx::imaging {

// A value's bin is (value - origin) * factor, cut to a whole number from 0 to 255; 0 where that
// is not a number.
struct BinScale {
  double origin;
  double factor;
};

void FindBins(const double* data, std::size_t count, BinScale scale, std::uint8_t* bins);
void FindBinsPlain(const double* data, std::size_t count, BinScale scale, std::uint8_t* bins);

}  // namespace qvx::imaging
