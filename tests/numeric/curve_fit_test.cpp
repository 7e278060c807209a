#include "qvx/curve_fit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

namespace qvx::test {
namespace {

using Values = std::vector<double>;

constexpr double kUntouched = -99;

// A step to the limit of the threshold is worth one sample of its own: 2 is neither clean nor bad.
TEST(SmoothData, RepairsSpikes) {
  const struct {
    const char* what;
    Values data;
    double threshold;
    int result;
    Values out;
  } cases[] = {
      {"nothing to repair", {0, 1, 2, 3, 4, 5}, 2, 1, {0, 1, 2, 3, 4, 5}},
      // The way back down is no clean step either, so the sample behind the spike goes too.
      {"in the middle", {0, 1, 2, 3, 4, 20, 6, 7, 8, 9}, 2, 1, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}},
      {"at the end", {0, 1, 2, 3, 4, 5, 6, 7, 30}, 2, 1, {0, 1, 2, 3, 4, 5, 6, 7, 8}},
      {"at the start", {-30, 1, 2, 3, 4, 5, 6, 7, 8}, 2, 1, {0, 1, 2, 3, 4, 5, 6, 7, 8}},
      {"before the longest run", {0, 1, 9, 3, 4, 5, 6, 7}, 3, 1, {0, 1, 2, 3, 4, 5, 6, 7}},
      {"a third", {0, 1, 2, 3, 4, 5, 30, -30, 30}, 2, 1, {0, 1, 2, 3, 4, 5, 6, 7, 8}},
      {"more than a third", {0, 1, 2, 3, 4, 30, -30, 30, -30}, 2, 0, {0, 1, 2, 3, 4, 5, 6, 7, 8}},
      // The first of two equal runs is taken over: its last step is what goes on.
      {"two equal runs", {0, 1, 2, 9, 10.5, 12}, 2, 1, {0, 1, 2, 2 + 8.5 / 2, 10.5, 12}},
      {"one clean step", {0, 1, 50}, 2, 0, Values(3, kUntouched)},
      {"no clean step", {0, 1, 2, 3}, 0, 0, Values(4, kUntouched)},
      {"no spread", {5, 5, 5, 5}, 2, 0, Values(4, kUntouched)},
      {"no number", {0, 1, std::nan(""), 3, 4, 5}, 2, 0, Values(6, kUntouched)},
      {"one sample", {1}, 2, 0, {kUntouched}},
  };
  for (const auto& one : cases) {
    Values data = one.data;
    Values out(data.size(), kUntouched);
    const int count = static_cast<int>(data.size());
    EXPECT_EQ(SmoothData(data.data(), out.data(), count, one.threshold), one.result) << one.what;
    EXPECT_EQ(out, one.out) << one.what;
    EXPECT_EQ(std::memcmp(data.data(), one.data.data(), data.size() * sizeof(double)), 0);
  }
  double value = 1;
  EXPECT_EQ(SmoothData(nullptr, &value, 5, 1), 0);
  EXPECT_EQ(SmoothData(&value, nullptr, 5, 1), 0);
  for (const int count : {-5, 0}) EXPECT_EQ(SmoothData(&value, &value, count, 1), 0);
}

Values Fit(const Values& x, const Values& y, int degree) {
  Values coefficients(static_cast<std::size_t>(degree) + 1, kUntouched);
  Gauss_PolyFit(static_cast<int>(x.size()), x.data(), y.data(), degree, coefficients.data());
  return coefficients;
}

// Points on polynomials with whole numbers: all sums and most quotients are exact.
TEST(GaussPolyFit, FindsThePolynomialOfItsPoints) {
  const Values x{-2, -1, 0, 1, 2, 3, 4, 5};
  const Values coefficients{2, -1, 3, 0.5, 0.25, -0.125};
  for (std::size_t degree = 0; degree < coefficients.size(); ++degree) {
    Values y(x.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
      for (std::size_t k = degree + 1; k-- > 0;) y[i] = y[i] * x[i] + coefficients[k];
    }
    const Values found = Fit(x, y, static_cast<int>(degree));
    for (std::size_t k = 0; k <= degree; ++k) EXPECT_NEAR(found[k], coefficients[k], 1e-6) << k;
  }
  EXPECT_EQ(Fit({1, 2, 3, 4}, {5, 7, 9, 11}, 1), (Values{3, 2}));
  EXPECT_EQ(Fit({1, 2, 3, 4}, {5, 7, 9, 12}, 0), (Values{8.25}));
}

// Values where each rounding of the sums and of the elimination shows.
TEST(GaussPolyFit, RoundsInTheOrderOfThePoints) {
  Values x;
  Values y;
  for (int i = 0; i < 1000; ++i) {
    x.push_back(i * 7919 % 1000 / 166.0 - 3);
    y.push_back(1 / (x.back() + 4) + i % 7 / 3.0);
  }
  const Values of_degree[] = {
      {0x1.52b17e692d689p+0},
      {0x1.52e99e6908c3fp+0, -0x1.8432a9ad38369p-4},
      {0x1.3c62e44e3c36bp+0, -0x1.865a11d19fc96p-4, 0x1.dcbcb4cee1acp-6},
      {0x1.3c4cf4091a942p+0, -0x1.dd3abc00c0701p-5, 0x1.dfc287858aa6p-6, -0x1.be05e5ba3c614p-8},
      {0x1.4060bf77c3659p+0, -0x1.daa15407481f2p-5, 0x1.803eaee9d5983p-7, -0x1.c35f03d522e44p-8,
       0x1.27edd725d2cd4p-9},
      {0x1.405762dbbeeeep+0, -0x1.5923041171954p-5, 0x1.8777dfa18677fp-7, -0x1.ec22663ed2e23p-7,
       0x1.2326d911c5d1p-9, 0x1.a6f39a22b9e99p-11}};
  for (int degree = 0; degree < 6; ++degree) EXPECT_EQ(Fit(x, y, degree), of_degree[degree]);
}

TEST(GaussPolyFit, SurvivesWhatCannotBeFitted) {
  const Values found = Fit({1, 2}, {1, 2}, 3);
  EXPECT_FALSE(std::isfinite(found[3]));
  const double one = 1;
  double nothing = 0;
  Gauss_PolyFit(0, &one, &one, 0, &nothing);
  EXPECT_FALSE(std::isfinite(nothing));
  double untouched = kUntouched;
  Gauss_PolyFit(1, &one, &one, -1, &untouched);
  Gauss_PolyFit(1, nullptr, &one, 0, &untouched);
  Gauss_PolyFit(1, &one, nullptr, 0, &untouched);
  EXPECT_EQ(untouched, kUntouched);
  Gauss_PolyFit(1, &one, &one, 0, nullptr);
}

}  // namespace
}  // namespace qvx::test
