#include "qvx/string_split.h"

#include <memory>
#include <string_view>

#include "qvx/ptr_array.h"
#include "text/text_length.h"

namespace {

template <typename T>
using View = std::basic_string_view<T>;

template <typename T>
std::unique_ptr<T[]> CopyText(View<T> text) {
  auto copy = std::make_unique_for_overwrite<T[]>(text.size() + 1);
  copy[text.copy(copy.get(), text.size())] = T();
  return copy;
}

// Cuts the text in place. fields gets the beginnings, held says how many fields stand
// elsewhere already, which counts against a maxCount above 0.
template <typename T>
void CutAtCharacters(T* text, std::size_t length, View<T> separators, bool skipEmpty, int held,
                     int maxCount, CPtrArrayCtrl& fields) {
  T* start = text;
  T* const end = text + length;
  for (T* p = text; p != end; ++p) {
    if (separators.find(*p) == separators.npos) continue;
    if (p != start || !skipEmpty) {
      if (maxCount > 0 && held + fields.GetCount() >= maxCount - 1) break;
      *p = T();
      fields.AddData(start, -1);
    }
    start = p + 1;
  }
  if (start < end) fields.AddData(start, -1);
}

template <typename T>
T* DivideByCharacters(const T* text, int length, const T* separators, int separatorCount,
                      int skipEmpty, CPtrCtrl* out, int maxCount) {
  if (text == nullptr || out == nullptr) return nullptr;
  const std::size_t size = qvx::text::Length(text, length);
  View<T> set;
  if (separators != nullptr) set = {separators, qvx::text::Length(separators, separatorCount)};
  std::unique_ptr<T[]> copy = CopyText(View<T>(text, size));
  CPtrArrayCtrl fields;
  CutAtCharacters(copy.get(), size, set, skipEmpty != 0, out->GetCount(), maxCount, fields);
  out->AddPtrCtrl(&fields, -1);
  return copy.release();
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
