// The one rule by which text is cut into fields at single characters.
#pragma once

#include <cstddef>
#include <string_view>

#include "text/character_set.h"

namespace qvx::text {

struct SplitRule {
  bool skip_empty = false;
  int max_count = 0;  // above 0: the last field takes the rest
  int held = 0;       // fields that count against max_count already
};

// Calls field(start, end) with the bounds of each field, in order. A separator at the very end
// starts no further field.
template <typename T, typename Field>
void SplitAtCharacters(std::basic_string_view<T> text, const CharacterSet<T>& separators,
                       SplitRule rule, Field field) {
  std::size_t start = 0;
  separators.ForEachIn(text, [&](std::size_t place) {
    if (place > start || !rule.skip_empty) {
      if (rule.max_count > 0 && rule.held >= rule.max_count - 1) return false;
      field(start, place);
      ++rule.held;
    }
    start = place + 1;
    return true;
  });
  if (start < text.size()) field(start, text.size());
}

}  // namespace qvx::text
