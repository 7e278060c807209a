// CreateHBitmap, and what platform.h offers for the objects that it makes.
#include <cstdint>
#include <cstring>
#include <new>

#include "imaging/bitmap_layout.h"
#include "platform/bitmap.h"
#include "qvx/bitmap_file.h"
#include "qvx/platform.h"

namespace qvx::imaging {
namespace {

bool IsObjectBitCount(int count) {
  return count == 1 || count == 4 || count == 8 || count == 16 || count == 24 || count == 32;
}

// A little-endian field of an info header.
std::int32_t Field(const unsigned char* info, int offset, int size) {
  std::uint32_t value = 0;
  for (int i = size; i-- > 0;) value = value << 8 | info[offset + i];
  return static_cast<std::int32_t>(value);
}

tagBITMAPDATA Describe(const platform::BitmapBlocks& blocks) {
  tagBITMAPDATA data{};
  data.info = blocks.info.data();
  data.pixels = blocks.pixels.data();
  data.infoSize = blocks.info.size();
  data.pixelSize = blocks.pixels.size();
  data.width = Field(data.info, 4, 4);
  data.height = Field(data.info, 8, 4);
  data.bitCount = Field(data.info, 14, 2);
  data.rowBytes = LayOut(data.width, data.height, data.bitCount)->row_bytes;
  return data;
}

HBITMAP Create(void** bits, const BitmapLayout& layout, const PaletteData& palette) {
  const HBITMAP bitmap = platform::MakeBitmap(InfoHeader(layout, palette), layout.image_bytes);
  platform::BitmapBlocks blocks;
  if (bits == nullptr || !platform::LookIntoBitmap(bitmap, blocks)) return bitmap;
  if (*bits == nullptr) {
    *bits = blocks.pixels.data();
  } else {
    std::memcpy(blocks.pixels.data(), *bits, blocks.pixels.size());
  }
  return bitmap;
}

}  // namespace
}  // namespace qvx::imaging

namespace imaging = qvx::imaging;
namespace platform = qvx::platform;

HBITMAP CreateHBitmap(void** bits, int width, int height, int bitCount, const void* palette,
                      int paletteCount) {
  if (!imaging::IsObjectBitCount(bitCount)) return nullptr;
  const auto layout = imaging::LayOut(width, height, bitCount);
  if (!layout || layout->image_bytes == 0) return nullptr;
  try {
    return imaging::Create(bits, *layout, {palette, paletteCount});
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

int ReadHBitmap(HBITMAP bitmap, tagBITMAPDATA* data) {
  platform::BitmapBlocks blocks;
  if (data == nullptr || !platform::LookIntoBitmap(bitmap, blocks)) return 0;
  *data = imaging::Describe(blocks);
  return 1;
}

int FreeHBitmap(HBITMAP bitmap) {
  return platform::FreeBitmap(bitmap) ? 1 : 0;
}
