// Pictures as text for a terminal with 24-bit colours: each character shows two pixels, one
// above the other.
#pragma once

#include <string>

namespace qvx::tool {

// Rows of 4-byte pixels without padding, bytes R, G, B, A; alpha 0 is not drawn.
struct PixelView {
  const unsigned char* pixels;
  int width;
  int height;
};

// The picture, made smaller if need be so that it fits; lines end in "\n".
std::string HalfBlocks(const PixelView& picture, int columns, int rows);

}  // namespace qvx::tool
