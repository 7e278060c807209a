#include "qvx/text_search.h"

#include <algorithm>
#include <string_view>

#include "core/raw_text.h"
#include "text/pattern_search.h"
#include "text/text_length.h"

using qvx::text::Case;

namespace {

template <typename T>
const T* FindCharacter(const T* memory, T value, int count) {
  if (memory == nullptr || count < 1) return nullptr;
  return qvx::core::FindCharacter(memory, static_cast<std::size_t>(count), value);
}

template <typename T>
const T* FindBuffer(const T* memory, int length, const T* pattern, int patternLength) {
  if (memory == nullptr || pattern == nullptr) return nullptr;
  const std::size_t size = qvx::text::Length(memory, length) * sizeof(T);
  const std::size_t patternSize = qvx::text::Length(pattern, patternLength) * sizeof(T);
  if (patternSize == 0) return memory;
  const auto* bytes = reinterpret_cast<const char*>(memory);
  const auto* sought = reinterpret_cast<const char*>(pattern);
  return reinterpret_cast<const T*>(
      qvx::text::FindPattern<Case::kExact, char>(bytes, size, {sought, patternSize, nullptr}));
}

template <Case kCase, typename T>
bool Same(T left, T right) {
  return kCase == Case::kExact ? left == right : qvx::core::Matches(left, right);
}

template <Case kCase, typename T>
int CreateTable(int* next, const T* pattern, int length) {
  if (next == nullptr) return 0;
  next[0] = -1;
  if (pattern == nullptr) return 0;
  for (int j = 0, k = -1; j < length - 1;) {
    if (k >= 0 && !Same<kCase>(pattern[j], pattern[k])) {
      k = next[k];
      continue;
    }
    ++j;
    ++k;
    next[j] = Same<kCase>(pattern[j], pattern[k]) ? next[k] : k;
  }
  return 1;
}

template <Case kCase, typename T>
const T* FindByPattern(const T* text, int textLength, const T* pattern, int patternLength,
                       const int* next) {
  if (patternLength < 1) return text;
  if (text == nullptr || pattern == nullptr || next == nullptr) return nullptr;
  if (patternLength > textLength) return nullptr;
  return qvx::text::FindPattern<kCase, T>(text, static_cast<std::size_t>(textLength),
                                          {pattern, static_cast<std::size_t>(patternLength), next});
}

// The longest run of equal characters along one way of laying the texts.
template <typename T>
std::size_t LongestRun(const T* first, const T* second, std::size_t count) {
  std::size_t longest = 0;
  std::size_t run = 0;
  for (std::size_t i = 0; i < count; ++i) {
    run = first[i] == second[i] ? run + 1 : 0;
    longest = std::max(longest, run);
  }
  return longest;
}

template <typename T>
std::size_t CountMatches(const T* first, const T* second, std::size_t count) {
  std::size_t matches = 0;
  for (std::size_t i = 0; i < count; ++i) {
    matches += qvx::core::Matches(first[i], second[i]) ? 1 : 0;
  }
  return matches;
}

// Each way of laying the texts once, from its first pair on: a later start in the same way sees
// no more. Ways with too few pairs to beat the longest so far are left out.
template <typename T, typename Measure>
std::size_t BestOverlap(std::basic_string_view<T> first, std::basic_string_view<T> second,
                        Measure measure) {
  std::size_t best = 0;
  for (std::size_t i = 0; i + best < first.size(); ++i) {
    const std::size_t count = std::min(first.size() - i, second.size());
    best = std::max(best, measure(first.data() + i, second.data(), count));
  }
  for (std::size_t j = 1; j + best < second.size(); ++j) {
    const std::size_t count = std::min(first.size(), second.size() - j);
    best = std::max(best, measure(first.data(), second.data() + j, count));
  }
  return best;
}

template <typename T>
int MaxSameLength(const T* first, const T* second, int ignoreCase) {
  if (first == nullptr || second == nullptr) return 0;
  const auto measure = ignoreCase != 0 ? &CountMatches<T> : &LongestRun<T>;
  return static_cast<int>(BestOverlap<T>(first, second, measure));
}

}  // namespace

const char* MemFindChrA(const char* memory, char value, int count) {
  return FindCharacter(memory, value, count);
}

const WCHAR* MemFindChrW(const WCHAR* memory, WCHAR value, int count) {
  return FindCharacter(memory, value, count);
}

const char* MemFindBufA(const char* memory, int length, const char* pattern, int patternLength) {
  return FindBuffer(memory, length, pattern, patternLength);
}

const WCHAR* MemFindBufW(const WCHAR* memory, int length, const WCHAR* pattern, int patternLength) {
  return FindBuffer(memory, length, pattern, patternLength);
}

int CreateKMPPatternA(int* next, const char* pattern, int length) {
  return CreateTable<Case::kExact>(next, pattern, length);
}

int CreateKMPPatternW(int* next, const WCHAR* pattern, int length) {
  return CreateTable<Case::kExact>(next, pattern, length);
}

int CreateKMPPatternNoCaseA(int* next, const char* pattern, int length) {
  return CreateTable<Case::kIgnored>(next, pattern, length);
}

int CreateKMPPatternNoCaseW(int* next, const WCHAR* pattern, int length) {
  return CreateTable<Case::kIgnored>(next, pattern, length);
}

const char* BufFindPatternA(const char* text, int textLength, const char* pattern,
                            int patternLength, const int* next) {
  return FindByPattern<Case::kExact>(text, textLength, pattern, patternLength, next);
}

const WCHAR* BufFindPatternW(const WCHAR* text, int textLength, const WCHAR* pattern,
                             int patternLength, const int* next) {
  return FindByPattern<Case::kExact>(text, textLength, pattern, patternLength, next);
}

const char* BufFindPatternNoCaseA(const char* text, int textLength, const char* pattern,
                                  int patternLength, const int* next) {
  return FindByPattern<Case::kIgnored>(text, textLength, pattern, patternLength, next);
}

const WCHAR* BufFindPatternNoCaseW(const WCHAR* text, int textLength, const WCHAR* pattern,
                                   int patternLength, const int* next) {
  return FindByPattern<Case::kIgnored>(text, textLength, pattern, patternLength, next);
}

int StrMaxSameLengthA(const char* first, const char* second, int ignoreCase) {
  return MaxSameLength(first, second, ignoreCase);
}

int StrMaxSameLengthW(const WCHAR* first, const WCHAR* second, int ignoreCase) {
  return MaxSameLength(first, second, ignoreCase);
}
