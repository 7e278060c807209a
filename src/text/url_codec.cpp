#include "text/url_codec.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "platform/wide_dispatch.h"
#include "text/hex_codec.h"
#include "text/read_number.h"

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

// All but the last few bytes.
inline void EncodeMost(Cursor& cursor) {
  if (cursor.Left() > 3) EncodeEach(cursor, cursor.Left() - 3);
}

inline std::size_t CountEscapesPlain(const Byte* text, std::size_t size) {
  return size - static_cast<std::size_t>(std::count_if(text, text + size, IsPlain));
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

// Decodes until count bytes of the text are done, or as few more as the last escape needs.
inline void DecodeSome(Cursor& cursor, std::size_t count) {
  const Byte* last = cursor.text + count;
  while (cursor.text < last) {
    if (*cursor.text == '%') {
      DecodeEscape(cursor);
    } else {
      const Byte byte = *cursor.text++;
      *cursor.out++ = byte == '+' ? Byte{' '} : byte;
    }
  }
}

// For each choice of eight places, those chosen, one after the other.
constexpr std::array<std::array<Byte, 8>, 256> MakeOrders() {
  std::array<std::array<Byte, 8>, 256> orders{};
  for (std::size_t choice = 0; choice < orders.size(); ++choice) {
    std::size_t count = 0;
    for (std::size_t place = 0; place < 8; ++place) {
      if ((choice >> place & 1) != 0) orders[choice][count++] = static_cast<Byte>(place);
    }
  }
  return orders;
}

constexpr std::array<std::array<Byte, 8>, 256> kOrders = MakeOrders();

}  // namespace
}  // namespace qvx::text
#endif

