#include "qvx/colour_model.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <string>
#include <vector>

#include "qvx/hex_text.h"
#include "qvx/md5.h"

namespace qvx::test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

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
  for (MD5& digest : digests) {
    CBaseStringA text;
    BufferToHexStringA(digest.digest(), 16, 0, 0, &text);
    texts.emplace_back(text.GetString());
  }
  return texts;
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

}  // namespace
}  // namespace qvx::test
