#include "text/url_codec.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "platform/processor.h"
#include "text/hex_codec.h"
#include "text/read_number.h"

// Chosen and dispatched as in hex_codec.cpp.
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_SSE4 | HWY_AVX3 | HWY_AVX3_DL)
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "text/url_codec.cpp"
#include <hwy/foreach_target.h>

#include <hwy/highway.h>

#ifndef QVX_TEXT_URL_LOOPS
#define QVX_TEXT_URL_LOOPS
namespace qvx::text {
namespace {

using Byte = std::uint8_t;

// How far a loop has come.
struct Cursor {
  const Byte* text;
  const Byte* end;
  Byte* out;

  std::size_t Left() const { return static_cast<std::size_t>(end - text); }
};

struct Loops {
  std::size_t (*count_escapes)(const Byte*, std::size_t);
  void (*encode)(Cursor&);
  void (*decode)(Cursor&);
};

constexpr bool IsPlain(Byte byte) {
  const int lower = byte | 0x20;
  return (byte >= '.' && byte <= '9') || (lower >= 'a' && lower <= 'z' && byte < 0x80) ||
         byte == ' ';
}

// The code of a byte in the low three bytes, as they lie in memory, and its length in the high
// one.
constexpr std::uint32_t CodeOf(Byte byte) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  if (byte == ' ') return 1u << 24 | '+';
  if (IsPlain(byte)) return 1u << 24 | byte;
  const auto high = static_cast<std::uint32_t>(kDigits[byte >> 4]);
  const auto low = static_cast<std::uint32_t>(kDigits[byte & 15]);
  return 3u << 24 | low << 16 | high << 8 | '%';
}

constexpr std::array<std::uint32_t, 256> MakeCodes() {
  std::array<std::uint32_t, 256> codes{};
  for (std::size_t i = 0; i < codes.size(); ++i) codes[i] = CodeOf(static_cast<Byte>(i));
  return codes;
}

constexpr std::array<std::uint32_t, 256> kCodes = MakeCodes();
static_assert(std::endian::native == std::endian::little);

// Encodes count bytes, behind which at least three more are left: their codes leave room for the
// byte too much that each step writes.
HWY_INLINE void EncodeEach(Cursor& cursor, std::size_t count) {
  for (const Byte* last = cursor.text + count; cursor.text != last; ++cursor.text) {
    const std::uint32_t code = kCodes[*cursor.text];
    std::memcpy(cursor.out, &code, sizeof(code));
    cursor.out += code >> 24;
  }
}

// What strtoul reads from two characters to base 16.
inline Byte DecodePair(Byte first, Byte second) {
  const int high = HexDigit(first);
  const int low = HexDigit(second);
  if (high >= 0) return static_cast<Byte>(low < 0 ? high : high * 16 + low);
  if (low < 0) return 0;
  if (first == '-') return static_cast<Byte>(-low);
  return static_cast<Byte>(first == '+' || IsBlank(first) ? low : 0);
}

// Decodes the escape at the cursor, or ends the text if it has no two characters.
inline void DecodeEscape(Cursor& cursor) {
  if (cursor.Left() < 3) {
    cursor.text = cursor.end;
    return;
  }
  *cursor.out++ = DecodePair(cursor.text[1], cursor.text[2]);
  cursor.text += 3;
}

}  // namespace
}  // namespace qvx::text
#endif

