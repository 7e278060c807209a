#include "checksum/crc_fold.h"

#if defined(__x86_64__)
#include <immintrin.h>

#define QVX_FOLD_TARGET __attribute__((target("pclmul,sse4.1")))
#define QVX_FOLD256_TARGET __attribute__((target("pclmul,vpclmulqdq,avx2")))
#define QVX_FOLD512_TARGET __attribute__((target("pclmul,vpclmulqdq,avx512f,avx512bw")))

namespace qvx::checksum {
namespace {

constexpr std::size_t kBlock = 16;
constexpr std::size_t kLongStep = 2048 / 8;
constexpr std::size_t kShortStep = 1024 / 8;

// Where data is at, and what is left.
struct Input {
  const std::uint8_t* at;
  std::size_t left;

  void Skip(std::size_t count) {
    at += count;
    left -= count;
  }
};

QVX_FOLD_TARGET inline __m128i LoadBytes(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

QVX_FOLD_TARGET inline __m128i TurnBytes(__m128i block) {
  return _mm_shuffle_epi8(block,
                          _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}

// A block has its first bit at the bottom if the CRC is reflected, else at the top.
template <bool kReflected>
QVX_FOLD_TARGET inline __m128i ToBlock(__m128i bytes) {
  return kReflected ? bytes : TurnBytes(bytes);
}

template <bool kReflected>
QVX_FOLD_TARGET inline __m128i FromRegister(std::uint32_t crc) {
  const __m128i block = _mm_cvtsi32_si128(static_cast<int>(crc));
  return kReflected ? block : _mm_slli_si128(block, 12);
}

// The block carried as far as the pair says, and what lies there.
QVX_FOLD_TARGET inline __m128i Fold(__m128i block, __m128i pair, __m128i there) {
  const __m128i low = _mm_clmulepi64_si128(block, pair, 0x00);
  const __m128i high = _mm_clmulepi64_si128(block, pair, 0x11);
  return _mm_xor_si128(_mm_xor_si128(low, high), there);
}

// One block for several that follow each other.
QVX_FOLD_TARGET inline __m128i Join(const __m128i* blocks, std::size_t count, __m128i pair) {
  __m128i joined = blocks[0];
  for (std::size_t i = 1; i < count; ++i) joined = Fold(joined, pair, blocks[i]);
  return joined;
}

template <bool kReflected>
QVX_FOLD_TARGET __m128i FoldSteps(const std::uint64_t* folding, std::uint32_t crc, Input& input) {
  constexpr std::size_t kBlocks = kShortStep / kBlock;
  const __m128i pair = LoadBytes(folding + kFoldBy1024);
  __m128i blocks[kBlocks];
  for (std::size_t i = 0; i < kBlocks; ++i) {
    blocks[i] = ToBlock<kReflected>(LoadBytes(input.at + i * kBlock));
  }
  blocks[0] = _mm_xor_si128(blocks[0], FromRegister<kReflected>(crc));
  for (input.Skip(kShortStep); input.left >= kShortStep; input.Skip(kShortStep)) {
    for (std::size_t i = 0; i < kBlocks; ++i) {
      const __m128i next = ToBlock<kReflected>(LoadBytes(input.at + i * kBlock));
      blocks[i] = Fold(blocks[i], pair, next);
    }
  }
  return Join(blocks, kBlocks, LoadBytes(folding + kFoldBy128));
}

template <bool kReflected>
QVX_FOLD256_TARGET inline __m256i Load256(const std::uint8_t* from) {
  const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
  if (kReflected) return bytes;
  const __m128i turn = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  return _mm256_shuffle_epi8(bytes, _mm256_broadcastsi128_si256(turn));
}

template <bool kReflected>
QVX_FOLD256_TARGET __m128i FoldSteps256(const std::uint64_t* folding, std::uint32_t crc,
                                        Input& input) {
  constexpr std::size_t kWide = 2 * kBlock;
  constexpr std::size_t kCount = kLongStep / kWide;
  const __m256i pair = _mm256_broadcastsi128_si256(LoadBytes(folding + kFoldBy2048));
  __m256i wide[kCount];
  for (std::size_t i = 0; i < kCount; ++i) wide[i] = Load256<kReflected>(input.at + i * kWide);
  wide[0] = _mm256_xor_si256(wide[0], _mm256_zextsi128_si256(FromRegister<kReflected>(crc)));
  for (input.Skip(kLongStep); input.left >= kLongStep; input.Skip(kLongStep)) {
    for (std::size_t i = 0; i < kCount; ++i) {
      const __m256i low = _mm256_clmulepi64_epi128(wide[i], pair, 0x00);
      const __m256i high = _mm256_clmulepi64_epi128(wide[i], pair, 0x11);
      const __m256i next = Load256<kReflected>(input.at + i * kWide);
      wide[i] = _mm256_xor_si256(_mm256_xor_si256(low, high), next);
    }
  }
  __m128i blocks[2 * kCount];
  for (std::size_t i = 0; i < kCount; ++i) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(blocks + 2 * i), wide[i]);
  }
  return Join(blocks, 2 * kCount, LoadBytes(folding + kFoldBy128));
}

QVX_FOLD512_TARGET inline __m512i InAllParts(__m128i block) {
  constexpr __mmask16 kAll = 0xFFFF;  // the form without a mask has gcc 12 warn
  return _mm512_maskz_broadcast_i32x4(kAll, block);
}

template <bool kReflected>
QVX_FOLD512_TARGET inline __m512i Load512(const std::uint8_t* from) {
  const __m512i bytes = _mm512_loadu_si512(from);
  if (kReflected) return bytes;
  const __m128i turn = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  return _mm512_shuffle_epi8(bytes, InAllParts(turn));
}

template <bool kReflected>
QVX_FOLD512_TARGET __m128i FoldSteps512(const std::uint64_t* folding, std::uint32_t crc,
                                        Input& input) {
  constexpr std::size_t kWide = 4 * kBlock;
  constexpr std::size_t kCount = kLongStep / kWide;
  constexpr int kXorOfThree = 0x96;
  const __m512i pair = InAllParts(LoadBytes(folding + kFoldBy2048));
  __m512i wide[kCount];
  for (std::size_t i = 0; i < kCount; ++i) wide[i] = Load512<kReflected>(input.at + i * kWide);
  wide[0] = _mm512_xor_si512(wide[0], _mm512_zextsi128_si512(FromRegister<kReflected>(crc)));
  for (input.Skip(kLongStep); input.left >= kLongStep; input.Skip(kLongStep)) {
    for (std::size_t i = 0; i < kCount; ++i) {
      const __m512i low = _mm512_clmulepi64_epi128(wide[i], pair, 0x00);
      const __m512i high = _mm512_clmulepi64_epi128(wide[i], pair, 0x11);
      const __m512i next = Load512<kReflected>(input.at + i * kWide);
      wide[i] = _mm512_ternarylogic_epi64(low, high, next, kXorOfThree);
    }
  }
  __m128i blocks[4 * kCount];
  for (std::size_t i = 0; i < kCount; ++i) _mm512_storeu_si512(blocks + 4 * i, wide[i]);
  return Join(blocks, 4 * kCount, LoadBytes(folding + kFoldBy128));
}

// A block, and fewer than 16 further bytes up to end: one block that ends with them.
template <bool kReflected>
QVX_FOLD_TARGET inline __m128i FoldTail(__m128i block, __m128i pair, Input input) {
  // Taken from different starts, this moves bytes up or down and fills with zeros.
  alignas(16) static constexpr std::uint8_t kMove[48] = {
      0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
      0x80, 0x80, 0x80, 0x80, 0,    1,    2,    3,    4,    5,    6,    7,
      8,    9,    10,   11,   12,   13,   14,   15,   0x80, 0x80, 0x80, 0x80,
      0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};
  const __m128i bytes = ToBlock<kReflected>(block);
  const __m128i last = LoadBytes(input.at + input.left - kBlock);
  const __m128i first = _mm_shuffle_epi8(bytes, LoadBytes(kMove + input.left));
  const __m128i down = LoadBytes(kMove + kBlock + input.left);
  const __m128i second = _mm_blendv_epi8(_mm_shuffle_epi8(bytes, down), last, down);
  return Fold(ToBlock<kReflected>(first), pair, ToBlock<kReflected>(second));
}

// All 128 bits in the opposite order.
QVX_FOLD_TARGET inline __m128i TurnBits(__m128i block) {
  const __m128i mirrored = _mm_set_epi8(15, 7, 11, 3, 13, 5, 9, 1, 14, 6, 10, 2, 12, 4, 8, 0);
  const __m128i nibble = _mm_set1_epi8(0x0F);
  const __m128i bytes = TurnBytes(block);
  const __m128i low = _mm_shuffle_epi8(mirrored, _mm_and_si128(bytes, nibble));
  const __m128i high = _mm_shuffle_epi8(mirrored, _mm_and_si128(_mm_srli_epi16(bytes, 4), nibble));
  return _mm_or_si128(_mm_slli_epi16(low, 4), high);
}

// The remainder of an unreflected block times x^32, after Barrett.
QVX_FOLD_TARGET inline std::uint32_t Reduce(__m128i block, const std::uint64_t* folding) {
  const __m128i high = LoadBytes(folding + kFoldHigh);
  const __m128i reduce = LoadBytes(folding + kFoldReduce);
  const __m128i lower = _mm_srli_si128(_mm_slli_si128(block, 8), 4);  // times x^32
  const __m128i in96 = _mm_xor_si128(_mm_clmulepi64_si128(block, high, 0x01), lower);
  const __m128i above = _mm_clmulepi64_si128(in96, high, 0x11);
  const __m128i in64 = _mm_xor_si128(above, in96);
  const __m128i top = _mm_srli_epi64(in64, 32);
  const __m128i quotient = _mm_srli_epi64(_mm_clmulepi64_si128(top, reduce, 0x00), 32);
  const __m128i rest = _mm_xor_si128(_mm_clmulepi64_si128(quotient, reduce, 0x10), in64);
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(rest));
}

template <bool kReflected>
QVX_FOLD_TARGET inline __m128i FoldFirst(const std::uint64_t* folding, std::uint32_t crc,
                                         Input& input, platform::CarrylessMultiply width) {
  if (input.left >= kLongStep && width == platform::CarrylessMultiply::k512) {
    return FoldSteps512<kReflected>(folding, crc, input);
  }
  if (input.left >= kLongStep && width == platform::CarrylessMultiply::k256) {
    return FoldSteps256<kReflected>(folding, crc, input);
  }
  if (input.left >= kShortStep) return FoldSteps<kReflected>(folding, crc, input);
  const __m128i first = ToBlock<kReflected>(LoadBytes(input.at));
  input.Skip(kBlock);
  return _mm_xor_si128(first, FromRegister<kReflected>(crc));
}

template <bool kReflected>
QVX_FOLD_TARGET std::uint32_t FoldAll(const std::uint64_t* folding, std::uint32_t crc, Input input,
                                      platform::CarrylessMultiply width) {
  const __m128i pair = LoadBytes(folding + kFoldBy128);
  __m128i block = FoldFirst<kReflected>(folding, crc, input, width);
  for (; input.left >= kBlock; input.Skip(kBlock)) {
    block = Fold(block, pair, ToBlock<kReflected>(LoadBytes(input.at)));
  }
  if (input.left > 0) block = FoldTail<kReflected>(block, pair, input);
  if (!kReflected) return Reduce(block, folding);
  return Mirror32(Reduce(TurnBits(block), folding));
}

}  // namespace

std::uint32_t FoldCrc(const std::uint64_t* folding, bool reflected, std::uint32_t crc,
                      const std::uint8_t* data, std::size_t size,
                      platform::CarrylessMultiply width) {
  const Input input{data, size};
  return reflected ? FoldAll<true>(folding, crc, input, width)
                   : FoldAll<false>(folding, crc, input, width);
}

}  // namespace qvx::checksum
#else
namespace qvx::checksum {

std::uint32_t FoldCrc(const std::uint64_t*, bool, std::uint32_t crc, const std::uint8_t*,
                      std::size_t, platform::CarrylessMultiply) {
  return crc;  // never asked where nothing multiplies
}

}  // namespace qvx::checksum
#endif
