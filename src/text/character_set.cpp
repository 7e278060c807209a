#include "text/character_set.h"

#include <cstring>

#include "platform/wide_dispatch.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "text/character_set.cpp"
#include <hwy/foreach_target.h>

#include <hwy/highway.h>

#ifndef QVX_TEXT_MARK_LOOPS
#define QVX_TEXT_MARK_LOOPS
namespace qvx::text {
namespace {

struct Loops {
  std::size_t (*mark8)(const std::uint8_t*, std::size_t, const std::uint8_t*, std::uint64_t*);
  std::size_t (*mark16)(const std::uint16_t*, std::size_t, const std::uint16_t*, std::uint64_t*);
};

}  // namespace
}  // namespace qvx::text
#endif

HWY_BEFORE_NAMESPACE();
namespace qvx::text {
namespace {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

template <typename Lane>
std::size_t MarkFour(const Lane* text, std::size_t count, const Lane* four, std::uint64_t* marks) {
  const hn::ScalableTag<Lane> d;
  const std::size_t step = hn::Lanes(d);
  const auto a = hn::Set(d, four[0]);
  const auto b = hn::Set(d, four[1]);
  const auto c = hn::Set(d, four[2]);
  const auto e = hn::Set(d, four[3]);
  std::size_t done = 0;
  for (; done + kMarksPerWord <= count; done += kMarksPerWord) {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < kMarksPerWord; i += step) {
      const auto values = hn::LoadU(d, text + done + i);
      const auto hits = hn::Or(hn::Or(hn::Eq(values, a), hn::Eq(values, b)),
                               hn::Or(hn::Eq(values, c), hn::Eq(values, e)));
      std::uint64_t bits = 0;
      hn::StoreMaskBits(d, hits, reinterpret_cast<std::uint8_t*>(&bits));
      word |= bits << i;
    }
    marks[done / kMarksPerWord] = word;
  }
  return done;
}

inline constexpr Loops kLoops = {&MarkFour<std::uint8_t>, &MarkFour<std::uint16_t>};

}  // namespace HWY_NAMESPACE
}  // namespace
}  // namespace qvx::text
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qvx::text {
namespace {

const Loops& BestLoops() {
  return QVX_BEST_TARGET(kLoops);
}

}  // namespace

std::size_t MarkAnyOfFour(const char* text, std::size_t count, const char* four,
                          std::uint64_t* marks) {
  return BestLoops().mark8(reinterpret_cast<const std::uint8_t*>(text), count,
                           reinterpret_cast<const std::uint8_t*>(four), marks);
}

std::size_t MarkAnyOfFour(const WCHAR* text, std::size_t count, const WCHAR* four,
                          std::uint64_t* marks) {
  return BestLoops().mark16(reinterpret_cast<const std::uint16_t*>(text), count,
                            reinterpret_cast<const std::uint16_t*>(four), marks);
}

}  // namespace qvx::text
#endif  // HWY_ONCE
