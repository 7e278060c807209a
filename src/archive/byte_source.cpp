#include "archive/byte_source.h"

namespace qvx::archive {

bool ByteSource::Open(const std::string& path) {
  if (!file_.OpenNative(path, platform::OpenMode::Read())) return false;
  const std::int64_t size = file_.Size();
  if (size < 0) return false;
  size_ = static_cast<std::uint64_t>(size);
  window_.reset(new unsigned char[kWindow]);
  return true;
}

const unsigned char* ByteSource::At(std::uint64_t offset, std::size_t count) {
  if (count > size_ || offset > size_ - count) return nullptr;
  if (offset < begin_ || offset + count > begin_ + filled_) {
    begin_ = offset;
    filled_ = file_.ReadAt(offset, window_.get(), kWindow).count;
    if (filled_ < count) return nullptr;
  }
  return window_.get() + (offset - begin_);
}

}  // namespace qvx::archive
