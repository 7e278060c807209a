#include "imaging/thermal_index.h"

#include "platform/wide_dispatch.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "imaging/thermal_index.cpp"
#include <hwy/foreach_target.h>

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace qvx::imaging {
namespace {
namespace HWY_NAMESPACE {
#if !QVX_WIDE_IS_EMULATED

namespace hn = hwy::HWY_NAMESPACE;

void FindBinsWide(const double* data, std::size_t count, BinScale scale, std::uint8_t* bins) {
  const hn::ScalableTag<double> d;
  const hn::Rebind<std::int32_t, decltype(d)> d32;
  const hn::Rebind<std::uint8_t, decltype(d)> d8;
  const std::size_t step = hn::Lanes(d);
  const auto origin = hn::Set(d, scale.origin);
  const auto factor = hn::Set(d, scale.factor);
  const auto most = hn::Set(d, 255.0);
  std::size_t done = 0;
  for (; done + step <= count; done += step) {
    const auto scaled = hn::Mul(hn::Sub(hn::LoadU(d, data + done), origin), factor);
    // What is not a number fails the first comparison and becomes 0.
    const auto above = hn::IfThenElseZero(hn::Gt(scaled, hn::Zero(d)), scaled);
    const auto whole = hn::DemoteTo(d32, hn::IfThenElse(hn::Lt(above, most), above, most));
    hn::StoreU(hn::DemoteTo(d8, whole), d8, bins + done);
  }
  FindBinsPlain(data + done, count - done, scale, bins + done);
}

#endif  // !QVX_WIDE_IS_EMULATED
}  // namespace HWY_NAMESPACE
}  // namespace
}  // namespace qvx::imaging
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qvx::imaging {
namespace {

std::uint8_t BinOf(double value, BinScale scale) {
  const double scaled = (value - scale.origin) * scale.factor;
  if (!(scaled > 0.0)) return 0;
  return scaled < 255.0 ? static_cast<std::uint8_t>(scaled) : 255;
}

}  // namespace

void FindBinsPlain(const double* data, std::size_t count, BinScale scale, std::uint8_t* bins) {
  for (std::size_t i = 0; i < count; ++i) bins[i] = BinOf(data[i], scale);
}

void FindBins(const double* data, std::size_t count, BinScale scale, std::uint8_t* bins) {
  QVX_BEST_TARGET_OR(FindBinsWide, FindBinsPlain)(data, count, scale, bins);
}

}  // namespace qvx::imaging
#endif  // HWY_ONCE
