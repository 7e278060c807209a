#include "text/pattern_search.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include "core/raw_text.h"
#include "platform/wide_dispatch.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "text/pattern_search.cpp"
#include <hwy/foreach_target.h>

#include <hwy/highway.h>

#ifndef QVX_TEXT_PATTERN_LOOPS
#define QVX_TEXT_PATTERN_LOOPS
namespace qvx::text {
namespace {

// Two characters of a pattern. Each is compared with the bits of its mask set on both sides,
// which makes the two cases of a letter alike.
template <typename Lane>
struct Probe {
  std::size_t place[2];
  Lane value[2];
  Lane mask[2];
};

// The wide loops of one target: the first of the places from first to last, exclusive, that
// holds both characters, or last. Whole vectors are done; *done is where they end.
struct Loops {
  std::size_t (*exact8)(const std::uint8_t*, std::size_t, std::size_t, const Probe<std::uint8_t>&);
  std::size_t (*exact16)(const std::uint16_t*, std::size_t, std::size_t,
                         const Probe<std::uint16_t>&);
  std::size_t (*ignored8)(const std::uint8_t*, std::size_t, std::size_t,
                          const Probe<std::uint8_t>&);
  std::size_t (*ignored16)(const std::uint16_t*, std::size_t, std::size_t,
                           const Probe<std::uint16_t>&);
};

template <typename Lane>
bool Holds(const Lane* text, std::size_t place, const Probe<Lane>& probe) {
  return (text[place + probe.place[0]] | probe.mask[0]) == probe.value[0] &&
         (text[place + probe.place[1]] | probe.mask[1]) == probe.value[1];
}

}  // namespace
}  // namespace qvx::text
#endif

HWY_BEFORE_NAMESPACE();
namespace qvx::text {
namespace {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

template <Case kCase, class D>
class Matcher {
  using Lane = hn::TFromD<D>;

 public:
  Matcher(D d, const Lane* text, const Probe<Lane>& probe)
      : d_(d),
        first_(text + probe.place[0]),
        second_(text + probe.place[1]),
        first_value_(hn::Set(d, probe.value[0])),
        second_value_(hn::Set(d, probe.value[1])),
        first_mask_(hn::Set(d, probe.mask[0])),
        second_mask_(hn::Set(d, probe.mask[1])) {}

  HWY_INLINE hn::Mask<D> At(std::size_t place) const {
    auto first = hn::LoadU(d_, first_ + place);
    auto second = hn::LoadU(d_, second_ + place);
    if constexpr (kCase == Case::kIgnored) {
      first = hn::Or(first, first_mask_);
      second = hn::Or(second, second_mask_);
    }
    return hn::And(hn::Eq(first, first_value_), hn::Eq(second, second_value_));
  }

