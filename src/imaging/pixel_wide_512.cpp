#include "imaging/pixel_wide_512.h"

#if defined(__x86_64__)
#include <immintrin.h>

#include <array>

#include "imaging/pixel_factors.h"
#include "platform/processor.h"

namespace qvx::imaging {
namespace {

using V = __m512i;

constexpr std::size_t kStep = 64;  // pixels at a time
constexpr __mmask64 kAll = ~__mmask64{0};

using Indices = std::array<std::uint8_t, kStep>;

template <typename Place>
constexpr Indices MakeIndices(Place place) {
  Indices indices{};
  for (std::size_t i = 0; i < kStep; ++i) indices[i] = static_cast<std::uint8_t>(place(i));
  return indices;
}

QVX_AVX512_TARGET inline V Load(const void* from) {
  return _mm512_loadu_si512(from);
}

QVX_AVX512_TARGET inline void Store(V bytes, void* to) {
  _mm512_storeu_si512(to, bytes);
}

QVX_AVX512_TARGET inline V Words(int value) {
  return _mm512_set1_epi16(static_cast<short>(value));
}

QVX_AVX512_TARGET inline V Permute(V bytes, const Indices& places) {
  return _mm512_maskz_permutexvar_epi8(kAll, Load(places.data()), bytes);
}

// Whether a byte's place leaves the remainder when divided by 3.
constexpr __mmask64 EveryThird(int remainder) {
  __mmask64 mask = 0;
  for (int i = remainder; i < 64; i += 3) mask |= __mmask64{1} << i;
  return mask;
}

// Of each place, the byte of the vector for its remainder.
QVX_AVX512_TARGET inline V Choose(V for0, V for1, V for2) {
  return _mm512_mask_mov_epi8(_mm512_mask_mov_epi8(for0, EveryThird(1), for1), EveryThird(2), for2);
}

// A pixel's component lies at 3 * pixel + component; modulo 64, these are all places.
constexpr std::size_t PlaceOf(std::size_t pixel, std::size_t component) {
  return (3 * pixel + component) % kStep;
}

// YUY2 and YVY2 ------------------------------------------------------------------------------

// Words of 32 pixels in order.
struct WordPixels {
  V blue, green, red;
};

class PackedFactors {
 public:
  QVX_AVX512_TARGET explicit PackedFactors(bool v_first)
      : outer_(v_first ? Turns(kRedOfV, kBlueOfU) : Turns(kBlueOfU, kRedOfV)),
        green_(v_first ? Turns(kGreenOfV, kGreenOfU) : Turns(kGreenOfU, kGreenOfV)),
        blue_(Twice(v_first ? 2 : 0)),
        red_(Twice(v_first ? 0 : 2)) {}

  QVX_AVX512_TARGET inline WordPixels Apply(V packed) const {
    const V twice = _mm512_maddubs_epi16(packed, Words(2));
    const V luma = _mm512_mulhrs_epi16(_mm512_sub_epi16(twice, Words(2 * 16)), Words(kLuma));
    const V fourfold = _mm512_maddubs_epi16(packed, Words(4 * 256));
    const V chroma = _mm512_sub_epi16(fourfold, Words(4 * 128));
    const V outer = _mm512_mulhrs_epi16(chroma, outer_);
    const V green = _mm512_mulhrs_epi16(chroma, green_);
    const V both = _mm512_add_epi16(green, _mm512_maskz_rol_epi32(0xFFFF, green, 16));
    return {_mm512_add_epi16(luma, _mm512_shuffle_epi8(outer, blue_)), _mm512_add_epi16(luma, both),
            _mm512_add_epi16(luma, _mm512_shuffle_epi8(outer, red_))};
  }

 private:
  QVX_AVX512_TARGET static V Turns(std::int16_t even, std::int16_t odd) {
    return _mm512_set1_epi32(static_cast<std::uint16_t>(even) | odd * 0x10000);
  }

  // The word at a byte of each four bytes, twice.
  QVX_AVX512_TARGET static V Twice(int byte) {
    const int word = byte | (byte + 1) << 8;
    const __m128i block = _mm_setr_epi32(word * 0x10001, (word + 0x0404) * 0x10001,
                                         (word + 0x0808) * 0x10001, (word + 0x0C0C) * 0x10001);
    return _mm512_maskz_broadcast_i32x4(0xFFFF, block);
  }

