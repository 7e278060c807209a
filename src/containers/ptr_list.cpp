#include "qvx/ptr_list.h"

#include <climits>
#include <cstdlib>
#include <utility>

#include "containers/ptr_algorithms.h"
#include "qvx/ptr_array.h"

using qvx::containers::SearchResult;

CPtrListCtrl::CPtrListCtrl() = default;

CPtrListCtrl::CPtrListCtrl(CPtrCtrl* source) : CPtrListCtrl() {
  CPtrListCtrl::AddPtrCtrl(source, -1);
}

CPtrListCtrl::~CPtrListCtrl() {
  CPtrListCtrl::DeleteAll();
}

int CPtrListCtrl::Set(int index, const void* data) {
  tagDATALIST* node = SearchToPos(index);
  if (node == nullptr) return -1;
  node->data = data;
  return index;
}

int CPtrListCtrl::AddData(const void* data, int position) {
  if (mCount == INT_MAX) throw std::bad_alloc();
  if (position < 0 || position > mCount) position = mCount;
  Link(new tagDATALIST{data, nullptr, nullptr}, position);
  return position;
}

// Puts the node before position, which is at most the count, and makes it the current one.
void CPtrListCtrl::Link(tagDATALIST* node, int position) {
  tagDATALIST* before = SearchToPos(position - 1);
  if (before == nullptr) before = &mHead;
  node->prev = before;
  node->next = before->next;
  before->next = node;
  if (node->next != nullptr) {
    node->next->prev = node;
  } else {
    mTail = node;
  }
  ++mCount;
  SetCurPos(position, node);
}

int CPtrListCtrl::AddPtrCtrl(CPtrCtrl* source, int position) {
  if (source == nullptr) return 0;
  if (source == this) {
    CPtrListCtrl copy(this);
    return CPtrListCtrl::AddPtrCtrl(&copy, position);
  }
  const int total = source->GetCount();
  const int before = mCount;
  const int start = position < 0 || position > before ? before : position;
  const std::pair<int, tagDATALIST*> current(mCurrentIndex, mCurrentNode);
  try {
    for (int i = 0; i < total; ++i) {
      AddData(source->GetAt(i), position);
      if (position != -1 && position < INT_MAX) ++position;
    }
  } catch (...) {
    while (mCount > before) DeleteOne(start);
    SetCurPos(current.first, current.second);
    throw;
  }
  return total;
}

int CPtrListCtrl::CopyPtrCtrl(CPtrCtrl* source) {
  if (source == nullptr) return 0;
  if (source == this) {
    DeleteAll();
    return 0;
  }
  CPtrListCtrl copy(source);
  DeleteAll();
  if (copy.mCount == 0) return 0;
  mHead.next = std::exchange(copy.mHead.next, nullptr);
  mHead.next->prev = &mHead;
  mTail = copy.mTail;
  mCount = std::exchange(copy.mCount, 0);
  SetCurPos(mCount - 1, mTail);
  return mCount;
}

bool CPtrListCtrl::IsDataAvailable(int index) {
  return SearchToPos(index) != nullptr;
}

const void* CPtrListCtrl::GetHead() {
  return mHead.next != nullptr ? mHead.next->data : nullptr;
}

const void* CPtrListCtrl::GetTail() {
  return mTail != nullptr ? mTail->data : nullptr;
}

int CPtrListCtrl::FindFirst(const void* key, int (*match)(const void*, const void*)) {
  if (mCount < 1) return -1;
  const int start = mCurrentIndex >= 0 && mCurrentIndex < mCount ? mCurrentIndex : 0;
  const SearchResult result = qvx::containers::FindFirstBothWays(
      mCount, start, [&](int index) { return FindDataAtPos(index, key, match); });
  SetFindData(start, result.backward, result.forward);
  return result.index;
}

int CPtrListCtrl::FindNext(const void* key, int (*match)(const void*, const void*)) {
  if (mCount < 1) return -1;
  const SearchResult result = qvx::containers::FindNextBothWays(
      mCount, mFind, [&](int index) { return FindDataAtPos(index, key, match); });
  SetFindData(mFind.origin, result.backward, result.forward);
  return result.index;
}

bool CPtrListCtrl::FindDataAtPos(int index, const void* key,
                                 int (*match)(const void*, const void*)) {
  return qvx::containers::Matches(CPtrListCtrl::GetAt(index), key, match);
}

void CPtrListCtrl::SetFindData(int origin, int backward, int forward) {
  mFind = qvx::containers::LimitFindData(mCount, origin, backward, forward);
}

// The node at index, which becomes the current one; null, with nothing moved, if there is none.
tagDATALIST* CPtrListCtrl::SearchToPos(int index) {
  if (index < 0 || index >= mCount) return nullptr;
  ++mPositionDepth;
  tagDATALIST* node = WalkToPos(index);
  --mPositionDepth;
  SetCurPos(index, node);
  return node;
}

