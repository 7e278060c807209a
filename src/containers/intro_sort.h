// The sort behind QuickSort. Not stable. Stays inside the range and ends whatever compare
// answers; O(n log n) in the worst case.
#pragma once

#include <cstddef>

namespace qvx::containers {

using Compare = int (*)(void*&, void*&);

void IntroSort(void** first, std::ptrdiff_t count, Compare compare);

}  // namespace qvx::containers
