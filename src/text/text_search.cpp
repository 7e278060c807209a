#include "qvx/text_search.h"

#include <string_view>

#include "text/text_length.h"

namespace {

template <typename T>
const T* FindCharacter(const T* memory, T value, int count) {
  if (memory == nullptr || count < 1) return nullptr;
  const std::basic_string_view<T> text(memory, static_cast<std::size_t>(count));
  const std::size_t place = text.find(value);
  return place != text.npos ? memory + place : nullptr;
}

const char* FindBytes(const void* memory, std::size_t size, const void* pattern,
                      std::size_t patternSize) {
  const std::string_view text(static_cast<const char*>(memory), size);
  const std::size_t place = text.find({static_cast<const char*>(pattern), patternSize});
  return place != text.npos ? text.data() + place : nullptr;
}

template <typename T>
const T* FindBuffer(const T* memory, int length, const T* pattern, int patternLength) {
  if (memory == nullptr || pattern == nullptr) return nullptr;
  const std::size_t size = qvx::text::Length(memory, length) * sizeof(T);
  const std::size_t patternSize = qvx::text::Length(pattern, patternLength) * sizeof(T);
  return reinterpret_cast<const T*>(FindBytes(memory, size, pattern, patternSize));
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
