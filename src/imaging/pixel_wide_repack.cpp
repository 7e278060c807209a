// Wide loops between YUV layouts and between RGB layouts.
#include "imaging/pixel_access.h"
#include "imaging/pixel_rows.h"
#include "platform/wide_dispatch.h"
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "imaging/pixel_wide_repack.cpp"
#include <hwy/foreach_target.h>

#include <hwy/highway.h>

#include "imaging/pixel_vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qvx::imaging {
namespace {
namespace HWY_NAMESPACE {
#if !QVX_WIDE_IS_EMULATED

using Words = hn::Vec<DU16>;

void SplitPacked(const std::uint8_t* in, std::size_t pairs, YuvTarget out) {
  std::size_t done = 0;
  for (; done + kStep <= pairs; done += kStep) {
    V8 luma[2];
    V8 chroma[2];
    LoadPairs(in + 4 * done, luma[0], chroma[0]);
    LoadPairs(in + 4 * done + 2 * kStep, luma[1], chroma[1]);
    hn::StoreU(luma[0], k8, out.y + 2 * done);
    hn::StoreU(luma[1], k8, out.y + 2 * done + kStep);
    hn::StoreU(hn::ConcatEven(k8, chroma[1], chroma[0]), k8, out.u + done);
    hn::StoreU(hn::ConcatOdd(k8, chroma[1], chroma[0]), k8, out.v + done);
  }
  kPlainRepackRows.split_packed(in + 4 * done, pairs - done,
                                {out.y + 2 * done, out.u + done, out.v + done});
}

void LumaOfPacked(const std::uint8_t* in, std::size_t pairs, std::uint8_t* y) {
  std::size_t done = 0;
  for (; done + kStep / 2 <= pairs; done += kStep / 2) {
    const V8 lower = hn::LoadU(k8, in + 4 * done);
    const V8 upper = hn::LoadU(k8, in + 4 * done + kStep);
    hn::StoreU(hn::ConcatEven(k8, upper, lower), k8, y + 2 * done);
  }
  kPlainRepackRows.luma_of_packed(in + 4 * done, pairs - done, y + 2 * done);
}

// The chroma's parts are exchanged already.
HWY_INLINE void JoinLuma(const std::uint8_t* luma, V8 chroma, std::uint8_t* out) {
  const V8 y = Exchange(hn::LoadU(k8, luma), FourByteOrder::kForWords);
  hn::StoreU(hn::InterleaveLower(k8, y, chroma), k8, out);
  hn::StoreU(hn::InterleaveUpper(k8, y, chroma), k8, out + kStep);
}

void JoinPacked(YuvSource in, std::size_t pairs, std::uint8_t* out) {
  std::size_t done = 0;
  for (; done + kStep <= pairs; done += kStep) {
    const V8 u = Exchange(hn::LoadU(k8, in.u + done), FourByteOrder::kForBytes);
    const V8 v = Exchange(hn::LoadU(k8, in.v + done), FourByteOrder::kForBytes);
    JoinLuma(in.y + 2 * done, hn::InterleaveLower(k8, u, v), out + 4 * done);
    JoinLuma(in.y + 2 * done + kStep, hn::InterleaveUpper(k8, u, v), out + 4 * done + 2 * kStep);
  }
  kPlainRepackRows.join_packed({in.y + 2 * done, in.u + done, in.v + done}, pairs - done,
                               out + 4 * done);
}

// Where the second vector of a row begins: at an aligned address, where it writes some of the first
// one's bytes again.
HWY_INLINE std::size_t SecondVector(const std::uint8_t* row) {
  return kStep - reinterpret_cast<std::uintptr_t>(row) % kStep;
}

// The cache sets the pace here, so whole vectors are read, where LoadPairs reads them by halves.
HWY_INLINE void SplitVector(const std::uint8_t* in, std::uint8_t* even, std::uint8_t* odd) {
  const V8 lower = hn::LoadU(k8, in);
  const V8 upper = hn::LoadU(k8, in + kStep);
  hn::StoreU(hn::ConcatEven(k8, upper, lower), k8, even);
  hn::StoreU(hn::ConcatOdd(k8, upper, lower), k8, odd);
}

void SplitTwo(const std::uint8_t* in, std::size_t count, std::uint8_t* even, std::uint8_t* odd) {
  std::size_t done = 0;
  if (count >= kStep) {
    SplitVector(in, even, odd);
    done = SecondVector(even);
  }
  for (; done + kStep <= count; done += kStep) SplitVector(in + 2 * done, even + done, odd + done);
  kPlainRepackRows.split_two(in + 2 * done, count - done, even + done, odd + done);
}

void JoinTwo(const std::uint8_t* even, const std::uint8_t* odd, std::size_t count,
             std::uint8_t* out) {
  std::size_t done = 0;
  for (; done + kStep <= count; done += kStep) {
    hn::StoreInterleaved2(hn::LoadU(k8, even + done), hn::LoadU(k8, odd + done), k8,
                          out + 2 * done);
  }
  kPlainRepackRows.join_two(even + done, odd + done, count - done, out + 2 * done);
}

// The vector average rounds up: where the sum is odd it is one too high.
HWY_INLINE V8 AverageCut(V8 a, V8 b) {
  const V8 odd = hn::And(hn::Xor(a, b), hn::Set(k8, 1));
  return hn::Sub(hn::AverageRound(a, b), odd);
}

// Rows follow each other in a plane, but a loop over one row stops the processor's own reading
// ahead at its end.
HWY_INLINE void PrefetchAhead(const std::uint8_t* at) {
  constexpr std::uintptr_t kAhead = 2048;
  __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(at) + kAhead));
}

