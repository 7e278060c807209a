// A file that is read through one window of memory, which small records and the data of
// neighbouring entries share. For one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/file.h"

namespace qvx::archive {

class ByteSource {
 public:
  static constexpr std::size_t kWindow = 256 * 1024;

  // Native path of a regular file.
  bool Open(const std::string& path);
  std::uint64_t Size() const { return size_; }

  // count bytes, at most kWindow, at an offset; null where the file does not hold them or can't
  // be read. Valid until the next call.
  const unsigned char* At(std::uint64_t offset, std::size_t count);

 private:
  platform::File file_;
  std::uint64_t size_ = 0;
  std::unique_ptr<unsigned char[]> window_;
  std::uint64_t begin_ = 0;
  std::size_t filled_ = 0;
};

}  // namespace qvx::archive