  V outer_;
  V green_;
  V blue_;
  V red_;
};

// Where a pixel's byte lies after words of two vectors have been packed.
constexpr std::size_t PackedPlace(std::size_t pixel) {
  return pixel % 32 / 8 * 16 + pixel / 32 * 8 + pixel % 8;
}

constexpr std::size_t PixelAtPlace(std::size_t place, std::size_t component) {
  // 43 * 3 is 1 modulo 64.
  return (place + kStep - component) * 43 % kStep;
}

template <std::size_t kComponent>
constexpr Indices kToTriples = MakeIndices([](std::size_t i) {
  return PackedPlace(PixelAtPlace(i, kComponent));
});

QVX_AVX512_TARGET void PackedToRgb888(const std::uint8_t* in, std::size_t pairs, bool v_first,
                                      bool bgr, std::uint8_t* out) {
  const PackedFactors factors(v_first);
  std::size_t done = 0;
  for (; done + kStep / 2 <= pairs; done += kStep / 2) {
    const WordPixels a = factors.Apply(Load(in + 4 * done));
    const WordPixels b = factors.Apply(Load(in + 4 * done + kStep));
    const V blue = _mm512_packus_epi16(a.blue, b.blue);
    const V red = _mm512_packus_epi16(a.red, b.red);
    const V first = Permute(bgr ? blue : red, kToTriples<0>);
    const V green = Permute(_mm512_packus_epi16(a.green, b.green), kToTriples<1>);
    const V third = Permute(bgr ? red : blue, kToTriples<2>);
    Store(Choose(first, green, third), out + 6 * done);
    Store(Choose(green, third, first), out + 6 * done + kStep);
    Store(Choose(third, first, green), out + 6 * done + 2 * kStep);
  }
  ColourRowsUpTo256().packed_to_rgb888(in + 4 * done, pairs - done, v_first, bgr, out + 6 * done);
}

// 16 pixels of four bytes from words of blue and green, and of red and alpha, packed together.
template <std::size_t kHalf>
constexpr Indices kToFours = MakeIndices([](std::size_t i) {
  const std::size_t pixel = 16 * kHalf + i / 4;
  return i % 4 / 2 * kStep + pixel / 8 * 16 + i % 2 * 8 + pixel % 8;
});

QVX_AVX512_TARGET inline void StoreFours(const WordPixels& pixels, const std::uint8_t* alpha,
                                         std::uint8_t* out) {
  const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(alpha));
  const V low = _mm512_packus_epi16(pixels.blue, pixels.green);
  const V high = _mm512_packus_epi16(pixels.red, _mm512_cvtepu8_epi16(bytes));
  Store(_mm512_permutex2var_epi8(low, Load(kToFours<0>.data()), high), out);
  Store(_mm512_permutex2var_epi8(low, Load(kToFours<1>.data()), high), out + kStep);
}

QVX_AVX512_TARGET void PackedToArgb(const std::uint8_t* in, std::size_t pairs, bool v_first,
                                    const std::uint8_t* alpha, std::uint8_t* out) {
  const PackedFactors factors(v_first);
  std::size_t done = 0;
  for (; done + kStep / 4 <= pairs; done += kStep / 4) {
    StoreFours(factors.Apply(Load(in + 4 * done)), alpha + 2 * done, out + 8 * done);
  }
  ColourRowsUpTo256().packed_to_argb(in + 4 * done, pairs - done, v_first, alpha + 2 * done,
                                     out + 8 * done);
}

// RGB888 to YUV ------------------------------------------------------------------------------

// The even or the odd ones of 64 pixels as words.
template <std::size_t kOdd, std::size_t kComponent>
constexpr Indices kToWords = MakeIndices([](std::size_t i) {
  return PlaceOf(i / 2 * 2 + kOdd, kComponent);
});

struct ThreeWords {
  V first, green, third;
};

template <std::size_t kOdd>
QVX_AVX512_TARGET inline ThreeWords PickWords(V first, V green, V third) {
  constexpr __mmask64 kEvenBytes = 0x5555555555555555;
  return {_mm512_maskz_permutexvar_epi8(kEvenBytes, Load(kToWords<kOdd, 0>.data()), first),
          _mm512_maskz_permutexvar_epi8(kEvenBytes, Load(kToWords<kOdd, 1>.data()), green),
          _mm512_maskz_permutexvar_epi8(kEvenBytes, Load(kToWords<kOdd, 2>.data()), third)};
}

struct Weights {
  QVX_AVX512_TARGET Weights(bool bgr, const RgbFactors& factors)
      : first(Words(bgr ? factors.blue : factors.red)),
        green(Words(factors.green)),
        third(Words(bgr ? factors.red : factors.blue)) {}

  QVX_AVX512_TARGET inline V Apply(const ThreeWords& pixels) const {
    const V outer = _mm512_add_epi16(_mm512_mulhrs_epi16(pixels.first, first),
                                     _mm512_mulhrs_epi16(pixels.third, third));
    return _mm512_add_epi16(outer, _mm512_mulhrs_epi16(pixels.green, green));
  }

  V first, green, third;
};

struct TwoWords {
  V even, odd;
};

// Y, U and V of 64 pixels, less the offsets.
struct YuvWords {
  TwoWords y, u, v;
};

struct YuvWeights {
  QVX_AVX512_TARGET explicit YuvWeights(bool bgr)
      : y(bgr, kFactorsOfY), u(bgr, kFactorsOfU), v(bgr, kFactorsOfV) {}