void Average(const std::uint8_t* a, const std::uint8_t* b, std::size_t count, std::uint8_t* out) {
  std::size_t done = 0;
  for (; done + kStep <= count; done += kStep) {
    PrefetchAhead(a + done);
    PrefetchAhead(b + done);
    const V8 mean = AverageCut(hn::LoadU(k8, a + done), hn::LoadU(k8, b + done));
    hn::StoreU(mean, k8, out + done);
  }
  kPlainRepackRows.average(a + done, b + done, count - done, out + done);
}

template <RgbLayout kTo, bool kSwap>
HWY_INLINE void PackTriples(const std::uint8_t* in, std::uint8_t* out) {
  const PixelVectors pixels = LoadPixels<kRgb888>(in);
  StorePixels<kTo>(kSwap ? PixelVectors{pixels.third, pixels.green, pixels.first} : pixels, out);
}

// Field bits go up or down by kBits.
template <int kBits, int kMask>
HWY_INLINE Words Field(Words words) {
  if constexpr (kBits >= 0) return hn::And(hn::ShiftLeft<kBits>(words), hn::Set(kU16, kMask));
  return hn::And(hn::ShiftRight < kBits >= 0 ? 0 : -kBits > (words), hn::Set(kU16, kMask));
}

// Blocks of 48 bytes of RGB888 from two vectors of words with the first two bytes of pixels and
// two with the third in their high bytes: where each byte comes from, by block of 16 and half.
struct WordsToTriples {
  alignas(16) std::uint8_t two[3][2][16];
  alignas(16) std::uint8_t third[3][2][16];
};

constexpr WordsToTriples MakeWordsToTriples() {
  constexpr std::uint8_t kZero = 0x80;
  WordsToTriples table{};
  for (int at = 0; at < 48; ++at) {
    const int pixel = at / 3;
    const auto word = static_cast<std::uint8_t>(pixel % 8 * 2);
    for (int half = 0; half < 2; ++half) {
      const bool here = pixel / 8 == half;
      table.two[at / 16][half][at % 16] =
          here && at % 3 < 2 ? static_cast<std::uint8_t>(word + at % 3) : kZero;
      table.third[at / 16][half][at % 16] =
          here && at % 3 == 2 ? static_cast<std::uint8_t>(word + 1) : kZero;
    }
  }
  return table;
}

inline constexpr WordsToTriples kWordsToTriples = MakeWordsToTriples();

struct UnpackedWords {
  V8 two, third;
};

template <RgbLayout kFrom, bool kSwap>
HWY_INLINE UnpackedWords Unpack(V8 bytes) {
  const Words words = hn::BitCast(kU16, bytes);
  constexpr bool kIs565 = kFrom == kRgb565;
  const Words green = kIs565 ? Field<5, 0xFC00>(words) : Field<6, 0xF800>(words);
  if constexpr (kSwap) {
    const Words high = Field < kIs565 ? -8 : -7, 0x00F8 > (words);
    return {hn::BitCast(k8, hn::Or(high, green)), hn::BitCast(k8, hn::ShiftLeft<11>(words))};
  }
  const Words high = Field < kIs565 ? 0 : 1, 0xF800 > (words);
  return {hn::BitCast(k8, hn::Or(Field<3, 0x00F8>(words), green)), hn::BitCast(k8, high)};
}

