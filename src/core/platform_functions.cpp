// The code page and error functions of the platform's own interface.
#include <qvx/platform.h>

#include <limits>
#include <new>
#include <string>

#include "core/raw_text.h"
#include "core/string_access.h"
#include "platform/code_page.h"
#include "platform/last_error.h"

using qvx::core::GivenLength;

namespace {

// Not by Set, which would keep a text that differs in case alone.
template <typename T>
int Store(const std::basic_string<T>& text, bool exact, CBaseStringT<T>* result) {
  if (text.size() > std::numeric_limits<int>::max() - 1) throw std::bad_alloc();
  CBaseStringT<T> copy(text.data(), static_cast<int>(text.size()));
  qvx::core::StringAccess::Swap(copy, *result);
  return exact ? 1 : 0;
}

}  // namespace

int SetAnsiCodePage(unsigned int codePage) {
  return qvx::platform::SetAnsiCodePage(codePage) ? 1 : 0;
}

unsigned int GetAnsiCodePage() {
  return qvx::platform::AnsiCodePage();
}

int WideToUtf8(const WCHAR* text, int len, CBaseStringA* result) {
  if (result == nullptr) return 0;
  bool exact = true;
  const std::string utf8 = qvx::platform::Utf16ToUtf8({text, GivenLength(text, len)}, &exact);
  return Store(utf8, exact, result);
}

int Utf8ToWide(const char* text, int len, CBaseStringW* result) {
  if (result == nullptr) return 0;
  bool exact = true;
  const std::u16string wide = qvx::platform::Utf8ToUtf16({text, GivenLength(text, len)}, &exact);
  return Store(wide, exact, result);
}

unsigned int GetLastErrorCode() {
  return qvx::platform::LastErrorCode();
}
