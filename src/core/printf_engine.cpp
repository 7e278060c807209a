#include "core/printf_engine.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "core/printf_arguments.h"
#include "core/printf_conversion.h"
#include "core/printf_output.h"
#include "platform/c_locale.h"
#include "platform/code_page.h"
#include "platform/last_error.h"

namespace qvx::core {
namespace {

using Size = PrintfConversion::Size;
using Source = PrintfConversion::Amount::Source;

// Room for converted text: some on the stack, more from the heap.
template <typename T>
class Scratch {
 public:
  explicit Scratch(std::size_t size) {
    if (size > kOnStack) heap_.reset(new T[size]);
  }
  T* Data() { return heap_ != nullptr ? heap_.get() : stack_; }

 private:
  static constexpr std::size_t kOnStack = 512;

  T stack_[kOnStack];
  std::unique_ptr<T[]> heap_;
};

template <typename T>
std::size_t LengthUpTo(const T* text, std::size_t most) {
  std::size_t length = 0;
  while (length < most && text[length] != T()) ++length;
  return length;
}

std::int64_t TakeSigned(PrintfArguments& arguments, Size size, int position) {
  switch (size) {
    case Size::kChar:
      return static_cast<signed char>(arguments.Take<int>(position));
    case Size::kShort:
      return static_cast<short>(arguments.Take<int>(position));
    case Size::kNone:
      return arguments.Take<int>(position);
    default:
      return arguments.Take<std::int64_t>(position);
  }
}

std::uint64_t TakeUnsigned(PrintfArguments& arguments, Size size, int position) {
  const auto value = static_cast<std::uint64_t>(TakeSigned(arguments, size, position));
  switch (size) {
    case Size::kChar:
      return static_cast<unsigned char>(value);
    case Size::kShort:
      return static_cast<unsigned short>(value);
    case Size::kNone:
      return static_cast<unsigned int>(value);
    default:
      return value;
  }
}

static_assert(sizeof(long) == 8 && sizeof(std::intmax_t) == 8 && sizeof(std::ptrdiff_t) == 8);

template <typename T>
class Formatter {
 public:
  Formatter(T* buffer, std::size_t size, va_list arguments)
      : output_(buffer, size), arguments_(arguments), error_number_(errno) {}

  // Returns the whole length, or -1.
  int Run(const T* format) {
    const bool good = arguments_.ReadPositions(format) && RunAll(format);
    output_.Terminate();
    return good ? output_.Length() : -1;
  }

 private:
  using Conversion = PrintfConversion;
  using Other = std::conditional_t<std::is_same_v<T, char>, WCHAR, char>;

  bool RunAll(const T* format) {
    while (*format != T()) {
      const T* start = format;
      while (*format != T() && *format != '%') ++format;
      output_.Put(start, static_cast<std::size_t>(format - start));
      if (*format == T()) return true;
      format = RunOne(format + 1);
      if (format == nullptr) return false;
    }
    return true;
  }

  // The place behind the conversion, or null for an error.
  const T* RunOne(const T* format) {
    Conversion conversion;
    format = ParsePrintfConversion(format, conversion);
    if (format == nullptr || !arguments_.CanServe(conversion)) return nullptr;
    return TakeAmounts(conversion) && Emit(conversion) ? format : nullptr;
  }

  bool TakeAmounts(Conversion& conversion) {
    if (conversion.width.source == Source::kArgument) {
      conversion.width.value = arguments_.Take<int>(conversion.width.position);
      if (conversion.width.value == INT_MIN) return false;
    }
    if (conversion.width.value < 0) {
      conversion.left = true;
      conversion.width.value = -conversion.width.value;
    }
    if (conversion.precision.source == Source::kArgument) {
      conversion.precision.value = arguments_.Take<int>(conversion.precision.position);
    }
    if (conversion.precision.value < 0) conversion.precision.value = -1;
    return true;
  }

  bool Emit(const Conversion& conversion) {
    switch (conversion.letter) {
      case 'd':
      case 'i':
        EmitSigned(conversion);
        return true;
      case 'u':
      case 'o':
      case 'x':
      case 'X':
        EmitUnsigned(conversion);
        return true;
      case 'c':
      case 'C':
        EmitCharacter(conversion);
        return true;
      case 's':
      case 'S':
        return EmitText(conversion);
      case 'p':
        EmitPointer(conversion);
        return true;
      case 'e':
      case 'E':
      case 'f':
      case 'F':
      case 'g':
      case 'G':
      case 'a':
      case 'A':
        return EmitFloat(conversion);
      case 'm':
        EmitOwn(conversion, platform::SystemErrorText(error_number_));
        return true;
      case '%':
        output_.Put('%');
        return true;
      default:
        return false;
    }
  }

