// The colour models, and the false-colour pictures that are made with them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "imaging/thermal_index.h"
#include "qvx/colour_model.h"
#include "qvx/hex_text.h"
#include "qvx/md5.h"
#include "qvx/thermal.h"
#include "support/processor_turn.h"

namespace qvx::test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

std::string Hex(MD5 digest) {
  CBaseStringA text;
  BufferToHexStringA(digest.digest(), 16, 0, 0, &text);
  return text.GetString();
}

using Colour = std::array<unsigned char, 3>;
using Model = std::array<double, 3>;

Colour FromHsv(Model m) {
  Colour c;
  HSVToRGB(m[0], m[1], m[2], &c[0], &c[1], &c[2]);
  return c;
}

Colour FromHls(Model m) {
  Colour c;
  HLSToRGB(&c[0], &c[1], &c[2], m[0], m[1], m[2]);
  return c;
}

// The edges of the circle, values out of range, and what is not a number.
TEST(ColourModel, MakesColoursOfAnyNumbers) {
  const struct {
    Colour (*make)(Model);
    Model model;
    Colour colour;
  } cases[] = {
      {&FromHsv, {0, 0, 0.5}, {127, 127, 127}},
      {&FromHsv, {kNoNumber, 0, 1}, {255, 255, 255}},
      {&FromHsv, {360, 1, 1}, {255, 0, 255}},
      {&FromHsv, {360, 0.5, 1}, {255, 127, 255}},
      {&FromHsv, {330, 1, 1}, {255, 0, 127}},
      {&FromHsv, {-30, 1, 1}, {255, 0, 127}},
      {&FromHsv, {1e300, 1, 1}, {255, 0, 255}},
      {&FromHsv, {0, 1, 2}, {255, 0, 0}},
      {&FromHsv, {0, 2, 1}, {255, 0, 0}},
      {&FromHsv, {0, 1, -1}, {0, 0, 0}},
      {&FromHsv, {kInfinity, 1, 1}, {255, 0, 0}},
      {&FromHsv, {kNoNumber, 1, 1}, {255, 0, 0}},
      {&FromHsv, {60, kNoNumber, 1}, {0, 255, 0}},
      {&FromHsv, {60, 1, kInfinity}, {255, 255, 0}},
      {&FromHls, {kNoNumber, 0.5, 0}, {127, 127, 127}},
      {&FromHls, {360, 0.5, 1}, {255, 0, 0}},
      {&FromHls, {-60, 0.5, 1}, {255, 0, 255}},
      {&FromHls, {420, 0.5, 1}, {255, 255, 0}},
      {&FromHls, {800, 0.5, 1}, {0, 0, 0}},
      {&FromHls, {kInfinity, 0.5, 1}, {0, 0, 0}},
      {&FromHls, {0, kNoNumber, 1}, {0, 0, 0}},
      {&FromHls, {0, 2, 0}, {255, 255, 255}},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(each.make(each.model), each.colour) << &each - cases;
  }
}

template <typename T>
void Add(MD5& digest, const T& values) {
  digest.update(reinterpret_cast<const unsigned char*>(&values), sizeof(values));
}

// Digests of every step-th colour's HSV, what that becomes, its HLS, and what that becomes; blue
// runs fastest. The expected ones are from a program that has nothing to do with this one.
std::vector<std::string> DigestCube(int step) {
  MD5 digests[4];
  for (int red = 0; red < 256; red += step) {
    for (int green = 0; green < 256; green += step) {
      for (int blue = 0; blue < 256; blue += step) {
        const auto r = static_cast<unsigned char>(red);
        const auto g = static_cast<unsigned char>(green);
        const auto b = static_cast<unsigned char>(blue);
        Model hsv;
        Model hls;
        RGBToHSV(r, g, b, &hsv[0], &hsv[1], &hsv[2]);
        RGBToHLS(&hls[0], &hls[1], &hls[2], r, g, b);
        Add(digests[0], hsv);
        Add(digests[1], FromHsv(hsv));
        Add(digests[2], hls);
        Add(digests[3], FromHls(hls));
      }
    }
  }
  std::vector<std::string> texts;
  for (const MD5& digest : digests) texts.push_back(Hex(digest));
  return texts;
}

