#include "core/printf_conversion.h"

#include <qvx/types.h>

#include <limits>

namespace qvx::core {
namespace {

using Size = PrintfConversion::Size;
using Amount = PrintfConversion::Amount;

template <typename T>
bool IsWideIntegerPrefix(const T* format) {
  return format[0] == 'I' && format[1] == '6' && format[2] == '4';
}

// Grouping and other digits are flags that mean nothing in the C locale.
template <typename T>
bool TakeFlag(const T* format, PrintfConversion& conversion) {
  switch (*format) {
    case '-':
      return conversion.left = true;
    case '+':
      return conversion.plus = true;
    case ' ':
      return conversion.blank = true;
    case '#':
      return conversion.alternate = true;
    case '0':
      return conversion.zero = true;
    case '\'':
      return true;
    case 'I':
      return !IsWideIntegerPrefix(format);
    default:
      return false;
  }
}

// A number of digits, 0 for none; null where it is too large.
template <typename T>
const T* ParseNumber(const T* format, int& number) {
  for (; *format >= '0' && *format <= '9'; ++format) {
    const int digit = static_cast<int>(*format) - '0';
    if (number > (std::numeric_limits<int>::max() - digit) / 10) return nullptr;
    number = number * 10 + digit;
  }
  return format;
}

// A number and a dollar sign, which name an argument; otherwise nothing is taken.
template <typename T>
const T* ParsePosition(const T* format, int& position) {
  int number = 0;
  const T* end = ParseNumber(format, number);
  if (end == nullptr || number == 0 || *end != '$') return format;
  position = number;
  return end + 1;
}

// Digits, an asterisk, or nothing; null where the number is too large.
template <typename T>
const T* ParseAmount(const T* format, Amount& amount) {
  if (*format == '*') {
    amount.source = Amount::Source::kArgument;
    return ParsePosition(format + 1, amount.position);
  }
  if (*format >= '0' && *format <= '9') amount.source = Amount::Source::kFormat;
  return ParseNumber(format, amount.value);
}

template <typename T>
const T* ParsePrecision(const T* format, Amount& precision) {
  precision.value = -1;
  if (*format != '.') return format;
  precision = Amount();
  precision.source = Amount::Source::kFormat;
  return ParseAmount(format + 1, precision);
}

template <typename T>
const T* ParseSize(const T* format, Size& size) {
  if (IsWideIntegerPrefix(format)) {
    size = Size::kLongLong;
    return format + 3;
  }
  const bool twice = format[0] != T() && format[1] == format[0];
  switch (*format) {
    case 'h':
      size = twice ? Size::kChar : Size::kShort;
      return format + (twice ? 2 : 1);
    case 'l':
      size = twice ? Size::kLongLong : Size::kLong;
      return format + (twice ? 2 : 1);
    case 'q':
      size = Size::kLongLong;
      return format + 1;
    case 'j':
      size = Size::kIntMax;
      return format + 1;
    case 'z':
    case 'Z':
      size = Size::kSizeT;
      return format + 1;
    case 't':
      size = Size::kPtrDiff;
      return format + 1;
    case 'L':
      size = Size::kLongDouble;
      return format + 1;
    default:
      return format;
  }
}

}  // namespace

template <typename T>
const T* ParsePrintfConversion(const T* format, PrintfConversion& conversion) {
  format = ParsePosition(format, conversion.position);
  while (TakeFlag(format, conversion)) ++format;
  format = ParseAmount(format, conversion.width);
  if (format == nullptr) return nullptr;
  format = ParsePrecision(format, conversion.precision);
  if (format == nullptr) return nullptr;
  format = ParseSize(format, conversion.size);
  if (*format == T()) return nullptr;
  conversion.letter = *format < 0x80 && *format > 0 ? static_cast<char>(*format) : '\0';
  return format + 1;
}

template const char* ParsePrintfConversion(const char*, PrintfConversion&);
template const WCHAR* ParsePrintfConversion(const WCHAR*, PrintfConversion&);

PrintfDigits::PrintfDigits(unsigned long long value, char letter) {
  const char* digits = letter == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
  const unsigned int base = letter == 'o' ? 8 : (letter == 'x' || letter == 'X') ? 16 : 10;
  for (; value != 0; value /= base) buffer_[kSize - ++count_] = digits[value % base];
}

}  // namespace qvx::core
