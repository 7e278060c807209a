// Entries that are small numbers, and what the container tests do with them.
#pragma once

#include <cstdint>
#include <vector>

#include "qvx/ptr_ctrl.h"

namespace qvx::test {

using Numbers = std::vector<std::intptr_t>;

inline const void* Entry(std::intptr_t number) {
  return reinterpret_cast<const void*>(number);
}
inline std::intptr_t Number(const void* entry) {
  return reinterpret_cast<std::intptr_t>(entry);
}

inline void Fill(CPtrCtrl& container, const Numbers& numbers) {
  container.DeleteAll();
  for (std::intptr_t number : numbers) container.AddData(Entry(number), -1);
}

inline Numbers Content(CPtrCtrl& container) {
  Numbers numbers;
  for (int i = 0; i < container.GetCount(); ++i) numbers.push_back(Number(container.GetAt(i)));
  return numbers;
}

// All entries in the order in which a search looks at them.
inline Numbers SearchOrder(CPtrCtrl& container) {
  Numbers order;
  const auto note = [](const void* entry, const void* key) {
    const_cast<Numbers*>(static_cast<const Numbers*>(key))->push_back(Number(entry));
    return 0;
  };
  container.FindFirst(&order, note);
  return order;
}

// The indices that a search finds, in its order.
inline Numbers Found(CPtrCtrl& container, const void* key,
                     int (*match)(const void*, const void*) = nullptr) {
  Numbers found;
  for (int hit = container.FindFirst(key, match); hit != -1; hit = container.FindNext(key, match)) {
    found.push_back(hit);
  }
  return found;
}

// Callbacks: equality of the last decimal digit, and the order of the numbers.
inline int SameDigit(const void* entry, const void* key) {
  return Number(entry) % 10 == Number(key) % 10 ? 1 : 0;
}
inline bool EqualDigit(const void* left, const void* right) {
  return SameDigit(left, right) != 0;
}
inline int Order(void*& left, void*& right) {
  return Number(left) < Number(right) ? -1 : Number(left) > Number(right) ? 1 : 0;
}

}  // namespace qvx::test
