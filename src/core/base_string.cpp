#include <qvx/base_string.h>

#include <algorithm>
#include <cstdarg>
#include <limits>
#include <new>

#include "core/capability.h"
#include "core/converted_text.h"
#include "core/printf_engine.h"
#include "core/raw_text.h"
#include "core/string_access.h"

using qvx::core::ConvertedText;
using qvx::core::FormattedText;
using qvx::core::GivenLength;
using qvx::core::StringAccess;

namespace {

// Not inside EmptyText, where it would be exported.
template <typename T>
constexpr T kEmptyText[1] = {};

constexpr int kLongest = std::numeric_limits<int>::max() - 1;

std::size_t Count(std::ptrdiff_t length) {
  return static_cast<std::size_t>(length);
}

template <typename T>
T* CopyCharacters(const T* from, int count, T* to) {
  if (count > 0) std::memmove(to, from, Count(count) * sizeof(T));
  return to + count;
}

template <typename T>
bool Contains(const T* list, std::size_t length, T character, bool ignore_case) {
  if (!ignore_case) return qvx::core::FindCharacter(list, length, character) != nullptr;
  return std::any_of(list, list + length,
                     [=](T entry) { return qvx::core::Matches(entry, character); });
}

template <typename T>
const T* FindMatch(const T* text, std::size_t length, const T* pattern, int ignore_case) {
  return ignore_case == 0
             ? qvx::core::FindText(text, length, pattern)
             : qvx::core::FindIgnoringCase(text, length, pattern, qvx::core::TextLength(pattern));
}

template <typename T, typename F>
void SetFormatted(CBaseStringT<T>& string, const FormattedText<F>& text) {
  if (text.Failed()) {
    string.Free();
  } else {
    string.Set(text.Text(), text.Length());
  }
}

}  // namespace

// The block ------------------------------------------------------------------------------------

template <typename T>
int CBaseStringT<T>::IncreaseCapability(int capability, int needed) {
  return qvx::core::IncreaseCapability(capability, needed);
}

template <typename T>
int CBaseStringT<T>::DecreaseCapability(int capability, int needed) {
  return qvx::core::DecreaseCapability(capability, needed);
}

template <typename T>
T* CBaseStringT<T>::ReAlloc(int needed, int* newCapability) const {
  int capability = mCapability;
  if (needed > capability) {
    capability = IncreaseCapability(capability, needed);
  } else if (needed < capability / 2) {
    capability = DecreaseCapability(capability, needed);
  }
  *newCapability = capability;
  if (capability == mCapability) return mText;
  T* block = new T[Count(capability)];
  *CopyCharacters(mText, std::min(capability - 1, mLength), block) = T();
  return block;
}

template <typename T>
void CBaseStringT<T>::InstallBlock(T* block, int capability) {
  if (block != mText) delete[] mText;
  mText = block;
  mCapability = capability;
}

template <typename T>
void CBaseStringT<T>::FreeInternal() {
  delete[] mText;
  mText = nullptr;
  mLength = 0;
  mCapability = 0;
}

template <typename T>
const T* CBaseStringT<T>::EmptyText() noexcept {
  return kEmptyText<T>;
}

template <typename T>
void CBaseStringT<T>::ThrowTooLong() {
  throw std::bad_alloc();
}

// Construction ---------------------------------------------------------------------------------

template <typename T>
CBaseStringT<T>::CBaseStringT(const char* text, int len) : CBaseStringT() {
  Append(text, len);
}

template <typename T>
CBaseStringT<T>::CBaseStringT(const WCHAR* text, int len) : CBaseStringT() {
  Append(text, len);
}

template <typename T>
CBaseStringT<T>::CBaseStringT(const CBaseStringT<char>& source) : CBaseStringT() {
  Append(source.mText, source.mLength);
}

template <typename T>
CBaseStringT<T>::CBaseStringT(const CBaseStringT<WCHAR>& source) : CBaseStringT() {
  Append(source.mText, source.mLength);
}

template <typename T>
CBaseStringT<T>::CBaseStringT(const CBaseStringT<char>* source) : CBaseStringT() {
  Set(source);
}

template <typename T>
CBaseStringT<T>::CBaseStringT(const CBaseStringT<WCHAR>* source) : CBaseStringT() {
  Set(source);
}

