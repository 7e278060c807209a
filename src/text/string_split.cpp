#include "qvx/string_split.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "containers/ptr_array_access.h"
#include "platform/memory_hint.h"
#include "qvx/ptr_array.h"
#include "text/field_splitter.h"
#include "text/pattern_search.h"
#include "text/read_number.h"
#include "text/text_length.h"

using qvx::containers::PtrArrayAccess;
using qvx::text::Case;
using qvx::text::CharacterSet;
using qvx::text::GivenView;
using qvx::text::SplitRule;

namespace {

template <typename T>
using View = std::basic_string_view<T>;

// A copy that ends in NULs also for a reader who begins in the middle of a character.
template <typename T>
std::unique_ptr<T[]> CopyText(View<T> text) {
  auto copy = std::make_unique_for_overwrite<T[]>(text.size() + 2);
  qvx::platform::ExpectFilling(copy.get(), (text.size() + 2) * sizeof(T));
  T* end = copy.get() + text.copy(copy.get(), text.size());
  end[0] = end[1] = T();
  return copy;
}

// Adds the fields of a copy to out and ends each with a NUL. The copy is changed only when
// nothing can fail any more.
template <typename T>
void CutAtCharacters(T* copy, View<T> text, const CharacterSet<T>& set, SplitRule rule,
                     CPtrArrayCtrl& out) {
  int count = 0;
  qvx::text::SplitAtCharacters(text, set, rule, [&](std::size_t, std::size_t) { ++count; });
  PtrArrayAccess::AppendFilled(out, count, [&](const void** entry) {
    const auto cut = [&](std::size_t start, std::size_t end) {
      copy[end] = T();
      *entry++ = copy + start;
    };
    qvx::text::SplitAtCharacters(text, set, rule, cut);
  });
}

template <typename T>
T* DivideByCharacters(const T* text, int length, const T* separators, int separatorCount,
                      int skipEmpty, CPtrCtrl* out, int maxCount) {
  if (text == nullptr || out == nullptr) return nullptr;
  const View<T> given = GivenView(text, length);
  std::unique_ptr<T[]> copy = CopyText(given);
  const View<T> copied(copy.get(), given.size());
  const CharacterSet<T> set(GivenView(separators, separatorCount));
  const SplitRule rule{skipEmpty != 0, maxCount, out->GetCount()};
  CPtrArrayCtrl fields;
  CPtrArrayCtrl* array = PtrArrayAccess::AsArray(out);
  CutAtCharacters(copy.get(), copied, set, rule, array != nullptr ? *array : fields);
  if (array == nullptr) out->AddPtrCtrl(&fields, -1);
  return copy.release();
}

// The places of one separator in a text of bytes, found one after the other.
class Separator {
 public:
  explicit Separator(std::string_view bytes) : bytes_(bytes) {}

  // The first place at or behind start, or npos. start never goes back.
  std::size_t PlaceFrom(std::string_view text, std::size_t start) {
    if (!sought_ || (place_ != text.npos && place_ < start)) {
      const char* from = text.data() + start;
      const char* hit = qvx::text::FindPattern<Case::kExact, char>(
          from, text.size() - start, {bytes_.data(), bytes_.size(), nullptr});
      place_ = hit != nullptr ? static_cast<std::size_t>(hit - text.data()) : text.npos;
      sought_ = true;
    }
    return place_;
  }

  std::size_t Size() const { return bytes_.size(); }