HWY_BEFORE_NAMESPACE();
namespace qvx::text {
namespace {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;
using D = hn::ScalableTag<Byte>;
using V = hn::Vec<D>;

// Whether each byte lies in the range from first on.
HWY_INLINE hn::Mask<D> InRange(V bytes, Byte first, Byte last) {
  const D d;
  const V distance = hn::Sub(bytes, hn::Set(d, first));
  return hn::Eq(hn::Min(distance, hn::Set(d, static_cast<Byte>(last - first))), distance);
}

HWY_INLINE hn::Mask<D> Plain(V bytes) {
  const D d;
  const auto letters = InRange(hn::Or(bytes, hn::Set(d, Byte{0x20})), 'a', 'z');
  const auto blank = hn::Eq(bytes, hn::Set(d, Byte{' '}));
  return hn::Or(hn::Or(letters, InRange(bytes, '.', '9')), blank);
}

HWY_INLINE V Replace(V bytes, Byte from, Byte to) {
  const D d;
  return hn::IfThenElse(hn::Eq(bytes, hn::Set(d, from)), hn::Set(d, to), bytes);
}

HWY_INLINE V UpperDigits(V nibbles) {
  const D d;
  const auto letter = hn::VecFromMask(d, InRange(nibbles, 10, 15));
  const V gap = hn::And(letter, hn::Set(d, Byte{'A' - '0' - 10}));
  return hn::Add(hn::Add(nibbles, hn::Set(d, Byte{'0'})), gap);
}

std::size_t CountEscapes(const Byte* text, std::size_t size) {
  const D d;
  const std::size_t step = hn::Lanes(d);
  std::size_t count = 0;
  std::size_t done = 0;
  for (; done + step <= size; done += step) {
    count += step - hn::CountTrue(d, Plain(hn::LoadU(d, text + done)));
  }
  for (; done < size; ++done) count += IsPlain(text[done]) ? 0 : 1;
  return count;
}

// Encodes all but the last vector or less.
void Encode(Cursor& cursor) {
  const D d;
  const std::size_t step = hn::Lanes(d);
  while (cursor.Left() >= step + 3) {
    const V bytes = hn::LoadU(d, cursor.text);
    const auto plain = Plain(bytes);
    if (hn::AllTrue(d, plain)) {
      hn::StoreU(Replace(bytes, ' ', '+'), d, cursor.out);
      cursor.text += step;
      cursor.out += step;
    } else if (hn::AllFalse(d, plain)) {
      const V high = UpperDigits(hn::ShiftRight<4>(bytes));
      const V low = UpperDigits(hn::And(bytes, hn::Set(d, Byte{15})));
      hn::StoreInterleaved3(hn::Set(d, Byte{'%'}), high, low, d, cursor.out);
      cursor.text += step;
      cursor.out += 3 * step;
    } else {
      EncodeEach(cursor, step);
    }
  }
}

// Decodes all but the last vector or less.
void Decode(Cursor& cursor) {
  const D d;
  const std::size_t step = hn::Lanes(d);
  while (cursor.Left() >= step) {
    const V bytes = hn::LoadU(d, cursor.text);
    hn::StoreU(Replace(bytes, '+', ' '), d, cursor.out);
    const auto escapes = hn::Eq(bytes, hn::Set(d, Byte{'%'}));
    if (hn::AllFalse(d, escapes)) {
      cursor.text += step;
      cursor.out += step;
      continue;
    }
    const std::size_t before = hn::FindKnownFirstTrue(d, escapes);
    cursor.text += before;
    cursor.out += before;
    while (cursor.Left() > 0 && *cursor.text == '%') DecodeEscape(cursor);
  }
}

inline constexpr Loops kLoops = {&CountEscapes, &Encode, &Decode};

}  // namespace HWY_NAMESPACE
}  // namespace
}  // namespace qvx::text
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qvx::text {
namespace {

const Loops& BestLoops() {
#if HWY_TARGETS & HWY_AVX2 && HWY_STATIC_TARGET != HWY_AVX2
  if (platform::HasAvx2()) return N_AVX2::kLoops;
#endif
  return HWY_STATIC_DISPATCH(kLoops);
}

}  // namespace

std::size_t EncodedUrlSize(const std::uint8_t* text, std::size_t size) {
  return size + 2 * BestLoops().count_escapes(text, size);
}

std::uint8_t* EncodeUrl(const std::uint8_t* text, std::size_t size, std::uint8_t* out) {
  Cursor cursor{text, text + size, out};
  BestLoops().encode(cursor);
  return EncodeUrlPlain(cursor.text, cursor.Left(), cursor.out);
}

std::uint8_t* EncodeUrlPlain(const std::uint8_t* text, std::size_t size, std::uint8_t* out) {
  for (std::size_t i = 0; i < size; ++i) {
    std::uint32_t code = kCodes[text[i]];
    for (std::uint32_t length = code >> 24; length > 0; --length, code >>= 8) {
      *out++ = static_cast<std::uint8_t>(code);
    }
  }
  return out;
}

std::uint8_t* DecodeUrl(const std::uint8_t* text, std::size_t size, std::uint8_t* out) {
  Cursor cursor{text, text + size, out};
  BestLoops().decode(cursor);
  return DecodeUrlPlain(cursor.text, cursor.Left(), cursor.out);
}

std::uint8_t* DecodeUrlPlain(const std::uint8_t* text, std::size_t size, std::uint8_t* out) {
  Cursor cursor{text, text + size, out};
  while (cursor.Left() > 0) {
    if (*cursor.text == '%') {
      DecodeEscape(cursor);
    } else {
      const Byte byte = *cursor.text++;
      *cursor.out++ = byte == '+' ? Byte{' '} : byte;
    }
  }
  return cursor.out;
}

}  // namespace qvx::text
#endif  // HWY_ONCE
