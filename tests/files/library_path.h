// Native paths of a test in the library's form, in the width that a function takes.
#pragma once

#include <string>
#include <string_view>

#include "platform/code_page.h"
#include "platform/path.h"

namespace qvx::test {

template <typename C>
std::basic_string<C> Library(const std::string& native) {
  return platform::FromNativePath<C>(native).value();
}

inline std::u16string WideText(std::string_view text) {
  return platform::Utf8ToUtf16(text);
}

}  // namespace qvx::test
