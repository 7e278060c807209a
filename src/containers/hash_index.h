// Finds records of a hash table without a walk through its slots' arrays, whose parts lie apart
// in memory: the records of each slot once more, as a chain inside one block. It finds what the
// walk would find first. A slot keeps in mind that its array has not seen such a search yet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace qvx::containers {

class HashIndex {
 public:
  static constexpr int kNone = -1;

  struct Entry {
    std::uint64_t tag;  // equal for equal keys
    const void* record;
    const void* data;
    int next;
    int position;  // in the slot's array
  };

  explicit HashIndex(int slots) : heads_(static_cast<std::size_t>(slots)) {}

  // The record of a slot that the array's search finds first. same tells whether a record with
  // this tag has the key. The search counts as not done by the array.
  template <class Same>
  Entry* FindFirst(std::size_t slot, std::uint64_t tag, Same same) {
    Head& head = heads_[slot];
    Entry* best = nullptr;
    for (int i = head.first; i != kNone; i = At(i).next) {
      Entry& entry = At(i);
      if (entry.tag != tag || !same(entry.record)) continue;
      if (best == nullptr || Rank(entry, head) < Rank(*best, head)) best = &entry;
      if (best->position == 0) break;
    }
    head.pending = best != nullptr ? best->position : kNone;
    return best;
  }

  // The record that a search found which the array has not seen; then it counts as seen.
  const void* TakePending(std::size_t slot) {
    const int position = std::exchange(heads_[slot].pending, kNone);
    for (int i = heads_[slot].first; position != kNone && i != kNone; i = At(i).next) {
      if (At(i).position == position) return At(i).record;
    }
    return nullptr;
  }

  // Has Add not fail.
  void Reserve() {
    if (free_ == kNone && entries_.size() == entries_.capacity()) {
      entries_.reserve(2 * entries_.size() + 16);
    }
  }

  // Adds the record at the end of its slot.
  void Add(std::size_t slot, std::uint64_t tag, const void* record, const void* data) {
    Head& head = heads_[slot];
    const int added = NewEntry({tag, record, data, kNone, head.count++});
    (head.first == kNone ? head.first : At(head.last).next) = added;
    head.last = added;
  }

  void Remove(std::size_t slot, int position) {
    Head& head = heads_[slot];
    int before = kNone;
    for (int i = head.first; i != kNone;) {
      const int next = At(i).next;
      if (At(i).position == position) {
        (before == kNone ? head.first : At(before).next) = next;
        if (next == kNone) head.last = before;
        FreeEntry(i);
      } else {
        if (At(i).position > position) --At(i).position;
        before = i;
      }
      i = next;
    }
    --head.count;
  }

  void Clear(std::size_t slot) {
    for (int i = heads_[slot].first; i != kNone;) {
      const int next = At(i).next;
      FreeEntry(i);
      i = next;
    }
    heads_[slot] = Head();
  }

 private:
  struct Head {
    int first = kNone;
    int last = kNone;
    int count = 0;
    int pending = kNone;
  };

  // The search takes 0, 1, the last, 2, the last but one...
  static int Rank(const Entry& entry, const Head& head) {
    const int up = 2 * entry.position;
    const int down = 2 * (head.count - entry.position) + 1;
    return up < down ? up : down;
  }

  Entry& At(int index) { return entries_[static_cast<std::size_t>(index)]; }

  int NewEntry(const Entry& entry) {
    if (free_ == kNone) {
      entries_.push_back(entry);
      return static_cast<int>(entries_.size()) - 1;
    }
    const int index = free_;
    free_ = At(index).next;
    At(index) = entry;
    return index;
  }

  void FreeEntry(int index) {
    At(index).next = free_;
    free_ = index;
  }

  std::vector<Head> heads_;
  std::vector<Entry> entries_;
  int free_ = kNone;  // a chain of entries that are not in use
};

}  // namespace qvx::containers
