#include "imaging/buffer_draw_rows.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "platform/wide_dispatch.h"

// A debug build's checks of indices would need the Highway library, which is not loaded.
#include <hwy/base.h>
#undef HWY_DASSERT
#define HWY_DASSERT(condition)

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "imaging/buffer_draw_rows.cpp"
#include <hwy/foreach_target.h>

#include <hwy/highway.h>

#ifndef QVX_IMAGING_DRAW_LOOPS
#define QVX_IMAGING_DRAW_LOOPS
namespace qvx::imaging {
namespace {

constexpr std::uint32_t kColours = 0xFFFFFF;

// 1/255, to the digits that the blend is defined with.
constexpr double kOne255th = 0.00392156862745098;

// The loops of one target.
struct Loops {
  void (*fill)(std::uint8_t*, std::size_t, std::uint32_t);
  void (*tint)(std::uint8_t*, const std::uint8_t*, std::size_t, std::uint32_t);
  void (*blend_exact)(std::uint8_t*, const std::uint8_t*, std::size_t);
  void (*blend)(std::uint8_t*, const std::uint8_t*, std::size_t);
  void (*stamp)(std::uint8_t*, const std::uint8_t*, std::size_t, std::uint8_t);
  void (*pick)(std::uint8_t*, const std::uint8_t*, const PickPlan&);
  PickWay (*pick_way)(const PickPlan&);
};

// The rest of a row, or all of one that no vector serves.
void PickEach(std::uint8_t* dst, const std::uint8_t* src, const PickPlan& plan, std::size_t done) {
  for (; done < plan.count; ++done) {
    std::memcpy(dst + 4 * done, src + std::size_t{plan.places[done]} * 4, 4);
  }
}

}  // namespace
}  // namespace qvx::imaging
#endif

