#include "archive/archive_stream.h"

#include <algorithm>
#include <cstring>

namespace qvx::archive {

namespace {

constexpr std::size_t kBlock = 1024 * 1024;

}  // namespace

ArchiveStream::ArchiveStream(const platform::File& file, std::uint64_t position)
    : file_(file),
      block_(new unsigned char[kBlock]),
      block_begin_(position),
      position_(position),
      end_(position) {}

bool ArchiveStream::FitsBlock(std::size_t size) const {
  return position_ >= block_begin_ && position_ <= block_begin_ + block_size_ &&
         position_ + size <= block_begin_ + kBlock;
}

bool ArchiveStream::Write(const void* data, std::size_t size) {
  if (failed_) return false;
  if (!FitsBlock(size)) {
    if (!Flush()) return false;
    if (size > kBlock) return WriteThrough(data, size);
    block_begin_ = position_;
  }
  const auto at = static_cast<std::size_t>(position_ - block_begin_);
  std::memcpy(block_.get() + at, data, size);
  block_size_ = std::max(block_size_, at + size);
  position_ += size;
  end_ = std::max(end_, position_);
  return true;
}

bool ArchiveStream::WriteThrough(const void* data, std::size_t size) {
  failed_ = file_.WriteAt(position_, data, size).count < size;
  position_ += size;
  end_ = std::max(end_, position_);
  block_begin_ = position_;
  return !failed_;
}

bool ArchiveStream::Flush() {
  if (failed_) return false;
  failed_ = file_.WriteAt(block_begin_, block_.get(), block_size_).count < block_size_;
  block_begin_ += block_size_;
  block_size_ = 0;
  return !failed_;
}

}  // namespace qvx::archive
