#include "containers/intro_sort.h"

#include <utility>

namespace qvx::containers {
namespace {

constexpr std::ptrdiff_t kInsertionLimit = 32;
constexpr std::ptrdiff_t kNintherLimit = 256;

class Sorter {
 public:
  explicit Sorter(Compare compare) : compare_(compare) {}

  void Sort(void** first, std::ptrdiff_t count, std::ptrdiff_t budget) {
    while (count > kInsertionLimit) {
      if (budget <= 0) return HeapSort(first, count);
      budget = budget / 2 + budget / 4;
      MovePivotToFront(first, count);
      const std::ptrdiff_t lower = Partition(first, count);
      const std::ptrdiff_t done = lower == 0 ? SkipEqual(first, count) : lower + 1;
      void** upper = first + done;
      if (lower < count - done) {
        Sort(first, lower, budget);
        first = upper;
        count -= done;
      } else {
        Sort(upper, count - done, budget);
        count = lower;
      }
    }
    InsertionSort(first, count);
  }

 private:
  bool Less(void*& left, void*& right) const { return compare_(left, right) < 0; }

  void MedianToMiddle(void** low, void** middle, void** high) const {
    if (Less(*middle, *low)) std::swap(*middle, *low);
    if (!Less(*high, *middle)) return;
    std::swap(*high, *middle);
    if (Less(*middle, *low)) std::swap(*middle, *low);
  }

  void MovePivotToFront(void** first, std::ptrdiff_t count) const {
    void** middle = first + count / 2;
    void** last = first + count - 1;
    if (count > kNintherLimit) {
      const std::ptrdiff_t eighth = count / 8;
      MedianToMiddle(first, first + eighth, first + 2 * eighth);
      MedianToMiddle(middle - eighth, middle, middle + eighth);
      MedianToMiddle(last - 2 * eighth, last - eighth, last);
      MedianToMiddle(first + eighth, middle, last - eighth);
    } else {
      MedianToMiddle(first, middle, last);
    }
    std::swap(*first, *middle);
  }

  // Moves the entries before the pivot, which stands in front, to the lower part and the pivot
  // behind them; returns their number. Each step swaps whatever the answer, so that no branch
  // depends on it.
  std::ptrdiff_t Partition(void** first, std::ptrdiff_t count) const {
    std::ptrdiff_t lower = 0;
    for (std::ptrdiff_t i = 1; i < count; ++i) {
      const bool less = Less(first[i], first[0]);
      std::swap(first[lower + 1], first[i]);
      lower += less ? 1 : 0;
    }
    std::swap(first[0], first[lower]);
    return lower;
  }

  // The pivot stands in front and nothing sorts before it: moves the entries equal to it behind
  // it; returns their number with the pivot.
  std::ptrdiff_t SkipEqual(void** first, std::ptrdiff_t count) const {
    std::ptrdiff_t equal = 1;
    for (std::ptrdiff_t i = 1; i < count; ++i) {
      const bool greater = Less(first[0], first[i]);
      std::swap(first[equal], first[i]);
      equal += greater ? 0 : 1;
    }
    return equal;
  }

  void InsertionSort(void** first, std::ptrdiff_t count) const {
    for (std::ptrdiff_t i = 1; i < count; ++i) {
      void* entry = first[i];
      std::ptrdiff_t hole = i;
      for (; hole > 0 && Less(entry, first[hole - 1]); --hole) first[hole] = first[hole - 1];
      first[hole] = entry;
    }
  }

  void SiftDown(void** first, std::ptrdiff_t hole, std::ptrdiff_t count) const {
    for (std::ptrdiff_t child = 2 * hole + 1; child < count; child = 2 * hole + 1) {
      if (child + 1 < count && Less(first[child], first[child + 1])) ++child;
      if (!Less(first[hole], first[child])) return;
      std::swap(first[hole], first[child]);
      hole = child;
    }
  }

  void HeapSort(void** first, std::ptrdiff_t count) const {
    for (std::ptrdiff_t i = count / 2; i-- > 0;) SiftDown(first, i, count);
    for (std::ptrdiff_t end = count - 1; end > 0; --end) {
      std::swap(first[0], first[end]);
      SiftDown(first, 0, end);
    }
  }

  Compare compare_;
};

}  // namespace

void IntroSort(void** first, std::ptrdiff_t count, Compare compare) {
  Sorter(compare).Sort(first, count, count);
}

}  // namespace qvx::containers
