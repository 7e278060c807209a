#include "core/raw_text.h"

#include <qvx/base_string.h>

using namespace qvx::core;

namespace {

template <typename T>
const T* FindCounted(const T* text, int text_length, const T* pattern, int pattern_length) {
  return FindIgnoringCase(text, GivenLength(text, text_length), pattern,
                          GivenLength(pattern, pattern_length));
}

}  // namespace

const char* strnchr(const char* text, std::size_t maxCount, char character) {
  return FindCharacter(text, maxCount, character);
}

const WCHAR* wcsnchr(const WCHAR* text, std::size_t maxCount, WCHAR character) {
  return FindCharacter(text, maxCount, character);
}

const char* stristr(const char* text, const char* pattern) {
  return FindIgnoringCase(text, pattern);
}

const WCHAR* wcsistr(const WCHAR* text, const WCHAR* pattern) {
  return FindIgnoringCase(text, pattern);
}

const char* strnistr(const char* text, int textLength, const char* pattern, int patternLength) {
  return FindCounted(text, textLength, pattern, patternLength);
}

const WCHAR* wcsnistr(const WCHAR* text, int textLength, const WCHAR* pattern, int patternLength) {
  return FindCounted(text, textLength, pattern, patternLength);
}

int IsDigitStringA(const char* text) {
  return text != nullptr && AllDigits(text, TextLength(text)) ? 1 : 0;
}

int IsDigitStringW(const WCHAR* text) {
  return text != nullptr && AllDigits(text, TextLength(text)) ? 1 : 0;
}

int IsAlphaStringA(const char* text) {
  return text != nullptr && AllLetters(text, TextLength(text)) ? 1 : 0;
}

int IsAlphaStringW(const WCHAR* text) {
  return text != nullptr && AllLetters(text, TextLength(text)) ? 1 : 0;
}

void ToLowerStringA(char* text) {
  FoldToLower(text, GivenLength(text, -1));
}

void ToLowerStringW(WCHAR* text) {
  FoldToLower(text, GivenLength(text, -1));
}

void ToUpperStringA(char* text) {
  FoldToUpper(text, GivenLength(text, -1));
}

void ToUpperStringW(WCHAR* text) {
  FoldToUpper(text, GivenLength(text, -1));
}
