// The parts of a device-independent bitmap that come before its pixels, as bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace qvx::imaging {

using Bytes = std::vector<unsigned char>;

// A colour table or masks of the caller, or nothing.
struct PaletteData {
  PaletteData(const void* data, int entries);

  const unsigned char* entries = nullptr;  // 4 bytes each
  std::uint32_t count = 0;
};

struct ComponentMasks {
  std::uint32_t red;
  std::uint32_t green;
  std::uint32_t blue;
  std::uint32_t alpha;
};

// The sizes of a picture; all products fit.
struct BitmapLayout {
  std::uint32_t width;
  std::uint32_t rows;
  int bit_count;
  bool negative_height;
  std::uint32_t row_bytes;
  std::uint32_t image_bytes;
};

// Nothing for a bit count out of 1 to 64, and where the pixels would take 4 GiB or more.
std::optional<BitmapLayout> LayOut(int width, int height, int bit_count);

// The header of 40 bytes with what stands behind it. A palette is made for up to 8 bits.
Bytes InfoHeader(const BitmapLayout& layout, PaletteData palette);
// The header of 124 bytes with what stands behind it.
Bytes InfoHeaderV5(const BitmapLayout& layout, const ComponentMasks& masks, PaletteData palette);

// The header of 14 bytes. Nothing where the file would have 4 GiB or more.
std::optional<Bytes> FileHeader(const BitmapLayout& layout, const Bytes& info);

}  // namespace qvx::imaging
