#include "text/hex_codec.h"

#include <algorithm>

#include "platform/wide_dispatch.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "text/hex_codec.cpp"
#include <hwy/foreach_target.h>

#include <hwy/highway.h>

#ifndef QVX_TEXT_HEX_LOOPS
#define QVX_TEXT_HEX_LOOPS
namespace qvx::text {
namespace {

// The wide loops of one target. They do whole vectors and return how many bytes.
struct Loops {
  std::size_t (*encode8)(const std::uint8_t*, std::size_t, HexStyle, std::uint8_t*);
  std::size_t (*encode16)(const std::uint8_t*, std::size_t, HexStyle, std::uint16_t*);
  std::size_t (*decode8)(const std::uint8_t*, std::size_t, std::uint8_t*);
  std::size_t (*decode16)(const std::uint16_t*, std::size_t, std::uint8_t*);
};

}  // namespace
}  // namespace qvx::text
#endif

HWY_BEFORE_NAMESPACE();
namespace qvx::text {
namespace {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

template <class D>
hn::Vec<D> LoadBytes(D d, const std::uint8_t* data) {
  if constexpr (sizeof(hn::TFromD<D>) == 1) {
    return hn::LoadU(d, data);
  } else {
    return hn::PromoteTo(d, hn::LoadU(hn::Rebind<std::uint8_t, D>(), data));
  }
}

template <class D>
void StoreBytes(D d, hn::Vec<D> values, std::uint8_t* out) {
  if constexpr (sizeof(hn::TFromD<D>) == 1) {
    hn::StoreU(values, d, out);
  } else {
    const hn::Rebind<std::uint8_t, D> narrow;
    const hn::RebindToSigned<D> wide;
    hn::StoreU(hn::DemoteTo(narrow, hn::BitCast(wide, values)), narrow, out);
  }
}

// Digits for nibbles: above 9, the letters lie gap further on.
template <class D>
hn::Vec<D> ToDigits(D d, hn::Vec<D> nibbles, hn::Vec<D> gap) {
  using Lane = hn::TFromD<D>;
  const hn::RebindToSigned<D> sign;
  const auto nine = hn::Set(sign, 9);
  const auto above = hn::RebindMask(d, hn::Gt(hn::BitCast(sign, nibbles), nine));
  return hn::Add(hn::Add(nibbles, hn::Set(d, Lane{'0'})), hn::IfThenElseZero(above, gap));
}

// Encodes whole vectors; returns how many bytes.
template <typename Lane>
std::size_t Encode(const std::uint8_t* data, std::size_t size, HexStyle style, Lane* out) {
  const hn::ScalableTag<Lane> d;
  const std::size_t step = hn::Lanes(d);
  const auto gap = hn::Set(d, static_cast<Lane>((style.upper_case ? 'A' : 'a') - '0' - 10));
  const auto low = hn::Set(d, Lane{15});
  const auto blank = hn::Set(d, Lane{' '});
  std::size_t done = 0;
  for (; done + step <= size; done += step) {
    const auto bytes = LoadBytes(d, data + done);
    const auto first = ToDigits(d, hn::And(hn::ShiftRight<4>(bytes), low), gap);
    const auto second = ToDigits(d, hn::And(bytes, low), gap);
    if (style.spaced) {
      hn::StoreInterleaved3(first, second, blank, d, out + 3 * done);
    } else {
      hn::StoreInterleaved2(first, second, d, out + 2 * done);
    }
  }
  return done;
}

// The values of digits; clears clean where a character is none.
template <class D>
hn::Vec<D> FromDigits(D d, hn::Vec<D> characters, hn::Mask<D>& clean) {
  using Lane = hn::TFromD<D>;
  const auto number = hn::Sub(characters, hn::Set(d, Lane{'0'}));
  const auto is_number = hn::Eq(hn::Min(number, hn::Set(d, Lane{9})), number);
  const auto lower = hn::Or(characters, hn::Set(d, Lane{0x20}));
  const auto letter = hn::Sub(lower, hn::Set(d, Lane{'a'}));
  const auto is_letter = hn::Eq(hn::Min(letter, hn::Set(d, Lane{5})), letter);
  clean = hn::And(clean, hn::Or(is_number, is_letter));
  return hn::IfThenElse(is_number, number, hn::Add(letter, hn::Set(d, Lane{10})));
}

// Decodes whole vectors up to the first with a character that is no digit; returns how many
// pairs.
template <typename Lane>
std::size_t Decode(const Lane* text, std::size_t pairs, std::uint8_t* out) {
  const hn::ScalableTag<Lane> d;
  const std::size_t step = hn::Lanes(d);
  const auto all = hn::Eq(hn::Zero(d), hn::Zero(d));
  std::size_t done = 0;
  for (; done + step <= pairs; done += step) {
    hn::Vec<decltype(d)> first;
    hn::Vec<decltype(d)> second;
    hn::LoadInterleaved2(d, text + 2 * done, first, second);
    auto clean = all;
    const auto high = FromDigits(d, first, clean);
    const auto low = FromDigits(d, second, clean);
    if (!hn::AllTrue(d, clean)) break;
    StoreBytes(d, hn::Or(hn::ShiftLeft<4>(high), low), out + done);
  }
  return done;
}

inline constexpr Loops kLoops = {&Encode<std::uint8_t>, &Encode<std::uint16_t>,
                                 &Decode<std::uint8_t>, &Decode<std::uint16_t>};

}  // namespace HWY_NAMESPACE
}  // namespace
}  // namespace qvx::text
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qvx::text {
namespace {

const Loops& BestLoops() {
  return QVX_BEST_TARGET(kLoops);
}

std::size_t EncodeWide(const std::uint8_t* data, std::size_t size, HexStyle style, char* out) {
  return BestLoops().encode8(data, size, style, reinterpret_cast<std::uint8_t*>(out));
}

std::size_t EncodeWide(const std::uint8_t* data, std::size_t size, HexStyle style, WCHAR* out) {
  return BestLoops().encode16(data, size, style, reinterpret_cast<std::uint16_t*>(out));
}

std::size_t DecodeWide(const char* text, std::size_t pairs, std::uint8_t* out) {
  return BestLoops().decode8(reinterpret_cast<const std::uint8_t*>(text), pairs, out);
}

std::size_t DecodeWide(const WCHAR* text, std::size_t pairs, std::uint8_t* out) {
  return BestLoops().decode16(reinterpret_cast<const std::uint16_t*>(text), pairs, out);
}

template <typename T>
void EncodeAll(const std::uint8_t* data, std::size_t size, HexStyle style, T* out) {
  const std::size_t done = EncodeWide(data, size, style, out);
  EncodeHexPlain(data + done, size - done, style, out + done * style.Width());
}

// What stops the wide loop lies within the next vector; the plain one steps over it.
template <typename T>
void DecodeAll(const T* text, std::size_t pairs, std::uint8_t* out) {
  constexpr std::size_t kStep = 64;
  std::size_t done = 0;
  while (done < pairs) {
    done += DecodeWide(text + 2 * done, pairs - done, out + done);
    const std::size_t step = std::min(kStep, pairs - done);
    DecodeHexPlain(text + 2 * done, step, out + done);
    done += step;
  }
}

template <typename T>
std::uint8_t DecodePair(T first, T second) {
  const int high = HexDigit(first);
  if (high < 0) return 0;
  const int low = HexDigit(second);
  // This also makes 0x and 0X the byte 0.
  return static_cast<std::uint8_t>(low < 0 ? high : high * 16 + low);
}

}  // namespace

template <typename T>
void EncodeHexPlain(const std::uint8_t* data, std::size_t size, HexStyle style, T* out) {
  const char* digits = style.upper_case ? "0123456789ABCDEF" : "0123456789abcdef";
  for (std::size_t i = 0; i < size; ++i) {
    *out++ = static_cast<T>(digits[data[i] >> 4]);
    *out++ = static_cast<T>(digits[data[i] & 15]);
    if (style.spaced) *out++ = static_cast<T>(' ');
  }
}

template <typename T>
void DecodeHexPlain(const T* text, std::size_t pairs, std::uint8_t* out) {
  for (std::size_t i = 0; i < pairs; ++i) out[i] = DecodePair(text[2 * i], text[2 * i + 1]);
}

template void EncodeHexPlain(const std::uint8_t*, std::size_t, HexStyle, char*);
template void EncodeHexPlain(const std::uint8_t*, std::size_t, HexStyle, WCHAR*);
template void DecodeHexPlain(const char*, std::size_t, std::uint8_t*);
template void DecodeHexPlain(const WCHAR*, std::size_t, std::uint8_t*);

void EncodeHex(const std::uint8_t* data, std::size_t size, HexStyle style, char* out) {
  EncodeAll(data, size, style, out);
}

void EncodeHex(const std::uint8_t* data, std::size_t size, HexStyle style, WCHAR* out) {
  EncodeAll(data, size, style, out);
}

void DecodeHex(const char* text, std::size_t pairs, std::uint8_t* out) {
  DecodeAll(text, pairs, out);
}

void DecodeHex(const WCHAR* text, std::size_t pairs, std::uint8_t* out) {
  DecodeAll(text, pairs, out);
}

}  // namespace qvx::text
#endif  // HWY_ONCE