HWY_BEFORE_NAMESPACE();
namespace qvx::imaging {
namespace {
namespace HWY_NAMESPACE {
#if !QVX_WIDE_IS_EMULATED

namespace hn = hwy::HWY_NAMESPACE;

using D32 = hn::ScalableTag<std::uint32_t>;
using V32 = hn::Vec<D32>;
using DFloat = hn::Rebind<float, D32>;
using DInt = hn::RebindToSigned<D32>;
using D16 = hn::Repartition<std::uint16_t, D32>;
using D8 = hn::Repartition<std::uint8_t, D32>;

V32 LoadPixels(const std::uint8_t* data) {
  return hn::BitCast(D32(), hn::LoadU(D8(), data));
}

void StorePixels(V32 pixels, std::uint8_t* out) {
  hn::StoreU(hn::BitCast(D8(), pixels), D8(), out);
}

// Four vectors at a time to aligned addresses, where that serves.
void Fill(std::uint8_t* dst, std::size_t count, std::uint32_t color) {
  constexpr std::size_t kTurn = 4;
  const D8 d8;
  const std::size_t step = hn::Lanes(d8);
  const std::size_t size = 4 * count;
  if (size < 2 * kTurn * step) return FillRowPlain(dst, count, color);
  StorePixels(hn::Set(D32(), color), dst);
  std::size_t done = step - reinterpret_cast<std::uintptr_t>(dst) % step;
  const auto turned = static_cast<int>(done % 4 * 8);
  const auto bytes = hn::BitCast(d8, hn::Set(D32(), std::rotr(color, turned)));
  for (; done + kTurn * step <= size; done += kTurn * step) {
    for (std::size_t i = 0; i < kTurn; ++i) hn::Store(bytes, d8, dst + done + i * step);
  }
  const std::size_t pixels = done / 4;
  FillRowPlain(dst + 4 * pixels, count - pixels, color);
}

void Tint(std::uint8_t* dst, const std::uint8_t* mask, std::size_t count, std::uint32_t color) {
  const D32 d;
  const hn::Rebind<std::uint8_t, D32> narrow;
  const std::size_t step = hn::Lanes(d);
  const auto alpha = hn::BitCast(D16(), hn::Set(d, color >> 24));
  const V32 colours = hn::Set(d, color & kColours);
  const V32 kept = hn::Set(d, 0xFF00);
  std::size_t done = 0;
  for (; done + step <= count; done += step) {
    const V32 strength = hn::PromoteTo(d, hn::LoadU(narrow, mask + done));
    const V32 product = hn::BitCast(d, hn::Mul(hn::BitCast(D16(), strength), alpha));
    const V32 top = hn::ShiftLeft<16>(hn::And(product, kept));
    StorePixels(hn::Or(top, colours), dst + 4 * done);
  }
  TintRowPlain(dst + 4 * done, mask + done, count - done, color);
}

// value / 255 for values up to 65534 in 32-bit lanes.
V32 DivideBy255(V32 value) {
  const V32 one = hn::Set(D32(), 1);
  return hn::ShiftRight<8>(hn::Add(hn::Add(value, one), hn::ShiftRight<8>(value)));
}

// The product of factors whose lanes are below 256.
V32 MultiplyBytes(V32 a, V32 b) {
  return hn::BitCast(D32(), hn::Mul(hn::BitCast(D16(), a), hn::BitCast(D16(), b)));
}

// |a - b| of bytes.
template <class V>
V Difference(V a, V b) {
  return hn::Sub(hn::Max(a, b), hn::Min(a, b));
}

// Onto opaque pixels the divisor is 255 for all. alpha holds a pixel's source alpha.
V32 BlendOpaque(V32 src, V32 dst, V32 alpha) {
  const D16 d16;
  const auto s = hn::BitCast(D8(), src);
  const auto d = hn::BitCast(D8(), dst);
  const auto difference = hn::BitCast(d16, Difference(s, d));
  const auto falls = hn::VecFromMask(D8(), hn::Eq(hn::Max(s, d), d));
  const auto magic = hn::Set(d16, std::uint16_t{0x8081});
  const auto low_byte = hn::Set(d16, std::uint16_t{0xFF});
  // Blue and red lie in the low bytes. Of the high bytes green alone changes: a factor of 0
  // leaves the alpha.
  const auto both = hn::BitCast(d16, hn::Or(alpha, hn::ShiftLeft<16>(alpha)));
  const auto green = hn::BitCast(d16, alpha);
  const auto low = hn::Mul(hn::And(difference, low_byte), both);
  const auto high = hn::Mul(hn::ShiftRight<8>(difference), green);
  const auto low_part = hn::ShiftRight<7>(hn::MulHigh(low, magic));
  const auto high_part =
      hn::AndNot(low_byte, hn::Add(hn::MulHigh(high, magic), hn::MulHigh(high, magic)));
  const auto change = hn::BitCast(D8(), hn::Or(low_part, high_part));
  return hn::BitCast(D32(), hn::Add(d, hn::Sub(hn::Xor(change, falls), falls)));
}

// dst + (src - dst) * sA / outA of the colour that lies kShift bits up; factor is a little above
// sA / outA, so that a quotient without a rest is not cut to the number below.
template <int kShift>
V32 BlendColour(V32 src, V32 dst, hn::Vec<DFloat> factor) {
  const V32 byte = hn::Set(D32(), 0xFF);
  const auto s = hn::BitCast(DInt(), hn::And(hn::ShiftRight<kShift>(src), byte));
  const auto d = hn::BitCast(DInt(), hn::And(hn::ShiftRight<kShift>(dst), byte));
  const auto change = hn::Mul(hn::ConvertTo(DFloat(), hn::Sub(s, d)), factor);
  const auto out = hn::Add(d, hn::ConvertTo(DInt(), change));
  return hn::ShiftLeft<kShift>(hn::BitCast(D32(), out));
}

V32 BlendAny(V32 src, V32 dst, V32 alpha) {
  const DFloat df;
  const DInt di;
  const V32 under = hn::ShiftRight<24>(dst);
  const V32 out_alpha = hn::Sub(hn::Add(alpha, under), DivideBy255(MultiplyBytes(alpha, under)));
  // An alpha of 0 only comes from two transparent pixels, whose result is chosen elsewhere.
  const V32 divisor = hn::Max(out_alpha, hn::Set(D32(), 1));
  const auto above = hn::Set(df, 1.0F + 1.0F / (1 << 18));
  const auto factor = hn::Div(hn::Mul(hn::ConvertTo(df, hn::BitCast(di, alpha)), above),
                              hn::ConvertTo(df, hn::BitCast(di, divisor)));
  V32 out = hn::ShiftLeft<24>(out_alpha);
  out = hn::Or(out, BlendColour<0>(src, dst, factor));
  out = hn::Or(out, BlendColour<8>(src, dst, factor));
  return hn::Or(out, BlendColour<16>(src, dst, factor));
}

template <bool kStamp>
V32 BlendPixels(V32 src, V32 dst, V32 alpha) {
  const D32 d;
  const V32 opaque = hn::Set(d, 0xFF000000U);
  if (hn::AllTrue(d, hn::Eq(hn::And(dst, opaque), opaque))) return BlendOpaque(src, dst, alpha);
  const V32 mixed = BlendAny(src, dst, alpha);
  const auto empty = hn::Eq(hn::And(dst, opaque), hn::Zero(d));
  const V32 out = hn::IfThenElse(empty, src, mixed);
  if constexpr (kStamp) return out;
  return hn::IfThenElse(hn::Eq(alpha, hn::Zero(d)), dst, out);
}

void Blend(std::uint8_t* dst, const std::uint8_t* src, std::size_t count) {
  const std::size_t step = hn::Lanes(D32());
  std::size_t done = 0;
  for (; done + step <= count; done += step) {
    const V32 pixels = LoadPixels(src + 4 * done);
    const V32 under = LoadPixels(dst + 4 * done);
    StorePixels(BlendPixels<false>(pixels, under, hn::ShiftRight<24>(pixels)), dst + 4 * done);
  }
  BlendRowPlain(dst + 4 * done, src + 4 * done, count - done);
}

void Stamp(std::uint8_t* dst, const std::uint8_t* src, std::size_t count, std::uint8_t alpha) {
  const std::size_t step = hn::Lanes(D32());
  const V32 scale = hn::Set(D32(), alpha);
  std::size_t done = 0;
  for (; done + step <= count; done += step) {
    const V32 pixels = LoadPixels(src + 4 * done);
    const V32 under = LoadPixels(dst + 4 * done);
    const V32 scaled = hn::ShiftRight<8>(MultiplyBytes(hn::ShiftRight<24>(pixels), scale));
    StorePixels(BlendPixels<true>(pixels, under, scaled), dst + 4 * done);
  }
  StampRowPlain(dst + 4 * done, src + 4 * done, count - done, alpha);
}

using DDouble = hn::ScalableTag<double>;
using VDouble = hn::Vec<DDouble>;
using DHalf = hn::Rebind<std::uint32_t, DDouble>;
using VHalf = hn::Vec<DHalf>;
using DHalfInt = hn::RebindToSigned<DHalf>;

template <int kShift>
VDouble ToDouble(VHalf pixels) {
  const VHalf value = hn::And(hn::ShiftRight<kShift>(pixels), hn::Set(DHalf(), 0xFF));
  return hn::PromoteTo(DDouble(), hn::BitCast(DHalfInt(), value));
}

// Truncates values of 0 and more, and puts them kShift bits up.
template <int kShift>
VHalf ToByte(VDouble value) {
  const auto whole = hn::BitCast(DHalf(), hn::DemoteTo(DHalfInt(), value));
  return hn::ShiftLeft<kShift>(hn::Min(whole, hn::Set(DHalf(), 0xFF)));
}

template <int kShift>
VHalf BlendExactColour(VHalf src, VHalf dst, VDouble src_weight, VDouble dst_weight) {
  return ToByte<kShift>(hn::Add(hn::Mul(ToDouble<kShift>(dst), dst_weight),
                                hn::Mul(ToDouble<kShift>(src), src_weight)));
}

VHalf BlendExactPixels(VHalf src, VHalf dst) {
  const DDouble d;
  const DHalf half;
  const VDouble one = hn::Set(d, 1.0);
  const VDouble unit = hn::Set(d, kOne255th);
  const VDouble a = hn::Mul(ToDouble<24>(src), unit);
  const VDouble b = hn::Mul(ToDouble<24>(dst), unit);
  const VDouble cover = hn::Sub(one, hn::Mul(hn::Sub(one, b), hn::Sub(one, a)));
  const VDouble inverse = hn::Div(one, cover);
  const VDouble dst_weight = hn::Mul(hn::Mul(hn::Sub(one, a), b), inverse);
  const VDouble src_weight = hn::Mul(inverse, a);
  VHalf out = ToByte<24>(hn::Mul(cover, hn::Set(d, 255.0)));
  out = hn::Or(out, BlendExactColour<0>(src, dst, src_weight, dst_weight));
  out = hn::Or(out, BlendExactColour<8>(src, dst, src_weight, dst_weight));
  out = hn::Or(out, BlendExactColour<16>(src, dst, src_weight, dst_weight));
  const VHalf alpha = hn::Set(half, 0xFF000000U);
  out = hn::IfThenElse(hn::Eq(hn::And(dst, alpha), hn::Zero(half)), src, out);
  return hn::IfThenElse(hn::Eq(hn::And(src, alpha), hn::Zero(half)), dst, out);
}

void BlendExact(std::uint8_t* dst, const std::uint8_t* src, std::size_t count) {
  const DHalf half;
  const hn::Repartition<std::uint8_t, DHalf> bytes;
  const std::size_t step = hn::Lanes(half);
  std::size_t done = 0;
  for (; done + step <= count; done += step) {
    const VHalf pixels = hn::BitCast(half, hn::LoadU(bytes, src + 4 * done));
    const VHalf under = hn::BitCast(half, hn::LoadU(bytes, dst + 4 * done));
    hn::StoreU(hn::BitCast(bytes, BlendExactPixels(pixels, under)), bytes, dst + 4 * done);
  }
  BlendRowExactPlain(dst + 4 * done, src + 4 * done, count - done);
}

std::ptrdiff_t LastLoad(const PickPlan& plan) {
  return plan.length - static_cast<std::ptrdiff_t>(hn::Lanes(D32()));
}

// How many neighbouring source pixels one vector of target pixels takes, at most. A vector may
// begin at any pixel.
std::ptrdiff_t Span(const PickPlan& plan) {
  const std::size_t step = hn::Lanes(D32());
  std::ptrdiff_t span = 0;
  for (std::size_t i = 0; i + step <= plan.count; ++i) {
    const std::ptrdiff_t begin = std::min<std::ptrdiff_t>(plan.places[i], LastLoad(plan));
    span = std::max<std::ptrdiff_t>(span, plan.places[i + step - 1] - begin + 1);
  }
  return span;
}

bool IsDoubled(const PickPlan& plan) {
  std::size_t i = 0;
  while (i < plan.count && plan.places[i] == i / 2) ++i;
  return i == plan.count;
}

PickWay ChoosePickWay(const PickPlan& plan) {
  const auto step = static_cast<std::ptrdiff_t>(hn::Lanes(D32()));
  if (LastLoad(plan) < 0) return PickWay::kEach;
  if (IsDoubled(plan)) return PickWay::kDoubled;
  const std::ptrdiff_t span = Span(plan);
  if (span <= step) return PickWay::kOneLoad;
  return span <= 2 * step ? PickWay::kTwoLoads : PickWay::kEach;
}

V32 Permute(V32 pixels, V32 lanes) {
  const V32 last = hn::Set(D32(), static_cast<std::uint32_t>(hn::Lanes(D32()) - 1));
  return hn::TableLookupLanes(pixels, hn::IndicesFromVec(D32(), hn::And(lanes, last)));
}

// Where the second vector of a row begins, in pixels: at an aligned address if there is one, where
// it writes some of the first one's pixels again.
std::size_t SecondVector(const std::uint8_t* dst, std::size_t step) {
  const std::size_t size = 4 * hn::Lanes(D32());
  const std::size_t bytes = size - reinterpret_cast<std::uintptr_t>(dst) % size;
  return bytes % 4 == 0 ? bytes / 4 : step;
}

// Calls draw(place) for every step pixels that are whole, the first ones and those from second on.
// Tells where the others begin.
template <typename Draw>
std::size_t ForEachStep(std::size_t count, std::size_t step, std::size_t second, Draw draw) {
  if (count < step) return 0;
  draw(std::size_t{0});
  std::size_t done = second;
  for (; done + step <= count; done += step) draw(done);
  return done;
}

// Each vector of target pixels comes from one load of source pixels, or from two.
template <bool kTwoLoads>
void PickFrom(std::uint8_t* dst, const std::uint8_t* src, const PickPlan& plan) {
  const D32 d;
  const std::size_t step = hn::Lanes(d);
  const std::ptrdiff_t last_load = LastLoad(plan);
  const std::uint32_t* const taken = plan.places;
  const auto lanes_end = hn::Set(DInt(), static_cast<std::int32_t>(step));
  const auto draw = [&](std::size_t done) {
    const std::ptrdiff_t first = std::min<std::ptrdiff_t>(taken[done], last_load);
    const V32 places = hn::LoadU(d, taken + done);
    const V32 lanes = hn::Sub(places, hn::Set(d, static_cast<std::uint32_t>(first)));
    V32 pixels = Permute(LoadPixels(src + 4 * first), lanes);
    if constexpr (kTwoLoads) {
      const std::ptrdiff_t next = std::min(first + static_cast<std::ptrdiff_t>(step), last_load);
      const V32 more = hn::Sub(places, hn::Set(d, static_cast<std::uint32_t>(next)));
      const auto near = hn::RebindMask(d, hn::Lt(hn::BitCast(DInt(), lanes), lanes_end));
      pixels = hn::IfThenElse(near, pixels, Permute(LoadPixels(src + 4 * next), more));
    }
    StorePixels(pixels, dst + 4 * done);
  };
  PickEach(dst, src, plan, ForEachStep(plan.count, step, SecondVector(dst, step), draw));
}

void PickDoubled(std::uint8_t* dst, const std::uint8_t* src, const PickPlan& plan) {
  const D32 d;
  const std::size_t step = hn::Lanes(d);
  const V32 half = hn::Set(d, static_cast<std::uint32_t>(step / 2));
  const V32 halves = hn::ShiftRight<1>(hn::Iota(d, 0));
  const auto lower = hn::IndicesFromVec(d, halves);
  const auto upper = hn::IndicesFromVec(d, hn::Add(halves, half));
  const std::size_t aligned = SecondVector(dst, 2 * step);
  const std::size_t second = aligned % 2 == 0 ? aligned : 2 * step;
  const auto draw = [&](std::size_t done) {
    const V32 pixels = LoadPixels(src + 2 * done);
    StorePixels(hn::TableLookupLanes(pixels, lower), dst + 4 * done);
    StorePixels(hn::TableLookupLanes(pixels, upper), dst + 4 * (done + step));
  };
  PickEach(dst, src, plan, ForEachStep(plan.count, 2 * step, second, draw));
}

void Pick(std::uint8_t* dst, const std::uint8_t* src, const PickPlan& plan) {
  switch (plan.way) {
    case PickWay::kOneLoad:
      return PickFrom<false>(dst, src, plan);
    case PickWay::kTwoLoads:
      return PickFrom<true>(dst, src, plan);
    case PickWay::kDoubled:
      return PickDoubled(dst, src, plan);
    default:
      return PickEach(dst, src, plan, 0);
  }
}

constexpr Loops kLoops = {&Fill, &Tint, &BlendExact, &Blend, &Stamp, &Pick, &ChoosePickWay};

#endif  // !QVX_WIDE_IS_EMULATED
}  // namespace HWY_NAMESPACE
}  // namespace
}  // namespace qvx::imaging
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qvx::imaging {
namespace {

constexpr Loops kPlainLoops = {&FillRowPlain,
                               &TintRowPlain,
                               &BlendRowExactPlain,
                               &BlendRowPlain,
                               &StampRowPlain,
                               [](std::uint8_t* dst, const std::uint8_t* src,
                                  const PickPlan& plan) { PickEach(dst, src, plan, 0); },
                               [](const PickPlan&) { return PickWay::kEach; }};

const Loops& BestLoops() {
  return QVX_BEST_TARGET_OR(kLoops, kPlainLoops);
}

std::uint32_t LoadPixel(const std::uint8_t* data) {
  std::uint32_t pixel;
  std::memcpy(&pixel, data, sizeof pixel);
  return pixel;
}

void StorePixel(std::uint32_t pixel, std::uint8_t* out) {
  std::memcpy(out, &pixel, sizeof pixel);
}

int Channel(std::uint32_t pixel, int shift) {
  return static_cast<int>(pixel >> shift & 0xFF);
}

std::uint32_t Limited(double value, int shift) {
  return static_cast<std::uint32_t>(std::clamp(static_cast<int>(value), 0, 255)) << shift;
}

std::uint32_t BlendExactPixel(std::uint32_t src, std::uint32_t dst) {
  if (Channel(src, 24) == 0) return dst;
  if (Channel(dst, 24) == 0) return src;
  const double a = Channel(src, 24) * kOne255th;
  const double b = Channel(dst, 24) * kOne255th;
  const double cover = 1.0 - (1.0 - b) * (1.0 - a);
  const double inverse = 1.0 / cover;
  const double dst_weight = (1.0 - a) * b * inverse;
  const double src_weight = inverse * a;
  std::uint32_t out = Limited(cover * 255.0, 24);
  for (int shift = 0; shift < 24; shift += 8) {
    out |= Limited(Channel(dst, shift) * dst_weight + Channel(src, shift) * src_weight, shift);
  }
  return out;
}

// Of pixels that are not transparent; alpha is what counts as the source's.
std::uint32_t MixPixel(std::uint32_t src, std::uint32_t dst, int alpha) {
  const int under = Channel(dst, 24);
  const int out_alpha = alpha - under * alpha / 255 + under;
  auto out = static_cast<std::uint32_t>(out_alpha) << 24;
  for (int shift = 0; shift < 24; shift += 8) {
    const int d = Channel(dst, shift);
    const int value = d + (Channel(src, shift) - d) * alpha / out_alpha;
    out |= static_cast<std::uint32_t>(value) << shift;
  }
  return out;
}

std::uint32_t BlendPixel(std::uint32_t src, std::uint32_t dst) {
  const int alpha = Channel(src, 24);
  if (alpha == 0) return dst;
  return Channel(dst, 24) == 0 ? src : MixPixel(src, dst, alpha);
}

std::uint32_t StampPixel(std::uint32_t src, std::uint32_t dst, int scale) {
  if (Channel(dst, 24) == 0) return src;
  return MixPixel(src, dst, Channel(src, 24) * scale >> 8);
}

template <typename Combine>
void CombineRow(std::uint8_t* dst, const std::uint8_t* src, std::size_t count, Combine combine) {
  for (std::size_t i = 0; i < 4 * count; i += 4) {
    StorePixel(combine(LoadPixel(src + i), LoadPixel(dst + i)), dst + i);
  }
}

bool Overlap(const std::uint8_t* a, std::size_t a_bytes, const std::uint8_t* b,
             std::size_t b_bytes) {
  const auto a_begin = reinterpret_cast<std::uintptr_t>(a);
  const auto b_begin = reinterpret_cast<std::uintptr_t>(b);
  return a_begin < b_begin + b_bytes && b_begin < a_begin + a_bytes;
}

}  // namespace

bool MayReadAhead(const std::uint8_t* dst, const std::uint8_t* src, std::size_t src_bytes) {
  const auto distance =
      reinterpret_cast<std::uintptr_t>(dst) - reinterpret_cast<std::uintptr_t>(src);
  return distance == 0 || distance >= src_bytes;
}

void FillRowPlain(std::uint8_t* dst, std::size_t count, std::uint32_t color) {
  for (std::size_t i = 0; i < 4 * count; i += 4) StorePixel(color, dst + i);
}

void FillRow(std::uint8_t* dst, std::size_t count, std::uint32_t color) {
  BestLoops().fill(dst, count, color);
}

void TintRowPlain(std::uint8_t* dst, const std::uint8_t* mask, std::size_t count,
                  std::uint32_t color) {
  const std::uint32_t colours = color & kColours;
  for (std::size_t i = 0; i < count; ++i) {
    StorePixel((mask[i] * (color >> 24) >> 8) << 24 | colours, dst + 4 * i);
  }
}

void TintRow(std::uint8_t* dst, const std::uint8_t* mask, std::size_t count, std::uint32_t color) {
  const bool apart = !Overlap(dst, 4 * count, mask, count);
  (apart ? BestLoops().tint : &TintRowPlain)(dst, mask, count, color);
}

void BlendRowExactPlain(std::uint8_t* dst, const std::uint8_t* src, std::size_t count) {
  CombineRow(dst, src, count, BlendExactPixel);
}

void BlendRowExact(std::uint8_t* dst, const std::uint8_t* src, std::size_t count) {
  const bool ahead = MayReadAhead(dst, src, 4 * count);
  (ahead ? BestLoops().blend_exact : &BlendRowExactPlain)(dst, src, count);
}

void BlendRowPlain(std::uint8_t* dst, const std::uint8_t* src, std::size_t count) {
  CombineRow(dst, src, count, BlendPixel);
}

void BlendRow(std::uint8_t* dst, const std::uint8_t* src, std::size_t count) {
  const bool ahead = MayReadAhead(dst, src, 4 * count);
  (ahead ? BestLoops().blend : &BlendRowPlain)(dst, src, count);
}

void StampRowPlain(std::uint8_t* dst, const std::uint8_t* src, std::size_t count,
                   std::uint8_t alpha) {
  CombineRow(dst, src, count, [alpha](std::uint32_t pixel, std::uint32_t under) {
    return StampPixel(pixel, under, alpha);
  });
}

void StampRow(std::uint8_t* dst, const std::uint8_t* src, std::size_t count, std::uint8_t alpha) {
  const bool ahead = MayReadAhead(dst, src, 4 * count);
  (ahead ? BestLoops().stamp : &StampRowPlain)(dst, src, count, alpha);
}

PickPlan::PickPlan(const std::uint32_t* all_places, std::size_t all, std::ptrdiff_t source_length)
    : places(all_places), count(all), length(source_length), way(BestLoops().pick_way(*this)) {}

PickPlan PickPlan::Piece(std::size_t begin, std::size_t most) const {
  PickPlan piece = *this;
  piece.places += begin;
  piece.count = std::min(most, count - begin);
  // Doubling counts from the source's first pixel, but it never needs more than one load.
  if (way == PickWay::kDoubled) piece.way = PickWay::kOneLoad;
  return piece;
}

void PickRow(std::uint8_t* dst, const std::uint8_t* src, const PickPlan& plan) {
  BestLoops().pick(dst, src, plan);
}

}  // namespace qvx::imaging
#endif  // HWY_ONCE
