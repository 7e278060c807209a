// Where formatted characters go: a buffer that keeps what fits, and a count of all of them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <limits>

namespace qvx::core {

template <typename T>
class PrintfOutput {
 public:
  // The last of size characters is kept for the terminator.
  PrintfOutput(T* buffer, std::size_t size) : buffer_(buffer), room_(size - 1) {}

  template <typename From>
  void Put(const From* text, std::size_t count) {
    const std::size_t kept = Kept(count);
    for (std::size_t i = 0; i < kept; ++i) buffer_[length_ + i] = static_cast<T>(text[i]);
    length_ += count;
  }

  void Put(T character) { Put(&character, 1); }

  void Fill(T character, std::size_t count) {
    std::fill_n(buffer_ + std::min(length_, room_), Kept(count), character);
    length_ += count;
  }

  void Terminate() { buffer_[std::min(length_, room_)] = T(); }

  // The whole length, or -1 beyond int.
  int Length() const {
    constexpr std::size_t kMost = std::numeric_limits<int>::max();
    return length_ <= kMost ? static_cast<int>(length_) : -1;
  }

 private:
  std::size_t Kept(std::size_t count) const {
    return length_ < room_ ? std::min(count, room_ - length_) : 0;
  }

  T* buffer_;
  std::size_t room_;
  std::size_t length_ = 0;
};

}  // namespace qvx::core
