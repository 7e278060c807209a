#include "qvx/number_helpers.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

namespace {

// Arithmetic that wraps.
constexpr std::int32_t Add(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

constexpr std::int32_t Subtract(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

constexpr std::int32_t Multiply(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

// Cut toward zero; to the nearest end of the type's range where the value lies outside.
template <typename T>
T ToWhole(double value) {
  using Limits = std::numeric_limits<T>;
  constexpr auto kEnd = -static_cast<double>(Limits::min());  // one above the largest
  if (std::isnan(value)) return 0;
  if (value >= kEnd) return Limits::max();
  return value <= -kEnd ? Limits::min() : static_cast<T>(value);
}

// The result of combining all values from the left.
int Fold(const int* values, int count, int (*combine)(int, int)) {
  if (values == nullptr || count == 0) return 1;
  int result = values[0];
  for (int i = 1; i < count; ++i) result = combine(result, values[i]);
  return result;
}

// The largest power of base below a value of 2 or more.
std::int64_t PowerBelow(std::int64_t value, std::int64_t base) {
  std::int64_t power = 1;
  while (power * base < value) power *= base;
  return power;
}

// Whether a side from one end to the other crosses the height of the point: it may end on it
// from one side only.
template <typename T>
bool Crosses(T height, T one_end, T other_end) {
  return (one_end > height) != (other_end > height);
}

// Wide enough for the product of any two differences of 32-bit numbers.
__extension__ using Product = __int128;

std::int64_t CrossingX(const POINT& i, const POINT& j, int y) {
  const std::int64_t rise = std::int64_t{j.y} - i.y;
  const Product run = Product{std::int64_t{y} - i.y} * (std::int64_t{j.x} - i.x);
  return static_cast<std::int64_t>(run / rise) + i.x;
}

bool LiesOnHorizontal(int x, int y, const POINT& i, const POINT& j) {
  return i.y == j.y && y == i.y && x >= std::min(i.x, j.x) && x <= std::max(i.x, j.x);
}

std::int64_t RoundedTimes(std::int32_t factor, double value) {
  return ToWhole<std::int64_t>(std::round(factor * value));
}

// 10 to the power decimals in 32 bits. From 10^32 on nothing but zeros is left.
std::int32_t DecimalFactor(int decimals) {
  std::int32_t factor = 1;
  for (int i = std::min(decimals, 32); i > 0; --i) factor = Multiply(factor, 10);
  return factor;
}

std::int32_t Scaled(std::int32_t value, double scale) {
  return ToWhole<std::int32_t>(value * scale);
}

}  // namespace

int calc_gcd(int a, int b) {
  if (a < 1 || b < 1) return 1;
  while (b != 0) a = std::exchange(b, a % b);
  return a;
}

int calc_gcd_array(const int* values, int count) {
  return Fold(values, count, &calc_gcd);
}

int calc_lcm(int a, int b) {
  return Multiply(a / calc_gcd(a, b), b);
}

int calc_lcm_array(const int* values, int count) {
  return Fold(values, count, &calc_lcm);
}

unsigned long long Factorial(int n) {
  // Beyond this each product is a multiple of 2^64.
  constexpr int kLastWithBits = 65;
  if (n > kLastWithBits) return 0;
  unsigned long long result = 1;
  for (int i = 2; i <= n; ++i) result *= static_cast<unsigned long long>(i);
  return result;
}

unsigned long long calc_combine(int n, int k) {
  const unsigned long long divisor = Factorial(k) * Factorial(Subtract(n, k));
  return divisor != 0 ? Factorial(n) / divisor : 0;
}

int GetOneBitCount(unsigned int value) {
  return std::popcount(value);
}

int IncreaseToPowerOf(int value, int base) {
  if (base < 2) return value;
  if (value < 2) return 1;
  return static_cast<int>(PowerBelow(value, base) * base);
}

int DecreaseToPowerOf(int value, int base) {
  if (base < 2) return value;
  return value < 2 ? 1 : static_cast<int>(PowerBelow(value, base));
}

int GetNearestPowerOf(int value, int base) {
  if (base < 2) return value;
  if (value < 2) return 1;
  const std::int64_t lower = PowerBelow(value, base);
  const std::int64_t upper = lower * base;
  return static_cast<int>(value - lower > upper - value ? upper : lower);
}

float FastInvSqrt(float x) {
  const auto bits = std::bit_cast<std::int32_t>(x);
  const float y = std::bit_cast<float>(Subtract(0x5F3759DF, bits >> 1));
  return (1.5f - x * 0.5f * y * y) * y;
}

int IsPointInPolygonSides(int x, int y, const POINT* points, int count) {
  if (points == nullptr || count < 3) return -1;
  bool inside = false;
  for (int i = 0, j = count - 1; i < count; j = i++) {
    const POINT& one = points[i];
    const POINT& other = points[j];
    if (LiesOnHorizontal(x, y, one, other)) return 0;
    if (!Crosses(y, one.y, other.y)) continue;
    const std::int64_t cross = CrossingX(one, other, y);
    if (x == cross) return 0;
    if (x < cross) inside = !inside;
  }
  return inside ? 1 : -1;
}

int IsPointInPolygonSides_Double(double x, double y, const double* xs, const double* ys,
                                 int count) {
  if (xs == nullptr || ys == nullptr || count < 3) return -1;
  bool inside = false;
  for (int i = 0, j = count - 1; i < count; j = i++) {
    if (!Crosses(y, ys[i], ys[j])) continue;
    const double cross = (xs[j] - xs[i]) * (y - ys[i]) / (ys[j] - ys[i]) + xs[i];
    if (std::fabs(x - cross) < 0.5) return 0;
    if (x < cross) inside = !inside;
  }
  return inside ? 1 : -1;
}

int CompareValueByDecimal(double a, double b, int decimals) {
  const std::int32_t factor = DecimalFactor(decimals);
  return RoundedTimes(factor, a) == RoundedTimes(factor, b) ? 0 : 1;
}

int GetSuitableDecimalFormatCount(double value, int maxDecimals) {
  if (maxDecimals < 1) return 0;
  const double limit = std::pow(10.0, -maxDecimals);
  double rest = value;
  for (int places = 0; places < maxDecimals; ++places, rest *= 10.0) {
    rest = std::fabs(rest - std::round(rest));
    if (rest < 0.01 && rest < limit * 0.5) return places;
    if (!(rest > 0)) break;  // stays as it is and never ends the loop
  }
  return maxDecimals;
}

void GetDoubleSuitableDisplayFormatA(double value, int maxDecimals, CBaseStringA& format) {
  format.Format("%%.%df", GetSuitableDecimalFormatCount(value, maxDecimals));
}

void GetDoubleSuitableDisplayFormatW(double value, int maxDecimals, CBaseStringW& format) {
  format.Format(u"%%.%df", GetSuitableDecimalFormatCount(value, maxDecimals));
}

void SetPointXY(POINT* p, int x, int y) {
  if (p != nullptr) *p = {x, y};
}

void SetRectXY(RECT* r, int left, int top, int width, int height) {
  if (r != nullptr) *r = {left, top, Add(left, width), Add(top, height)};
}

void GetRelativeRect(const RECT* r, RECT* out) {
  if (r == nullptr || out == nullptr) return;
  *out = {0, 0, Subtract(r->right, r->left), Subtract(r->bottom, r->top)};
}

void ScaleRect(RECT* r, double scaleX, double scaleY) {
  if (r == nullptr) return;
  *r = {Scaled(r->left, scaleX), Scaled(r->top, scaleY), Scaled(r->right, scaleX),
        Scaled(r->bottom, scaleY)};
}

void InflatRect(RECT* r, int dx, int dy) {
  if (r == nullptr) return;
  *r = {Add(r->left, dx), Add(r->top, dy), Add(r->right, dx), Add(r->bottom, dy)};
}

int IsRectEqual(const RECT* a, const RECT* b) {
  if (a == nullptr || b == nullptr) return 0;
  return a->left == b->left && a->top == b->top && a->right == b->right && a->bottom == b->bottom;
}

void BoundRect(RECT* out, const RECT* a, const RECT* b) {
  if (out == nullptr || a == nullptr || b == nullptr) return;
  const std::int32_t right = std::min(a->right, b->right);
  const std::int32_t bottom = std::min(a->bottom, b->bottom);
  *out = {std::min(std::max(a->left, b->left), right), std::min(std::max(a->top, b->top), bottom),
          right, bottom};
}
