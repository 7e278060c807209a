// Text that is cut to what a path array of a caller holds.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "platform/path.h"

namespace qvx::files {

template <typename C>
class BoundedText {
 public:
  // As much of the text as fits; null counts as empty.
  void Append(const C* text) {
    for (; text != nullptr && *text != C() && size_ < platform::kPathLimit; ++text) {
      text_[size_++] = *text;
    }
  }
  void AppendAscii(std::string_view text) {
    for (char character : text) Append(C(character));
  }
  void Append(C character) {
    if (size_ < platform::kPathLimit) text_[size_++] = character;
  }

  bool IsEmpty() const { return size_ == 0; }
  bool EndsIn(C character) const { return size_ > 0 && text_[size_ - 1] == character; }

  // The text and its terminator, and nothing behind them.
  void CopyTo(C* dest) const {
    std::copy_n(text_, size_, dest);
    dest[size_] = C();
  }

 private:
  C text_[platform::kPathLimit];
  std::size_t size_ = 0;
};

}  // namespace qvx::files
