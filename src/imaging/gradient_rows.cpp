#include "imaging/gradient_rows.h"

#include <algorithm>
#include <cmath>

#include "platform/wide_dispatch.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "imaging/gradient_rows.cpp"
#include <hwy/foreach_target.h>

#include <hwy/highway.h>

#ifndef QVX_IMAGING_GRADIENT_LOOPS
#define QVX_IMAGING_GRADIENT_LOOPS
namespace qvx::imaging {
namespace {

// How far beyond its edge a stroke still paints, for pixels that the edge cuts.
constexpr double kMargin = 0.5;
constexpr double kFull = 255.0;
constexpr double kHalf = 127.5;

template <typename Row>
using Loop = void (*)(const Row&, std::int64_t x, std::size_t count, std::uint8_t* out);

// The loops of one target.
struct Loops {
  Loop<StrokeRow> stroke;
  Loop<DiscRow> joint;
  Loop<DiscRow> dot;
};

}  // namespace
}  // namespace qvx::imaging
#endif

HWY_BEFORE_NAMESPACE();
namespace qvx::imaging {
namespace {
namespace HWY_NAMESPACE {
#if !QVX_WIDE_IS_EMULATED

namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<double>;
using V = hn::Vec<D>;

V Number(double value) {
  return hn::Set(D(), value);
}

V Distance(const RowDistance& row, V x) {
  const V across = hn::Add(hn::Mul(x, Number(row.slope)), Number(row.offset));
  return hn::Div(hn::Abs(across), Number(row.length));
}

// Truncates to a byte and keeps the larger.
void KeepLarger(V value, std::uint8_t* out) {
  const hn::Rebind<std::uint8_t, D> bytes;
  const hn::Rebind<std::int32_t, D> words;
  const V limited = hn::IfThenElseZero(hn::Gt(value, hn::Zero(D())), hn::Min(value, Number(kFull)));
  const auto painted = hn::DemoteTo(bytes, hn::DemoteTo(words, limited));
  hn::StoreU(hn::Max(painted, hn::LoadU(bytes, out)), bytes, out);
}

V StrokeValue(const StrokeRow& row, V x) {
  const V distance = Distance(row.axis, x);
  const V along = hn::Div(Distance(row.start, x), Number(row.length));
  const V width = hn::Add(Number(row.width), hn::Mul(along, Number(row.width_change)));
  const V strength = hn::Add(Number(row.strength), hn::Mul(along, Number(row.strength_change)));
  const V inner = hn::Div(hn::Sub(width, distance), width);
  const V value = hn::Mul(hn::Add(hn::Mul(inner, strength), strength), Number(0.5));
  const V top = Number(row.top_strength);
  const V scaled = hn::Mul(hn::IfThenElse(hn::Gt(value, top), top, value), Number(kFull));
  return hn::IfThenZeroElse(hn::Ge(hn::Sub(distance, width), Number(kMargin)), scaled);
}

template <bool kJoint>
V DiscValue(const DiscRow& row, V x) {
  const V across = hn::Sub(Number(row.centre_x), x);
  const V distance = hn::Sqrt(hn::Add(hn::Mul(across, across), Number(row.square_y)));
  const V radius = Number(row.radius);
  const V strength = Number(row.strength);
  const V inner = hn::Div(hn::Sub(radius, distance), radius);
  if constexpr (kJoint) {
    const V value = hn::Mul(hn::Mul(hn::Add(inner, Number(1.0)), strength), Number(kHalf));
    return hn::IfThenZeroElse(hn::Gt(hn::Sub(distance, radius), Number(kMargin)), value);
  } else {
    const V value = hn::Mul(hn::Add(hn::Mul(inner, strength), strength), Number(kHalf));
    return hn::IfThenZeroElse(hn::Gt(distance, radius), value);
  }
}

template <typename Row, V (*kValue)(const Row&, V), Loop<Row> kPlain>
void Paint(const Row& row, std::int64_t x, std::size_t count, std::uint8_t* out) {
  const std::size_t step = hn::Lanes(D());
  V columns = hn::Iota(D(), static_cast<double>(x));
  std::size_t done = 0;
  for (; done + step <= count; done += step) {
    KeepLarger(kValue(row, columns), out + done);
    columns = hn::Add(columns, Number(static_cast<double>(step)));
  }
  kPlain(row, x + static_cast<std::int64_t>(done), count - done, out + done);
}

constexpr Loops kLoops = {&Paint<StrokeRow, &StrokeValue, &PaintStrokePlain>,
                          &Paint<DiscRow, &DiscValue<true>, &PaintJointPlain>,
                          &Paint<DiscRow, &DiscValue<false>, &PaintDotPlain>};

#endif  // !QVX_WIDE_IS_EMULATED
}  // namespace HWY_NAMESPACE
}  // namespace
}  // namespace qvx::imaging
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qvx::imaging {
namespace {

double Distance(const RowDistance& row, double x) {
  return std::fabs(x * row.slope + row.offset) / row.length;
}

double StrokeValue(const StrokeRow& row, double x) {
  const double distance = Distance(row.axis, x);
  const double along = Distance(row.start, x) / row.length;
  const double width = row.width + along * row.width_change;
  const double strength = row.strength + along * row.strength_change;
  if (distance - width >= kMargin) return 0;
  const double value = ((width - distance) / width * strength + strength) * 0.5;
  return (value > row.top_strength ? row.top_strength : value) * kFull;
}

template <bool kJoint>
double DiscValue(const DiscRow& row, double x) {
  const double across = row.centre_x - x;
  const double distance = std::sqrt(across * across + row.square_y);
  const double inner = (row.radius - distance) / row.radius;
  if constexpr (kJoint) {
    return distance - row.radius > kMargin ? 0 : (inner + 1.0) * row.strength * kHalf;
  } else {
    return distance > row.radius ? 0 : (inner * row.strength + row.strength) * kHalf;
  }
}

template <typename Row, double (*kValue)(const Row&, double)>
void PaintPlain(const Row& row, std::int64_t x, std::size_t count, std::uint8_t* out) {
  for (std::size_t i = 0; i < count; ++i) {
    const double value = kValue(row, static_cast<double>(x + static_cast<std::int64_t>(i)));
    if (!(value > 0)) continue;
    out[i] = std::max(out[i], static_cast<std::uint8_t>(std::min(value, kFull)));
  }
}

constexpr Loops kPlainLoops = {&PaintStrokePlain, &PaintJointPlain, &PaintDotPlain};

const Loops& BestLoops() {
  return QVX_BEST_TARGET_OR(kLoops, kPlainLoops);
}

}  // namespace

void PaintStrokePlain(const StrokeRow& row, std::int64_t x, std::size_t count, std::uint8_t* out) {
  PaintPlain<StrokeRow, &StrokeValue>(row, x, count, out);
}

void PaintJointPlain(const DiscRow& row, std::int64_t x, std::size_t count, std::uint8_t* out) {
  PaintPlain<DiscRow, &DiscValue<true>>(row, x, count, out);
}

void PaintDotPlain(const DiscRow& row, std::int64_t x, std::size_t count, std::uint8_t* out) {
  PaintPlain<DiscRow, &DiscValue<false>>(row, x, count, out);
}

void PaintStroke(const StrokeRow& row, std::int64_t x, std::size_t count, std::uint8_t* out) {
  BestLoops().stroke(row, x, count, out);
}

void PaintJoint(const DiscRow& row, std::int64_t x, std::size_t count, std::uint8_t* out) {
  BestLoops().joint(row, x, count, out);
}

void PaintDot(const DiscRow& row, std::int64_t x, std::size_t count, std::uint8_t* out) {
  BestLoops().dot(row, x, count, out);
}

}  // namespace qvx::imaging
#endif  // HWY_ONCE