  // Pads a piece of count characters, which write puts out, to the width.
  template <typename Write>
  void Padded(const Conversion& conversion, std::size_t count, Write write) {
    const auto width = static_cast<std::size_t>(conversion.width.value);
    const std::size_t padding = width > count ? width - count : 0;
    if (!conversion.left) output_.Fill(' ', padding);
    write();
    if (conversion.left) output_.Fill(' ', padding);
  }

  template <typename From>
  void PutPadded(const Conversion& conversion, const From* text, std::size_t count) {
    Padded(conversion, count, [&] { output_.Put(text, count); });
  }

  void EmitSigned(const Conversion& conversion) {
    const std::int64_t value = TakeSigned(arguments_, conversion.size, conversion.position);
    const auto bits = static_cast<std::uint64_t>(value);
    const char* sign = value < 0 ? "-" : conversion.plus ? "+" : conversion.blank ? " " : "";
    EmitInteger(conversion, value < 0 ? 0 - bits : bits, sign);
  }

  void EmitUnsigned(const Conversion& conversion) {
    const std::uint64_t value = TakeUnsigned(arguments_, conversion.size, conversion.position);
    const bool prefixed = conversion.alternate && value != 0;
    const char* prefix = !prefixed                  ? ""
                         : conversion.letter == 'x' ? "0x"
                         : conversion.letter == 'X' ? "0X"
                                                    : "";
    EmitInteger(conversion, value, prefix);
  }

  void EmitInteger(const Conversion& conversion, std::uint64_t value, std::string_view prefix) {
    const PrintfDigits digits(value, conversion.letter);
    const std::size_t zeros = Zeros(conversion, digits.Count(), prefix.size());
    Padded(conversion, prefix.size() + zeros + digits.Count(), [&] {
      output_.Put(prefix.data(), prefix.size());
      output_.Fill('0', zeros);
      output_.Put(digits.Text(), digits.Count());
    });
  }

  // Zeros between the prefix and the digits.
  std::size_t Zeros(const Conversion& conversion, std::size_t digits, std::size_t prefix) {
    const int precision = conversion.precision.value;
    auto wanted = static_cast<std::size_t>(precision < 0 ? 1 : precision);
    if (conversion.letter == 'o' && conversion.alternate) wanted = std::max(wanted, digits + 1);
    const auto width = static_cast<std::size_t>(conversion.width.value);
    if (precision < 0 && conversion.zero && !conversion.left && width > prefix) {
      wanted = std::max(wanted, width - prefix);
    }
    return wanted > digits ? wanted - digits : 0;
  }

  void EmitPointer(const Conversion& conversion) {
    const auto value =
        reinterpret_cast<std::uintptr_t>(arguments_.Take<void*>(conversion.position));
    Conversion plain;
    plain.letter = 'X';
    plain.left = conversion.left;
    plain.width = conversion.width;
    plain.precision.value = 16;
    EmitInteger(plain, value, "");
  }

  // True if the letter and the size ask for text of this formatter's own width.
  bool IsOwnWidth(const Conversion& conversion) const {
    constexpr bool kNarrow = std::is_same_v<T, char>;
    if (conversion.size == Size::kShort) return kNarrow;
    if (conversion.size == Size::kLong) return !kNarrow;
    return conversion.letter == 's' || conversion.letter == 'c';
  }

  void EmitCharacter(const Conversion& conversion) {
    const int value = arguments_.Take<int>(conversion.position);
    if (IsOwnWidth(conversion)) {
      const T character = static_cast<T>(value);
      PutPadded(conversion, &character, 1);
      return;
    }
    const Other character = static_cast<Other>(value);
    T converted[4];
    const int count = Convert(&character, 1, converted, 4);
    PutPadded(conversion, converted, static_cast<std::size_t>(count));
  }

  static int Convert(const char* text, std::size_t length, WCHAR* out, int capacity) {
    return platform::AnsiToWide({text, length}, out, capacity);
  }
  static int Convert(const WCHAR* text, std::size_t length, char* out, int capacity) {
    return platform::WideToAnsi({text, length}, out, capacity);
  }

  bool EmitText(const Conversion& conversion) {
    if (IsOwnWidth(conversion)) {
      EmitOwn(conversion, arguments_.Take<const T*>(conversion.position));
      return true;
    }
    const Other* text = arguments_.Take<const Other*>(conversion.position);
    if (text != nullptr) return EmitOther(conversion, text);
    EmitNull(conversion);
    return true;
  }

