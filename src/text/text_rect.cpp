// Rectangles out of text, and the place of a text box in one.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "qvx/string_split.h"
#include "text/field_splitter.h"
#include "text/read_number.h"

using qvx::text::CharacterSet;

namespace {

enum Direct { kCentredAcross = 1, kRight = 2, kCentredDown = 4, kBottom = 8 };

// Arithmetic of 32 bits that wraps around.
std::int32_t Sum(std::int32_t left, std::int32_t right) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(left) +
                                   static_cast<std::uint32_t>(right));
}

// From begin to end on one axis.
struct Span {
  std::int64_t begin;
  std::int64_t end;
};

Span PlaceSpan(Span area, std::int64_t size, bool centred, bool flush_end) {
  if (centred) {
    const std::int64_t begin = area.begin + (area.end - area.begin - size) / 2;
    return {begin, begin + size};
  }
  if (flush_end) return {area.end - size, area.end};
  return {area.begin, area.begin + size};
}

std::int32_t Cut(std::int64_t value) {
  return static_cast<std::int32_t>(value);
}

}  // namespace

int ParseRectFromString(const char* text, RECT* rect) {
  constexpr std::size_t kLooked = 31;
  if (text == nullptr || rect == nullptr) return 0;
  std::size_t length = 0;
  while (length < kLooked && text[length] != '\0') ++length;
  const std::string_view looked(text, length);
  std::array<std::int32_t, 4> numbers{};
  std::size_t count = 0;
  qvx::text::SplitAtCharacters(looked, CharacterSet<char>(","), {true, 0, 0},
                               [&](std::size_t start, std::size_t end) {
                                 if (count == numbers.size()) return;
                                 const std::string_view field = looked.substr(start, end - start);
                                 numbers[count++] = qvx::text::ReadInteger(field);
                               });
  *rect = RECT{};
  if (count < numbers.size()) return 0;
  *rect = {numbers[0], numbers[1], Sum(numbers[0], numbers[2]), Sum(numbers[1], numbers[3])};
  return 1;
}

RECT* GetTextRectByDirect(const RECT* area, int width, int height, char direct, RECT* out) {
  if (area == nullptr || out == nullptr) return nullptr;
  const Span across = {area->left, area->right};
  const Span down = {area->top, area->bottom};
  Span x = PlaceSpan(across, width, (direct & kCentredAcross) != 0, (direct & kRight) != 0);
  Span y = PlaceSpan(down, height, (direct & kCentredDown) != 0, (direct & kBottom) != 0);
  x.end = std::min(x.end, across.end);
  x.begin = std::min(std::max(x.begin, across.begin), x.end);
  y.end = std::min(y.end, down.end);
  y.begin = std::min(std::max(y.begin, down.begin), y.end);
  *out = {Cut(x.begin), Cut(y.begin), Cut(x.end), Cut(y.end)};
  return out;
}
