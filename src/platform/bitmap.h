// Bitmap objects: a block with an info header, a block of pixels, and a handle for both. A handle
// is an id with a generation, so that one whose object is gone is recognised. Safe from any
// thread; a forked child has its own copies.
#pragma once

#include <cstddef>
#include <span>

#include "qvx/types.h"

namespace qvx::platform {

struct BitmapBlocks {
  std::span<const unsigned char> info;
  std::span<unsigned char> pixels;
};

// Copies the info block and makes pixels that are all 0. Null where memory is lacking.
HBITMAP MakeBitmap(std::span<const unsigned char> info, std::size_t pixel_size) noexcept;

// False for a handle that is none. The blocks live until the bitmap is freed.
bool LookIntoBitmap(HBITMAP bitmap, BitmapBlocks& blocks) noexcept;

bool FreeBitmap(HBITMAP bitmap) noexcept;

// Stands for the palette of a screen: count shades of grey from black to white, of 4 bytes each.
void FillSystemPalette(unsigned char* entries, unsigned count) noexcept;

}  // namespace qvx::platform