  // A precision that would cut it leaves nothing of it.
  void EmitNull(const Conversion& conversion) {
    constexpr std::string_view kNull = "(null)";
    const int precision = conversion.precision.value;
    const bool fits = precision < 0 || static_cast<std::size_t>(precision) >= kNull.size();
    PutPadded(conversion, kNull.data(), fits ? kNull.size() : 0);
  }

  template <typename From>
  void EmitOwn(const Conversion& conversion, const From* text) {
    if (text == nullptr) return EmitNull(conversion);
    const int precision = conversion.precision.value;
    const std::size_t most = precision < 0 ? SIZE_MAX : static_cast<std::size_t>(precision);
    PutPadded(conversion, text, LengthUpTo(text, most));
  }

  static int Prefix(const char* text, int most) { return platform::AnsiPrefixForWide(text, most); }
  static int Prefix(const WCHAR* text, int most) { return platform::WidePrefixForAnsi(text, most); }

  // A unit of one width takes at most three of the other.
  bool EmitOther(const Conversion& conversion, const Other* text) {
    const int precision = conversion.precision.value;
    const std::size_t length = precision < 0 ? LengthUpTo(text, SIZE_MAX)
                                             : static_cast<std::size_t>(Prefix(text, precision));
    if (length > INT_MAX / 3) return false;
    Scratch<T> converted(length * 3);
    const int count = Convert(text, length, converted.Data(), static_cast<int>(length * 3));
    PutPadded(conversion, converted.Data(), static_cast<std::size_t>(count));
    return true;
  }

  bool EmitFloat(const Conversion& conversion) {
    char format[16];
    WriteFloatFormat(conversion, format);
    if (conversion.size == Size::kLongDouble) {
      return EmitFloatAs(conversion, format, arguments_.Take<long double>(conversion.position));
    }
    return EmitFloatAs(conversion, format, arguments_.Take<double>(conversion.position));
  }

  static void WriteFloatFormat(const Conversion& conversion, char* format) {
    *format++ = '%';
    if (conversion.left) *format++ = '-';
    if (conversion.plus) *format++ = '+';
    if (conversion.blank) *format++ = ' ';
    if (conversion.alternate) *format++ = '#';
    if (conversion.zero) *format++ = '0';
    for (const char* rest = "*.*"; *rest != '\0'; ++rest) *format++ = *rest;
    if (conversion.size == Size::kLongDouble) *format++ = 'L';
    *format++ = conversion.letter;
    *format = '\0';
  }

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  template <typename V>
  bool EmitFloatAs(const Conversion& conversion, const char* format, V value) {
    const platform::CLocaleScope locale;
    const int width = conversion.width.value;
    const int precision = conversion.precision.value;
    char first[512];
    const int count = std::snprintf(first, sizeof(first), format, width, precision, value);
    if (count < 0) return false;
    const auto length = static_cast<std::size_t>(count);
    if (length < sizeof(first)) {
      output_.Put(first, length);
      return true;
    }
    const std::unique_ptr<char[]> larger(new char[length + 1]);
    std::snprintf(larger.get(), length + 1, format, width, precision, value);
    output_.Put(larger.get(), length);
    return true;
  }
#pragma GCC diagnostic pop

  PrintfOutput<T> output_;
  PrintfArguments arguments_;
  int error_number_;
};

}  // namespace

template <typename T>
int FormatInto(T* buffer, std::size_t size, const T* format, va_list arguments) {
  return Formatter<T>(buffer, size, arguments).Run(format);
}

template <typename T>
FormattedText<T>::FormattedText(const T* format, va_list arguments) {
  std::size_t size = kFirstSize;
  T* buffer = first_;
  first_[0] = T();
  while (true) {
    const int needed = format == nullptr ? -1 : FormatInto(buffer, size, format, arguments);
    failed_ = needed < 0;
    if (failed_) break;
    length_ = needed;
    if (static_cast<std::size_t>(needed) < size) return;
    size = static_cast<std::size_t>(needed) + 1;
    larger_.reset();
    larger_.reset(new T[size]);
    buffer = larger_.get();
  }
  length_ = static_cast<int>(LengthUpTo(Text(), SIZE_MAX));
}

template int FormatInto(char*, std::size_t, const char*, va_list);
template int FormatInto(WCHAR*, std::size_t, const WCHAR*, va_list);
template class FormattedText<char>;
template class FormattedText<WCHAR>;

}  // namespace qvx::core
