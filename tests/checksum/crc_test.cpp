#include "qvx/crc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "checksum/crc_fold.h"
#include "checksum/crc_slice.h"
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

// Bit by bit, without tables: the long division that a CRC is. The register holds width bits.
std::uint32_t Divide(const Bytes& data, int width, std::uint32_t polynomial, std::uint32_t start,
                     bool reflected) {
  const std::uint32_t top = 1u << (width - 1);
  std::uint32_t crc = start;
  for (const std::uint8_t byte : data) {
    for (int i = 0; i < 8; ++i) {
      const std::uint32_t bit = (reflected ? byte >> i : byte >> (7 - i)) & 1;
      const bool carry = ((crc & top) != 0) != (bit != 0);
      crc = crc << 1 ^ (carry ? polynomial : 0);
    }
  }
  return width == 32 ? crc : crc & (2 * top - 1);
}

std::uint32_t Mirror(std::uint32_t value, int width) {
  std::uint32_t mirrored = 0;
  for (int i = 0; i < width; ++i) mirrored |= (value >> i & 1) << (width - 1 - i);
  return mirrored;
}

struct Preset {
  const char* name;
  void (CCRC16::*set)();
  unsigned short polynomial;
  unsigned short initial;
  int raw_initial;
  int reflected;
  unsigned short final_xor;
  unsigned short check;
};

const Preset kPresets[] = {
    {"USB", &CCRC16::SetPolyParameter_USB, 0x8005, 0xFFFF, 1, 1, 0xFFFF, 0xB4C8},
    {"MODBUS", &CCRC16::SetPolyParameter_MODBUS, 0x8005, 0xFFFF, 1, 1, 0, 0x4B37},
    {"DDS110", &CCRC16::SetPolyParameter_DDS110, 0x8005, 0x800D, 1, 0, 0, 0x9ECF},
    {"CCITT", &CCRC16::SetPolyParameter_CCITT_FALSE, 0x1021, 0xFFFF, 0, 0, 0, 0x29B1},
    {"RIELLO", &CCRC16::SetPolyParameter_RIELLO, 0x1021, 0xB2AA, 0, 1, 0, 0x63D0},
    {"CDMA2000", &CCRC16::SetPolyParameter_CDMA2000, 0xC867, 0xFFFF, 0, 0, 0, 0x4C06},
    {"DECT_R", &CCRC16::SetPolyParameter_DECT_R, 0x0589, 0, 0, 0, 1, 0x007E},
    {"DECT_X", &CCRC16::SetPolyParameter_DECT_X, 0x0589, 0, 0, 0, 0, 0x007F},
    {"DNP", &CCRC16::SetPolyParameter_DNP, 0x3D65, 0, 1, 1, 0xFFFF, 0xEA82},
    {"EN_13757", &CCRC16::SetPolyParameter_EN_13757, 0x3D65, 0, 0, 0, 0xFFFF, 0xC2B7},
    {"T10_DIF", &CCRC16::SetPolyParameter_T10_DIF, 0x8BB7, 0, 0, 0, 0, 0xD0DB},
    {"TELEDISK", &CCRC16::SetPolyParameter_TELEDISK, 0xA097, 0, 0, 0, 0, 0x0FB3}};

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

TEST(Crc16, GivesTheCatalogueCheckOfEachPreset) {
  const Bytes data = RandomBytes(20000, 1);
  for (const Preset& preset : kPresets) {
    CCRC16 crc;
    (crc.*preset.set)();
    crc.AppendData(kCheck, sizeof(kCheck));
    EXPECT_EQ(crc.GetResult(), preset.check) << preset.name;
    crc.Reset();
    crc.AppendData(data.data(), static_cast<int>(data.size()));
    const unsigned short result = crc.GetResult();
    EXPECT_EQ(crc.GetResult(), result);

    unsigned short table[256];
    InitCRC16Table(preset.polynomial, preset.reflected, table);
    const auto calculate = [&](const unsigned char* bytes, std::size_t size) {
      return CalculateCRC16(table, preset.initial, preset.raw_initial, preset.reflected,
                            preset.final_xor, bytes, static_cast<unsigned>(size));
    };
    EXPECT_EQ(calculate(kCheck, sizeof(kCheck)), preset.check) << preset.name;
    EXPECT_EQ(calculate(data.data(), data.size()), result) << preset.name;
    crc.Reset();
    EXPECT_EQ(calculate(data.data(), 0), crc.GetResult()) << preset.name;
    // A table that no polynomial gives is used as it stands, also for long data.
    table[0x55] ^= 0x1234;
    std::uint16_t plain = preset.raw_initial != 0
                              ? preset.initial
                              : static_cast<std::uint16_t>(Mirror(preset.initial, 16));
    for (const std::uint8_t byte : data) {
      plain = static_cast<std::uint16_t>(preset.reflected != 0
                                             ? plain >> 8 ^ table[(plain & 0xFF) ^ byte]
                                             : plain << 8 ^ table[plain >> 8 ^ byte]);
    }
    EXPECT_EQ(calculate(data.data(), data.size()), plain ^ preset.final_xor) << preset.name;
  }
  EXPECT_EQ(CalculateCRC16(nullptr, 1, 1, 1, 1, kCheck, 9), 0);
  CCRC16 crc;
  crc.SetPolyParameter(0x1021, 0x8000, 0, 0, 0);
  EXPECT_EQ(crc.GetResult(), 1);
  crc.AppendData(nullptr, 5);
  crc.AppendData(kCheck, -1);
  EXPECT_EQ(crc.GetResult(), 1);
}

