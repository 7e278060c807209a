// Wide loops between YUV and RGB.
#include "imaging/pixel_access.h"
#include "imaging/pixel_factors.h"
#include "imaging/pixel_rows.h"
#include "imaging/pixel_wide_512.h"
#include "platform/wide_dispatch.h"
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "imaging/pixel_wide_colour.cpp"
#include <hwy/foreach_target.h>

#include <hwy/highway.h>

#include "imaging/pixel_vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qvx::imaging {
namespace {
namespace HWY_NAMESPACE {
#if !QVX_WIDE_IS_EMULATED

// Of each two bytes, the even one times the low byte of times and the odd one times the high
// byte, which are below 128 and one of which is 0, added up.
HWY_INLINE V16 SumTimes(V8 bytes, V16 times) {
#if HWY_TARGET == HWY_AVX2
  return V16{_mm256_maddubs_epi16(bytes.raw, times.raw)};
#else
  const V8 factors = hn::BitCast(k8, times);
  return hn::Add(hn::Mul(Even(bytes), Even(factors)), hn::Mul(Odd(bytes), Odd(factors)));
#endif
}

template <int kFactor>
HWY_INLINE V16 EvenTimes(V8 bytes) {
  return SumTimes(bytes, hn::Set(k16, kFactor));
}

template <int kFactor>
HWY_INLINE V16 OddTimes(V8 bytes) {
  return SumTimes(bytes, hn::Set(k16, kFactor * 256));
}

// What luma, taken twice, gives to each component.
HWY_INLINE V16 LumaPart(V16 twice) {
  const V16 above_black = hn::Sub(twice, hn::Set(k16, 2 * 16));
  return hn::MulFixedPoint15(above_black, hn::Set(k16, kLuma));
}

// Chroma bytes less their middle, as signed ones.
HWY_INLINE V8 Centre(V8 bytes) {
  return hn::Xor(bytes, hn::Set(k8, 128));
}

// The even or the odd ones of centred bytes four times, as SumTimes does.
inline constexpr std::int16_t k4Even = 4;
inline constexpr std::int16_t k4Odd = 4 * 256;

HWY_INLINE V16 ChromaTimes(V8 centred, std::int16_t times) {
#if HWY_TARGET == HWY_AVX2
  return V16{_mm256_maddubs_epi16(_mm256_set1_epi16(times), centred.raw)};
#else
  return hn::Sub(SumTimes(Centre(centred), hn::Set(k16, times)), hn::Set(k16, 4 * 128));
#endif
}

struct ChromaParts {
  V16 first, green, third;
};

// The chroma planes by what they serve: near the first component, far the third. Samples are
// taken four times, less their middle.
struct ChromaFactors {
  explicit ChromaFactors(bool bgr)
      : first(bgr ? kBlueOfU : kRedOfV),
        green_near(bgr ? kGreenOfU : kGreenOfV),
        green_far(bgr ? kGreenOfV : kGreenOfU),
        third(bgr ? kRedOfV : kBlueOfU) {}

  HWY_INLINE ChromaParts Apply(V16 near, V16 far) const {
    return {hn::MulFixedPoint15(near, hn::Set(k16, first)),
            hn::Add(hn::MulFixedPoint15(near, hn::Set(k16, green_near)),
                    hn::MulFixedPoint15(far, hn::Set(k16, green_far))),
            hn::MulFixedPoint15(far, hn::Set(k16, third))};
  }

