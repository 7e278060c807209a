// How strings and pointer tables choose the size of their block: doubling and halving from
// whatever it was.
#pragma once

#include <limits>

namespace qvx::core {

// The size to grow to, so that needed fits. A size that can't be doubled any more becomes the
// largest int.
constexpr int IncreaseCapability(int capability, int needed) noexcept {
  if (needed <= capability) return capability;
  int grown = capability > 0 ? capability : 1;
  while (grown < needed) {
    if (grown > std::numeric_limits<int>::max() / 2) return std::numeric_limits<int>::max();
    grown *= 2;
  }
  return grown;
}

// The size to shrink to: halved as long as needed fits the half; 0 if nothing is needed.
constexpr int DecreaseCapability(int capability, int needed) noexcept {
  if (needed < 1) return 0;
  while (capability / 2 >= needed) capability /= 2;
  return capability;
}

}  // namespace qvx::core
