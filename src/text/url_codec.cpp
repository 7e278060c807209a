#include "text/url_codec.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "platform/wide_dispatch.h"
#include "text/url_cursor.h"
#include "text/url_wide_512.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "text/url_codec.cpp"
#include <hwy/foreach_target.h>

#include <hwy/highway.h>

#ifndef QVX_TEXT_URL_LOOPS
#define QVX_TEXT_URL_LOOPS
namespace qvx::text {
namespace {

using Byte = std::uint8_t;
using Cursor = UrlCursor;

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

// Encodes all but the last three bytes, whose codes leave room for what each step writes too much.
HWY_INLINE void EncodeMost(Cursor& cursor) {
  for (; cursor.Left() > 3; ++cursor.text) {
    const std::uint32_t code = kCodes[*cursor.text];
    std::memcpy(cursor.out, &code, sizeof(code));
    cursor.out += code >> 24;
  }
}

inline std::size_t CountEscapesPlain(const Byte* text, std::size_t size) {
  return size - static_cast<std::size_t>(std::count_if(text, text + size, IsPlain));
}

// The bits 0, 3, 6 and so on, where a vector of nothing but escapes has their beginnings.
constexpr std::uint64_t kEveryThird = 0x9249249249249249;

constexpr std::uint64_t LowBits(std::size_t count) {
  return (std::uint64_t{1} << count) - 1;
}

// By half of a character: the kinds of digits that it may belong to, and what the low half of a
// letter lacks to its value.
alignas(16) constexpr Byte kKindsOfHigh[16] = {0, 0, 0, 1, 2, 0, 2};
alignas(16) constexpr Byte kKindsOfLow[16] = {1, 3, 3, 3, 3, 3, 3, 1, 1, 1};
alignas(16) constexpr Byte kLetterGap[16] = {0, 0, 0, 0, 9, 0, 9};

// Four times a percent sign.
constexpr std::uint32_t kPercents = 0x25252525;

// Where the codes of four bytes are to be taken from, for one choice of those that are escaped:
// 0 to 3 the bytes, 4 to 7 their high digits, 8 to 11 their low ones, then percent signs.
struct GroupOrder {
  alignas(16) std::array<Byte, 16> places{};
  std::size_t length = 0;
};

constexpr std::array<GroupOrder, 16> MakeGroupOrders() {
  std::array<GroupOrder, 16> orders{};
  for (std::size_t escapes = 0; escapes < orders.size(); ++escapes) {
    GroupOrder& order = orders[escapes];
    for (Byte place = 0; place < 4; ++place) {
      if ((escapes >> place & 1) == 0) {
        order.places[order.length++] = place;
        continue;
      }
      for (const int part : {12, 4, 8}) {
        order.places[order.length++] = static_cast<Byte>(part + place);
      }
    }
  }
  return orders;
}

constexpr std::array<GroupOrder, 16> kGroupOrders = MakeGroupOrders();

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

HWY_INLINE std::uint64_t Bits(hn::Mask<D> mask) {
  std::uint64_t bits = 0;
  hn::StoreMaskBits(D(), mask, reinterpret_cast<Byte*>(&bits));
  return bits;
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

// Encodes a vector that holds many escapes, four bytes at a time. A step writes up to twelve bytes
// too much, for which the codes of the next vector leave room.
HWY_INLINE void EncodeMany(Cursor& cursor, V bytes, std::uint64_t escapes) {
  const D d;
  const hn::Repartition<std::uint32_t, D> fours;
  const hn::CappedTag<Byte, 16> group;
  const std::size_t step = hn::Lanes(d);
  const V high = UpperDigits(hn::ShiftRight<4>(bytes));
  const V low = UpperDigits(hn::And(bytes, hn::Set(d, Byte{15})));
  HWY_ALIGN std::uint32_t groups[4 * hn::MaxLanes(fours)];
  hn::StoreInterleaved4(hn::BitCast(fours, Replace(bytes, ' ', '+')), hn::BitCast(fours, high),
                        hn::BitCast(fours, low), hn::Set(fours, kPercents), fours, groups);
  for (std::size_t i = 0; i < step; i += 4, escapes >>= 4) {
    const GroupOrder& order = kGroupOrders[escapes & 15];
    const auto parts = hn::Load(group, reinterpret_cast<const Byte*>(groups + i));
    const auto places = hn::Load(group, order.places.data());
    hn::StoreU(hn::TableLookupBytes(parts, places), group, cursor.out);
    cursor.out += order.length;
  }
  cursor.text += step;
}

void Encode(Cursor& progress) {
  constexpr int kFew = 5;
  Cursor cursor = progress;
  const D d;
  const std::size_t step = hn::Lanes(d);
  while (cursor.Left() >= 2 * step) {
    const V bytes = hn::LoadU(d, cursor.text);
    const std::uint64_t escapes = Bits(Plain(bytes)) ^ LowBits(step);
    if (std::popcount(escapes) <= kFew) {
      EncodeFew(cursor, bytes, escapes);
    } else {
      EncodeMany(cursor, bytes, escapes);
    }
  }
  EncodeMost(cursor);
  progress = cursor;
}

// The values of digits; clean becomes 0 where a character is none. Each half of a character
// tells the kinds of digits that it belongs to, 1 decimal and 2 letter; both must agree on one.
HWY_INLINE V FromDigits(V characters, V& clean) {
  const D d;
  const V low = hn::And(characters, hn::Set(d, Byte{15}));
  const V high = hn::ShiftRight<4>(characters);
  const V kinds = hn::TableLookupBytes(hn::LoadDup128(d, kKindsOfHigh), high);
  const V agreed = hn::And(kinds, hn::TableLookupBytes(hn::LoadDup128(d, kKindsOfLow), low));
  clean = hn::Min(clean, agreed);
  return hn::Add(low, hn::TableLookupBytes(hn::LoadDup128(d, kLetterGap), high));
}

HWY_INLINE V JoinDigits(V high, V low) {
  const hn::Repartition<std::uint16_t, D> pairs;  // no bit of a digit leaves its byte
  return hn::Or(hn::BitCast(D(), hn::ShiftLeft<4>(hn::BitCast(pairs, high))), low);
}

// Decodes a vector of escapes, if there is one at the cursor.
HWY_INLINE bool DecodeRow(Cursor& cursor) {
  const D d;
  const std::size_t step = hn::Lanes(d);
  if (cursor.Left() < 3 * step) return false;
  V percent;
  V high;
  V low;
  hn::LoadInterleaved3(d, cursor.text, percent, high, low);
  V clean = hn::Set(d, Byte{0xFF});
  const V first = FromDigits(high, clean);
  const V second = FromDigits(low, clean);
  if (!hn::AllTrue(d,
                   hn::And(hn::Ne(clean, hn::Zero(d)), hn::Eq(percent, hn::Set(d, Byte{'%'}))))) {
    return false;
  }
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

// Decodes a vector with escapes among other bytes; false where one is not well formed. Digits that
// lie behind the vector are read there and left for the next one to leave out: their bits pass
// from one call to the next in done, which begins at the cursor.
HWY_INLINE bool DecodeMixed(Cursor& cursor, V bytes, hn::Mask<D> escapes, std::uint64_t starts,
                            std::uint64_t& done) {
  const D d;
  const std::size_t step = hn::Lanes(d);
  V clean = hn::Set(d, Byte{0xFF});
  const V high = FromDigits(hn::LoadU(d, cursor.text + 1), clean);
  const V low = FromDigits(hn::LoadU(d, cursor.text + 2), clean);
  if (!hn::AllFalse(d, hn::And(escapes, hn::Eq(clean, hn::Zero(d))))) return false;
  const V decoded = hn::IfThenElse(escapes, JoinDigits(high, low), Replace(bytes, '+', ' '));
  HWY_ALIGN Byte values[hn::MaxLanes(d)];
  hn::Store(decoded, d, values);
  const std::uint64_t digits = done | starts << 1 | starts << 2;
  cursor.out = StoreKept(values, ~digits, step, cursor.out);
  cursor.text += step;
  done = digits >> step;
  return true;
}

// Decodes all but what is left when less than a vector and the digits behind it remain.
void Decode(Cursor& progress) {
  const D d;
  const std::size_t step = hn::Lanes(d);
  const std::uint64_t nothing_else = kEveryThird & LowBits(step);
  Cursor cursor = progress;
  std::uint64_t done = 0;
  while (cursor.Left() >= step + 2) {
    const V bytes = hn::LoadU(d, cursor.text);
    const auto escapes = hn::Eq(bytes, hn::Set(d, Byte{'%'}));
    const std::uint64_t starts = Bits(escapes);
    if ((starts | done) == 0) {
      hn::StoreU(Replace(bytes, '+', ' '), d, cursor.out);
      cursor.text += step;
      cursor.out += step;
    } else if (starts == nothing_else && DecodeRow(cursor)) {
      continue;
    } else if (!DecodeMixed(cursor, bytes, escapes, starts, done)) {
      SkipDone(cursor, done);
      DecodeSome(cursor, step);
    }
  }
  SkipDone(cursor, done);
  progress = cursor;
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

void DecodeMost(Cursor& cursor) {
  if (platform::WidestVectors() == platform::Vectors::kAvx512) {
    DecodeUrl512(cursor);
  } else {
    BestLoops().decode(cursor);
  }
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
  DecodeMost(cursor);
  return DecodeUrlPlain(cursor.text, cursor.Left(), cursor.out);
}

std::uint8_t* DecodeUrlPlain(const std::uint8_t* text, std::size_t size, std::uint8_t* out) {
  Cursor cursor{text, text + size, out};
  DecodeAll(cursor);
  return cursor.out;
}

}  // namespace qvx::text
#endif  // HWY_ONCE
