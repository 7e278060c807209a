// One conversion of a format: the part from '%' to its letter, taken apart.
#pragma once

#include <cstddef>

namespace qvx::core {

struct PrintfConversion {
  enum class Size {
    kNone,
    kChar,
    kShort,
    kLong,
    kLongLong,
    kIntMax,
    kSizeT,
    kPtrDiff,
    kLongDouble
  };

  // An int that stands in the format, comes from the argument list, or is not there.
  struct Amount {
    enum class Source { kNone, kFormat, kArgument } source = Source::kNone;
    int value = 0;
    int position = 0;
  };

  bool left = false;       // '-'
  bool plus = false;       // '+'
  bool blank = false;      // ' '
  bool alternate = false;  // '#'
  bool zero = false;       // '0'
  Amount width;
  Amount precision;  // -1 for none, once the arguments were taken
  Size size = Size::kNone;
  char letter = '\0';
  int position = 0;  // of the argument, counted from 1; 0 for the next one
};

// Takes a conversion apart, beginning behind its '%'. Returns the place behind its letter; null
// where the format ends before that or a number in it is too large.
template <typename T>
const T* ParsePrintfConversion(const T* format, PrintfConversion& conversion);

// The digits of an integer conversion, most significant first, in the tail of a buffer.
class PrintfDigits {
 public:
  PrintfDigits(unsigned long long value, char letter);

  const char* Text() const { return buffer_ + kSize - count_; }
  std::size_t Count() const { return count_; }

 private:
  static constexpr std::size_t kSize = 24;

  char buffer_[kSize];
  std::size_t count_ = 0;
};

}  // namespace qvx::core
