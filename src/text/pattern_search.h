// The search for a pattern: two characters of it that are rare in texts are looked for in whole
// vectors, and a place that holds both is compared. Where a text keeps nearly fitting, the search
// goes on by the pattern's failure table, if it has one, so that its time stays linear.
#pragma once

#include <cstddef>

#include "qvx/types.h"

namespace qvx::text {

enum class Case { kExact, kIgnored };

template <typename T>
struct Pattern {
  const T* text;
  std::size_t length;  // at least 1
  const int* next;     // the failure table, or null
};

// The first place of the pattern in text, or null.
template <Case kCase, typename T>
const T* FindPattern(const T* text, std::size_t length, const Pattern<T>& pattern);

}  // namespace qvx::text
