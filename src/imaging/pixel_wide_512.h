// Loops over rows for processors with 512-bit vectors and shuffles of all their bytes.
#pragma once

#include "imaging/pixel_rows.h"

namespace qvx::imaging {

// Serves where the processor has platform::Vectors::kAvx512.
const ColourRows& ColourRows512();

}  // namespace qvx::imaging
