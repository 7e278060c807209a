// ASCII texts and strings in either width, for tests that run over both.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "qvx/base_string.h"

namespace qvx::test {

using Widths = testing::Types<char, WCHAR>;

template <typename T>
std::basic_string<T> Widen(std::string_view text) {
  return {text.begin(), text.end()};
}

template <typename T>
std::basic_string<T> Content(const CBaseStringT<T>& string) {
  return {string.GetString(), static_cast<std::size_t>(string.GetLength())};
}

// Name<T> is the narrow or the wide form of a function, as T asks.
// NOLINTBEGIN(bugprone-macro-parentheses): what it declares is a name
#define QVX_TWIN(Name)              \
  template <typename T>             \
  constexpr auto Name = [] {        \
    if constexpr (sizeof(T) == 1) { \
      return &Name##A;              \
    } else {                        \
      return &Name##W;              \
    }                               \
  }()
// NOLINTEND(bugprone-macro-parentheses)

}  // namespace qvx::test
