// Hexadecimal digits to and from bytes. The plain forms are the rule; the others give the
// same results by wide loops, chosen for the processor at run time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qvx/types.h"

namespace qvx::text {

struct HexStyle {
  bool upper_case = false;
  bool spaced = false;  // a blank behind each byte's two digits

  std::size_t Width() const { return spaced ? 3 : 2; }
};

// The value of a hex digit, or -1.
template <typename T>
constexpr int HexDigit(T character) {
  if (character >= T('0') && character <= T('9')) return static_cast<int>(character - T('0'));
  const auto lower = static_cast<std::uint32_t>(character) | 0x20;
  return lower >= 'a' && lower <= 'f' ? static_cast<int>(lower - 'a') + 10 : -1;
}

// Writes style.Width() characters for each byte.
void EncodeHex(const std::uint8_t* data, std::size_t size, HexStyle style, char* out);
void EncodeHex(const std::uint8_t* data, std::size_t size, HexStyle style, WCHAR* out);
template <typename T>
void EncodeHexPlain(const std::uint8_t* data, std::size_t size, HexStyle style, T* out);

// Writes a byte for each pair of characters: 0x and 0X are 0; another pair ends at a character
// that is no digit.
void DecodeHex(const char* text, std::size_t pairs, std::uint8_t* out);
void DecodeHex(const WCHAR* text, std::size_t pairs, std::uint8_t* out);
template <typename T>
void DecodeHexPlain(const T* text, std::size_t pairs, std::uint8_t* out);

}  // namespace qvx::text
