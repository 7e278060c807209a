// Strings: narrow (bytes in the ANSI code page, see platform.h) and wide (UTF-16), and helpers
// for raw text. One template serves both; callers use CBaseStringA and CBaseStringW.
//
// Lengths count characters of the text's own width. A length argument below 0 means that the
// text ends at its NUL. Where text of the other width is given it is converted; a conversion to
// narrow text that needs more than two bytes for each wide unit fails whole and counts as an
// empty text. Ignoring case folds ASCII letters only.
//
// A string without a block is empty, and so is one with a block and no characters: IsDigit and
// IsAlpha tell them apart. Capacity doubles and halves; Set starts it afresh from 0.
//
// Out of memory, an operation throws std::bad_alloc and leaves the string as it was; a text
// beyond 2^31 - 2 characters counts as that. One object serves one thread at a time.
#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

#include <qvx/types.h>

namespace qvx::core {
struct StringAccess;
}

template <typename T>
class CBaseStringT;

using CBaseStringA = CBaseStringT<char>;
using CBaseStringW = CBaseStringT<WCHAR>;

template <typename T>
class QVX_API CBaseStringT {
  static_assert(std::is_same_v<T, char> || std::is_same_v<T, WCHAR>);

 public:
  CBaseStringT() noexcept : mText(nullptr), mLength(0), mCapability(0) {}
  CBaseStringT(const char* text, int len = -1);
  CBaseStringT(const WCHAR* text, int len = -1);
  CBaseStringT(std::nullptr_t, int = -1) noexcept : CBaseStringT() {}
  CBaseStringT(const CBaseStringT<char>& source);
  CBaseStringT(const CBaseStringT<WCHAR>& source);
  // A null pointer gives an empty string.
  CBaseStringT(const CBaseStringT<char>* source);
  CBaseStringT(const CBaseStringT<WCHAR>* source);
  CBaseStringT& operator=(const CBaseStringT& source);
  virtual ~CBaseStringT();

  // Replaces the content with a deep copy. A text of the same length that equals the present one
  // ignoring case changes nothing. A null text is an empty one and frees the block. The text may
  // be part of this string. A null string object has no effect.
  void Set(const char* text, int len = -1);
  void Set(const WCHAR* text, int len = -1);
  void Set(std::nullptr_t, int = -1) { SetText(static_cast<const T*>(nullptr), 0); }
  void Set(char character);
  void Set(WCHAR character);
  void Set(const CBaseStringT<char>* source);
  void Set(const CBaseStringT<WCHAR>* source);

  // Appends; a null or empty text has no effect. The text may be part of this string.
  void Append(const char* text, int len = -1) { AppendText(text, len); }
  void Append(const WCHAR* text, int len = -1) { AppendText(text, len); }
  void Append(std::nullptr_t, int = -1) {}
  void Append(char character) { AppendText(&character, 1); }
  void Append(WCHAR character) { AppendText(&character, 1); }

  // Frees the block; the string is empty then.
  void Free();

  // Builds a text of any length in the width of the format, then works as Set or as Append. The
  // language is that of the C library's printf in the C locale, and beyond it: %s and %c take
  // text of the format's own width, %S and %C the other width, %ls and %lc always wide, %hs and
  // %hc always narrow text; %p prints 16 upper-case hexadecimal digits; %I64d takes 64 bits; a null
  // text prints as "(null)". %n, an unknown conversion, and a format that ends inside one are
  // errors: Format then empties the string and AppendFormat leaves it as it was. Arguments may
  // point into this string.
  void Format(const char* format, ...) QVX_PRINTF(2, 3);
  void Format(const WCHAR* format, ...);
  void AppendFormat(const char* format, ...) QVX_PRINTF(2, 3);
  void AppendFormat(const WCHAR* format, ...);

  // Replaces all matches of from, sought from left to right without overlaps. The search uses
  // from up to its NUL; fromLen, if not negative, is stepped over at each match and must be its
  // true length. Nothing happens without a match, for a null argument or for an empty from. The
  // result is installed by Set, so a change in case alone has no effect.
  void Replace(const char* from, int fromLen, const char* to, int toLen, int ignoreCase = 0);
  void Replace(const WCHAR* from, int fromLen, const WCHAR* to, int toLen, int ignoreCase = 0);
  // Removes every character that occurs in list.
  void RemoveCharList(const char* list, int len = -1, int ignoreCase = 0);
  void RemoveCharList(const WCHAR* list, int len = -1, int ignoreCase = 0);
  // Fold ASCII letters in place; no byte of a double-byte character is one.
  void ToLower();
  void ToUpper();
  // Reverses the order of the characters, unit by unit.
  void Revert();
  // Cuts the string to newLength characters if it is longer; below 0 counts as 0. The block may
  // shrink and is kept.
  void Trunk(int newLength);

  int GetLength() const { return mLength; }
  // The text, terminated; never null. Valid until the next change of the string.
  const T* GetString() const { return mText != nullptr ? mText : EmptyText(); }
  // 1 if there is a block and all characters are ASCII digits, or ASCII letters; else 0.
  int IsDigit() const;
  int IsAlpha() const;

  // 1 if the texts are equal, else 0. A null text counts as empty; a null string object gives 0.
  int Equal(const char* text, int len = -1, int ignoreCase = 0) const;
  int Equal(const WCHAR* text, int len = -1, int ignoreCase = 0) const;
  int Equal(std::nullptr_t, int, int) const { return mLength == 0 ? 1 : 0; }
  int Equal(char character, int ignoreCase = 0) const;
  int Equal(WCHAR character, int ignoreCase = 0) const;
  int Equal(const CBaseStringT<char>* other, int ignoreCase = 0) const;
  int Equal(const CBaseStringT<WCHAR>* other, int ignoreCase = 0) const;