 private:
  D d_;
  const Lane* first_;
  const Lane* second_;
  hn::Vec<D> first_value_;
  hn::Vec<D> second_value_;
  hn::Vec<D> first_mask_;
  hn::Vec<D> second_mask_;
};

template <Case kCase, typename Lane>
std::size_t FindProbe(const Lane* text, std::size_t place, std::size_t last,
                      const Probe<Lane>& probe) {
  const hn::ScalableTag<Lane> d;
  const std::size_t step = hn::Lanes(d);
  const Matcher<kCase, decltype(d)> matcher(d, text, probe);
  for (; place + 4 * step <= last; place += 4 * step) {
    const auto left = hn::Or(matcher.At(place), matcher.At(place + step));
    const auto right = hn::Or(matcher.At(place + 2 * step), matcher.At(place + 3 * step));
    if (!hn::AllFalse(d, hn::Or(left, right))) break;
  }
  for (; place + step <= last; place += step) {
    const auto hits = matcher.At(place);
    if (!hn::AllFalse(d, hits)) return place + hn::FindKnownFirstTrue(d, hits);
  }
  while (place < last && !Holds(text, place, probe)) ++place;
  return place;
}

inline constexpr Loops kLoops = {
    &FindProbe<Case::kExact, std::uint8_t>, &FindProbe<Case::kExact, std::uint16_t>,
    &FindProbe<Case::kIgnored, std::uint8_t>, &FindProbe<Case::kIgnored, std::uint16_t>};

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

template <typename T>
using Lane = std::conditional_t<sizeof(T) == 1, std::uint8_t, std::uint16_t>;

template <Case kCase>
std::size_t FindProbeWide(const std::uint8_t* text, std::size_t place, std::size_t last,
                          const Probe<std::uint8_t>& probe) {
  const Loops& loops = BestLoops();
  return (kCase == Case::kExact ? loops.exact8 : loops.ignored8)(text, place, last, probe);
}

template <Case kCase>
std::size_t FindProbeWide(const std::uint16_t* text, std::size_t place, std::size_t last,
                          const Probe<std::uint16_t>& probe) {
  const Loops& loops = BestLoops();
  return (kCase == Case::kExact ? loops.exact16 : loops.ignored16)(text, place, last, probe);
}

// How common a byte is in texts and in other data, roughly: 0 for the rare ones.
constexpr std::array<std::uint8_t, 256> MakeCommonness() {
  std::array<std::uint8_t, 256> common{};
  constexpr std::string_view kOrder =
      "JQZXK~`^|@&%$#!?VYUWGHBFPDLMRNOCSTIAE9876543210+*<>[]{}"
      "zqjxk\\\"';:()/_=-\t\r\n.,vbygpwfmucdlhrsnioate ";
  for (std::size_t i = 0; i < kOrder.size(); ++i) {
    common[static_cast<unsigned char>(kOrder[i])] = static_cast<std::uint8_t>(i + 20);
  }
  for (std::size_t i = 0x80; i < 0xC0; ++i) common[i] = 40;  // inside UTF-8 characters
  for (std::size_t i = 0xE3; i < 0xEA; ++i) common[i] = 100;
  common[0] = 150;
  common[0xFF] = 60;
  return common;
}

template <Case kCase, typename T>
std::uint8_t Commonness(T character) {
  static constexpr std::array<std::uint8_t, 256> kCommon = MakeCommonness();
  const unsigned int code = core::Code(character);
  if (code > 255) return 30;
  if (kCase == Case::kIgnored && core::IsAsciiLetter(character)) {
    return std::max(kCommon[code], kCommon[code ^ core::kCaseBit]);
  }
  return kCommon[code];
}

// The two rarest characters near the start of the pattern; a single one stands for both.
template <Case kCase, typename T>
Probe<Lane<T>> ChooseProbe(const Pattern<T>& pattern) {
  constexpr std::size_t kLooked = 32;
  std::size_t place[2] = {0, pattern.length > 1 ? std::size_t{1} : std::size_t{0}};
  int common[2] = {Commonness<kCase>(pattern.text[place[0]]),
                   Commonness<kCase>(pattern.text[place[1]])};
  for (std::size_t i = 2; i < std::min(pattern.length, kLooked); ++i) {
    const int worse = common[0] > common[1] ? 0 : 1;
    const int here = Commonness<kCase>(pattern.text[i]);
    if (here >= common[worse]) continue;
    common[worse] = here;
    place[worse] = i;
  }
  Probe<Lane<T>> probe;
  for (int k = 0; k < 2; ++k) {
    const T character = pattern.text[place[k]];
    const bool both = kCase == Case::kIgnored && core::IsAsciiLetter(character);
    probe.place[k] = place[k];
    probe.mask[k] = static_cast<Lane<T>>(both ? core::kCaseBit : 0);
    probe.value[k] = static_cast<Lane<T>>(core::Code(character) | probe.mask[k]);
  }
  return probe;
}

template <Case kCase, typename T>
bool Same(T left, T right) {
  return kCase == Case::kExact ? left == right : core::Matches(left, right);
}

template <Case kCase, typename T>
bool SameAll(const T* left, const T* right, std::size_t count) {
  return kCase == Case::kExact ? core::SameCharacters(left, right, count)
                               : core::MatchAll(left, right, count);
}

// Compares block by block. Returns how many characters were looked at; more than there are
// means that all agree.
template <Case kCase, typename T>
std::size_t Compare(const T* text, const Pattern<T>& pattern) {
  constexpr std::size_t kBlock = 64;
  for (std::size_t done = 0; done < pattern.length; done += kBlock) {
    const std::size_t count = std::min(kBlock, pattern.length - done);
    if (!SameAll<kCase>(text + done, pattern.text + done, count)) return done + count;
  }
  return pattern.length + 1;
}

// From a place on, in time that grows with the text alone.
template <Case kCase, typename T>
const T* FindByTable(const T* text, std::size_t length, std::size_t from,
                     const Pattern<T>& pattern) {
  if (pattern.length > length) return nullptr;
  const std::size_t last = length - pattern.length;
  const auto end = static_cast<std::ptrdiff_t>(pattern.length);
  std::ptrdiff_t j = 0;
  for (std::size_t i = from; i < length && i - static_cast<std::size_t>(j) <= last;) {
    if (Same<kCase>(text[i], pattern.text[j])) {
      ++i;
      if (++j == end) return text + i - end;
      continue;
    }
    j = pattern.next[j];
    if (j < 0) {
      ++i;
      j = 0;
    }
  }
  return nullptr;
}

}  // namespace

template <Case kCase, typename T>
const T* FindPattern(const T* text, std::size_t length, const Pattern<T>& pattern) {
  // Comparing may cost this much before the table takes over, and this much more for each
  // character that the search has passed.
  constexpr std::size_t kFree = 4096;
  constexpr std::size_t kPerCharacter = 4;
  if (pattern.length > length) return nullptr;
  const std::size_t last = length - pattern.length + 1;
  const auto* lanes = reinterpret_cast<const Lane<T>*>(text);
  const Probe<Lane<T>> probe = ChooseProbe<kCase>(pattern);
  std::size_t compared = 0;
  for (std::size_t place = 0;; ++place) {
    place = FindProbeWide<kCase>(lanes, place, last, probe);
    if (place == last) return nullptr;
    const std::size_t looked = Compare<kCase>(text + place, pattern);
    if (looked > pattern.length) return text + place;
    compared += looked;
    if (pattern.next != nullptr && compared > kFree + kPerCharacter * place) {
      return FindByTable<kCase>(text, length, place + 1, pattern);
    }
  }
}

template const char* FindPattern<Case::kExact>(const char*, std::size_t, const Pattern<char>&);
template const char* FindPattern<Case::kIgnored>(const char*, std::size_t, const Pattern<char>&);
template const WCHAR* FindPattern<Case::kExact>(const WCHAR*, std::size_t, const Pattern<WCHAR>&);
template const WCHAR* FindPattern<Case::kIgnored>(const WCHAR*, std::size_t, const Pattern<WCHAR>&);

}  // namespace qvx::text
#endif  // HWY_ONCE