  std::int16_t first;
  std::int16_t green_near;
  std::int16_t green_far;
  std::int16_t third;
};

// Pixels with the even ones first, from luma parts and chroma parts of the even and the odd ones.
HWY_INLINE PixelVectors AddParts(V16 even_luma, const ChromaParts& even, V16 odd_luma,
                                 const ChromaParts& odd) {
  return {PackBytes(hn::Add(even_luma, even.first), hn::Add(odd_luma, odd.first)),
          PackBytes(hn::Add(even_luma, even.green), hn::Add(odd_luma, odd.green)),
          PackBytes(hn::Add(even_luma, even.third), hn::Add(odd_luma, odd.third))};
}

HWY_INLINE V16 PromoteChroma(const std::uint8_t* in) {
  const V8 words = hn::BitCast(k8, hn::PromoteTo(k16, hn::LoadU(Block8(), in)));
  return hn::Sub(EvenTimes<4>(words), hn::Set(k16, 4 * 128));
}

template <RgbLayout kLayout>
void PairsToRgb(YuvSource in, std::size_t pairs, bool bgr, std::uint8_t* out) {
  const ChromaFactors factors(bgr);
  const std::uint8_t* near = bgr ? in.u : in.v;
  const std::uint8_t* far = bgr ? in.v : in.u;
  std::size_t done = 0;
  for (; done + kStep / 2 <= pairs; done += kStep / 2) {
    const ChromaParts parts = factors.Apply(PromoteChroma(near + done), PromoteChroma(far + done));
    const V8 y = hn::LoadU(k8, in.y + 2 * done);
    const PixelVectors pixels =
        AddParts(LumaPart(EvenTimes<2>(y)), parts, LumaPart(OddTimes<2>(y)), parts);
    StorePixels<kLayout, Order::kEvenThenOdd>(pixels, out + 2 * kPixelBytes<kLayout> * done);
  }
  kPlainColourRows.pairs_to_rgb[kLayout]({in.y + 2 * done, in.u + done, in.v + done}, pairs - done,
                                         bgr, out + 2 * kPixelBytes<kLayout> * done);
}

template <RgbLayout kLayout>
void PixelsToRgb(YuvSource in, std::size_t pixels, bool bgr, std::uint8_t* out) {
  const ChromaFactors factors(bgr);
  const std::uint8_t* near = bgr ? in.u : in.v;
  const std::uint8_t* far = bgr ? in.v : in.u;
  std::size_t done = 0;
  for (; done + kStep <= pixels; done += kStep) {
    const V8 y = hn::LoadU(k8, in.y + done);
    const V8 n = Centre(hn::LoadU(k8, near + done));
    const V8 f = Centre(hn::LoadU(k8, far + done));
    const ChromaParts even = factors.Apply(ChromaTimes(n, k4Even), ChromaTimes(f, k4Even));
    const ChromaParts odd = factors.Apply(ChromaTimes(n, k4Odd), ChromaTimes(f, k4Odd));
    StorePixels<kLayout, Order::kEvenThenOdd>(
        AddParts(LumaPart(EvenTimes<2>(y)), even, LumaPart(OddTimes<2>(y)), odd),
        out + kPixelBytes<kLayout> * done);
  }
  kPlainColourRows.pixels_to_rgb[kLayout]({in.y + done, in.u + done, in.v + done}, pixels - done,
                                          bgr, out + kPixelBytes<kLayout> * done);
}

// Components of a vector's pixels, not yet clamped.
struct WidePixels {
  V16 first, green, third;
};

// Colours of packed pixels, two bytes each, blue first: U and V take turns.
class PackedFactors {
 public:
  explicit PackedFactors(bool v_first)
      : outer_(v_first ? Turns(kRedOfV, kBlueOfU) : Turns(kBlueOfU, kRedOfV)),
        green_(v_first ? Turns(kGreenOfV, kGreenOfU) : Turns(kGreenOfU, kGreenOfV)),
        blue_(v_first ? kOddTwice : kEvenTwice),
        red_(v_first ? kEvenTwice : kOddTwice) {}

  HWY_INLINE WidePixels Apply(V8 packed) const {
    const V16 luma = LumaPart(EvenTimes<2>(packed));
    const V16 chroma = hn::Sub(OddTimes<4>(packed), hn::Set(k16, 4 * 128));
    const V16 outer = hn::MulFixedPoint15(chroma, SetTurns(outer_));
    const V16 green = hn::MulFixedPoint15(chroma, SetTurns(green_));
    return {hn::Add(luma, Pick(outer, blue_)),
            hn::Add(luma, hn::Add(green, Pick(green, kExchanged))),
            hn::Add(luma, Pick(outer, red_))};
  }

 private:
  static std::uint32_t Turns(std::int16_t even, std::int16_t odd) {
    return static_cast<std::uint16_t>(even) | std::uint32_t{static_cast<std::uint16_t>(odd)} << 16;
  }

  HWY_INLINE static V16 SetTurns(std::uint32_t both) {
    return hn::BitCast(k16, hn::Set(hn::ScalableTag<std::uint32_t>(), both));
  }

  HWY_INLINE static V16 Pick(V16 words, const std::uint8_t* table) {
    return hn::BitCast(k16, Shuffle(hn::BitCast(k8, words), table));
  }

