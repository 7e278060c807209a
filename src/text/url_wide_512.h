// Decoding of URLs for processors with 512-bit vectors that can press their bytes together.
#pragma once

#include "text/url_cursor.h"

namespace qvx::text {

// Decodes all but what is left when less than a vector and the digits behind it remain. Serves
// where the processor has platform::Vectors::kAvx512.
void DecodeUrl512(UrlCursor& progress);

}  // namespace qvx::text
