#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <list>
#include <random>
#include <vector>

#include "qvx/ptr_array.h"
#include "qvx/ptr_list.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr int kSorted = 1000000;

const void* Entry(std::intptr_t number) {
  return reinterpret_cast<const void*>(number);
}

template <int Count>
void AddOurs(long long times) {
  for (long long i = 0; i < times; ++i) {
    CPtrArrayCtrl array;
    for (int k = 0; k < Count; ++k) array.AddData(Entry(k), -1);
    benchmark::DoNotOptimize(array.GetDataPtr());
    benchmark::ClobberMemory();
  }
}

template <int Count>
void AddPeer(long long times) {
  for (long long i = 0; i < times; ++i) {
    std::vector<const void*> array;
    for (int k = 0; k < Count; ++k) array.push_back(Entry(k));
    benchmark::DoNotOptimize(array.data());
    benchmark::ClobberMemory();
  }
}

// Both sorts call this through a pointer.
int Order(void*& left, void*& right) {
  const auto a = reinterpret_cast<std::intptr_t>(left);
  const auto b = reinterpret_cast<std::intptr_t>(right);
  return a < b ? -1 : a > b ? 1 : 0;
}

int (*volatile g_order)(void*&, void*&) = &Order;

const std::vector<void*>& Shuffled() {
  static const std::vector<void*> entries = [] {
    std::mt19937_64 random(21);
    std::vector<void*> all(kSorted);
    for (void*& entry : all) entry = reinterpret_cast<void*>(random() >> 2);
    return all;
  }();
  return entries;
}

void SortOurs(long long times) {
  CPtrArrayCtrl array;
  for (void* entry : Shuffled()) array.AddData(entry, -1);
  for (long long i = 0; i < times; ++i) {
    std::copy(Shuffled().begin(), Shuffled().end(), array.GetDataPtr());
    array.QuickSort(0, -1, g_order);
  }
}

void SortPeer(long long times) {
  std::vector<void*> entries(Shuffled());
  int (*order)(void*&, void*&) = g_order;
  for (long long i = 0; i < times; ++i) {
    std::copy(Shuffled().begin(), Shuffled().end(), entries.begin());
    // The entries are not const; std::sort hands over lvalues only.
    std::sort(entries.begin(), entries.end(),
              [order](void*& left, void*& right) { return order(left, right) < 0; });
  }
}

// Filled in turns, so that both find their nodes in a heap of the same shape.
template <int Count>
struct Lists {
  Lists() {
    for (int i = 0; i < Count; ++i) {
      ours.AddData(Entry(i), -1);
      peer.push_back(Entry(i));
    }
  }

  CPtrListCtrl ours;
  std::list<const void*> peer;
};

template <int Count>
Lists<Count>& TheLists() {
  static Lists<Count> lists;
  return lists;
}

template <int Count>
void LoopOurs(long long times) {
  Lists<Count>& lists = TheLists<Count>();
  for (long long i = 0; i < times; ++i) {
    std::uintptr_t sum = 0;
    for (int k = 0; k < Count; ++k) sum += reinterpret_cast<std::uintptr_t>(lists.ours.GetAt(k));
    benchmark::DoNotOptimize(sum);
  }
}

template <int Count>
void LoopPeer(long long times) {
  const std::list<const void*>& list = TheLists<Count>().peer;
  for (long long i = 0; i < times; ++i) {
    std::uintptr_t sum = 0;
    for (const void* entry : list) sum += reinterpret_cast<std::uintptr_t>(entry);
    benchmark::DoNotOptimize(sum);
  }
}

const bool kAdded = AddPair({"array add 1000", 1.6, &AddOurs<1000>, &AddPeer<1000>}) &&
                    AddPair({"array add 1000000", 1.6, &AddOurs<1000000>, &AddPeer<1000000>}) &&
                    AddPair({"array sort 1000000", 1.1, &SortOurs, &SortPeer}) &&
                    AddPair({"list loop 1000", 1.8, &LoopOurs<1000>, &LoopPeer<1000>}) &&
                    AddPair({"list loop 1000000", 1.8, &LoopOurs<1000000>, &LoopPeer<1000000>});

}  // namespace
}  // namespace qvx::bench
