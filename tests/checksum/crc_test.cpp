#include "qvx/crc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <span>
#include <utility>
#include <vector>

#include "checksum/crc_fold.h"
#include "checksum/crc_slice.h"
#include "checksum/crc_table.h"
#include "support/processor_turn.h"

namespace qvx::test {
namespace {

using platform::CarrylessMultiply;

using Bytes = std::vector<std::uint8_t>;

Bytes RandomBytes(std::size_t size, unsigned long seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
  return bytes;
}

std::uint32_t Mirror(std::uint32_t value, int width) {
  std::uint32_t mirrored = 0;
  for (int i = 0; i < width; ++i) mirrored |= (value >> i & 1) << (width - 1 - i);
  return mirrored;
}

// Bit by bit, without tables: the long division that a CRC is. The register holds width bits; with
// reflected data it is mirrored.
std::uint32_t Divide(std::span<const std::uint8_t> data, int width, std::uint32_t polynomial,
                     std::uint32_t start, bool reflected) {
  std::uint32_t crc = reflected ? Mirror(start, width) : start;
  for (const std::uint8_t byte : data) {
    for (int i = 0; i < 8; ++i) {
      const std::uint32_t bit = (reflected ? byte >> i : byte >> (7 - i)) & 1;
      const bool carry = (crc >> (width - 1) & 1) != bit;
      crc = crc << 1 ^ (carry ? polynomial : 0);
    }
  }
  if (width < 32) crc &= (1u << width) - 1;
  return reflected ? Mirror(crc, width) : crc;
}

const unsigned char kCheck[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

// Appends in random pieces.
template <class Engine>
void AppendPieces(Engine& engine, const Bytes& data, std::mt19937& random) {
  for (std::size_t done = 0; done < data.size();) {
    const std::size_t piece = std::min<std::size_t>(random() % 700, data.size() - done);
    engine.AppendData(data.data() + done, static_cast<int>(piece));
    done += piece;
  }
}

TEST(Crc, GivesTheCatalogueCheckOfEachPreset) {
  const std::pair<void (CCRC16::*)(), unsigned short> presets[] = {
      {&CCRC16::SetPolyParameter_USB, 0xB4C8},     {&CCRC16::SetPolyParameter_MODBUS, 0x4B37},
      {&CCRC16::SetPolyParameter_DDS110, 0x9ECF},  {&CCRC16::SetPolyParameter_CCITT_FALSE, 0x29B1},
      {&CCRC16::SetPolyParameter_RIELLO, 0x63D0},  {&CCRC16::SetPolyParameter_CDMA2000, 0x4C06},
      {&CCRC16::SetPolyParameter_DECT_R, 0x007E},  {&CCRC16::SetPolyParameter_DECT_X, 0x007F},
      {&CCRC16::SetPolyParameter_DNP, 0xEA82},     {&CCRC16::SetPolyParameter_EN_13757, 0xC2B7},
      {&CCRC16::SetPolyParameter_T10_DIF, 0xD0DB}, {&CCRC16::SetPolyParameter_TELEDISK, 0x0FB3}};
  CCRC16 crc;
  crc.AppendData(kCheck, sizeof(kCheck));
  EXPECT_EQ(crc.GetResult(), 0x4B37);  // at first that of MODBUS
  for (const auto& [set, check] : presets) {
    (crc.*set)();
    crc.AppendData(kCheck, sizeof(kCheck));
    EXPECT_EQ(crc.GetResult(), check);
  }
  crc.SetPolyParameter(0x1021, 0x8000, 0, 0, 0);
  crc.AppendData(nullptr, 5);
  crc.AppendData(kCheck, -1);
  EXPECT_EQ(crc.GetResult(), 1);
  EXPECT_EQ(CalculateCRC16(nullptr, 1, 1, 1, 1, kCheck, 9), 0);

  CCRC32 mpeg2;
  mpeg2.AppendData(nullptr, 5);
  mpeg2.AppendData(kCheck, -1);
  mpeg2.AppendData(kCheck, sizeof(kCheck));
  EXPECT_EQ(mpeg2.GetResult(), 0x0376E6E7u);
}

// The register by a table that no polynomial need give.
std::uint16_t ByTable(const std::uint16_t* table, bool reflected, std::uint32_t crc,
                      const Bytes& data) {
  for (const std::uint8_t byte : data) {
    crc = reflected ? crc >> 8 ^ table[(crc & 0xFF) ^ byte]
                    : (crc << 8 & 0xFF00) ^ table[crc >> 8 ^ byte];
  }
  return static_cast<std::uint16_t>(crc);
}

TEST(Crc16, DividesByAnyPolynomialInAnyPieces) {
  std::mt19937 random(16);
  for (unsigned round = 0; round < 300; ++round) {
    const ProcessorTurn turn(round / 2);
    const auto polynomial = static_cast<unsigned short>(round == 0 ? 0 : random());
    const auto initial = static_cast<unsigned short>(random());
    const auto final_xor = static_cast<unsigned short>(random());
    const bool reflected = random() % 2 != 0;
    const bool raw_initial = random() % 2 != 0;
    const Bytes data = RandomBytes(round < 150 ? round : random() % 12000, random());
    const auto start = static_cast<std::uint16_t>(raw_initial ? initial : Mirror(initial, 16));
    const std::uint32_t expected = Divide(data, 16, polynomial, start, reflected) ^ final_xor;

    CCRC16 crc;
    crc.SetPolyParameter(polynomial, initial, raw_initial, reflected, final_xor);
    AppendPieces(crc, data, random);
    ASSERT_EQ(crc.GetResult(), expected) << round;
    CCRC16 copy(crc);
    crc.Reset();
    crc.AppendData(data.data(), static_cast<int>(data.size()));
    ASSERT_EQ(crc.GetResult(), expected) << round;
    ASSERT_EQ(copy.GetResult(), expected) << round;

    unsigned short table[256];
    InitCRC16Table(polynomial, reflected, table);
    const auto calculate = [&] {
      return CalculateCRC16(table, initial, raw_initial, reflected, final_xor, data.data(),
                            static_cast<unsigned>(data.size()));
    };
    ASSERT_EQ(calculate(), expected) << round;
    // A table that no polynomial gives is used as it stands, also for long data.
    table[0x55] ^= 0x1234;
    ASSERT_EQ(calculate(), ByTable(table, reflected, start, data) ^ final_xor) << round;
  }
}

// The unreflected table with a register that shifts right, one byte at a time.
std::uint32_t ShiftRightByForwardTable(const Bytes& data, std::uint32_t polynomial,
                                       std::uint32_t crc) {
  for (const std::uint8_t byte : data) {
    const std::uint8_t index[] = {static_cast<std::uint8_t>(crc ^ byte)};
    crc = crc >> 8 ^ Divide(index, 32, polynomial, 0, false);
  }
  return crc;
}

TEST(Crc32, FollowsItsParametersInAnyPieces) {
  std::mt19937 random(32);
  for (unsigned round = 0; round < 300; ++round) {
    const ProcessorTurn turn(round / 2);
    const auto polynomial = static_cast<unsigned>(round == 0 ? 0 : random());
    const auto initial = static_cast<unsigned>(random());
    const auto final_xor = static_cast<unsigned>(random());
    const bool input = random() % 2 != 0;
    const bool result = random() % 2 != 0;
    const Bytes data = RandomBytes(round < 150 ? round : random() % 12000, random());
    const std::uint32_t end =
        input ? Mirror(Divide(data, 32, polynomial, Mirror(initial, 32), false), 32)
              : ShiftRightByForwardTable(data, polynomial, initial);
    const std::uint32_t expected = (result ? Mirror(end, 32) : end) ^ final_xor;
    CCRC32 crc;
    crc.SetPolyParameter(polynomial, initial, final_xor, input, result);
    AppendPieces(crc, data, random);
    ASSERT_EQ(crc.GetResult(), expected) << round;
    crc.Reset();
    crc.AppendData(data.data(), static_cast<int>(data.size()));
    ASSERT_EQ(crc.GetResult(), expected) << round;
  }
}

// Every way to do long data, at every length around the steps and from every alignment.
TEST(CrcLoops, AgreeWithTheDivision) {
  const Bytes data = RandomBytes(2000, 3);
  std::mt19937 random(5);
  const CarrylessMultiply widest = platform::WidestCarrylessMultiply();
  for (std::size_t size = 0; size < 2000; size += size < 700 ? 1 : 61) {
    const bool reflected = random() % 2 != 0;
    const auto polynomial = static_cast<std::uint32_t>(random());
    const auto start = static_cast<std::uint32_t>(random());
    const std::uint8_t* part = data.data() + data.size() - size;
    const std::uint32_t expected = Divide({part, size}, 32, polynomial, start, reflected);
    std::uint32_t table[256];
    checksum::FillTable32(polynomial, reflected, table);
    ASSERT_EQ(checksum::PlainCrc(table, reflected, start, part, size), expected) << size;
    ASSERT_EQ(checksum::SliceCrc(table, reflected, start, part, size), expected) << size;
    if (size < checksum::kLeastFolded) continue;
    std::uint64_t folding[checksum::kFoldConstants];
    checksum::MakeFolding(polynomial, reflected, folding);
    for (const auto width :
         {CarrylessMultiply::k128, CarrylessMultiply::k256, CarrylessMultiply::k512}) {
      if (width > widest) continue;
      ASSERT_EQ(checksum::FoldCrc(folding, reflected, start, part, size, width), expected)
          << size << " " << reflected << " " << static_cast<int>(width);
    }
  }
}

}  // namespace
}  // namespace qvx::test
