#include "qvx/bitmap_file.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "imaging/bitmap_layout.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/pending_file.h"

namespace qvx::imaging {
namespace {

constexpr std::size_t kBlock = 0x40000;

// Collects what goes into a file, which appears under its name when it is complete.
class BlockWriter {
 public:
  explicit BlockWriter(const std::string& path)
      : block_(new unsigned char[kBlock]), good_(MayReplace(path) && file_.Create(path)) {}

  // False from the first failure on.
  bool IsGood() const { return good_; }

  void Append(const unsigned char* data, std::size_t size) {
    while (size > 0 && good_) {
      const std::size_t step = std::min(size, kBlock - filled_);
      std::memcpy(block_.get() + filled_, data, step);
      filled_ += step;
      data += step;
      size -= step;
      if (filled_ == kBlock) Flush();
    }
  }

  void Finish() {
    Flush();
    if (good_) file_.Install();
  }

 private:
  // Not in place of a file that is protected, nor of a link to a folder.
  static bool MayReplace(const std::string& path) {
    const platform::EntryKind kind = platform::KindOf(path);
    if (kind == platform::EntryKind::kNone) return true;
    return kind == platform::EntryKind::kFile && (platform::AttributesOf(path) & 0x1) == 0;
  }

  void Flush() {
    const platform::File& file = file_.Content();
    if (good_) good_ = file.WriteAt(offset_, block_.get(), filled_).count == filled_;
    offset_ += filled_;
    filled_ = 0;
  }

  platform::PendingFile file_;
  std::unique_ptr<unsigned char[]> block_;
  std::size_t filled_ = 0;
  std::uint64_t offset_ = 0;
  bool good_;
};

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

  void WriteTo(BlockWriter& file) const {
    if (row_bytes_ == 0) return;
    for (std::uint32_t row = 0; row < count_ && file.IsGood(); ++row) {
      WriteRow(first_ + std::ptrdiff_t{row} * step_, file);
    }
  }

 private:
  void WriteRow(const unsigned char* row, BlockWriter& file) const {
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
  BlockWriter file(*native);
  file.Append(header->data(), header->size());
  file.Append(info.data(), info.size());
  rows.WriteTo(file);
  file.Finish();
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