HWY_BEFORE_NAMESPACE();
namespace qvx::text {
namespace {
namespace HWY_NAMESPACE {
#if !QVX_WIDE_IS_EMULATED

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
  return count + CountEscapesPlain(text + done, size - done);
}

// Encodes a vector that holds few escapes: the bytes behind each one are moved along with it, a
// vector at a time, over what the step before has written there.
HWY_INLINE void EncodeFew(Cursor& cursor, V bytes, std::uint64_t escapes) {
  const D d;
  const std::size_t step = hn::Lanes(d);
  Byte* out = cursor.out;
  hn::StoreU(Replace(bytes, ' ', '+'), d, out);
  for (; escapes != 0; escapes &= escapes - 1, out += 2) {
    const auto place = static_cast<std::size_t>(std::countr_zero(escapes));
    const V behind = hn::LoadU(d, cursor.text + place + 1);
    const std::uint32_t code = kCodes[cursor.text[place]];
    std::memcpy(out + place, &code, sizeof(code));
    hn::StoreU(Replace(behind, ' ', '+'), d, out + place + 3);
  }
  cursor.text += step;
  cursor.out = out + step;
}

HWY_INLINE void EncodeRow(Cursor& cursor, V bytes) {
  const D d;
  const V high = UpperDigits(hn::ShiftRight<4>(bytes));
  const V low = UpperDigits(hn::And(bytes, hn::Set(d, Byte{15})));
  hn::StoreInterleaved3(hn::Set(d, Byte{'%'}), high, low, d, cursor.out);
  cursor.text += hn::Lanes(d);
  cursor.out += 3 * hn::Lanes(d);
}

void Encode(Cursor& cursor) {
  constexpr int kFew = 5;
  const D d;
  const std::size_t step = hn::Lanes(d);
  const std::uint64_t all = (std::uint64_t{1} << step) - 1;
  while (cursor.Left() >= 2 * step) {
    const V bytes = hn::LoadU(d, cursor.text);
    std::uint64_t escapes = 0;
    hn::StoreMaskBits(d, Plain(bytes), reinterpret_cast<Byte*>(&escapes));
    escapes ^= all;
    if (std::popcount(escapes) <= kFew) {
      EncodeFew(cursor, bytes, escapes);
    } else if (escapes == all) {
      EncodeRow(cursor, bytes);
    } else {
      EncodeEach(cursor, step);
    }
  }
  EncodeMost(cursor);
}

// The values of digits; clears clean where a character is none.
HWY_INLINE V FromDigits(V characters, hn::Mask<D>& clean) {
  const D d;
  const V letters = hn::Or(characters, hn::Set(d, Byte{0x20}));
  const auto is_letter = InRange(letters, 'a', 'f');
  clean = hn::And(clean, hn::Or(InRange(characters, '0', '9'), is_letter));
  const V nine = hn::IfThenElseZero(is_letter, hn::Set(d, Byte{9}));
  return hn::Add(hn::And(characters, hn::Set(d, Byte{15})), nine);
}

HWY_INLINE V JoinDigits(V high, V low) {
  return hn::Or(hn::ShiftLeft<4>(high), low);
}

// Decodes a vector of escapes, if there is one at the cursor.
HWY_INLINE bool DecodeRow(Cursor& cursor) {
  const D d;
  const std::size_t step = hn::Lanes(d);
  if (cursor.Left() < 3 * step || cursor.text[3] != '%' || cursor.text[6] != '%') return false;
  V percent;
  V high;
  V low;
  hn::LoadInterleaved3(d, cursor.text, percent, high, low);
  auto clean = hn::Eq(percent, hn::Set(d, Byte{'%'}));
  const V first = FromDigits(high, clean);
  const V second = FromDigits(low, clean);
  if (!hn::AllTrue(d, clean)) return false;
  hn::StoreU(JoinDigits(first, second), d, cursor.out);
  cursor.text += 3 * step;
  cursor.out += step;
  return true;
}

// Moves the bytes whose bits are set to the front, eight by eight.
HWY_INLINE Byte* StoreKept(const Byte* bytes, std::uint64_t keep, std::size_t count, Byte* out) {
  const hn::CappedTag<Byte, 8> eight;
  for (std::size_t i = 0; i < count; i += 8, keep >>= 8) {
    const auto order = hn::LoadU(eight, kOrders[keep & 0xFF].data());
    hn::StoreU(hn::TableLookupBytes(hn::LoadU(eight, bytes + i), order), eight, out);
    out += std::popcount(keep & 0xFF);
  }
  return out;
}

// Decodes a vector with escapes among other bytes; false where one is not well formed. Both
// digits of an escape in the last places lie behind the vector.
HWY_INLINE bool DecodeMixed(Cursor& cursor, V bytes, hn::Mask<D> escapes) {
  const D d;
  const std::size_t step = hn::Lanes(d);
  auto clean = hn::Eq(bytes, bytes);
  const V high = FromDigits(hn::LoadU(d, cursor.text + 1), clean);
  const V low = FromDigits(hn::LoadU(d, cursor.text + 2), clean);
  if (!hn::AllFalse(d, hn::AndNot(clean, escapes))) return false;
  const V decoded = hn::IfThenElse(escapes, JoinDigits(high, low), Replace(bytes, '+', ' '));
  HWY_ALIGN Byte values[hn::MaxLanes(d)];
  hn::Store(decoded, d, values);
  std::uint64_t starts = 0;
  hn::StoreMaskBits(d, escapes, reinterpret_cast<Byte*>(&starts));
  const std::uint64_t digits = starts << 1 | starts << 2;
  cursor.out = StoreKept(values, ~digits, step, cursor.out);
  cursor.text += step + static_cast<std::size_t>(std::popcount(digits >> step));
  return true;
}

// Decodes all but what is left when less than a vector and the digits behind it remain.
void Decode(Cursor& cursor) {
  const D d;
  const std::size_t step = hn::Lanes(d);
  while (cursor.Left() >= step + 2) {
    const V bytes = hn::LoadU(d, cursor.text);
    const auto escapes = hn::Eq(bytes, hn::Set(d, Byte{'%'}));
    if (hn::AllFalse(d, escapes)) {
      hn::StoreU(Replace(bytes, '+', ' '), d, cursor.out);
      cursor.text += step;
      cursor.out += step;
    } else if (*cursor.text == '%' && DecodeRow(cursor)) {
      continue;
    } else if (!DecodeMixed(cursor, bytes, escapes)) {
      DecodeSome(cursor, step);
    }
  }
}

inline constexpr Loops kLoops = {&CountEscapes, &Encode, &Decode};

#endif  // !QVX_WIDE_IS_EMULATED
}  // namespace HWY_NAMESPACE
}  // namespace
}  // namespace qvx::text
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qvx::text {
namespace {

void DecodeAll(Cursor& cursor) {
  DecodeSome(cursor, cursor.Left());
}

constexpr Loops kPlainLoops = {&CountEscapesPlain, &EncodeMost, &DecodeAll};

const Loops& BestLoops() {
  return QVX_BEST_TARGET_OR(kLoops, kPlainLoops);
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
  DecodeAll(cursor);
  return cursor.out;
}

}  // namespace qvx::text
#endif  // HWY_ONCE
