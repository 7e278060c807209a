#include "core/printf_arguments.h"

#include <qvx/types.h>

#include <algorithm>

namespace qvx::core {
namespace {

using Size = PrintfConversion::Size;
using Source = PrintfConversion::Amount::Source;

// The place behind the next conversion's '%', or null for none.
template <typename T>
const T* NextConversion(const T* format) {
  while (*format != T() && *format != '%') ++format;
  return *format != T() ? format + 1 : nullptr;
}

template <typename T>
bool NamesAPosition(const T* format) {
  PrintfConversion first;
  format = NextConversion(format);
  while (format != nullptr && *format == '%') format = NextConversion(format + 1);
  if (format == nullptr || ParsePrintfConversion(format, first) == nullptr) return false;
  return first.position != 0;
}

}  // namespace

PrintfArguments::Kind PrintfArguments::KindOf(const PrintfConversion& conversion) {
  switch (conversion.letter) {
    case 's':
    case 'S':
    case 'p':
      return Kind::kPointer;
    case 'c':
    case 'C':
      return Kind::kInt;
    case 'd':
    case 'i':
    case 'u':
    case 'o':
    case 'x':
    case 'X':
      return conversion.size == Size::kNone || conversion.size == Size::kChar ||
                     conversion.size == Size::kShort
                 ? Kind::kInt
                 : Kind::kLong;
    default:
      return conversion.size == Size::kLongDouble ? Kind::kLongDouble : Kind::kDouble;
  }
}

bool PrintfArguments::Note(Kind* kinds, int position, Kind kind) {
  if (position < 1 || position > kMostPositions) return false;
  Kind& known = kinds[position - 1];
  if (known != Kind::kNone && known != kind) return false;
  known = kind;
  return true;
}

bool PrintfArguments::NoteAll(Kind* kinds, const PrintfConversion& conversion) {
  if (conversion.letter == '%' || conversion.letter == 'm') return true;
  for (const auto* amount : {&conversion.width, &conversion.precision}) {
    if (amount->source != Source::kArgument) continue;
    if (!Note(kinds, amount->position, Kind::kInt)) return false;
  }
  return Note(kinds, conversion.position, KindOf(conversion));
}

// NOLINTBEGIN(clang-analyzer-valist.Uninitialized): the constructor began the list
void PrintfArguments::Read(Kind kind, Value& value) {
  switch (kind) {
    case Kind::kInt:
      value.integer = va_arg(list_, int);
      break;
    case Kind::kLong:
      value.integer = va_arg(list_, std::int64_t);
      break;
    case Kind::kDouble:
      value.number = va_arg(list_, double);
      break;
    case Kind::kLongDouble:
      value.wide_number = va_arg(list_, long double);
      break;
    default:
      value.pointer = va_arg(list_, const void*);
      break;
  }
}
// NOLINTEND(clang-analyzer-valist.Uninitialized)

// Without a gap, behind which nobody would know where the arguments stand.
bool PrintfArguments::ReadAll(const Kind* kinds) {
  const Kind* end = kinds + kMostPositions;
  const Kind* gap = std::find(kinds, end, Kind::kNone);
  if (std::any_of(gap, end, [](Kind kind) { return kind != Kind::kNone; })) return false;
  values_ = std::make_unique<Value[]>(kMostPositions);
  for (const Kind* kind = kinds; kind != gap; ++kind) Read(*kind, values_.get()[kind - kinds]);
  return true;
}

template <typename T>
bool PrintfArguments::ReadPositions(const T* format) {
  if (!NamesAPosition(format)) return true;
  Kind kinds[kMostPositions] = {};
  while ((format = NextConversion(format)) != nullptr) {
    PrintfConversion conversion;
    format = ParsePrintfConversion(format, conversion);
    if (format == nullptr || !NoteAll(kinds, conversion)) return false;
  }
  return ReadAll(kinds);
}

template bool PrintfArguments::ReadPositions(const char*);
template bool PrintfArguments::ReadPositions(const WCHAR*);

}  // namespace qvx::core
