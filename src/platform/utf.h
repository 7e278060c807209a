// Steps over UTF-8 and UTF-16 one character at a time, without allocation.
#pragma once

#include <string_view>

namespace qvx::platform {

inline constexpr char32_t kReplacement = 0xFFFD;

// One decoded character and the units that it took. Text that is not well formed gives
// kReplacement with valid false, one byte or unit long.
struct Decoded {
  char32_t character;
  int units;
  bool valid;
};

constexpr bool IsHighSurrogate(char32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool IsLowSurrogate(char32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Of the first character of a text that is not empty.
Decoded DecodeUtf8(std::string_view text) noexcept;

constexpr Decoded DecodeUtf16(std::u16string_view text) noexcept {
  const char32_t first = text[0];
  if (!IsHighSurrogate(first) && !IsLowSurrogate(first)) return {first, 1, true};
  if (IsLowSurrogate(first) || text.size() < 2 || !IsLowSurrogate(text[1])) {
    return {kReplacement, 1, false};
  }
  return {0x10000 + ((first - 0xD800) << 10) + (text[1] - 0xDC00u), 2, true};
}

constexpr int Utf8Size(char32_t character) noexcept {
  if (character < 0x80) return 1;
  if (character < 0x800) return 2;
  return character < 0x10000 ? 3 : 4;
}

constexpr int Utf16Size(char32_t character) noexcept {
  return character < 0x10000 ? 1 : 2;
}

// Write the units of one character and return the place behind them.
char* EncodeUtf8(char32_t character, char* out) noexcept;
char16_t* EncodeUtf16(char32_t character, char16_t* out) noexcept;

// How many ASCII characters the text begins with.
std::size_t AsciiPrefix(std::string_view text) noexcept;
std::size_t AsciiPrefix(std::u16string_view text) noexcept;

}  // namespace qvx::platform