  // Places of a block's words.
  alignas(16) static constexpr std::uint8_t kEvenTwice[16] = {0, 1, 0, 1, 4,  5,  4,  5,
                                                              8, 9, 8, 9, 12, 13, 12, 13};
  alignas(16) static constexpr std::uint8_t kOddTwice[16] = {2,  3,  2,  3,  6,  7,  6,  7,
                                                             10, 11, 10, 11, 14, 15, 14, 15};
  alignas(16) static constexpr std::uint8_t kExchanged[16] = {2,  3,  0, 1, 6,  7,  4,  5,
                                                              10, 11, 8, 9, 14, 15, 12, 13};

  std::uint32_t outer_;
  std::uint32_t green_;
  const std::uint8_t* blue_;
  const std::uint8_t* red_;
};

HWY_INLINE PixelVectors PackPixels(const WidePixels& a, const WidePixels& b) {
  return {PackBytes(a.first, b.first), PackBytes(a.green, b.green), PackBytes(a.third, b.third)};
}

void PackedToRgb888(const std::uint8_t* in, std::size_t pairs, bool v_first, bool bgr,
                    std::uint8_t* out) {
  const ChromaFactors factors(bgr);
  const bool near_is_even = v_first != bgr;
  const std::int16_t near_times = near_is_even ? k4Even : k4Odd;
  const std::int16_t far_times = near_is_even ? k4Odd : k4Even;
  std::size_t done = 0;
  for (; done + kStep / 2 <= pairs; done += kStep / 2) {
    V8 y;
    V8 chroma;
    LoadPairs(in + 4 * done, y, chroma);
    chroma = Centre(chroma);
    const ChromaParts parts =
        factors.Apply(ChromaTimes(chroma, near_times), ChromaTimes(chroma, far_times));
    StorePixels<kRgb888, Order::kEvenThenOdd>(
        AddParts(LumaPart(EvenTimes<2>(y)), parts, LumaPart(OddTimes<2>(y)), parts),
        out + 6 * done);
  }
  kPlainColourRows.packed_to_rgb888(in + 4 * done, pairs - done, v_first, bgr, out + 6 * done);
}

// The blocks of a and b in turn.
HWY_INLINE void StoreInTurn(V8 a, V8 b, std::uint8_t* out) {
  if constexpr (kStep == 32) {
    const Block8 block;
    hn::StoreU(hn::LowerHalf(block, a), block, out);
    hn::StoreU(hn::LowerHalf(block, b), block, out + 16);
    hn::StoreU(hn::UpperHalf(block, a), block, out + 32);
    hn::StoreU(hn::UpperHalf(block, b), block, out + 48);
  } else {
    hn::StoreU(a, k8, out);
    hn::StoreU(b, k8, out + kStep);
  }
}

HWY_INLINE void StoreFours(const PixelVectors& pixels, V8 fourth, std::uint8_t* out) {
  const V16 lower01 = hn::BitCast(k16, hn::InterleaveLower(k8, pixels.first, pixels.green));
  const V16 upper01 = hn::BitCast(k16, hn::InterleaveUpper(k8, pixels.first, pixels.green));
  const V16 lower23 = hn::BitCast(k16, hn::InterleaveLower(k8, pixels.third, fourth));
  const V16 upper23 = hn::BitCast(k16, hn::InterleaveUpper(k8, pixels.third, fourth));
  const V8 q0 = hn::BitCast(k8, hn::InterleaveLower(k16, lower01, lower23));
  const V8 q1 = hn::BitCast(k8, hn::InterleaveUpper(k16, lower01, lower23));
  const V8 q2 = hn::BitCast(k8, hn::InterleaveLower(k16, upper01, upper23));
  const V8 q3 = hn::BitCast(k8, hn::InterleaveUpper(k16, upper01, upper23));
  StoreInTurn(q0, q1, out);
  StoreInTurn(q2, q3, out + 2 * kStep);
}

void PackedToArgb(const std::uint8_t* in, std::size_t pairs, bool v_first,
                  const std::uint8_t* alpha, std::uint8_t* out) {
  const PackedFactors factors(v_first);
  std::size_t done = 0;
  for (; done + kStep / 2 <= pairs; done += kStep / 2) {
    const WidePixels a = factors.Apply(hn::LoadU(k8, in + 4 * done));
    const WidePixels b = factors.Apply(hn::LoadU(k8, in + 4 * done + kStep));
    const V8 opacity = hn::LoadU(k8, alpha + 2 * done);
    StoreFours(PackPixels(a, b), Exchange(opacity, FourByteOrder::kForWords), out + 8 * done);
  }
  kPlainColourRows.packed_to_argb(in + 4 * done, pairs - done, v_first, alpha + 2 * done,
                                  out + 8 * done);
}

// Of each two pixels, the first and the second.
struct TwoPixels {
  WidePixels even, odd;
};

template <std::size_t kWhich>
HWY_INLINE WidePixels PickWords(const PixelVectors& places) {
  const auto& table = kTriples<Order::kAsInMemory>.to_words[kWhich];
  return {hn::BitCast(k16, Shuffle(places.first, table[0])),
          hn::BitCast(k16, Shuffle(places.green, table[1])),
          hn::BitCast(k16, Shuffle(places.third, table[2]))};
}

template <RgbLayout kLayout>
HWY_INLINE TwoPixels LoadTwo(const std::uint8_t* in) {
  if constexpr (kLayout == kRgb888) {
    const PixelVectors places = LoadPlaces(in);
    return {PickWords<0>(places), PickWords<1>(places)};
  } else {
    const PixelVectors pixels = LoadPixels<kLayout>(in);
    return {{Even(pixels.first), Even(pixels.green), Even(pixels.third)},
            {Odd(pixels.first), Odd(pixels.green), Odd(pixels.third)}};
  }
}

// The factors of one of Y, U and V. Results lie within 16 and 240 or so: nothing needs a clamp.
struct Weights {
  HWY_INLINE Weights(bool bgr, const RgbFactors& factors)
      : first(bgr ? factors.blue : factors.red),
        green(factors.green),
        third(bgr ? factors.red : factors.blue) {}

