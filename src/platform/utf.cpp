#include "platform/utf.h"

#include <cstdint>
#include <cstring>

namespace qvx::platform {
namespace {

constexpr Decoded kMalformed = {kReplacement, 1, false};

// Value range of a sequence of 2, 3 or 4 bytes; below it a shorter one would have done.
constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};

int SequenceLength(unsigned char lead) {
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  return 0;
}

template <typename Word, typename Unit>
std::size_t PrefixWithout(std::basic_string_view<Unit> text, Word mask) {
  constexpr std::size_t kStep = sizeof(Word) / sizeof(Unit);
  std::size_t index = 0;
  for (; index + kStep <= text.size(); index += kStep) {
    Word word;
    std::memcpy(&word, text.data() + index, sizeof(word));
    if ((word & mask) != 0) break;
  }
  while (index < text.size() && static_cast<std::uint16_t>(text[index]) < 0x80) ++index;
  return index;
}

}  // namespace

Decoded DecodeUtf8(std::string_view text) noexcept {
  const auto lead = static_cast<unsigned char>(text[0]);
  if (lead < 0x80) return {lead, 1, true};
  const int length = SequenceLength(lead);
  if (length == 0 || text.size() < static_cast<std::size_t>(length)) return kMalformed;
  char32_t character = lead & (0x7Fu >> length);
  for (int i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[static_cast<std::size_t>(i)]);
    if ((next & 0xC0) != 0x80) return kMalformed;
    character = (character << 6) | (next & 0x3Fu);
  }
  const bool surrogate = IsHighSurrogate(character) || IsLowSurrogate(character);
  if (character < kSmallest[length] || surrogate || character > 0x10FFFF) return kMalformed;
  return {character, length, true};
}

char* EncodeUtf8(char32_t character, char* out) noexcept {
  const int size = Utf8Size(character);
  if (size == 1) {
    *out = static_cast<char>(character);
    return out + 1;
  }
  for (int i = size - 1; i > 0; --i) {
    out[i] = static_cast<char>(0x80 | (character & 0x3F));
    character >>= 6;
  }
  *out = static_cast<char>((0xF00u >> size) | character);
  return out + size;
}

char16_t* EncodeUtf16(char32_t character, char16_t* out) noexcept {
  if (character < 0x10000) {
    *out = static_cast<char16_t>(character);
    return out + 1;
  }
  character -= 0x10000;
  out[0] = static_cast<char16_t>(0xD800 + (character >> 10));
  out[1] = static_cast<char16_t>(0xDC00 + (character & 0x3FF));
  return out + 2;
}

std::size_t AsciiPrefix(std::string_view text) noexcept {
  return PrefixWithout<std::uint64_t>(text, 0x8080808080808080u);
}

std::size_t AsciiPrefix(std::u16string_view text) noexcept {
  return PrefixWithout<std::uint64_t>(text, 0xFF80FF80FF80FF80u);
}

}  // namespace qvx::platform
