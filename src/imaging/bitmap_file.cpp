#include "qvx/bitmap_file.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "imaging/bitmap_layout.h"
#include "platform/new_file.h"
#include "platform/path.h"

namespace qvx::imaging {
namespace {

// The rows of a buffer in the order in which they are written.
class Rows {
 public:
  Rows(const unsigned char* buffer, const BitmapLayout& layout, bool reversed, int pitch)
      : first_(buffer), step_(pitch), count_(layout.rows), row_bytes_(layout.row_bytes) {
    if (reversed && count_ > 0) {
      first_ += std::ptrdiff_t{count_ - 1} * step_;
      step_ = -step_;
    }
    const auto length = static_cast<std::size_t>(std::abs(step_));
    in_memory_ = length == 0 ? row_bytes_ : std::min(length, row_bytes_);
  }

  void WriteTo(platform::NewFile& file) const {
    if (row_bytes_ == 0) return;
    for (std::uint32_t row = 0; row < count_ && file.IsGood(); ++row) {
      WriteRow(first_ + std::ptrdiff_t{row} * step_, file);
    }
  }

 private:
  void WriteRow(const unsigned char* row, platform::NewFile& file) const {
    for (std::size_t left = row_bytes_; left > 0;) {
      const std::size_t step = std::min(left, in_memory_);
      file.Append(row, step);
      left -= step;
    }
  }

  const unsigned char* first_;
  std::ptrdiff_t step_;
  std::uint32_t count_;
  std::size_t row_bytes_;
  std::size_t in_memory_ = 0;
};

void WriteFile(const char* path, const BitmapLayout& layout, const Bytes& info, const Rows& rows) {
  const std::optional<std::string> native = platform::ToNativePath(std::string_view(path));
  const std::optional<Bytes> header = FileHeader(layout, info);
  if (!native || !header) return;
  platform::NewFile file(*native);
  file.Append(header->data(), header->size());
  file.Append(info.data(), info.size());
  rows.WriteTo(file);
  file.Install();
}

}  // namespace
}  // namespace qvx::imaging

namespace imaging = qvx::imaging;

void SaveRgbBufferToBmpFile(const unsigned char* buffer, int width, int height, int bitCount,
                            int srcPitch, const void* palette, int paletteCount, const char* path) {
  if (buffer == nullptr || path == nullptr) return;
  const auto layout = imaging::LayOut(width, height, bitCount);
  if (!layout) return;
  imaging::WriteFile(path, *layout, imaging::InfoHeader(*layout, {palette, paletteCount}),
                     imaging::Rows(buffer, *layout, height <= 0, srcPitch));
}

void SaveRgbBufferToBmpFileV5(const unsigned char* buffer, int width, int height, int bitCount,
                              int srcPitch, unsigned int redMask, unsigned int greenMask,
                              unsigned int blueMask, unsigned int alphaMask, const void* palette,
                              int paletteCount, const char* path) {
  if (buffer == nullptr || path == nullptr) return;
  const auto layout = imaging::LayOut(width, height, bitCount);
  if (!layout) return;
  const imaging::ComponentMasks masks{redMask, greenMask, blueMask, alphaMask};
  imaging::WriteFile(path, *layout, imaging::InfoHeaderV5(*layout, masks, {palette, paletteCount}),
                     imaging::Rows(buffer, *layout, height <= 0, srcPitch));
}

void SaveRgb565BufferToBmpFile(const unsigned char* buffer, int width, int height, int srcPitch,
                               const char* path) {
  SaveRgbBufferToBmpFileV5(buffer, width, height, 16, srcPitch, 0xF800, 0x07E0, 0x001F, 0, nullptr,
                           0, path);
}
