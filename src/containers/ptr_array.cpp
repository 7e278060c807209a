#include "qvx/ptr_array.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "containers/intro_sort.h"
#include "containers/ptr_algorithms.h"
#include "core/capability.h"
#include "platform/memory_hint.h"

using qvx::containers::SearchResult;

namespace {

constexpr int kLeastCapability = 32;

std::size_t Bytes(int entries) {
  return static_cast<std::size_t>(entries) * sizeof(const void*);
}

void CopyEntries(const void** to, const void* const* from, int count) {
  if (count > 0) std::memcpy(to, from, Bytes(count));
}

void MoveEntries(const void** to, const void* const* from, int count) {
  if (count > 0) std::memmove(to, from, Bytes(count));
}

const void** NewTable(int capability) {
  void* table = ::operator new(Bytes(capability));
  qvx::platform::ExpectFilling(table, Bytes(capability));
  return static_cast<const void**>(table);
}

int Sum(int count, int more) {
  if (more > INT_MAX - count) throw std::bad_alloc();
  return count + more;
}

}  // namespace

CPtrArrayCtrl::CPtrArrayCtrl() = default;

CPtrArrayCtrl::CPtrArrayCtrl(CPtrCtrl* source) : CPtrArrayCtrl() {
  CPtrArrayCtrl::AddPtrCtrl(source, -1);
}

CPtrArrayCtrl::~CPtrArrayCtrl() {
  ::operator delete(mTable);
}

int CPtrArrayCtrl::Set(int index, const void* data) {
  if (!CPtrArrayCtrl::IsDataAvailable(index)) return -1;
  mTable[index] = data;
  return index;
}

int CPtrArrayCtrl::Insert(const void* data, int position) {
  OnSizeChange(Sum(mCount, 1));
  if (position < 0 || position > mCount) position = mCount;
  MoveEntries(mTable + position + 1, mTable + position, mCount - position);
  // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): OnSizeChange has made room
  mTable[position] = data;
  ++mCount;
  UpdateSteady();
  return position;
}

int CPtrArrayCtrl::AddPtrCtrl(CPtrCtrl* source, int position) {
  if (source == nullptr || source->IsEmpty()) return -1;
  if (source == this) {
    CPtrArrayCtrl copy;
    copy.OnSizeChange(mCount);
    copy.InsertTable(mTable, mCount, -1);
    return CPtrArrayCtrl::AddPtrCtrl(&copy, position);
  }
  auto* array = std::strcmp(source->GetPtrCtrlName(), "ArrayCtrl") == 0
                    ? dynamic_cast<CPtrArrayCtrl*>(source)
                    : nullptr;
  OnSizeChange(Sum(mCount, source->GetCount()));
  if (array == nullptr) return InsertOneByOne(source, position);
  return InsertTable(array->mTable, array->mCount, position);
}

int CPtrArrayCtrl::InsertTable(const void* const* entries, int count, int position) {
  if (position < 0 || position > mCount) position = mCount;
  MoveEntries(mTable + position + count, mTable + position, mCount - position);
  CopyEntries(mTable + position, entries, count);
  mCount += count;
  UpdateSteady();
  return position;
}

int CPtrArrayCtrl::InsertOneByOne(CPtrCtrl* source, int position) {
  const int before = mCount;
  const int start = position < 0 || position > before ? before : position;
  const int total = source->GetCount();
  try {
    for (int i = 0; i < total; ++i) {
      AddData(source->GetAt(i), position);
      if (position != -1 && position < INT_MAX) ++position;
    }
  } catch (...) {
    CloseGap(start, mCount - before);
    throw;
  }
  return position;
}

int CPtrArrayCtrl::CopyPtrCtrl(CPtrCtrl* source) {
  if (source == nullptr) return 0;
  if (source == this) {
    DeleteAll();
    return 0;
  }
  CPtrArrayCtrl copy(source);
  std::swap(mTable, copy.mTable);
  std::swap(mCount, copy.mCount);
  std::swap(mCapability, copy.mCapability);
  std::swap(mSteadyUntil, copy.mSteadyUntil);
  return mCount;
}

bool CPtrArrayCtrl::IsDataAvailable(int index) {
  return index >= 0 && index < mCount;
}

const void* CPtrArrayCtrl::GetHead() {
  return CPtrArrayCtrl::GetAt(0);
}

const void* CPtrArrayCtrl::GetTail() {
  return CPtrArrayCtrl::GetAt(mCount - 1);
}

int CPtrArrayCtrl::FindFirst(const void* key, int (*match)(const void*, const void*)) {
  if (mCount < 1) return -1;
  const SearchResult result = qvx::containers::FindFirstBothWays(
      mCount, 0, [&](int index) { return FindDataAtPos(index, key, match); });
  SetFindData(0, result.backward, result.forward);
  return result.index;
}

int CPtrArrayCtrl::FindNext(const void* key, int (*match)(const void*, const void*)) {
  if (mCount < 1) return -1;
  const SearchResult result = qvx::containers::FindNextBothWays(
      mCount, mFind, [&](int index) { return FindDataAtPos(index, key, match); });
  SetFindData(mFind.origin, result.backward, result.forward);
  return result.index;
}