  QVX_AVX512_TARGET inline YuvWords Apply(const std::uint8_t* in) const {
    const V a = Load(in);
    const V b = Load(in + kStep);
    const V c = Load(in + 2 * kStep);
    const V first = Choose(a, c, b);
    const V green = Choose(b, a, c);
    const V third = Choose(c, b, a);
    const ThreeWords even = PickWords<0>(first, green, third);
    const ThreeWords odd = PickWords<1>(first, green, third);
    return {{y.Apply(even), y.Apply(odd)},
            {u.Apply(even), u.Apply(odd)},
            {v.Apply(even), v.Apply(odd)}};
  }

  Weights y, u, v;
};

QVX_AVX512_TARGET inline void StoreBytes(const TwoWords& words, int offset, std::uint8_t* out) {
  const V joined = _mm512_add_epi16(_mm512_slli_epi16(words.odd, 8), words.even);
  Store(_mm512_add_epi16(joined, Words(offset * 257)), out);
}

QVX_AVX512_TARGET inline V Sum(const TwoWords& words) {
  return _mm512_add_epi16(words.even, words.odd);
}

// The means of 2 to the kBits samples.
template <int kBits>
QVX_AVX512_TARGET inline void StoreMeans(V sums, std::uint8_t* out) {
  const V means = _mm512_add_epi16(_mm512_srai_epi16(sums, kBits), Words(128));
  _mm512_mask_cvtepi16_storeu_epi8(out, 0xFFFFFFFF, means);
}

QVX_AVX512_TARGET void RgbToPixels(const std::uint8_t* in, std::size_t pixels, bool bgr,
                                   YuvTarget out) {
  const YuvWeights weights(bgr);
  std::size_t done = 0;
  for (; done + kStep <= pixels; done += kStep) {
    const YuvWords words = weights.Apply(in + 3 * done);
    StoreBytes(words.y, 16, out.y + done);
    StoreBytes(words.u, 128, out.u + done);
    StoreBytes(words.v, 128, out.v + done);
  }
  ColourRowsUpTo256().rgb_to_pixels[kRgb888](in + 3 * done, pixels - done, bgr,
                                             {out.y + done, out.u + done, out.v + done});
}

QVX_AVX512_TARGET void RgbToPairs(const std::uint8_t* in, std::size_t pairs, bool bgr,
                                  YuvTarget out) {
  const YuvWeights weights(bgr);
  std::size_t done = 0;
  for (; done + kStep / 2 <= pairs; done += kStep / 2) {
    const YuvWords words = weights.Apply(in + 6 * done);
    StoreBytes(words.y, 16, out.y + 2 * done);
    StoreMeans<1>(Sum(words.u), out.u + done);
    StoreMeans<1>(Sum(words.v), out.v + done);
  }
  ColourRowsUpTo256().rgb_to_pairs[kRgb888](in + 6 * done, pairs - done, bgr,
                                            {out.y + 2 * done, out.u + done, out.v + done});
}

QVX_AVX512_TARGET void RgbToBlocks(const std::uint8_t* upper, const std::uint8_t* lower,
                                   std::size_t blocks, bool bgr, YuvTarget out,
                                   std::uint8_t* lower_y) {
  const YuvWeights weights(bgr);
  std::size_t done = 0;
  for (; done + kStep / 2 <= blocks; done += kStep / 2) {
    const YuvWords a = weights.Apply(upper + 6 * done);
    const YuvWords b = weights.Apply(lower + 6 * done);
    StoreBytes(a.y, 16, out.y + 2 * done);
    StoreBytes(b.y, 16, lower_y + 2 * done);
    StoreMeans<2>(_mm512_add_epi16(Sum(a.u), Sum(b.u)), out.u + done);
    StoreMeans<2>(_mm512_add_epi16(Sum(a.v), Sum(b.v)), out.v + done);
  }
  ColourRowsUpTo256().rgb_to_blocks[kRgb888](upper + 6 * done, lower + 6 * done, blocks - done, bgr,
                                             {out.y + 2 * done, out.u + done, out.v + done},
                                             lower_y + 2 * done);
}

ColourRows WithRows512(ColourRows rows) {
  rows.packed_to_rgb888 = &PackedToRgb888;
  rows.packed_to_argb = &PackedToArgb;
  rows.rgb_to_pixels[kRgb888] = &RgbToPixels;
  rows.rgb_to_pairs[kRgb888] = &RgbToPairs;
  rows.rgb_to_blocks[kRgb888] = &RgbToBlocks;
  return rows;
}

}  // namespace

const ColourRows& ColourRows512() {
  static const ColourRows rows = WithRows512(ColourRowsUpTo256());
  return rows;
}

}  // namespace qvx::imaging
#else
namespace qvx::imaging {

const ColourRows& ColourRows512() {
  return ColourRowsUpTo256();  // never asked for
}

}  // namespace qvx::imaging
#endif
