#include "text/url_wide_512.h"

#include "platform/processor.h"

#if defined(__x86_64__)
#include <immintrin.h>

#include <array>

namespace qvx::text {
namespace {

constexpr std::size_t kStep = 64;

// By ASCII character: the value of the digit, or kNoDigit.
constexpr std::uint8_t kNoDigit = 0x80;

constexpr std::array<std::uint8_t, 128> MakeValues() {
  std::array<std::uint8_t, 128> values{};
  for (std::size_t i = 0; i < values.size(); ++i) {
    const int digit = HexDigit(static_cast<std::uint8_t>(i));
    values[i] = digit < 0 ? kNoDigit : static_cast<std::uint8_t>(digit);
  }
  return values;
}

constexpr std::array<std::uint8_t, 128> kValues = MakeValues();

struct Digits {
  __m512i values;
  __m512i strange;  // the high bit is set where a character is no digit
};

QVX_AVX512_TARGET inline Digits ReadDigits(const std::uint8_t* text) {
  const __m512i characters = _mm512_loadu_si512(text);
  const __m512i values = _mm512_permutex2var_epi8(_mm512_loadu_si512(kValues.data()), characters,
                                                  _mm512_loadu_si512(kValues.data() + kStep));
  return {values, _mm512_or_si512(values, characters)};
}

// What a shift of 16 bits moves from one byte into the next is left out.
QVX_AVX512_TARGET inline __m512i JoinDigits(__m512i high, __m512i low) {
  constexpr int kAndThenOr = 0xEA;
  const __m512i shifted = _mm512_slli_epi16(high, 4);
  return _mm512_ternarylogic_epi64(shifted, _mm512_set1_epi8(static_cast<char>(0xF0)), low,
                                   kAndThenOr);
}

}  // namespace

// Digits that lie behind a vector are read with it and left for the next one to leave out: their
// bits pass from one to the next in done.
QVX_AVX512_TARGET void DecodeUrl512(UrlCursor& progress) {
  UrlCursor cursor = progress;
  std::uint64_t done = 0;
  while (cursor.Left() >= kStep + 2) {
    const __m512i bytes = _mm512_loadu_si512(cursor.text);
    const __mmask64 escapes = _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8('%'));
    const __mmask64 pluses = _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8('+'));
    const __m512i others = _mm512_mask_mov_epi8(bytes, pluses, _mm512_set1_epi8(' '));
    if ((escapes | done) == 0) {
      _mm512_storeu_si512(cursor.out, others);
      cursor.text += kStep;
      cursor.out += kStep;
      continue;
    }
    const Digits high = ReadDigits(cursor.text + 1);
    const Digits low = ReadDigits(cursor.text + 2);
    const __m512i strange = _mm512_or_si512(high.strange, low.strange);
    if ((_mm512_movepi8_mask(strange) & escapes) != 0) {
      SkipDone(cursor, done);
      DecodeSome(cursor, kStep);
      continue;
    }
    const __m512i decoded =
        _mm512_mask_mov_epi8(others, escapes, JoinDigits(high.values, low.values));
    const std::uint64_t kept = ~(done | escapes << 1 | escapes << 2);
    _mm512_storeu_si512(cursor.out, _mm512_maskz_compress_epi8(kept, decoded));
    cursor.text += kStep;
    cursor.out += std::popcount(kept);
    done = escapes >> 63 | escapes >> 62;
  }
  SkipDone(cursor, done);
  progress = cursor;
}

}  // namespace qvx::text
#else
namespace qvx::text {

void DecodeUrl512(UrlCursor&) {}  // never asked for

}  // namespace qvx::text
#endif