  HWY_INLINE V16 Apply(const WidePixels& pixels) const {
    return hn::Add(hn::Add(hn::MulFixedPoint15(pixels.first, hn::Set(k16, first)),
                           hn::MulFixedPoint15(pixels.green, hn::Set(k16, green))),
                   hn::MulFixedPoint15(pixels.third, hn::Set(k16, third)));
  }

  std::int16_t first;
  std::int16_t green;
  std::int16_t third;
};

struct YuvWeights {
  explicit YuvWeights(bool bgr) : y(bgr, kFactorsOfY), u(bgr, kFactorsOfU), v(bgr, kFactorsOfV) {}

  Weights y;
  Weights u;
  Weights v;
};

// The bytes of pixels in order, from those of the even and the odd ones less the offset.
HWY_INLINE V8 JoinBytes(V16 even, V16 odd, int offset) {
  const auto both = static_cast<std::int16_t>(offset * 257);
  const V16 joined = hn::Add(hn::ShiftLeft<8>(odd), even);
  return hn::BitCast(k8, hn::Add(joined, hn::Set(k16, both)));
}

template <RgbLayout kLayout>
void RgbToPixels(const std::uint8_t* in, std::size_t pixels, bool bgr, YuvTarget out) {
  const YuvWeights weights(bgr);
  std::size_t done = 0;
  for (; done + kStep <= pixels; done += kStep) {
    const auto [even, odd] = LoadTwo<kLayout>(in + kPixelBytes<kLayout> * done);
    hn::StoreU(JoinBytes(weights.y.Apply(even), weights.y.Apply(odd), 16), k8, out.y + done);
    hn::StoreU(JoinBytes(weights.u.Apply(even), weights.u.Apply(odd), 128), k8, out.u + done);
    hn::StoreU(JoinBytes(weights.v.Apply(even), weights.v.Apply(odd), 128), k8, out.v + done);
  }
  kPlainColourRows.rgb_to_pixels[kLayout](in + kPixelBytes<kLayout> * done, pixels - done, bgr,
                                          {out.y + done, out.u + done, out.v + done});
}

struct ChromaSums {
  V16 u, v;
};

// Writes the luma of a step's pixels; gives the sums of the chroma of pairs, less the offsets.
template <RgbLayout kLayout>
HWY_INLINE ChromaSums LumaAndSums(const std::uint8_t* in, const YuvWeights& weights,
                                  std::uint8_t* y) {
  const auto [even, odd] = LoadTwo<kLayout>(in);
  hn::StoreU(JoinBytes(weights.y.Apply(even), weights.y.Apply(odd), 16), k8, y);
  return {hn::Add(weights.u.Apply(even), weights.u.Apply(odd)),
          hn::Add(weights.v.Apply(even), weights.v.Apply(odd))};
}

// Chroma less its offset as bytes: those of u, then those of v, by halves of the vector.
HWY_INLINE V8 PackChroma(V16 u, V16 v) {
  const hn::RebindToSigned<D8> signed8;
#if HWY_TARGET == HWY_AVX2
  const V8 blocks{_mm256_packs_epi16(u.raw, v.raw)};
  const V8 packed{_mm256_permute4x64_epi64(blocks.raw, _MM_SHUFFLE(3, 1, 2, 0))};
#else
  const hn::Half<decltype(signed8)> half;
  const V8 packed =
      hn::BitCast(k8, hn::Combine(signed8, hn::DemoteTo(half, v), hn::DemoteTo(half, u)));
#endif
  return hn::Xor(packed, hn::Set(k8, 128));
}

// The means of 2 to the kBits samples.
template <int kBits>
HWY_INLINE void StoreMeans(const ChromaSums& sums, std::uint8_t* u, std::uint8_t* v) {
  const V8 both = PackChroma(hn::ShiftRight<kBits>(sums.u), hn::ShiftRight<kBits>(sums.v));
  hn::StoreU(hn::LowerHalf(Block8(), both), Block8(), u);
  hn::StoreU(hn::UpperHalf(Block8(), both), Block8(), v);
}

template <RgbLayout kLayout>
void RgbToPairs(const std::uint8_t* in, std::size_t pairs, bool bgr, YuvTarget out) {
  constexpr std::size_t kBytes = 2 * kPixelBytes<kLayout>;
  const YuvWeights weights(bgr);
  std::size_t done = 0;
  for (; done + kStep / 2 <= pairs; done += kStep / 2) {
    const ChromaSums sums = LumaAndSums<kLayout>(in + kBytes * done, weights, out.y + 2 * done);
    StoreMeans<1>(sums, out.u + done, out.v + done);
  }
  kPlainColourRows.rgb_to_pairs[kLayout](in + kBytes * done, pairs - done, bgr,
                                         {out.y + 2 * done, out.u + done, out.v + done});
}

template <RgbLayout kLayout>
void RgbToBlocks(const std::uint8_t* upper, const std::uint8_t* lower, std::size_t blocks, bool bgr,
                 YuvTarget out, std::uint8_t* lower_y) {
  constexpr std::size_t kBytes = 2 * kPixelBytes<kLayout>;
  const YuvWeights weights(bgr);
  std::size_t done = 0;
  for (; done + kStep / 2 <= blocks; done += kStep / 2) {
    const ChromaSums a = LumaAndSums<kLayout>(upper + kBytes * done, weights, out.y + 2 * done);
    const ChromaSums b = LumaAndSums<kLayout>(lower + kBytes * done, weights, lower_y + 2 * done);
    StoreMeans<2>({hn::Add(a.u, b.u), hn::Add(a.v, b.v)}, out.u + done, out.v + done);
  }
  kPlainColourRows.rgb_to_blocks[kLayout](
      upper + kBytes * done, lower + kBytes * done, blocks - done, bgr,
      {out.y + 2 * done, out.u + done, out.v + done}, lower_y + 2 * done);
}

constexpr ColourRows kRows = {
    {&PairsToRgb<kRgb888>, &PairsToRgb<kRgb565>, &PairsToRgb<kRgb555>},
    {&PixelsToRgb<kRgb888>, &PixelsToRgb<kRgb565>, &PixelsToRgb<kRgb555>},
    &PackedToRgb888,
    &PackedToArgb,
    {&RgbToPixels<kRgb888>, &RgbToPixels<kRgb565>, &RgbToPixels<kRgb555>},
    {&RgbToPairs<kRgb888>, &RgbToPairs<kRgb565>, &RgbToPairs<kRgb555>},
    {&RgbToBlocks<kRgb888>, &RgbToBlocks<kRgb565>, &RgbToBlocks<kRgb555>}};

#endif  // !QVX_WIDE_IS_EMULATED
}  // namespace HWY_NAMESPACE
}  // namespace
}  // namespace qvx::imaging
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qvx::imaging {

const ColourRows& BestColourRows() {
  const bool is_512 = platform::WidestVectors() == platform::Vectors::kAvx512;
  return is_512 ? ColourRows512() : ColourRowsUpTo256();
}

const ColourRows& ColourRowsUpTo256() {
  return QVX_BEST_TARGET_OR(kRows, kPlainColourRows);
}

}  // namespace qvx::imaging
#endif  // HWY_ONCE