TEST(Crc16, DividesByAnyPolynomialInAnyPieces) {
  std::mt19937 random(16);
  for (unsigned round = 0; round < 300; ++round) {
    const ProcessorTurn turn(round / 2);
    const auto polynomial = static_cast<unsigned short>(round == 0 ? 0 : random());
    const auto initial = static_cast<unsigned short>(random());
    const auto final_xor = static_cast<unsigned short>(random());
    const bool reflected = random() % 2 != 0;
    const Bytes data = RandomBytes(round < 150 ? round : random() % 3000, random());
    CCRC16 crc;
    crc.SetPolyParameter(polynomial, initial, 1, reflected, final_xor);
    AppendPieces(crc, data, random);
    const std::uint32_t start = reflected ? Mirror(initial, 16) : initial;
    const std::uint32_t divided = Divide(data, 16, polynomial, start, reflected);
    const std::uint32_t expected = (reflected ? Mirror(divided, 16) : divided) ^ final_xor;
    ASSERT_EQ(crc.GetResult(), expected) << round;
    CCRC16 copy(crc);
    copy.AppendData(kCheck, sizeof(kCheck));
    crc.AppendData(kCheck, sizeof(kCheck));
    ASSERT_EQ(copy.GetResult(), crc.GetResult());
  }
}

TEST(Crc32, IsThatOfMpeg2AtFirst) {
  CCRC32 crc;
  EXPECT_EQ(crc.GetResult(), 0xFFFFFFFFu);
  crc.AppendData(kCheck, sizeof(kCheck));
  EXPECT_EQ(crc.GetResult(), 0x0376E6E7u);
  crc.Reset();
  crc.AppendData(reinterpret_cast<const unsigned char*>("abc"), 3);
  EXPECT_EQ(crc.GetResult(), 0x9B73448Cu);
}

// The unreflected table with a register that shifts right, one byte at a time.
std::uint32_t ShiftRightByForwardTable(const Bytes& data, std::uint32_t polynomial,
                                       std::uint32_t crc) {
  for (const std::uint8_t byte : data) {
    const Bytes index{static_cast<std::uint8_t>(crc ^ byte)};
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
    CCRC32 crc;
    crc.SetPolyParameter(polynomial, initial, final_xor, input, result);
    if (round % 2 == 0) {
      AppendPieces(crc, data, random);
    } else {
      crc.AppendData(data.data(), static_cast<int>(data.size()));
    }
    const std::uint32_t end =
        input ? Mirror(Divide(data, 32, polynomial, Mirror(initial, 32), false), 32)
              : ShiftRightByForwardTable(data, polynomial, initial);
    ASSERT_EQ(crc.GetResult(), (result ? Mirror(end, 32) : end) ^ final_xor) << round;
  }
}

// Every way to do long data, at every length around the steps and from every alignment.
TEST(CrcLoops, AgreeWithTheByteLoop) {
  const Bytes data = RandomBytes(6000, 3);
  std::mt19937 random(5);
  const CarrylessMultiply widest = platform::WidestCarrylessMultiply();
  for (std::size_t size = 0; size < 2000; size += size < 700 ? 1 : 61) {
    const bool reflected = random() % 2 != 0;
    const auto polynomial = static_cast<std::uint32_t>(random());
    const auto start = static_cast<std::uint32_t>(random());
    const Bytes part(data.begin() + static_cast<std::ptrdiff_t>(size % 67),
                     data.begin() + static_cast<std::ptrdiff_t>(size % 67 + size));
    std::uint32_t table[256];
    for (unsigned i = 0; i < 256; ++i) {
      const Bytes index{static_cast<std::uint8_t>(i)};
      const std::uint32_t entry = Divide(index, 32, polynomial, 0, reflected);
      table[i] = reflected ? Mirror(entry, 32) : entry;
    }
    const std::uint32_t expected = checksum::PlainCrc(table, reflected, start, part.data(), size);
    ASSERT_EQ(checksum::SliceCrc(table, reflected, start, part.data(), size), expected) << size;
    if (size < checksum::kLeastFolded) continue;
    std::uint64_t folding[checksum::kFoldConstants];
    checksum::MakeFolding(polynomial, reflected, folding);
    for (const auto width :
         {CarrylessMultiply::k128, CarrylessMultiply::k256, CarrylessMultiply::k512}) {
      if (width > widest) continue;
      ASSERT_EQ(checksum::FoldCrc(folding, reflected, start, part.data(), size, width), expected)
          << size << " " << reflected << " " << static_cast<int>(width);
    }
  }
}

}  // namespace
}  // namespace qvx::test