template <typename T>
CBaseStringT<T>& CBaseStringT<T>::operator=(const CBaseStringT& source) {
  if (this != &source) SetText(source.mText, source.mLength);
  return *this;
}

template <typename T>
CBaseStringT<T>::~CBaseStringT() {
  delete[] mText;
}

// Set, append, format --------------------------------------------------------------------------

template <typename T>
bool CBaseStringT<T>::EqualsButForCase(const T* text, std::size_t length) const {
  if (length != Count(mLength)) return false;
  return qvx::core::SameButForCase(mText, text, length);
}

// The new block is made before the old one goes: the text may stand in it, and a failed
// allocation must leave it.
template <typename T>
void CBaseStringT<T>::SetText(const T* text, int len) {
  const std::size_t length = GivenLength(text, len);
  if (EqualsButForCase(text, length)) return;
  if (length > Count(kLongest)) ThrowTooLong();
  CBaseStringT fresh;
  fresh.AppendInternal(text, static_cast<int>(length));
  StringAccess::Swap(*this, fresh);
}

template <typename T>
void CBaseStringT<T>::SetText(const Other* text, int len) {
  const ConvertedText<T> converted(text, len);
  SetText(converted.Text(), converted.Length());
}

template <typename T>
void CBaseStringT<T>::SetBuilt(CBaseStringT& built) {
  if (!EqualsButForCase(built.mText, Count(built.mLength))) StringAccess::Swap(*this, built);
}

template <typename T>
void CBaseStringT<T>::Set(const char* text, int len) {
  SetText(text, len);
}

template <typename T>
void CBaseStringT<T>::Set(const WCHAR* text, int len) {
  SetText(text, len);
}

template <typename T>
void CBaseStringT<T>::Set(char character) {
  SetText(&character, 1);
}

template <typename T>
void CBaseStringT<T>::Set(WCHAR character) {
  SetText(&character, 1);
}

template <typename T>
void CBaseStringT<T>::Set(const CBaseStringT<char>* source) {
  if (source != nullptr) SetText(source->mText, source->mLength);
}

template <typename T>
void CBaseStringT<T>::Set(const CBaseStringT<WCHAR>* source) {
  if (source != nullptr) SetText(source->mText, source->mLength);
}

template <typename T>
void CBaseStringT<T>::AppendText(const Other* text, int len) {
  if (text == nullptr || len == 0) return;
  const ConvertedText<T> converted(text, len);
  AppendInternal(converted.Text(), converted.Length());
}

// The old block stays until the text, which may stand in it, has been read.
template <typename T>
void CBaseStringT<T>::AppendGrowing(const T* text, int len) {
  if (len > kLongest - mLength) ThrowTooLong();
  int capability = 0;
  T* block = ReAlloc(mLength + len + 1, &capability);
  *CopyCharacters(text, len, block + mLength) = T();
  InstallBlock(block, capability);
  mLength += len;
}

template <typename T>
void CBaseStringT<T>::Free() {
  FreeInternal();
}

template <typename T>
void CBaseStringT<T>::Format(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const FormattedText<char> text(format, arguments);
  va_end(arguments);
  SetFormatted(*this, text);
}

template <typename T>
void CBaseStringT<T>::Format(const WCHAR* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const FormattedText<WCHAR> text(format, arguments);
  va_end(arguments);
  SetFormatted(*this, text);
}

template <typename T>
void CBaseStringT<T>::AppendFormat(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const FormattedText<char> text(format, arguments);
  va_end(arguments);
  if (!text.Failed()) Append(text.Text(), text.Length());
}

template <typename T>
void CBaseStringT<T>::AppendFormat(const WCHAR* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const FormattedText<WCHAR> text(format, arguments);
  va_end(arguments);
  if (!text.Failed()) Append(text.Text(), text.Length());
}

// Editing in place -----------------------------------------------------------------------------

