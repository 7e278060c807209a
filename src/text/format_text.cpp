// Formatted text on the heap.
#include <algorithm>

#include "core/printf_engine.h"
#include "qvx/string_split.h"

namespace {

template <typename T>
T* FormatBlock(int* length, const T* format, va_list arguments) {
  const qvx::core::FormattedText<T> text(format, arguments);
  const auto size = static_cast<std::size_t>(text.Length());
  T* block = new T[size + 1];
  std::copy_n(text.Text(), size + 1, block);
  if (length != nullptr && !text.Failed()) *length = text.Length();
  return block;
}

}  // namespace

char* FormatStringA(int* length, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* block = FormatStringValistA(length, format, arguments);
  va_end(arguments);
  return block;
}

WCHAR* FormatStringW(int* length, const WCHAR* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  WCHAR* block = FormatStringValistW(length, format, arguments);
  va_end(arguments);
  return block;
}

char* FormatStringValistA(int* length, const char* format, va_list args) {
  return FormatBlock(length, format, args);
}

WCHAR* FormatStringValistW(int* length, const WCHAR* format, va_list args) {
  return FormatBlock(length, format, args);
}
