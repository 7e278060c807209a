// CRCs of long data by carry-less multiplication, for any polynomial of up to 32 bits. Data
// counts as one polynomial; a block of it, times a power of x, is replaced by something short
// that leaves the same remainder and lies on the next block. What multiplies is computed from
// the CRC's polynomial.
//
// A CRC of 16 bits is one of 32 whose polynomial, and unreflected register, is shifted up by 16.
#pragma once

#include <cstddef>
#include <cstdint>

#include "checksum/crc_bits.h"
#include "platform/processor.h"

namespace qvx::checksum {

// Positions of the constants. A pair belongs to the two halves of a block in a register, and
// carries the block 128, 1024 or 2048 bits further.
enum FoldingConstant {
  kFoldBy128 = 0,
  kFoldBy1024 = 2,
  kFoldBy2048 = 4,
  kFoldHigh = 6,    // x^96, x^64: brings a block down to 64 bits
  kFoldReduce = 8,  // x^64 / P and P: brings these down to the remainder
  kFoldConstants = 10
};

inline constexpr std::size_t kLeastFolded = 16;

// Goes through the powers of x modulo a polynomial, upwards.
class PowerOfX {
 public:
  constexpr explicit PowerOfX(std::uint32_t polynomial) : polynomial_(polynomial) {}

  // exponent never falls, and is 32 at least.
  constexpr std::uint32_t At(int exponent) {
    for (; exponent_ < exponent; ++exponent_) {
      power_ = power_ << 1 ^ (power_ >> 31 != 0 ? polynomial_ : 0);
    }
    return power_;
  }

 private:
  std::uint32_t polynomial_;
  std::uint32_t power_ = 0x80000000;
  int exponent_ = 31;
};

// x^64 / P, without remainder.
constexpr std::uint64_t QuotientOf64(std::uint32_t polynomial) {
  std::uint64_t quotient = 0;
  std::uint64_t rest = std::uint64_t{1} << 32;  // the part that is being divided
  for (int i = 0; i <= 32; ++i) {
    const bool fits = (rest >> 32 & 1) != 0;
    quotient = quotient << 1 | (fits ? 1 : 0);
    if (fits) rest ^= std::uint64_t{1} << 32 | polynomial;
    rest <<= 1;
  }
  return quotient;
}

// polynomial is without its leading term x^32.
constexpr void MakeFolding(std::uint32_t polynomial, bool reflected, std::uint64_t* folding) {
  PowerOfX power(polynomial);
  // Products of mirrored halves come out one bit lower; a factor of x^-32 leaves room for it.
  const int shift = reflected ? 32 : 0;
  const auto constant = [&](int exponent) {
    const std::uint32_t value = power.At(exponent - shift);
    return reflected ? std::uint64_t{Mirror32(value)} << 1 : std::uint64_t{value};
  };
  folding[kFoldHigh + 1] = PowerOfX(polynomial).At(64);
  folding[kFoldHigh] = PowerOfX(polynomial).At(96);
  folding[kFoldReduce] = QuotientOf64(polynomial);
  folding[kFoldReduce + 1] = std::uint64_t{1} << 32 | polynomial;
  constexpr struct {
    FoldingConstant pair;
    int bits;
  } kDistances[] = {{kFoldBy128, 128}, {kFoldBy1024, 1024}, {kFoldBy2048, 2048}};
  for (const auto& distance : kDistances) {
    const std::uint64_t low = constant(distance.bits);
    const std::uint64_t high = constant(distance.bits + 64);
    folding[distance.pair] = reflected ? high : low;
    folding[distance.pair + 1] = reflected ? low : high;
  }
}

// The register after size bytes, at least kLeastFolded, with registers up to width, which the
// processor must have.
std::uint32_t FoldCrc(const std::uint64_t* folding, bool reflected, std::uint32_t crc,
                      const std::uint8_t* data, std::size_t size,
                      platform::CarrylessMultiply width);

}  // namespace qvx::checksum
