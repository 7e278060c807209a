// Searches and tests on raw text, for both widths. Only ASCII letters have case.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>

#include <qvx/types.h>

#include "platform/code_page.h"

namespace qvx::core {

constexpr unsigned int kCaseBit = 0x20;

// The value of a character as an unsigned number.
template <typename T>
constexpr unsigned int Code(T character) {
  return std::is_same_v<T, char> ? static_cast<unsigned char>(character)
                                 : static_cast<unsigned int>(character);
}

template <typename T>
constexpr bool IsAsciiDigit(T character) {
  return character >= '0' && character <= '9';
}

template <typename T>
constexpr bool IsAsciiLetter(T character) {
  const unsigned int upper = Code(character) & ~kCaseBit;
  return upper >= 'A' && upper <= 'Z';
}

template <typename T>
constexpr bool Matches(T left, T right) {
  if (left == right) return true;
  return (Code(left) ^ Code(right)) == kCaseBit && IsAsciiLetter(left);
}

template <typename T>
std::size_t TextLength(const T* text) {
  return std::char_traits<T>::length(text);
}

// A length argument of the interface: a negative one is measured, and a null text is empty.
template <typename T>
std::size_t GivenLength(const T* text, int length) {
  if (text == nullptr) return 0;
  return length < 0 ? TextLength(text) : static_cast<std::size_t>(length);
}

template <typename T>
bool MatchAll(const T* left, const T* right, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (!Matches(left[i], right[i])) return false;
  }
  return true;
}

template <typename T>
bool SameCharacters(const T* left, const T* right, std::size_t count) {
  return count == 0 || std::memcmp(left, right, count * sizeof(T)) == 0;
}

// MatchAll, at the speed of SameCharacters where no case differs.
template <typename T>
bool SameButForCase(const T* left, const T* right, std::size_t count) {
  return SameCharacters(left, right, count) || MatchAll(left, right, count);
}

// Compares count characters, or fewer where both texts end before.
template <typename T>
bool EqualUpToNul(const T* left, const T* right, std::size_t count, bool ignore_case) {
  if (SameCharacters(left, right, count)) return true;
  for (std::size_t i = 0; i < count; ++i) {
    if (ignore_case ? !Matches(left[i], right[i]) : left[i] != right[i]) return false;
    if (left[i] == T()) return true;
  }
  return true;
}

template <typename T>
const T* FindCharacter(const T* text, std::size_t count, T character) {
  return text != nullptr ? std::char_traits<T>::find(text, count, character) : nullptr;
}

// The text ends with a NUL behind its length and has none before; the narrow search needs no
// length.
template <typename T>
const T* FindText(const T* text, std::size_t length, const T* pattern) {
  if constexpr (std::is_same_v<T, char>) {
    return std::strstr(text, pattern);
  } else {
    const std::size_t at = std::basic_string_view<T>(text, length).find(pattern);
    return at != std::basic_string_view<T>::npos ? text + at : nullptr;
  }
}

template <typename T>
const T* FindText(const T* text, const T* pattern) {
  return FindText(text, std::is_same_v<T, char> ? 0 : TextLength(text), pattern);
}

template <typename T>
const T* FindIgnoringCase(const T* text, std::size_t text_length, const T* pattern,
                          std::size_t pattern_length) {
  if (text == nullptr || pattern == nullptr || text_length == 0) return nullptr;
  if (pattern_length > text_length) return nullptr;
  const T* last = text + (text_length - pattern_length);
  for (const T* start = text; start <= last; ++start) {
    if (MatchAll(start, pattern, pattern_length)) return start;
  }
  return nullptr;
}

template <typename T>
const T* FindIgnoringCase(const T* text, const T* pattern) {
  return FindIgnoringCase(text, GivenLength(text, -1), pattern, GivenLength(pattern, -1));
}

template <typename T>
bool AllDigits(const T* text, std::size_t length) {
  return std::all_of(text, text + length, IsAsciiDigit<T>);
}

template <typename T>
bool AllLetters(const T* text, std::size_t length) {
  return std::all_of(text, text + length, IsAsciiLetter<T>);
}

// How many bytes the character at text takes that a change of case must not take apart.
inline std::size_t BytesToFold(const char* text, const char* end) {
  if (Code(*text) < 0x80) return 1;
  return platform::BeginsWithDoubleByte({text, static_cast<std::size_t>(end - text)}) ? 2 : 1;
}

// Compilers make vectors of a loop of these.
template <typename T>
T Folded(T character, unsigned int case_bit) {
  const auto folded = static_cast<T>((Code(character) & ~kCaseBit) | case_bit);
  return IsAsciiLetter(character) ? folded : character;
}

inline void FoldDoubleBytePage(char* text, const char* end, unsigned int case_bit) {
  for (; text != end; text += BytesToFold(text, end)) *text = Folded(*text, case_bit);
}

// Sets the case bit of each letter to that of case_bit; no byte of a double-byte character is one.
template <typename T>
void FoldLetters(T* text, std::size_t length, unsigned int case_bit) {
  if constexpr (std::is_same_v<T, char>) {
    if (!platform::AnsiIsUtf8()) return FoldDoubleBytePage(text, text + length, case_bit);
  }
  for (T* end = text + length; text != end; ++text) *text = Folded(*text, case_bit);
}

template <typename T>
void FoldToLower(T* text, std::size_t length) {
  FoldLetters(text, length, kCaseBit);
}

template <typename T>
void FoldToUpper(T* text, std::size_t length) {
  FoldLetters(text, length, 0);
}

}  // namespace qvx::core
