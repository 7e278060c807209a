// The length of a text argument: as given, or up to its NUL if it is negative.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qvx::text {

template <typename T>
std::size_t Length(const T* text, int length) {
  return length < 0 ? std::char_traits<T>::length(text) : static_cast<std::size_t>(length);
}

// The text itself; a null one is empty.
template <typename T>
std::basic_string_view<T> GivenView(const T* text, int length) {
  if (text == nullptr) return {};
  return {text, Length(text, length)};
}

}  // namespace qvx::text