template <std::size_t kBlock, std::size_t kHalf>
HWY_INLINE V8 BlockPart(const UnpackedWords& words) {
  return hn::Or(Shuffle(words.two, kWordsToTriples.two[kBlock][kHalf]),
                Shuffle(words.third, kWordsToTriples.third[kBlock][kHalf]));
}

template <RgbLayout kFrom, bool kSwap>
HWY_INLINE void UnpackWords(const std::uint8_t* in, std::uint8_t* out) {
  const UnpackedWords a = Unpack<kFrom, kSwap>(LoadBlocks(in, in + kStep));
  const UnpackedWords b = Unpack<kFrom, kSwap>(LoadBlocks(in + 16, in + 2 * kStep - 16));
  StoreBlocks3(BlockPart<0, 0>(a), hn::Or(BlockPart<1, 0>(a), BlockPart<1, 1>(b)),
               BlockPart<2, 1>(b), out);
}

template <RgbLayout kFrom, bool kSwap>
HWY_INLINE Words ToOtherWord(Words words) {
  if constexpr (kFrom == kRgb565 && kSwap) {
    return hn::Or(hn::Or(Field<10, 0x7C00>(words), Field<-1, 0x03E0>(words)),
                  hn::ShiftRight<11>(words));
  } else if constexpr (kFrom == kRgb565) {
    return hn::Or(Field<-1, 0x7FE0>(words), Field<0, 0x001F>(words));
  } else if constexpr (kSwap) {
    return hn::Or(hn::Or(hn::ShiftLeft<11>(words), Field<1, 0x07C0>(words)),
                  Field<-10, 0x001F>(words));
  } else {
    return hn::Or(Field<1, 0xFFC0>(words), Field<0, 0x001F>(words));
  }
}

template <RgbLayout kFrom, bool kSwap>
HWY_INLINE void WordsToWords(const std::uint8_t* in, std::uint8_t* out) {
  for (std::size_t i = 0; i < 2 * kStep; i += kStep) {
    const Words words = hn::BitCast(kU16, hn::LoadU(k8, in + i));
    hn::StoreU(hn::BitCast(k8, ToOtherWord<kFrom, kSwap>(words)), k8, out + i);
  }
}

template <RgbLayout kFrom, RgbLayout kTo, bool kSwap>
HWY_INLINE void ConvertStep(const std::uint8_t* in, std::uint8_t* out) {
  if constexpr (kFrom == kRgb888) {
    PackTriples<kTo, kSwap>(in, out);
  } else if constexpr (kTo == kRgb888) {
    UnpackWords<kFrom, kSwap>(in, out);
  } else {
    WordsToWords<kFrom, kSwap>(in, out);
  }
}

template <RgbLayout kFrom, RgbLayout kTo, bool kSwap>
HWY_INLINE std::size_t ConvertSteps(const std::uint8_t* in, std::size_t pixels, std::uint8_t* out) {
  std::size_t done = 0;
  for (; done + kStep <= pixels; done += kStep) {
    ConvertStep<kFrom, kTo, kSwap>(in + kPixelBytes<kFrom> * done, out + kPixelBytes<kTo> * done);
  }
  return done;
}

template <RgbLayout kFrom, RgbLayout kTo>
void RgbToRgb(const std::uint8_t* in, std::size_t pixels, bool swap, std::uint8_t* out) {
  const std::size_t done = swap ? ConvertSteps<kFrom, kTo, true>(in, pixels, out)
                                : ConvertSteps<kFrom, kTo, false>(in, pixels, out);
  kPlainRepackRows.rgb[kFrom][kTo](in + kPixelBytes<kFrom> * done, pixels - done, swap,
                                   out + kPixelBytes<kTo> * done);
}

constexpr RepackRows kRows = {
    &SplitPacked,
    &LumaOfPacked,
    &JoinPacked,
    &SplitTwo,
    &JoinTwo,
    &Average,
    {{nullptr, &RgbToRgb<kRgb888, kRgb565>, &RgbToRgb<kRgb888, kRgb555>},
     {&RgbToRgb<kRgb565, kRgb888>, nullptr, &RgbToRgb<kRgb565, kRgb555>},
     {&RgbToRgb<kRgb555, kRgb888>, &RgbToRgb<kRgb555, kRgb565>, nullptr}}};

#endif  // !QVX_WIDE_IS_EMULATED
}  // namespace HWY_NAMESPACE
}  // namespace
}  // namespace qvx::imaging
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qvx::imaging {

const RepackRows& BestRepackRows() {
  return QVX_BEST_TARGET_OR(kRows, kPlainRepackRows);
}

}  // namespace qvx::imaging
#endif  // HWY_ONCE
