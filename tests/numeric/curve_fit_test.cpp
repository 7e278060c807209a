#include "qvx/curve_fit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace qvx::test {
namespace {

using Values = std::vector<double>;

constexpr double kUntouched = -99;

struct Smoothed {
  int result;
  Values out;
};

Smoothed Smooth(const Values& before, double threshold) {
  Values data = before;
  Smoothed smoothed{0, Values(data.size(), kUntouched)};
  smoothed.result =
      SmoothData(data.data(), smoothed.out.data(), static_cast<int>(data.size()), threshold);
  EXPECT_TRUE(data.empty() ||
              std::memcmp(data.data(), before.data(), data.size() * sizeof(double)) == 0);
  return smoothed;
}

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
      {"before the longest run",
       {0, 1, 9, 3, 4, 5, 6, 7, 8, 9, 10, 11},
       3,
       1,
       {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
      {"one clean step", {0, 1, 50}, 2, 0, Values(3, kUntouched)},
      {"no clean step", {0, 1, 2, 3}, 0, 0, Values(4, kUntouched)},
      {"no spread", {5, 5, 5, 5}, 2, 0, Values(4, kUntouched)},
      {"no number", {0, 1, std::nan(""), 3, 4, 5}, 2, 0, Values(6, kUntouched)},
      {"one sample", {1}, 2, 0, {kUntouched}},
      {"no samples", {}, 2, 0, {}},
  };
  for (const auto& one : cases) {
    const Smoothed smoothed = Smooth(one.data, one.threshold);
    EXPECT_EQ(smoothed.result, one.result) << one.what;
    EXPECT_EQ(smoothed.out, one.out) << one.what;
  }
  double value = 1;
  EXPECT_EQ(SmoothData(nullptr, &value, 5, 1), 0);
  EXPECT_EQ(SmoothData(&value, nullptr, 5, 1), 0);
  EXPECT_EQ(SmoothData(&value, &value, -5, 1), 0);
}

// With 9 samples 3 replaced ones are a third.
TEST(SmoothData, TellsWhetherMoreThanAThirdWasReplaced) {
  const Smoothed three = Smooth({0, 1, 2, 3, 4, 5, 30, -30, 30}, 2);
  EXPECT_EQ(three.result, 1);
  EXPECT_EQ(three.out, (Values{0, 1, 2, 3, 4, 5, 6, 7, 8}));
  const Smoothed four = Smooth({0, 1, 2, 3, 4, 30, -30, 30, -30}, 2);
  EXPECT_EQ(four.result, 0);
  EXPECT_EQ(four.out, (Values{0, 1, 2, 3, 4, 5, 6, 7, 8}));
}

// Of two runs of equal length the first is taken over: its last step is what goes on.
TEST(SmoothData, StartsFromTheFirstOfEqualRuns) {
  const Smoothed smoothed = Smooth({0, 1, 2, 9, 10.5, 12}, 2);
  EXPECT_EQ(smoothed.out[0], 0);
  EXPECT_EQ(smoothed.out[2], 2);
  EXPECT_EQ(smoothed.out[3], 2 + 8.5 / 2);
  EXPECT_EQ(smoothed.out[4], 10.5);
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
    Values y;
    y.reserve(x.size());
    for (const double at : x) {
      double sum = 0;
      for (std::size_t k = degree + 1; k-- > 0;) sum = sum * at + coefficients[k];
      y.push_back(sum);
    }
    const Values found = Fit(x, y, static_cast<int>(degree));
    for (std::size_t k = 0; k <= degree; ++k) EXPECT_NEAR(found[k], coefficients[k], 1e-6) << k;
  }
  EXPECT_EQ(Fit({1, 2, 3, 4}, {5, 7, 9, 11}, 1), (Values{3, 2}));
  EXPECT_EQ(Fit({1, 2, 3, 4}, {5, 7, 9, 12}, 0), (Values{8.25}));
}

// The sums and eliminations once more as they are told, on values where each rounding shows.
TEST(GaussPolyFit, RoundsInTheOrderOfThePoints) {
  for (int degree = 0; degree < 7; ++degree) {
    const auto terms = static_cast<std::size_t>(degree) + 1;
    Values x;
    Values y;
    Values s(2 * terms - 1);
    Values t(terms);
    for (int i = 0; i < 1000; ++i) {
      x.push_back(std::sin(i * 0.1) * 3);
      y.push_back(std::exp(x.back()) + std::cos(i));
      double power = 1.0;
      for (std::size_t k = 0; k < s.size(); ++k) {
        s[k] += power;
        if (k < terms) t[k] += y.back() * power;
        power *= x.back();
      }
    }
    std::vector<Values> a(terms);
    for (std::size_t r = 0; r < terms; ++r) a[r].assign(&s[r], &s[r] + terms);
    for (std::size_t k = 0; k + 1 < terms; ++k) {
      std::size_t pivot = k;
      for (std::size_t i = k; i + 1 < terms; ++i) {
        if (std::fabs(a[i][i]) > std::fabs(a[pivot][pivot])) pivot = i;
      }
      std::swap(a[k], a[pivot]);
      std::swap(t[k], t[pivot]);
      for (std::size_t i = k + 1; i < terms; ++i) {
        for (std::size_t j = k + 1; j < terms; ++j) a[i][j] -= a[k][j] * a[i][k] / a[k][k];
        t[i] -= a[i][k] * t[k] / a[k][k];
      }
    }
    Values expected(terms);
    for (std::size_t i = terms; i-- > 0;) {
      expected[i] = t[i];
      for (std::size_t j = i + 1; j < terms; ++j) expected[i] -= a[i][j] * expected[j];
      expected[i] /= a[i][i];
    }
    EXPECT_EQ(Fit(x, y, degree), expected) << degree;
  }
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