// Built by appending, the result has the block that Set would make for it.
template <typename T>
void CBaseStringT<T>::ReplaceText(const T* from, int fromLen, const T* to, int toLen,
                                  int ignoreCase) {
  if (from == nullptr || to == nullptr || mText == nullptr) return;
  const std::size_t step = GivenLength(from, fromLen);
  if (step == 0 || *from == T()) return;
  const T* end = mText + mLength;
  CBaseStringT built;
  const T* rest = mText;
  const T* nul = rest + qvx::core::TextLength(rest);
  const T* match = FindMatch(rest, Count(nul - rest), from, ignoreCase);
  if (match == nullptr) return;
  while (match != nullptr) {
    built.Append(rest, static_cast<int>(match - rest));
    built.Append(to, toLen);
    rest = match + std::min(step, Count(end - match));
    if (rest > nul) nul = rest + qvx::core::TextLength(rest);
    match = FindMatch(rest, Count(nul - rest), from, ignoreCase);
  }
  built.Append(rest, static_cast<int>(end - rest));
  SetBuilt(built);
}

template <typename T>
void CBaseStringT<T>::ReplaceText(const Other* from, int fromLen, const Other* to, int toLen,
                                  int ignoreCase) {
  if (from == nullptr || to == nullptr || mText == nullptr) return;
  const ConvertedText<T> ownFrom(from, fromLen);
  const ConvertedText<T> ownTo(to, toLen);
  ReplaceText(ownFrom.Text(), ownFrom.Length(), ownTo.Text(), ownTo.Length(), ignoreCase);
}

template <typename T>
void CBaseStringT<T>::Replace(const char* from, int fromLen, const char* to, int toLen,
                              int ignoreCase) {
  ReplaceText(from, fromLen, to, toLen, ignoreCase);
}

template <typename T>
void CBaseStringT<T>::Replace(const WCHAR* from, int fromLen, const WCHAR* to, int toLen,
                              int ignoreCase) {
  ReplaceText(from, fromLen, to, toLen, ignoreCase);
}

template <typename T>
void CBaseStringT<T>::RemoveText(const T* list, int len, int ignoreCase) {
  if (list == nullptr || mText == nullptr) return;
  const std::size_t length = GivenLength(list, len);
  CBaseStringT built;
  const T* end = mText + mLength;
  for (const T* rest = mText; rest != end; ++rest) {
    const T* kept = rest;
    while (rest != end && !Contains(list, length, *rest, ignoreCase != 0)) ++rest;
    built.AppendText(kept, static_cast<int>(rest - kept));
    if (rest == end) break;
  }
  if (built.mLength != mLength) SetBuilt(built);
}

template <typename T>
void CBaseStringT<T>::RemoveText(const Other* list, int len, int ignoreCase) {
  if (list == nullptr) return;
  const ConvertedText<T> own(list, len);
  RemoveText(own.Text(), own.Length(), ignoreCase);
}

template <typename T>
void CBaseStringT<T>::RemoveCharList(const char* list, int len, int ignoreCase) {
  RemoveText(list, len, ignoreCase);
}

template <typename T>
void CBaseStringT<T>::RemoveCharList(const WCHAR* list, int len, int ignoreCase) {
  RemoveText(list, len, ignoreCase);
}

template <typename T>
void CBaseStringT<T>::ToLower() {
  qvx::core::FoldToLower(mText, Count(mLength));
}

template <typename T>
void CBaseStringT<T>::ToUpper() {
  qvx::core::FoldToUpper(mText, Count(mLength));
}

template <typename T>
void CBaseStringT<T>::Revert() {
  std::reverse(mText, mText + mLength);
}

template <typename T>
void CBaseStringT<T>::Trunk(int newLength) {
  newLength = std::max(newLength, 0);
  if (newLength >= mLength) return;
  int capability = 0;
  T* block = ReAlloc(newLength + 1, &capability);
  InstallBlock(block, capability);
  mText[newLength] = T();
  mLength = newLength;
}

// Queries --------------------------------------------------------------------------------------

template <typename T>
int CBaseStringT<T>::IsDigit() const {
  return mText != nullptr && qvx::core::AllDigits(mText, Count(mLength)) ? 1 : 0;
}

template <typename T>
int CBaseStringT<T>::IsAlpha() const {
  return mText != nullptr && qvx::core::AllLetters(mText, Count(mLength)) ? 1 : 0;
}

template <typename T>
int CBaseStringT<T>::EqualText(const T* text, int len, int ignoreCase) const {
  const std::size_t length = GivenLength(text, len);
  if (length != Count(mLength)) return 0;
  return qvx::core::EqualUpToNul(mText, text, length, ignoreCase != 0) ? 1 : 0;
}

