#include "qvx/number_helpers.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

bool operator==(const RECT& a, const RECT& b) {
  return IsRectEqual(&a, &b) != 0;
}

namespace qvx::test {
namespace {

const double kInfinite = std::numeric_limits<double>::infinity();

TEST(NumberHelpers, DivisorsAndMultiples) {
  const struct {
    int a, b, gcd, lcm;
  } pairs[] = {{0, 5, 1, 0},   {5, 0, 1, 0},        {-4, 6, 1, -24},
               {-2, 3, 1, -6}, {INT_MAX, 2, 1, -2}, {INT_MIN, -1, 1, INT_MIN}};
  for (const auto& [a, b, gcd, lcm] : pairs) {
    EXPECT_EQ(calc_gcd(a, b), gcd) << a << " " << b;
    EXPECT_EQ(calc_lcm(a, b), lcm) << a << " " << b;
  }
  const struct {
    std::vector<int> values;
    int gcd, lcm;
  } arrays[] = {{{}, 1, 1}, {{-7}, -7, -7}, {{24, 36, 60}, 12, 360}, {{24, 0, 60}, 1, 0}};
  for (const auto& [values, gcd, lcm] : arrays) {
    EXPECT_EQ(calc_gcd_array(values.data(), static_cast<int>(values.size())), gcd);
    EXPECT_EQ(calc_lcm_array(values.data(), static_cast<int>(values.size())), lcm);
  }
  EXPECT_EQ(calc_gcd_array(nullptr, 3), 1);
  std::mt19937 random(14);
  for (int i = 0; i < 1000; ++i) {
    const int a = 1 + static_cast<int>(random() % 40000);
    const int b = 1 + static_cast<int>(random() % 40000);
    ASSERT_EQ(calc_gcd(a, b), std::gcd(a, b));
    ASSERT_EQ(calc_lcm(a, b), std::lcm(a, b));
  }
}

TEST(NumberHelpers, FactorialsAndCombinations) {
  unsigned long long product = 1;
  for (int n = 1; n <= 20; ++n) {
    product *= static_cast<unsigned>(n);
    EXPECT_EQ(Factorial(n), product);
    for (int k = 1; k < n; ++k) {
      ASSERT_EQ(calc_combine(n, k), calc_combine(n - 1, k - 1) + calc_combine(n - 1, k));
    }
  }
  for (const int n : {-3, 0}) EXPECT_EQ(Factorial(n), 1u);
  EXPECT_EQ(Factorial(65), 9223372036854775808u);
  for (const int n : {66, INT_MAX}) EXPECT_EQ(Factorial(n), 0u);
  EXPECT_EQ(calc_combine(5, 2), 10u);
  EXPECT_EQ(calc_combine(5, 7), 0u);
  EXPECT_EQ(calc_combine(70, 68), 0u);
  EXPECT_EQ(calc_combine(INT_MIN, INT_MAX), 0u);
  EXPECT_EQ(GetOneBitCount(0), 0);
  EXPECT_EQ(GetOneBitCount(0xFFFFFFFF), 32);
  EXPECT_EQ(GetOneBitCount(0x80000101), 3);
}

TEST(NumberHelpers, Powers) {
  const struct {
    int value, base, up, down, nearest;
  } cases[] = {{8, 2, 8, 4, 8},         {1, 2, 1, 1, 1},        {2, 2, 2, 1, 2},
               {6, 2, 8, 4, 4},         {7, 2, 8, 4, 8},        {5, 1, 5, 5, 5},
               {100, 10, 100, 10, 100}, {99, 10, 100, 10, 100}, {5, 10, 10, 1, 1},
               {6, 10, 10, 1, 10},      {-9, 3, 1, 1, 1},       {5, -2, 5, 5, 5}};
  for (const auto& [value, base, up, down, nearest] : cases) {
    EXPECT_EQ(IncreaseToPowerOf(value, base), up) << value << " " << base;
    EXPECT_EQ(DecreaseToPowerOf(value, base), down) << value << " " << base;
    EXPECT_EQ(GetNearestPowerOf(value, base), nearest) << value << " " << base;
  }
  EXPECT_EQ(IncreaseToPowerOf(1 << 30, 2), 1 << 30);
  EXPECT_EQ(DecreaseToPowerOf(1 << 30, 2), 1 << 29);
  EXPECT_EQ(GetNearestPowerOf(1 << 30, 2), 1 << 30);
  EXPECT_EQ(DecreaseToPowerOf(INT_MAX, INT_MAX), 1);
  EXPECT_NO_FATAL_FAILURE(IncreaseToPowerOf(INT_MAX, 2));
}

TEST(NumberHelpers, InverseSquareRoot) {
  for (float x = 1e-30f; x < 1e30f; x *= 1.37f) {
    ASSERT_NEAR(FastInvSqrt(x) * std::sqrt(x), 1.0f, 0.002f) << x;
  }
  // In single precision, step by step.
  EXPECT_EQ(FastInvSqrt(1.0f), 0x1.ff221ep-1f);
  EXPECT_EQ(FastInvSqrt(0.15625f), 0x1.434322p+1f);
  EXPECT_NO_FATAL_FAILURE(FastInvSqrt(-1.0f));
}

TEST(Polygons, InsideOutsideAndOutline) {
  const POINT square[] = {{0, 0}, {10, 0}, {10, 10}, {0, 10}};
  const POINT triangle[] = {{0, 0}, {9, 3}, {0, 6}};
  const POINT huge[] = {{INT_MIN, INT_MIN}, {INT_MAX, INT_MIN}, {INT_MAX, INT_MAX}, {INT_MIN, 0}};
  // A star's middle is crossed twice, so it is outside.
  const POINT star[] = {{0, 10}, {6, -8}, {-10, 3}, {10, 3}, {-6, -8}};
  const struct {
    const POINT* points;
    int count, x, y, where;
  } cases[] = {{square, 4, 5, 5, 1},   {square, 4, 0, 5, 0},     {square, 4, 5, 0, 0},
               {square, 4, 11, 5, -1}, {square, 4, 5, 10, 0},    {square, 4, 10, 10, 0},
               {square, 4, -1, 0, -1}, {square, 2, 5, 5, -1},    {square, -1, 5, 5, -1},
               {triangle, 3, 3, 3, 1}, {triangle, 3, 9, 2, -1},  {triangle, 3, 6, 2, 0},
               {huge, 4, 0, 0, 1},     {huge, 4, INT_MAX, 5, 0}, {star, 5, 0, 0, -1},
               {star, 5, 0, 7, 1}};
  for (const auto& [points, count, x, y, where] : cases) {
    EXPECT_EQ(IsPointInPolygonSides(x, y, points, count), where) << x << " " << y;
  }
  EXPECT_EQ(IsPointInPolygonSides(1, 1, nullptr, 4), -1);

  const double xs[] = {0, 10, 10, 0};
  const double ys[] = {0, 0, 10, 10};
  const struct {
    double x, y;
    int where;
  } doubles[] = {{5, 5, 1},    {0.4, 5, 0}, {-0.4, 5, 0}, {0.5, 5, 1},       {-0.5, 5, -1},
                 {10.4, 5, 0}, {5, 10, -1}, {5, 0, 1},    {kInfinite, 5, -1}};
  for (const auto& [x, y, where] : doubles) {
    EXPECT_EQ(IsPointInPolygonSides_Double(x, y, xs, ys, 4), where) << x << " " << y;
  }
  EXPECT_EQ(IsPointInPolygonSides_Double(5, 5, xs, ys, 2), -1);
  EXPECT_EQ(IsPointInPolygonSides_Double(5, 5, nullptr, ys, 4), -1);
}

TEST(Decimals, Comparing) {
  const struct {
    double a, b;
    int decimals, result;
  } cases[] = {{1.004, 1.001, 2, 0},  {1.006, 1.001, 2, 1},     {1.4, 1, 0, 0},
               {1.5, 1, 0, 1},        {-1.5, -2, -3, 0},        {1e300, 2e300, 2, 0},
               {1e300, -1e300, 2, 1}, {kInfinite, 1e300, 0, 0}, {1, 2, 40, 0}};
  for (const auto& [a, b, decimals, result] : cases) {
    EXPECT_EQ(CompareValueByDecimal(a, b, decimals), result) << a;
  }
  EXPECT_EQ(CompareValueByDecimal(1, 2, INT_MAX), 0);
}

TEST(Decimals, SuitableFormats) {
  const struct {
    double value;
    int most, places;
  } cases[] = {{2.0, 3, 0},   {2.5, 3, 1}, {3.14159, 3, 3}, {1.004, 2, 0},   {1.006, 2, 2},
               {-2.25, 6, 2}, {1.5, 0, 0}, {1.5, -1, 0},    {0.1, 400, 400}, {kInfinite, 5, 5}};
  for (const auto& [value, most, places] : cases) {
    EXPECT_EQ(GetSuitableDecimalFormatCount(value, most), places) << value;
  }
  EXPECT_EQ(GetSuitableDecimalFormatCount(1e300, INT_MAX), INT_MAX);
  CBaseStringA narrow;
  CBaseStringW wide;
  GetDoubleSuitableDisplayFormatA(2.25, 3, narrow);
  GetDoubleSuitableDisplayFormatW(2.25, 3, wide);
  EXPECT_STREQ(narrow.GetString(), "%.2f");
  EXPECT_EQ(std::u16string(wide.GetString()), u"%.2f");
}

TEST(Rectangles, AreChangedAsTold) {
  POINT point{};
  SetPointXY(&point, 3, -4);
  EXPECT_TRUE(point.x == 3 && point.y == -4);
  RECT r{};
  SetRectXY(&r, 1, 2, 10, 20);
  EXPECT_EQ(r, (RECT{1, 2, 11, 22}));
  RECT out{};
  GetRelativeRect(&r, &out);
  EXPECT_EQ(out, (RECT{0, 0, 10, 20}));
  ScaleRect(&r, 1.55, -0.5);
  EXPECT_EQ(r, (RECT{1, -1, 17, -11}));
  ScaleRect(&r, kInfinite, std::nan(""));
  EXPECT_EQ(r, (RECT{INT_MAX, 0, INT_MAX, 0}));
  r = {0, 0, 10, 10};
  InflatRect(&r, 2, 3);
  EXPECT_EQ(r, (RECT{2, 3, 12, 13}));
  const RECT box{0, 0, 10, 10};
  const struct {
    RECT other, common;
  } pairs[] = {{{5, 5, 20, 20}, {5, 5, 10, 10}},
               {{20, 20, 30, 30}, {10, 10, 10, 10}},
               {{-9, 3, 4, 40}, {0, 3, 4, 10}},
               {{-9, -9, -4, -4}, {-4, -4, -4, -4}}};
  for (const auto& pair : pairs) {
    BoundRect(&out, &box, &pair.other);
    EXPECT_EQ(out, pair.common);
    out = box;
    BoundRect(&out, &pair.other, &out);
    EXPECT_EQ(out, pair.common);
  }
  for (const RECT& other :
       {RECT{1, 0, 10, 10}, RECT{0, 1, 10, 10}, RECT{0, 0, 1, 10}, RECT{0, 0, 10, 1}}) {
    EXPECT_EQ(IsRectEqual(&box, &other), 0);
  }
  EXPECT_EQ(IsRectEqual(nullptr, &box), 0);
  BoundRect(&out, nullptr, &box);
  BoundRect(nullptr, &box, &box);
  ScaleRect(nullptr, 1, 1);
}

}  // namespace
}  // namespace qvx::test