// Walks from the nearest of head, tail and current node; ties go to the head, then the tail.
tagDATALIST* CPtrListCtrl::WalkToPos(int index) {
  const int fromTail = mCount - index;
  const int fromCurrent = mCurrentNode != nullptr ? std::abs(index - mCurrentIndex) : INT_MAX;
  tagDATALIST* node = mCurrentNode;
  int steps = index - mCurrentIndex;
  if (index <= fromTail && index <= fromCurrent) {
    node = &mHead;
    steps = index + 1;
  } else if (fromTail <= fromCurrent) {
    node = mTail;
    steps = index - (mCount - 1);
  }
  for (; steps > 0; --steps) node = node->next;
  for (; steps < 0; ++steps) node = node->prev;
  return node;
}

void CPtrListCtrl::SetCurPos(int index, tagDATALIST* node) {
  if (mPositionDepth != 0) return;
  mCurrentNode = node;
  mCurrentIndex = node != nullptr ? index : -1;
}

// Takes the node at index, which must be valid, out of the list. The current position moves to
// its successor, or to the new last node.
tagDATALIST* CPtrListCtrl::Unlink(int index) {
  tagDATALIST* node = SearchToPos(index);
  tagDATALIST* before = node->prev != &mHead ? node->prev : nullptr;
  node->prev->next = node->next;
  if (node->next != nullptr) {
    node->next->prev = node->prev;
    SetCurPos(index, node->next);
  } else {
    mTail = before;
    SetCurPos(index - 1, before);
  }
  --mCount;
  return node;
}

const void* CPtrListCtrl::DeleteOne(int index) {
  if (index < 0 || index >= mCount) return nullptr;
  const tagDATALIST* node = Unlink(index);
  const void* data = node->data;
  delete node;
  return data;
}

const void* CPtrListCtrl::DeleteAt(int index, int count) {
  if (index < 0 || index >= mCount || count < 1) return nullptr;
  const void* first = DeleteOne(index);
  for (int i = 1; i < count && index < mCount; ++i) DeleteOne(index);
  return first;
}

const void* CPtrListCtrl::DeleteHead() {
  return DeleteOne(0);
}

const void* CPtrListCtrl::DeleteTail() {
  return DeleteOne(mCount - 1);
}

void CPtrListCtrl::DeleteAll() {
  tagDATALIST* node = mHead.next;
  while (node != nullptr) delete std::exchange(node, node->next);
  mHead.next = nullptr;
  mTail = nullptr;
  mCount = 0;
  SetCurPos(-1, nullptr);
}

bool CPtrListCtrl::MoveData(int from, int count, int to) {
  if (!qvx::containers::LimitMove(mCount, from, count)) return false;
  if (to >= mCount) to = mCount - 1;
  if (to < 0) to = mCount;
  if (from == to) return false;
  // The nodes themselves are moved, in a chain of their own, so that nothing can fail.
  tagDATALIST* chain = nullptr;
  tagDATALIST** end = &chain;
  for (int i = 0; i < count; ++i) {
    *end = Unlink(from);
    end = &(*end)->next;
  }
  *end = nullptr;
  for (int i = 0; i < count; ++i) {
    tagDATALIST* node = std::exchange(chain, chain->next);
    Link(node, to + i < mCount ? to + i : mCount);
  }
  return true;
}

bool CPtrListCtrl::Compare(CPtrCtrl* other, bool (*equal)(const void*, const void*)) {
  return qvx::containers::CompareEntries(*this, other, equal);
}

void CPtrListCtrl::QuickSort(int start, int end, int (*compare)(void*&, void*&)) {
  CPtrArrayCtrl sorted(this);
  sorted.QuickSort(start, end, compare);
  const void** entry = sorted.GetDataPtr();
  for (tagDATALIST* node = mHead.next; node != nullptr; node = node->next) node->data = *entry++;
  SetCurPos(mCount - 1, mTail);
}

const char* CPtrListCtrl::GetPtrCtrlName() const {
  return "ListCtrl";
}

void CPtrListCtrl::Dump(bool ascending) {
  qvx::containers::LogDumpTitle(ascending);
  const tagDATALIST* node = ascending ? mHead.next : mTail;
  for (int i = 0; i < mCount; ++i) {
    qvx::containers::LogDumpEntry(node->data);
    node = ascending ? node->next : node->prev;
  }
}

void CPtrListCtrl::FindAll(CPtrCtrl* result, const void* key,
                           int (*match)(const void*, const void*)) {
  qvx::containers::FindAllIndices(*this, result,
                                  [&](int index) { return FindDataAtPos(index, key, match); });
}
