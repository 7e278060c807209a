// The printf language of both text widths, always in the C locale. What it adds to the C
// library's language is told in base_string.h at CBaseStringT::Format.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <memory>

#include <qvx/types.h>

namespace qvx::core {

// Formats into a buffer of size characters (at least 1), which is terminated in any case.
// Returns the length of the whole text, or -1 for a format with an error or a text beyond the
// range of int; the buffer then holds what came before the error.
template <typename T>
int FormatInto(T* buffer, std::size_t size, const T* format, va_list arguments);

// A formatted text of any length.
template <typename T>
class FormattedText {
 public:
  FormattedText(const T* format, va_list arguments);

  const T* Text() const { return larger_ != nullptr ? larger_.get() : first_; }
  int Length() const { return length_; }
  // The text then is what came before the error, as far as the first buffer holds it.
  bool Failed() const { return failed_; }

 private:
  static constexpr std::size_t kFirstSize = 1024;

  T first_[kFirstSize];
  std::unique_ptr<T[]> larger_;
  int length_ = 0;
  bool failed_ = false;
};

extern template class FormattedText<char>;
extern template class FormattedText<WCHAR>;

}  // namespace qvx::core