template <typename T>
int CBaseStringT<T>::EqualText(const Other* text, int len, int ignoreCase) const {
  const ConvertedText<T> own(text, len);
  return EqualText(own.Text(), own.Length(), ignoreCase);
}

template <typename T>
int CBaseStringT<T>::Equal(const char* text, int len, int ignoreCase) const {
  return EqualText(text, len, ignoreCase);
}

template <typename T>
int CBaseStringT<T>::Equal(const WCHAR* text, int len, int ignoreCase) const {
  return EqualText(text, len, ignoreCase);
}

template <typename T>
int CBaseStringT<T>::Equal(char character, int ignoreCase) const {
  return EqualText(&character, 1, ignoreCase);
}

template <typename T>
int CBaseStringT<T>::Equal(WCHAR character, int ignoreCase) const {
  return EqualText(&character, 1, ignoreCase);
}

template <typename T>
int CBaseStringT<T>::Equal(const CBaseStringT<char>* other, int ignoreCase) const {
  if (other == nullptr) return 0;
  return EqualText(other->mText, other->mLength, ignoreCase);
}

template <typename T>
int CBaseStringT<T>::Equal(const CBaseStringT<WCHAR>* other, int ignoreCase) const {
  if (other == nullptr) return 0;
  return EqualText(other->mText, other->mLength, ignoreCase);
}

template <typename T>
int CBaseStringT<T>::StartWithText(const T* text, int len, int ignoreCase) const {
  const std::size_t length = GivenLength(text, len);
  if (length == 0) return mLength == 0 ? 1 : 0;
  if (length > Count(mLength)) return 0;
  return qvx::core::EqualUpToNul(mText, text, length, ignoreCase != 0) ? 1 : 0;
}

template <typename T>
int CBaseStringT<T>::StartWithText(const Other* text, int len, int ignoreCase) const {
  const ConvertedText<T> own(text, len);
  return StartWithText(own.Text(), own.Length(), ignoreCase);
}

template <typename T>
int CBaseStringT<T>::StartWith(const char* text, int len, int ignoreCase) const {
  return StartWithText(text, len, ignoreCase);
}

template <typename T>
int CBaseStringT<T>::StartWith(const WCHAR* text, int len, int ignoreCase) const {
  return StartWithText(text, len, ignoreCase);
}

template <typename T>
int CBaseStringT<T>::StartWith(char character, int ignoreCase) const {
  return StartWithText(&character, 1, ignoreCase);
}

template <typename T>
int CBaseStringT<T>::StartWith(WCHAR character, int ignoreCase) const {
  return StartWithText(&character, 1, ignoreCase);
}

template <typename T>
int CBaseStringT<T>::StartWith(const CBaseStringT<char>* other, int ignoreCase) const {
  if (other == nullptr) return 0;
  return IsSame(other) ? 1 : StartWithText(other->mText, other->mLength, ignoreCase);
}

template <typename T>
int CBaseStringT<T>::StartWith(const CBaseStringT<WCHAR>* other, int ignoreCase) const {
  if (other == nullptr) return 0;
  return IsSame(other) ? 1 : StartWithText(other->mText, other->mLength, ignoreCase);
}

template <typename T>
int CBaseStringT<T>::Find(T character, int start) const {
  const int first = std::max(start, 0);
  if (first >= mLength) return -1;
  const T* match = qvx::core::FindCharacter(mText + first, Count(mLength - first), character);
  return match != nullptr ? static_cast<int>(match - mText) : -1;
}

template <typename T>
int CBaseStringT<T>::Find(const T* text, int start, int ignoreCase) const {
  if (text == nullptr) return -1;
  if (*text == T()) return 0;
  const int first = std::max(start, 0);
  if (first >= mLength) return -1;
  const T* rest = mText + first;
  const T* match = ignoreCase == 0 ? qvx::core::FindText(rest, text)
                                   : qvx::core::FindIgnoringCase(rest, Count(mLength - first), text,
                                                                 qvx::core::TextLength(text));
  return match != nullptr ? static_cast<int>(match - mText) : -1;
}

template class CBaseStringT<char>;
template class CBaseStringT<WCHAR>;