bool CPtrArrayCtrl::FindDataAtPos(int index, const void* key,
                                  int (*match)(const void*, const void*)) {
  return qvx::containers::Matches(CPtrArrayCtrl::GetAt(index), key, match);
}

void CPtrArrayCtrl::SetFindData(int origin, int backward, int forward) {
  mFind = qvx::containers::LimitFindData(mCount, origin, backward, forward);
}

const void* CPtrArrayCtrl::DeleteAt(int index, int count) {
  if (!CPtrArrayCtrl::IsDataAvailable(index)) return nullptr;
  const void* first = mTable[index];
  count = std::clamp(count, 0, mCount - index);
  const int capability = FittingCapability(mCount - count);
  if (capability == mCapability) {
    CloseGap(index, count);
    return first;
  }
  // The smaller table comes first: if there is no memory for it, nothing has changed.
  const void** table = NewTable(capability);
  CloseGap(index, count);
  CopyEntries(table, mTable, mCount);
  InstallTable(table, capability);
  return first;
}

void CPtrArrayCtrl::CloseGap(int index, int count) {
  MoveEntries(mTable + index, mTable + index + count, mCount - index - count);
  mCount -= count;
  UpdateSteady();
}

const void* CPtrArrayCtrl::DeleteHead() {
  return DeleteAt(0, 1);
}

const void* CPtrArrayCtrl::DeleteTail() {
  return DeleteAt(mCount - 1, 1);
}

void CPtrArrayCtrl::DeleteAll() {
  InstallTable(nullptr, 0);
  mCount = 0;
  UpdateSteady();
}

bool CPtrArrayCtrl::MoveData(int from, int count, int to) {
  if (!qvx::containers::LimitMove(mCount, from, count)) return false;
  to = std::clamp(to, 0, mCount - 1);
  if (from == to) return false;
  to = std::min(to, mCount - count);
  if (to < from) {
    std::rotate(mTable + to, mTable + from, mTable + from + count);
  } else {
    std::rotate(mTable + from, mTable + from + count, mTable + to + count);
  }
  return true;
}

bool CPtrArrayCtrl::Compare(CPtrCtrl* other, bool (*equal)(const void*, const void*)) {
  return qvx::containers::CompareEntries(*this, other, equal);
}

void CPtrArrayCtrl::QuickSort(int start, int end, int (*compare)(void*&, void*&)) {
  if (mCount < 2 || compare == nullptr) return;
  const int last = mCount - 1;
  if (end < 0 || end > last) end = last;
  start = std::min(std::clamp(start, 0, last), end);
  qvx::containers::IntroSort(const_cast<void**>(mTable) + start, end - start + 1, compare);
}

const char* CPtrArrayCtrl::GetPtrCtrlName() const {
  return "ArrayCtrl";
}

void CPtrArrayCtrl::Dump(bool ascending) {
  qvx::containers::LogDumpTitle(ascending);
  for (int i = 0; i < mCount; ++i) {
    qvx::containers::LogDumpEntry(mTable[ascending ? i : mCount - 1 - i]);
  }
}

void CPtrArrayCtrl::FindAll(CPtrCtrl* result, const void* key,
                            int (*match)(const void*, const void*)) {
  if (match == nullptr) return;
  qvx::containers::FindAllIndices(*this, result,
                                  [&](int index) { return FindDataAtPos(index, key, match); });
}

int CPtrArrayCtrl::IncreaseCapability(int capability, int needed) {
  return qvx::core::IncreaseCapability(capability, needed);
}

int CPtrArrayCtrl::DecreaseCapability(int capability, int needed) {
  return qvx::core::DecreaseCapability(capability, needed);
}

int CPtrArrayCtrl::FittingCapability(int newCount) const {
  const int capability = std::max(mCapability, kLeastCapability);
  if (newCount > capability) return IncreaseCapability(capability, newCount);
  if (newCount > kLeastCapability && newCount < capability / 2) {
    return DecreaseCapability(capability, newCount);
  }
  return capability;
}

bool CPtrArrayCtrl::OnSizeChange(int newCount) {
  const int capability = FittingCapability(newCount);
  if (capability == mCapability) return true;
  const void** table = NewTable(capability);
  CopyEntries(table, mTable, std::min(capability, mCount));
  InstallTable(table, capability);
  return true;
}

void CPtrArrayCtrl::InstallTable(const void** table, int capability) {
  ::operator delete(mTable);
  mTable = table;
  mCapability = capability;
  UpdateSteady();
}

// A table that removals left too large for its entries shrinks at the next entry beyond 32; the
// others stay as they are until they are full.
void CPtrArrayCtrl::UpdateSteady() {
  const bool roomy = mCapability > 2 * kLeastCapability && mCount + 1 < mCapability / 2;
  mSteadyUntil = roomy ? 0 : mCapability;
}
