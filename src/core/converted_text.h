// Text of one width as text of the other, for the length of a call.
#pragma once

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>
#include <string_view>
#include <type_traits>

#include <qvx/types.h>

#include "platform/code_page.h"

namespace qvx::core {

// A negative length is measured and a null text is empty. What needs more than one wide unit for
// a byte, or more than two bytes for a wide unit, is empty as a whole.
template <typename To>
class ConvertedText {
  using From = std::conditional_t<std::is_same_v<To, char>, WCHAR, char>;

 public:
  // cppcheck-suppress uninitMemberVar
  ConvertedText(const From* text, int length) {
    const std::basic_string_view<From> source = View(text, length);
    constexpr std::size_t kMost = std::numeric_limits<int>::max() - 1;
    const std::size_t capacity = std::min(source.size() * kMostPerUnit, kMost);
    if (capacity >= kOnStack) heap_.reset(new To[capacity + 1]);
    To* out = heap_ != nullptr ? heap_.get() : stack_;
    length_ = Convert(source, out, static_cast<int>(capacity));
    out[length_] = To();
  }

  // Terminated; never null.
  const To* Text() const { return heap_ != nullptr ? heap_.get() : stack_; }
  int Length() const { return length_; }

 private:
  static constexpr std::size_t kMostPerUnit = std::is_same_v<To, char> ? 2 : 1;
  static constexpr std::size_t kOnStack = 512;

  static std::basic_string_view<From> View(const From* text, int length) {
    if (text == nullptr) return {};
    if (length < 0) return text;
    return {text, static_cast<std::size_t>(length)};
  }

  static int Convert(std::string_view text, WCHAR* out, int capacity) {
    return platform::AnsiToWide(text, out, capacity);
  }
  static int Convert(std::u16string_view text, char* out, int capacity) {
    return platform::WideToAnsi(text, out, capacity);
  }

  To stack_[kOnStack];
  std::unique_ptr<To[]> heap_;
  int length_ = 0;
};

}  // namespace qvx::core
