#include "imaging/bitmap_layout.h"

#include <cstdlib>
#include <limits>

#include "platform/bitmap.h"

namespace qvx::imaging {
namespace {

constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint32_t kFileHeaderSize = 14;
constexpr std::uint32_t kInfoHeaderSize = 40;
constexpr std::uint32_t kInfoHeaderV5Size = 124;
constexpr std::uint32_t kPlain = 0;
constexpr std::uint32_t kBitFields = 3;
constexpr std::uint32_t kPixelsPerMetre = 2835;  // 72 to the inch
constexpr int kMostBits = 64;
constexpr int kMostTableBits = 8;

void Put16(Bytes& out, std::uint32_t value) {
  out.push_back(static_cast<unsigned char>(value & 0xFF));
  out.push_back(static_cast<unsigned char>(value >> 8 & 0xFF));
}

void Put32(Bytes& out, std::uint32_t value) {
  Put16(out, value & 0xFFFF);
  Put16(out, value >> 16);
}

std::uint32_t Magnitude(int value) {
  return static_cast<std::uint32_t>(std::abs(std::int64_t{value}));
}

// The fields that both headers begin with.
void PutStart(Bytes& out, std::uint32_t size, const BitmapLayout& layout, std::uint32_t height) {
  Put32(out, size);
  Put32(out, layout.width);
  Put32(out, height);
  Put16(out, 1);
  Put16(out, static_cast<std::uint32_t>(layout.bit_count));
}

void AppendPalette(Bytes& out, const PaletteData& palette) {
  out.insert(out.end(), palette.entries, palette.entries + std::size_t{palette.count} * 4);
}

}  // namespace

PaletteData::PaletteData(const void* data, int size) {
  if (data == nullptr || size <= 0) return;
  entries = static_cast<const unsigned char*>(data);
  count = static_cast<std::uint32_t>(size);
}

std::optional<BitmapLayout> LayOut(int width, int height, int bit_count) {
  if (bit_count < 1 || bit_count > kMostBits) return std::nullopt;
  const std::uint32_t columns = Magnitude(width);
  const std::uint32_t rows = Magnitude(height);
  const std::uint64_t row_bits = std::uint64_t{columns} * static_cast<unsigned>(bit_count);
  const std::uint64_t row_bytes = (row_bits + 31) / 32 * 4;
  if (row_bytes > kMost || (rows != 0 && row_bytes > kMost / rows)) return std::nullopt;
  const auto row = static_cast<std::uint32_t>(row_bytes);
  return BitmapLayout{columns, rows, bit_count, height < 0, row, row * rows};
}

Bytes InfoHeader(const BitmapLayout& layout, PaletteData palette) {
  Bytes made;
  if (palette.count == 0 && layout.bit_count <= kMostTableBits) {
    palette.count = 1U << layout.bit_count;
    made.resize(std::size_t{palette.count} * 4);
    platform::FillSystemPalette(made.data(), palette.count);
    palette.entries = made.data();
  }
  const bool masks = palette.count > 0 && (layout.bit_count == 16 || layout.bit_count == 32);
  Bytes out;
  out.reserve(kInfoHeaderSize + std::size_t{palette.count} * 4);
  PutStart(out, kInfoHeaderSize, layout, layout.negative_height ? layout.rows : 0 - layout.rows);
  for (const std::uint32_t field :
       {masks ? kBitFields : kPlain, layout.image_bytes, 0U, 0U, palette.count, 0U}) {
    Put32(out, field);
  }
  AppendPalette(out, palette);
  return out;
}

Bytes InfoHeaderV5(const BitmapLayout& layout, const ComponentMasks& masks, PaletteData palette) {
  Bytes out;
  out.reserve(kInfoHeaderV5Size + std::size_t{palette.count} * 4);
  PutStart(out, kInfoHeaderV5Size, layout, layout.rows);
  for (const std::uint32_t field :
       {kBitFields, layout.image_bytes, kPixelsPerMetre, kPixelsPerMetre, 0U, 0U, masks.red,
        masks.green, masks.blue, masks.alpha}) {
    Put32(out, field);
  }
  for (const char letter : {'B', 'G', 'R', 's'}) out.push_back(static_cast<unsigned char>(letter));
  out.resize(kInfoHeaderV5Size);
  AppendPalette(out, palette);
  return out;
}

std::optional<Bytes> FileHeader(const BitmapLayout& layout, const Bytes& info) {
  const std::uint64_t offset = kFileHeaderSize + info.size();
  const std::uint64_t size = offset + layout.image_bytes;
  if (size > kMost) return std::nullopt;
  Bytes out{'B', 'M'};
  out.reserve(kFileHeaderSize);
  for (const std::uint64_t field : {size, std::uint64_t{0}, offset}) {
    Put32(out, static_cast<std::uint32_t>(field));
  }
  return out;
}

}  // namespace qvx::imaging