TEST(ColourModel, LeavesAloneWhatIsNotThere) {
  double number = 7;
  unsigned char byte = 7;
  RGBToHSV(1, 2, 3, &number, &number, nullptr);
  RGBToHLS(nullptr, &number, &number, 1, 2, 3);
  HSVToRGB(1, 1, 1, &byte, nullptr, &byte);
  HLSToRGB(&byte, &byte, nullptr, 1, 1, 1);
  EXPECT_EQ(number, 7);
  EXPECT_EQ(byte, 7);
}

TEST(ColourModel, IsExactInAGridOfTheCube) {
  const std::vector<std::string> expected{
      "e60a147ba0361a612b81ecf2077de67c", "a20c050715fec24306f19e83f3df762f",
      "8d9d8b2d2fe85648027febd5ce6fb078", "f1c1de93e1bcbcbaddb2bb3d18ab15fc"};
  EXPECT_EQ(DigestCube(5), expected);
}

TEST(LargeColourModel, IsExactInTheWholeCube) {
  const std::vector<std::string> expected{
      "2b6d4c18e1436186ca64488fd3d6b8a1", "cae45b1caf293756aab83a8d9d269419",
      "cc6e552f14887f08bc9ae4b8e5d1a14d", "b936bb9e9a0f299bc798f7596516ec7d"};
  EXPECT_EQ(DigestCube(1), expected);
}

using Words = std::vector<unsigned int>;
using Bins = std::vector<unsigned char>;

std::string DigestOf(const unsigned int* words, std::size_t count) {
  return Hex(MD5(reinterpret_cast<const unsigned char*>(words), count * sizeof(unsigned int)));
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

Bins Map(const std::vector<double>& data, double min, double max) {
  Bins bins(data.size());
  ImageDataToHotImage(data.data(), static_cast<int>(data.size()), min, max, FixedTable().data(),
                      nullptr, bins.data());
  return bins;
}

TEST(Thermal, CutsARangeIntoBins) {
  const double huge = std::numeric_limits<double>::max();
  const std::vector<double> data{0,         0.99,       1,         127.9,  128,  255,
                                 256,       257,        -0.5,      -1e9,   huge, -huge,
                                 kInfinity, -kInfinity, kNoNumber, 254.999};
  EXPECT_EQ(Map(data, 0, 256),
            (Bins{0, 0, 1, 127, 128, 255, 255, 255, 0, 0, 255, 0, 255, 0, 0, 254}));
  // A range that runs down, and ranges that leave nothing to tell apart.
  EXPECT_EQ(Map({0, 64, 256, 300, -1}, 256, 0), (Bins{255, 192, 0, 0, 255}));
  const std::pair<double, double> ranges[] = {
      {5, 5}, {-huge, huge}, {kNoNumber, 1}, {0, kInfinity}, {kInfinity, kInfinity}};
  for (const auto& [min, max] : ranges) {
    EXPECT_EQ(Map({4, 5, 6, kInfinity, kNoNumber}, min, max)[0], 0) << min;
    EXPECT_EQ(Map(data, min, max), Bins(data.size(), 0)) << min << " " << max;
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
  for (const int count : {0, -1, std::numeric_limits<int>::min()}) {
    ImageDataToHotImage(data.data() + 1, count, 0, 256, table.data(), alone.data(), nullptr);
  }
  for (std::size_t i = 0; i < data.size(); ++i) {
    ASSERT_EQ(bins[i], std::min<std::size_t>(i % 300, 255));
    ASSERT_EQ(pixels[i], table[bins[i]]);
    ASSERT_EQ(alone[i], pixels[i]);
  }
  EXPECT_EQ(alone.back(), 7u);
  ImageDataToHotImage(nullptr, 5, 0, 256, table.data(), nullptr, nullptr);
  ImageDataToHotImage(nullptr, 5, 0, 256, table.data(), alone.data(), nullptr);
  ImageDataToHotImage(data.data(), 5, 0, 0, nullptr, alone.data(), nullptr);
  EXPECT_EQ(alone[0], pixels[0]);
  InitHotImageColorTable(nullptr);
  InitHotImageColorTable2(nullptr, 1, 2);
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
