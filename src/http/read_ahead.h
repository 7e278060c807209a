// Bytes that a transfer has brought and no reader has taken yet, up to 1 MiB. Not thread-safe.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

namespace qvx::http {

class ReadAhead {
 public:
  static constexpr std::size_t kCapacity = 0x100000;

  // Without memory it takes nothing.
  ReadAhead() : block_(new (std::nothrow) unsigned char[kCapacity]) {}

  bool IsEmpty() const { return size_ == 0; }
  bool HasHalfFree() const { return size_ <= kCapacity / 2; }
  void Clear() { first_ = size_ = 0; }

  // The bytes taken: as many as there is room for.
  std::size_t Put(const unsigned char* data, std::size_t size) {
    if (block_ == nullptr) return 0;
    const std::size_t count = std::min(size, kCapacity - size_);
    const std::size_t place = (first_ + size_) % kCapacity;
    const std::size_t front = std::min(count, kCapacity - place);
    std::memcpy(block_.get() + place, data, front);
    std::memcpy(block_.get(), data + front, count - front);
    size_ += count;
    return count;
  }

  // The bytes given, at most size.
  std::size_t Take(unsigned char* out, std::size_t size) {
    const std::size_t count = std::min(size, size_);
    if (count == 0) return 0;
    const std::size_t front = std::min(count, kCapacity - first_);
    std::memcpy(out, block_.get() + first_, front);
    std::memcpy(out + front, block_.get(), count - front);
    first_ = count == size_ ? 0 : (first_ + count) % kCapacity;
    size_ -= count;
    return count;
  }

 private:
  std::unique_ptr<unsigned char[]> block_;
  std::size_t first_ = 0;
  std::size_t size_ = 0;
};

}  // namespace qvx::http
