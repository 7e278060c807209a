// A file that is written from its end on through one block of memory, in which most headers
// still stand when they are completed. For one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/file.h"

namespace qvx::archive {

class ArchiveStream {
 public:
  // Writes to a file that stays open until the end, from its position on.
  ArchiveStream(const platform::File& file, std::uint64_t position);

  // False once anything could not be written, for good.
  bool Write(const void* data, std::size_t size);
  bool Flush();

  std::uint64_t Position() const { return position_; }
  void Seek(std::uint64_t position) { position_ = position; }
  std::uint64_t End() const { return end_; }
  bool Failed() const { return failed_; }

 private:
  bool FitsBlock(std::size_t size) const;
  bool WriteThrough(const void* data, std::size_t size);

  const platform::File& file_;
  std::unique_ptr<unsigned char[]> block_;
  std::uint64_t block_begin_;
  std::size_t block_size_ = 0;
  std::uint64_t position_;
  std::uint64_t end_;
  bool failed_ = false;
};

}  // namespace qvx::archive
