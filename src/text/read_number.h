// Decimal numbers as atoi and atof read them, from text that needs no terminator.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string_view>

#include "core/raw_text.h"

namespace qvx::text {

template <typename T>
constexpr bool IsBlank(T character) {
  return character == T(' ') || (character >= T('\t') && character <= T('\r'));
}

// Reads the digits from *place on, which then lies behind them. Beyond 64 bits the value stays
// at the largest that they hold.
template <typename T>
std::int64_t ReadDigits(std::basic_string_view<T> text, std::size_t* place, bool negative) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
  constexpr std::uint64_t kFits = kMost / 10;
  std::uint64_t value = 0;
  std::size_t i = *place;
  for (; i < text.size() && core::IsAsciiDigit(text[i]); ++i) {
    const std::uint64_t more = core::Code(text[i]) - '0';
    value = value <= kFits ? value * 10 + more : kMost + 1;
  }
  *place = i;
  if (negative) return static_cast<std::int64_t>(0 - value);
  return static_cast<std::int64_t>(std::min(value, kMost));
}

// The integer at the start of the text: blanks, a sign and digits; 0 without digits. *end, where
// given, is the place behind what was read. Values beyond 32 bits lose their high bits.
template <typename T>
int ReadInteger(std::basic_string_view<T> text, std::size_t* end = nullptr) {
  std::size_t place = 0;
  while (place < text.size() && IsBlank(text[place])) ++place;
  bool negative = false;
  if (place < text.size() && (text[place] == T('-') || text[place] == T('+'))) {
    negative = text[place] == T('-');
    ++place;
  }
  const std::int64_t value = ReadDigits(text, &place, negative);
  if (end != nullptr) *end = place;
  return static_cast<int>(value);
}

// A number as atof reads it, in the C locale whatever the host has set.
double ReadDouble(std::string_view text);
double ReadDouble(std::u16string_view text);

}  // namespace qvx::text
