// For the sources with wide loops over pixels, once for each target: RGB pixels of every layout
// from and to vectors of their components.
#if defined(QVX_IMAGING_PIXEL_VECTORS) == defined(HWY_TARGET_TOGGLE)
#ifdef QVX_IMAGING_PIXEL_VECTORS
#undef QVX_IMAGING_PIXEL_VECTORS
#else
#define QVX_IMAGING_PIXEL_VECTORS
#endif

#include <hwy/highway.h>

#include "imaging/pixel_rows.h"

HWY_BEFORE_NAMESPACE();
namespace qvx::imaging {
namespace {
namespace HWY_NAMESPACE {
#if !QVX_WIDE_IS_EMULATED

namespace hn = hwy::HWY_NAMESPACE;

using D8 = hn::ScalableTag<std::uint8_t>;
using D16 = hn::ScalableTag<std::int16_t>;
using DU16 = hn::ScalableTag<std::uint16_t>;
using V8 = hn::Vec<D8>;
using V16 = hn::Vec<D16>;

inline constexpr D8 k8;
inline constexpr D16 k16;
inline constexpr DU16 kU16;

// Pixels of a vector of bytes.
inline constexpr std::size_t kStep = hn::MaxLanes(D8());

struct PixelVectors {
  V8 first, green, third;
};

// The order of pixels inside of each block of 16.
enum class Order { kAsInMemory, kEvenThenOdd };

constexpr std::uint8_t LaneOf(Order order, int pixel) {
  if (order == Order::kEvenThenOdd) return static_cast<std::uint8_t>(pixel / 2 + pixel % 2 * 8);
  return static_cast<std::uint8_t>(pixel);
}

using Block8 = hn::Half<D8>;

// Two blocks from anywhere; in a vector of one block only the first counts.
HWY_INLINE V8 LoadBlocks(const std::uint8_t* first, const std::uint8_t* second) {
  if constexpr (kStep == 32) {
    return hn::Combine(k8, hn::LoadU(Block8(), second), hn::LoadU(Block8(), first));
  } else {
    return hn::LoadU(k8, first);
  }
}

// What PackBytes takes: the even or odd bytes as words.
HWY_INLINE V16 Even(V8 bytes) {
  return hn::And(hn::BitCast(k16, bytes), hn::Set(k16, 0xFF));
}

HWY_INLINE V16 Odd(V8 bytes) {
  return hn::BitCast(k16, hn::ShiftRight<8>(hn::BitCast(kU16, bytes)));
}

// Clamps to bytes: in each block those of a, then those of b.
HWY_INLINE V8 PackBytes(V16 a, V16 b) {
#if HWY_TARGET == HWY_AVX2
  return V8{_mm256_packus_epi16(a.raw, b.raw)};
#else
  return hn::Combine(k8, hn::DemoteTo(Block8(), b), hn::DemoteTo(Block8(), a));
#endif
}

HWY_INLINE V8 Shuffle(V8 bytes, const std::uint8_t* table) {
  return hn::TableLookupBytes(bytes, hn::LoadDup128(k8, table));
}

// The even and the odd ones of two vectors' bytes.
HWY_INLINE void LoadPairs(const std::uint8_t* in, V8& even, V8& odd) {
  alignas(16) static constexpr std::uint8_t kApart[16] = {0, 2, 4, 6, 8, 10, 12, 14,
                                                          1, 3, 5, 7, 9, 11, 13, 15};
  const hn::ScalableTag<std::uint64_t> d64;
  const auto a = hn::BitCast(d64, Shuffle(LoadBlocks(in, in + kStep), kApart));
  const auto b = hn::BitCast(d64, Shuffle(LoadBlocks(in + 16, in + 2 * kStep - 16), kApart));
  even = hn::BitCast(k8, hn::InterleaveLower(d64, a, b));
  odd = hn::BitCast(k8, hn::InterleaveUpper(d64, a, b));
}

// RGB888 by blocks of 48 bytes: a component's byte of pixel p lies at 3p + component, which are
// 16 different places modulo 16. So one shuffle of each component, and choosing between the
// three for each place, serve all three blocks of 16.
struct Triples {
  alignas(16) std::uint8_t to_memory[3][16];    // by component and place: the pixel's lane
  alignas(16) std::uint8_t to_lanes[3][16];     // by component and pixel: the place
  alignas(16) std::uint8_t to_words[2][3][16];  // of the even and the odd pixels
  alignas(16) std::uint8_t chosen[3][16];       // by remainder: whether the place has it
};

constexpr Triples MakeTriples(Order order) {
  constexpr std::uint8_t kZero = 0x80;
  Triples triples{};
  for (int pixel = 0; pixel < 16; ++pixel) {
    const std::uint8_t lane = LaneOf(order, pixel);
    for (int component = 0; component < 3; ++component) {
      const auto place = static_cast<std::uint8_t>((3 * pixel + component) % 16);
      triples.to_memory[component][place] = lane;
      triples.to_lanes[component][pixel] = place;
      triples.to_words[pixel % 2][component][pixel / 2 * 2] = place;
      triples.to_words[pixel % 2][component][pixel / 2 * 2 + 1] = kZero;
      triples.chosen[component][pixel] = pixel % 3 == component ? 0xFF : 0;
    }
  }
  return triples;
}

template <Order kOrder>
inline constexpr Triples kTriples = MakeTriples(kOrder);

// Of each place, the byte of the vector for its remainder.
HWY_INLINE V8 Choose(V8 for0, V8 for1, V8 for2) {
  const auto& chosen = kTriples<Order::kAsInMemory>.chosen;
  const auto is1 = hn::MaskFromVec(hn::LoadDup128(k8, chosen[1]));
  const auto is2 = hn::MaskFromVec(hn::LoadDup128(k8, chosen[2]));
  return hn::IfThenElse(is2, for2, hn::IfThenElse(is1, for1, for0));
}

// Writes, for each block of the vectors, those of a, b and c in turn.
HWY_INLINE void StoreBlocks3(V8 a, V8 b, V8 c, std::uint8_t* out) {
  if constexpr (kStep == 32) {
    hn::StoreU(hn::ConcatLowerLower(k8, b, a), k8, out);
    hn::StoreU(hn::ConcatUpperLower(k8, a, c), k8, out + 32);
    hn::StoreU(hn::ConcatUpperUpper(k8, c, b), k8, out + 64);
  } else {
    hn::StoreU(a, k8, out);
    hn::StoreU(b, k8, out + 16);
    hn::StoreU(c, k8, out + 32);
  }
}

template <Order kOrder>
HWY_INLINE void StoreTriples(const PixelVectors& pixels, std::uint8_t* out) {
  const auto& table = kTriples<kOrder>.to_memory;
  const V8 first = Shuffle(pixels.first, table[0]);
  const V8 green = Shuffle(pixels.green, table[1]);
  const V8 third = Shuffle(pixels.third, table[2]);
  const V8 a = Choose(first, green, third);
  const V8 b = Choose(green, third, first);
  const V8 c = Choose(third, first, green);
  StoreBlocks3(a, b, c, out);
}

// Components in the places of their memory, not yet in the order of pixels.
HWY_INLINE PixelVectors LoadPlaces(const std::uint8_t* in) {
  const std::size_t far = kStep == 32 ? 48 : 0;
  const V8 a = LoadBlocks(in, in + far);
  const V8 b = LoadBlocks(in + 16, in + far + 16);
  const V8 c = LoadBlocks(in + 32, in + far + 32);
  return {Choose(a, c, b), Choose(b, a, c), Choose(c, b, a)};
}

HWY_INLINE PixelVectors LoadTriples(const std::uint8_t* in) {
  const PixelVectors places = LoadPlaces(in);
  const auto& table = kTriples<Order::kAsInMemory>.to_lanes;
  return {Shuffle(places.first, table[0]), Shuffle(places.green, table[1]),
          Shuffle(places.third, table[2])};
}

// Bytes moved up or down and masked.
template <int kBits>
HWY_INLINE V8 Up(V8 bytes, std::uint8_t mask) {
  return hn::And(hn::BitCast(k8, hn::ShiftLeft<kBits>(hn::BitCast(kU16, bytes))),
                 hn::Set(k8, mask));
}

template <int kBits>
HWY_INLINE V8 Down(V8 bytes, std::uint8_t mask) {
  return hn::And(hn::BitCast(k8, hn::ShiftRight<kBits>(hn::BitCast(kU16, bytes))),
                 hn::Set(k8, mask));
}

template <RgbLayout kLayout>
HWY_INLINE PixelVectors LoadPixels(const std::uint8_t* in) {
  if constexpr (kLayout == kRgb888) return LoadTriples(in);
  V8 low;
  V8 high;
  LoadPairs(in, low, high);
  PixelVectors pixels;
  pixels.first = Up<3>(low, 0xF8);
  if constexpr (kLayout == kRgb565) {
    pixels.green = hn::Or(Up<5>(high, 0xE0), Down<3>(low, 0x1C));
    pixels.third = hn::And(high, hn::Set(k8, 0xF8));
  } else {
    pixels.green = hn::Or(Up<6>(high, 0xC0), Down<2>(low, 0x38));
    pixels.third = Up<1>(high, 0xF8);
  }
  return pixels;
}

// The bytes of a block in the order of memory.
template <Order kOrder>
HWY_INLINE V8 Straight(V8 bytes) {
  if constexpr (kOrder == Order::kAsInMemory) return bytes;
  alignas(16) static constexpr std::uint8_t kTable[16] = {0, 8,  1, 9,  2, 10, 3, 11,
                                                          4, 12, 5, 13, 6, 14, 7, 15};
  return Shuffle(bytes, kTable);
}

template <RgbLayout kLayout, Order kOrder = Order::kAsInMemory>
HWY_INLINE void StorePixels(const PixelVectors& pixels, std::uint8_t* out) {
  if constexpr (kLayout == kRgb888) {
    StoreTriples<kOrder>(pixels, out);
    return;
  }
  V8 low = Down<3>(pixels.first, 0x1F);
  V8 high;
  if constexpr (kLayout == kRgb565) {
    low = hn::Or(Up<3>(pixels.green, 0xE0), low);
    high = hn::Or(hn::And(pixels.third, hn::Set(k8, 0xF8)), Down<5>(pixels.green, 0x07));
  } else {
    low = hn::Or(Up<2>(pixels.green, 0xE0), low);
    high = hn::Or(Down<1>(pixels.third, 0x7C), Down<6>(pixels.green, 0x03));
  }
  hn::StoreInterleaved2(Straight<kOrder>(low), Straight<kOrder>(high), k8, out);
}

// Exchanges the parts of a vector of two blocks so that interleaving by blocks, twice, gives
// pixels of four bytes in the order of memory.
struct FourByteOrder {
  alignas(32) static constexpr std::uint32_t kForBytes[8] = {0, 2, 4, 6, 1, 3, 5, 7};
  alignas(32) static constexpr std::uint32_t kForWords[8] = {0, 1, 4, 5, 2, 3, 6, 7};
};

HWY_INLINE V8 Exchange(V8 bytes, const std::uint32_t* order) {
  if constexpr (kStep != 32) return bytes;
  const hn::ScalableTag<std::uint32_t> d32;
  return hn::BitCast(
      k8, hn::TableLookupLanes(hn::BitCast(d32, bytes), hn::SetTableIndices(d32, order)));
}

#endif  // !QVX_WIDE_IS_EMULATED
}  // namespace HWY_NAMESPACE
}  // namespace
}  // namespace qvx::imaging
HWY_AFTER_NAMESPACE();

#endif  // QVX_IMAGING_PIXEL_VECTORS
