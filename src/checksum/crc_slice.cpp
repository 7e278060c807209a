#include "checksum/crc_slice.h"

#include <bit>
#include <cstring>

static_assert(std::endian::native == std::endian::little);

namespace qvx::checksum {
namespace {

constexpr std::size_t kStep = 16;

struct Slices {
  std::uint32_t of[kStep][256];  // what a byte has become after so many further ones
};

void Fill(Slices& slices, const std::uint32_t* table, bool shifts_right) {
  std::memcpy(slices.of[0], table, sizeof(slices.of[0]));
  constexpr std::uint8_t kZero = 0;
  for (std::size_t k = 1; k < kStep; ++k) {
    for (std::size_t i = 0; i < 256; ++i) {
      slices.of[k][i] = PlainCrc(table, shifts_right, slices.of[k - 1][i], &kZero, 1);
    }
  }
}

std::uint32_t Word(const std::uint8_t* data) {
  std::uint32_t word;
  std::memcpy(&word, data, sizeof(word));
  return word;
}

// The four bytes of word, with after bytes of the step behind them.
std::uint32_t LookUp(const Slices& slices, std::uint32_t word, std::size_t after) {
  return slices.of[after + 3][word & 0xFF] ^ slices.of[after + 2][word >> 8 & 0xFF] ^
         slices.of[after + 1][word >> 16 & 0xFF] ^ slices.of[after][word >> 24];
}

}  // namespace

std::uint32_t SliceCrc(const std::uint32_t* table, bool shifts_right, std::uint32_t crc,
                       const std::uint8_t* data, std::size_t size) {
  Slices slices;
  Fill(slices, table, shifts_right);
  for (; size >= kStep; size -= kStep, data += kStep) {
    const std::uint32_t first = Word(data) ^ (shifts_right ? crc : __builtin_bswap32(crc));
    crc = LookUp(slices, first, 12) ^ LookUp(slices, Word(data + 4), 8) ^
          LookUp(slices, Word(data + 8), 4) ^ LookUp(slices, Word(data + 12), 0);
  }
  return PlainCrc(table, shifts_right, crc, data, size);
}

}  // namespace qvx::checksum
