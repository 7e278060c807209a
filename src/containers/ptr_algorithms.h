// What the array and the list share: the walk of their searches, the moving rules and the
// texts of their dump.
#pragma once

#include <algorithm>
#include <cstdint>

#include "qvx/ptr_array.h"

namespace qvx::containers {

using Match = int (*)(const void*, const void*);
using Equal = bool (*)(const void*, const void*);

inline bool Matches(const void* entry, const void* key, Match match) {
  return match != nullptr ? match(entry, key) != 0 : entry == key;
}

// Where a walk stopped: the index of the hit, or -1, and how far both cursors came.
struct SearchResult {
  int index;
  int backward;
  int forward;
};

// A ring of count indices.
class Ring {
 public:
  explicit Ring(int count) : count_(count) {}
  int Up(int index, int steps) const {
    return static_cast<int>((static_cast<long long>(index) + steps) % count_);
  }
  int Down(int index, int steps) const {
    const long long rest = (static_cast<long long>(index) - steps) % count_;
    return static_cast<int>(rest < 0 ? rest + count_ : rest);
  }

 private:
  int count_;
};

// Tests start, then one index above and one below it, then two, until the ends of the ring
// meet. test takes an index and tells whether its entry matches; count is above 0.
template <class Test>
SearchResult FindFirstBothWays(int count, int start, Test test) {
  const Ring ring(count);
  SearchResult result{-1, start, start};
  const int steps = count / 2 + 1;
  for (int i = 0; i < steps; ++i) {
    result.forward = ring.Up(start, i);
    if (test(result.forward)) return {result.forward, result.backward, result.forward};
    const int down = ring.Down(start, i);
    if (down != result.forward && test(down)) return {down, down, result.forward};
    result.backward = down;
  }
  return result;
}

// Goes on from the cursors of find. A hit moves only the cursor that reached it, so that what
// was tested on the other side is tested again when the search goes on.
template <class Test>
SearchResult FindNextBothWays(int count, const tagPTRFINDDATA& find, Test test) {
  const Ring ring(count);
  SearchResult result{-1, find.backward, find.forward};
  const long long up =
      static_cast<long long>(find.forward) - find.origin + (find.forward < find.origin ? count : 0);
  const long long down = static_cast<long long>(find.origin) - find.backward +
                         (find.backward > find.origin ? count : 0);
  const long long steps = (count - up - down) / 2;
  for (int k = 0; k < steps; ++k) {
    const int forward = ring.Up(find.forward, k + 1);
    if (test(forward)) return {forward, find.backward, forward};
    const int backward = ring.Down(find.backward, k + 1);
    if (backward != forward && test(backward)) return {backward, backward, find.forward};
    result.forward = forward;
    result.backward = backward;
  }
  return result;
}

// Empties result and fills it with the indices whose entries test accepts. The hits are
// collected first, so that result is unchanged if there is no memory for them.
template <class Test>
void FindAllIndices(CPtrCtrl& searched, CPtrCtrl* result, Test test) {
  if (result == nullptr) return;
  if (result == &searched) return result->DeleteAll();
  CPtrArrayCtrl hits;
  for (int i = 0; i < searched.GetCount(); ++i) {
    if (test(i)) hits.AddData(reinterpret_cast<const void*>(std::intptr_t{i}), -1);
  }
  result->CopyPtrCtrl(&hits);
}

// The search state with each value that is no index of count entries turned into -1.
inline tagPTRFINDDATA LimitFindData(int count, int origin, int backward, int forward) {
  const auto limit = [count](int index) { return index < -1 || index >= count ? -1 : index; };
  return {limit(origin), limit(backward), limit(forward)};
}

// Whether both hold equal entries in the same order.
bool CompareEntries(CPtrCtrl& left, CPtrCtrl* right, Equal equal);

// What both classes ask of the arguments of MoveData; cuts from and part to what there is.
inline bool LimitMove(int count, int& from, int& part) {
  if (count < 2 || part < 1 || from < 0) return false;
  from = std::min(from, count - 1);
  part = std::min(part, count - from);
  return true;
}

void LogDumpTitle(bool ascending);
void LogDumpEntry(const void* entry);

}  // namespace qvx::containers
