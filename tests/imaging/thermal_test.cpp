#include "qvx/thermal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "imaging/thermal_index.h"
#include "qvx/hex_text.h"
#include "qvx/md5.h"
#include "support/processor_turn.h"

namespace qvx::test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

using Words = std::vector<unsigned int>;
using Bins = std::vector<unsigned char>;

std::string DigestOf(const unsigned int* words, std::size_t count) {
  MD5 digest(reinterpret_cast<const unsigned char*>(words), count * sizeof(unsigned int));
  CBaseStringA text;
  BufferToHexStringA(digest.digest(), 16, 0, 0, &text);
  return text.GetString();
}

Words FixedTable() {
  Words table(256);
  InitHotImageColorTable(table.data());
  return table;
}

// The digests are those of tables that another program made by the same formulas.
TEST(Thermal, MakesItsTables) {
  const Words fixed = FixedTable();
  EXPECT_EQ(DigestOf(fixed.data(), 256), "e7005dd4d1bd4de30230eb4c94698d05");

  const struct {
    unsigned int from, to;
    const char* digest;
  } cases[] = {
      {0x0000FF, 0xFF0000, "4912fce346cf22af204ff9599d4b99b7"},
      {0xFF0000, 0x0000FF, "69e78b9579b0ec17cc04dac2b8e14797"},
      {0x404040, 0xFFFFFF, "afe6eec192f06185bfb9827da4953061"},
      {0x8040C0, 0x8040C0, "ba59ba100c8fc9fac3f2242bb9dd0f1a"},
      {0xCD5A6A, 0x57CFE3, "cbf060be6a012a2ebb84371e7f3a009c"},
  };
  for (const auto& each : cases) {
    Words table(256);
    InitHotImageColorTable2(table.data(), each.from, each.to);
    EXPECT_EQ(DigestOf(table.data(), 256), each.digest) << each.from;
  }
  EXPECT_EQ(DigestOf(&gCommonColorTable[0][0], 50), "ffd73f0543c869271c222f5ee3809cb7");
}

struct Range {
  double min;
  double max;
};

Bins Map(const std::vector<double>& data, Range range) {
  Bins bins(data.size());
  ImageDataToHotImage(data.data(), static_cast<int>(data.size()), range.min, range.max,
                      FixedTable().data(), nullptr, bins.data());
  return bins;
}

TEST(Thermal, CutsARangeIntoBins) {
  const double huge = std::numeric_limits<double>::max();
  const std::vector<double> data{0,         0.99,       1,         127.9,  128,  255,
                                 256,       257,        -0.5,      -1e9,   huge, -huge,
                                 kInfinity, -kInfinity, kNoNumber, 254.999};
  EXPECT_EQ(Map(data, {0, 256}),
            (Bins{0, 0, 1, 127, 128, 255, 255, 255, 0, 0, 255, 0, 255, 0, 0, 254}));
  // A range that runs down, and ranges that leave nothing to tell apart.
  EXPECT_EQ(Map({0, 64, 256, 300, -1}, {256, 0}), (Bins{255, 192, 0, 0, 255}));
  for (const Range range : {Range{5, 5}, Range{-huge, huge}, Range{kNoNumber, 1},
                            Range{0, kInfinity}, Range{kInfinity, kInfinity}}) {
    EXPECT_EQ(Map({4, 5, 6, kInfinity, kNoNumber}, range)[0], 0) << range.min;
    EXPECT_EQ(Map(data, range), Bins(data.size(), 0)) << range.min << " " << range.max;
  }
}

TEST(Thermal, FillsWhatItIsGivenAndNoMore) {
  std::vector<double> data(10000);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<double>(i % 300);
  const Words table = FixedTable();
  Bins bins(data.size());
  Words pixels(data.size());
  Words alone(data.size() + 1, 7);
  ImageDataToHotImage(data.data(), 10000, 0, 256, table.data(), pixels.data(), bins.data());
  ImageDataToHotImage(data.data(), 10000, 0, 256, table.data(), alone.data(), nullptr);
  for (std::size_t i = 0; i < data.size(); ++i) {
    ASSERT_EQ(bins[i], std::min<std::size_t>(i % 300, 255));
    ASSERT_EQ(pixels[i], table[bins[i]]);
    ASSERT_EQ(alone[i], pixels[i]);
  }
  EXPECT_EQ(alone.back(), 7u);
  for (const int count : {0, -1, std::numeric_limits<int>::min()}) {
    ImageDataToHotImage(data.data(), count, 0, 256, table.data(), alone.data(), nullptr);
  }
  ImageDataToHotImage(nullptr, 5, 0, 256, table.data(), nullptr, nullptr);
}

// Every length around the vectors' sizes, in blocks that end where the data ends.
TEST(Thermal, WideAndPlainBinsAreTheSame) {
  std::mt19937 random(256);
  const double odd[] = {kNoNumber, kInfinity, -kInfinity, 1e300, -1e300, 5e-324, -0.0, 256, 255};
  for (std::size_t size = 0; size < 68; ++size) {
    for (std::size_t start = 0; start < 6; ++start) {
      const ProcessorTurn turn(start);
      std::vector<double> data(start + size);
      for (double& value : data) {
        const auto draw = static_cast<std::uint32_t>(random());
        value = draw % 4 == 0 ? odd[draw / 4 % 9] : static_cast<double>(draw % 30000) / 100 - 20;
      }
      Bins plain(start + size, 9);
      Bins wide = plain;
      const imaging::BinScale scale{-3.5, size % 3 == 0 ? kInfinity : 1.0 + 1.0 / 3};
      imaging::FindBinsPlain(data.data() + start, size, scale, plain.data() + start);
      imaging::FindBins(data.data() + start, size, scale, wide.data() + start);
      ASSERT_EQ(wide, plain) << size;
    }
  }
}

}  // namespace
}  // namespace qvx::test