 private:
  std::string_view bytes_;
  std::size_t place_ = 0;
  bool sought_ = false;
};

struct Hit {
  std::size_t place = std::string_view::npos;
  std::size_t size = 0;
};

Hit FirstHit(std::vector<Separator>& separators, std::string_view text, std::size_t start) {
  Hit first;
  for (Separator& separator : separators) {
    const std::size_t place = separator.PlaceFrom(text, start);
    const bool longer = place == first.place && separator.Size() > first.size;
    if (place < first.place || longer) first = {place, separator.Size()};
  }
  return first;
}

template <typename T>
std::vector<Separator> MakeSeparators(const T** separators, int count) {
  std::vector<Separator> all;
  for (int i = 0; separators != nullptr && i < count; ++i) {
    const View<T> one = GivenView(separators[i], -1);
    if (one.empty()) continue;
    all.emplace_back(
        std::string_view(reinterpret_cast<const char*>(one.data()), one.size() * sizeof(T)));
  }
  return all;
}

// Cuts bytes in place with terminators of the width.
void CutAtStrings(char* bytes, std::size_t size, std::size_t width,
                  std::vector<Separator>& separators, CPtrArrayCtrl& fields) {
  const std::string_view text(bytes, size);
  for (std::size_t start = 0; start < size;) {
    const Hit hit = FirstHit(separators, text, start);
    fields.AddData(bytes + start, -1);
    if (hit.place == text.npos) return;
    start = hit.place + hit.size;
    std::memset(bytes + hit.place, 0, width);
  }
}

template <typename T>
T* DivideByStrings(const T* text, int length, const T** separators, int separatorCount,
                   CPtrCtrl* out) {
  if (text == nullptr || out == nullptr) return nullptr;
  std::vector<Separator> all = MakeSeparators(separators, separatorCount);
  const View<T> given = GivenView(text, length);
  std::unique_ptr<T[]> copy = CopyText(given);
  CPtrArrayCtrl fields;
  CutAtStrings(reinterpret_cast<char*>(copy.get()), given.size() * sizeof(T), sizeof(T), all,
               fields);
  out->AddPtrCtrl(&fields, -1);
  return copy.release();
}

const char* FindWord(View<char> text, View<char> word) {
  return strnistr(text.data(), static_cast<int>(text.size()), word.data(),
                  static_cast<int>(word.size()));
}

const WCHAR* FindWord(View<WCHAR> text, View<WCHAR> word) {
  return wcsnistr(text.data(), static_cast<int>(text.size()), word.data(),
                  static_cast<int>(word.size()));
}

// Where the word stands first, in bytes, or npos.
template <typename T>
std::size_t WordPlace(View<T> text, View<T> word, bool ignoreCase) {
  const auto* bytes = reinterpret_cast<const char*>(text.data());
  const auto* sought = reinterpret_cast<const char*>(word.data());
  const char* hit =
      ignoreCase ? reinterpret_cast<const char*>(FindWord(text, word))
                 : qvx::text::FindPattern<Case::kExact, char>(
                       bytes, text.size() * sizeof(T), {sought, word.size() * sizeof(T), nullptr});
  return hit != nullptr ? static_cast<std::size_t>(hit - bytes) : View<T>::npos;
}

// Reads a character that may begin in the middle of another.
template <typename T>
T CharacterAt(View<T> text, std::size_t byte) {
  T character;
  std::memcpy(&character, reinterpret_cast<const char*>(text.data()) + byte, sizeof(T));
  return character;
}

template <typename T>
bool IsWholeField(View<T> text, View<T> word, View<T> separators, bool ignoreCase) {
  const std::size_t place = WordPlace(text, word, ignoreCase);
  if (place == text.npos) return false;
  const CharacterSet<T> set(separators);
  if (place != 0 && (place < sizeof(T) || !set.Has(CharacterAt(text, place - sizeof(T))))) {
    return false;
  }
  const std::size_t behind = place + word.size() * sizeof(T);
  if (behind + sizeof(T) > text.size() * sizeof(T)) return true;
  const T next = CharacterAt(text, behind);
  return next == T() || set.Has(next);
}

template <typename T>
int FindField(const T* text, int textLength, const T* word, int wordLength, const T* separators,
              int separatorCount, int ignoreCase) {
  const View<T> where = GivenView(text, textLength);
  const View<T> what = GivenView(word, wordLength);
  if (where.empty() || what.empty()) return 0;
  const View<T> set = GivenView(separators, separatorCount);
  return IsWholeField(where, what, set, ignoreCase != 0) ? 1 : 0;
}

template <typename T>
int CountLines(const T* text, int length) {
  if (text == nullptr || length < 1) return 1;
  return 1 + static_cast<int>(std::count(text, text + length, T('\n')));
}

void FreeBlock(void* block) {
  ::operator delete[](block);
}

}  // namespace

char* DevideStringByCharListA(const char* text, int length, const char* separators,
                              int separatorCount, int skipEmpty, CPtrCtrl* out, int maxCount) {
  return DivideByCharacters(text, length, separators, separatorCount, skipEmpty, out, maxCount);
}

WCHAR* DevideStringByCharListW(const WCHAR* text, int length, const WCHAR* separators,
                               int separatorCount, int skipEmpty, CPtrCtrl* out, int maxCount) {
  return DivideByCharacters(text, length, separators, separatorCount, skipEmpty, out, maxCount);
}

char* DevideStringByStringListA(const char* text, int length, const char** separators,
                                int separatorCount, CPtrCtrl* out) {
  return DivideByStrings(text, length, separators, separatorCount, out);
}

WCHAR* DevideStringByStringListW(const WCHAR* text, int length, const WCHAR** separators,
                                 int separatorCount, CPtrCtrl* out) {
  return DivideByStrings(text, length, separators, separatorCount, out);
}

int FindStringFromStringWithSepratorA(const char* text, int textLength, const char* word,
                                      int wordLength, const char* separators, int separatorCount,
                                      int ignoreCase) {
  return FindField(text, textLength, word, wordLength, separators, separatorCount, ignoreCase);
}

int FindStringFromStringWithSepratorW(const WCHAR* text, int textLength, const WCHAR* word,
                                      int wordLength, const WCHAR* separators, int separatorCount,
                                      int ignoreCase) {
  return FindField(text, textLength, word, wordLength, separators, separatorCount, ignoreCase);
}

int GetStringLinesA(const char* text, int length) {
  return CountLines(text, length);
}

int GetStringLinesW(const WCHAR* text, int length) {
  return CountLines(text, length);
}

int ParseIntValues(const char* text, int* values, int maxCount) {
  if (text == nullptr || values == nullptr) return 0;
  int count = 0;
  for (std::string_view left = text; !left.empty() && count < maxCount;) {
    const std::size_t comma = left.find(',');
    values[count++] = qvx::text::ReadInteger(left.substr(0, comma));
    left = comma != left.npos ? left.substr(comma + 1) : std::string_view();
  }
  return count;
}

void FreeFormatStringA(void* block) {
  FreeBlock(block);
}

void FreeFormatStringW(void* block) {
  FreeBlock(block);
}

void Internal_DelArrayA(void* block) {
  FreeBlock(block);
}

void Internal_DelArrayW(void* block) {
  FreeBlock(block);
}