  // 1 if the string begins with the text. An empty or null text is a prefix of an empty string
  // only; a null string object gives 0.
  int StartWith(const char* text, int len = -1, int ignoreCase = 0) const;
  int StartWith(const WCHAR* text, int len = -1, int ignoreCase = 0) const;
  int StartWith(std::nullptr_t, int, int) const { return mLength == 0 ? 1 : 0; }
  int StartWith(char character, int ignoreCase = 0) const;
  int StartWith(WCHAR character, int ignoreCase = 0) const;
  int StartWith(const CBaseStringT<char>* other, int ignoreCase = 0) const;
  int StartWith(const CBaseStringT<WCHAR>* other, int ignoreCase = 0) const;

  // Index of the first match at or behind start, counted from the string's beginning, or -1. A
  // start below 0 counts as 0. An empty text gives 0 whatever start is.
  int Find(T character, int start = 0) const;
  int Find(const T* text, int start = 0, int ignoreCase = 0) const;

 private:
  friend struct qvx::core::StringAccess;
  template <typename U>
  friend class CBaseStringT;
  using Other = std::conditional_t<std::is_same_v<T, char>, WCHAR, char>;

  void AppendText(const T* text, int len);
  void AppendText(const Other* text, int len);
  void AppendInternal(const T* text, int len);
  void AppendGrowing(const T* text, int len);
  void SetText(const T* text, int len);
  void SetText(const Other* text, int len);
  void SetBuilt(CBaseStringT& built);
  bool EqualsButForCase(const T* text, std::size_t length) const;
  bool IsSame(const void* other) const { return other == this; }
  int EqualText(const T* text, int len, int ignoreCase) const;
  int EqualText(const Other* text, int len, int ignoreCase) const;
  int StartWithText(const T* text, int len, int ignoreCase) const;
  int StartWithText(const Other* text, int len, int ignoreCase) const;
  void ReplaceText(const T* from, int fromLen, const T* to, int toLen, int ignoreCase);
  void ReplaceText(const Other* from, int fromLen, const Other* to, int toLen, int ignoreCase);
  void RemoveText(const T* list, int len, int ignoreCase);
  void RemoveText(const Other* list, int len, int ignoreCase);
  void FreeInternal();
  T* ReAlloc(int needed, int* newCapability) const;
  void InstallBlock(T* block, int capability);
  static int IncreaseCapability(int capability, int needed);
  static int DecreaseCapability(int capability, int needed);
  static const T* EmptyText() noexcept;
  static int Measure(const T* text);
  [[noreturn]] static void ThrowTooLong();

  T* mText;
  int mLength;
  int mCapability;
};

template <typename T>
inline void CBaseStringT<T>::AppendText(const T* text, int len) {
  if (text == nullptr) return;
  AppendInternal(text, len < 0 ? Measure(text) : len);
}

template <typename T>
inline int CBaseStringT<T>::Measure(const T* text) {
  std::size_t length = 0;
  if constexpr (std::is_same_v<T, char>) {
    length = std::strlen(text);
  } else {
    while (text[length] != T()) ++length;
  }
  if (length > 0x7FFFFFFEu) ThrowTooLong();
  return static_cast<int>(length);
}

// The block never exceeds twice the need, so that an append which fits keeps it.
template <typename T>
inline void CBaseStringT<T>::AppendInternal(const T* text, int len) {
  if (text == nullptr || len == 0) return;
  const int length = mLength;
  if (len >= mCapability - length) {
    AppendGrowing(text, len);
    return;
  }
  T* end = mText + length;
  if (len == 1) {
    *end = *text;
  } else {
    // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): where there is room is a block
    std::memmove(end, text, static_cast<std::size_t>(len) * sizeof(T));
  }
  end[len] = T();
  mLength = length + len;
}

extern template class QVX_API CBaseStringT<char>;
extern template class QVX_API CBaseStringT<WCHAR>;

extern "C" {

// Raw text helpers. They hold no state. Two characters match ignoring case if they are equal,
// or if they are the two cases of one ASCII letter. Results point into the text, or are null.

// First occurrence among the first maxCount characters; a NUL doesn't end the scan. Null for a
// null text.
QVX_API const char* strnchr(const char* text, std::size_t maxCount, char character);
QVX_API const WCHAR* wcsnchr(const WCHAR* text, std::size_t maxCount, WCHAR character);

// First match ignoring case. Null for a null argument and for an empty text; an empty pattern
// matches at the beginning.
QVX_API const char* stristr(const char* text, const char* pattern);
QVX_API const WCHAR* wcsistr(const WCHAR* text, const WCHAR* pattern);

// The same over counted lengths; a negative length is measured, and a NUL doesn't end the scan.
QVX_API const char* strnistr(const char* text, int textLength, const char* pattern,
                             int patternLength);
QVX_API const WCHAR* wcsnistr(const WCHAR* text, int textLength, const WCHAR* pattern,
                              int patternLength);

// 1 if all characters are ASCII digits, or ASCII letters, also for an empty text; 0 for null.
QVX_API int IsDigitStringA(const char* text);
QVX_API int IsDigitStringW(const WCHAR* text);
QVX_API int IsAlphaStringA(const char* text);
QVX_API int IsAlphaStringW(const WCHAR* text);

// Fold ASCII letters in place; no byte of a double-byte character is one. Null is ignored.
QVX_API void ToLowerStringA(char* text);
QVX_API void ToLowerStringW(WCHAR* text);
QVX_API void ToUpperStringA(char* text);
QVX_API void ToUpperStringW(WCHAR* text);

}  // extern "C"
