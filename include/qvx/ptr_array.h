// The pointer container as a growing table. Reading, and adding or removing at the end, take
// constant time. See ptr_ctrl.h for what holds of both containers.
#pragma once

#include "qvx/ptr_ctrl.h"

namespace qvx::containers {
struct PtrArrayAccess;
}

class QVX_API CPtrArrayCtrl : public CPtrCtrl {
 public:
  CPtrArrayCtrl();  // without a table
  // Holds the entries of source; empty if source is null.
  explicit CPtrArrayCtrl(CPtrCtrl* source);
  // Copies share one table, which both would free: only for empty objects. A real copy comes
  // from the constructor above or from CopyPtrCtrl.
  CPtrArrayCtrl(const CPtrArrayCtrl&) = default;
  CPtrArrayCtrl& operator=(const CPtrArrayCtrl&) = default;
  ~CPtrArrayCtrl() override;

  int Set(int index, const void* data) override;
  int AddData(const void* data, int position) override {
    // Adding at the end of a table that keeps its size is what most calls do.
    if (mCount >= mSteadyUntil || (position >= 0 && position < mCount)) {
      return Insert(data, position);
    }
    mTable[mCount] = data;
    return mCount++;
  }

  // A null or empty source gives -1. For an array, and for this object itself, the index of
  // the first entry inserted. For another source -1 when position is -1, else position raised
  // by the number of entries inserted.
  int AddPtrCtrl(CPtrCtrl* source, int position) override;

  int CopyPtrCtrl(CPtrCtrl* source) override;
  bool IsDataAvailable(int index) override;
  const void* GetAt(int index) override {
    return index >= 0 && index < mCount ? mTable[index] : nullptr;
  }
  const void* GetHead() override;
  const void* GetTail() override;

  // The search starts at index 0.
  int FindFirst(const void* key, int (*match)(const void*, const void*)) override;
  int FindNext(const void* key, int (*match)(const void*, const void*)) override;

  // Null if index is not valid. A count of 0 removes nothing and gives the entry; a negative
  // count counts as 0.
  const void* DeleteAt(int index, int count) override;
  const void* DeleteHead() override;
  const void* DeleteTail() override;
  void DeleteAll() override;

  // A negative to is 0.
  bool MoveData(int from, int count, int to) override;
  bool Compare(CPtrCtrl* other, bool (*equal)(const void*, const void*)) override;
  void QuickSort(int start, int end, int (*compare)(void*&, void*&)) override;

  int GetCount() const override { return mCount; }
  bool IsEmpty() const override { return mCount < 1; }
  const char* GetPtrCtrlName() const override;
  void Dump(bool ascending) override;

  // Empties result and adds the index of each matching entry, widened to a pointer, in rising
  // order. Does nothing if result or match is null.
  virtual void FindAll(CPtrCtrl* result, const void* key, int (*match)(const void*, const void*));

  // How many entries the table can hold: 0, or at least 32. It doubles when it is too small,
  // and halves when more than 32 entries fill less than half of it.
  int GetCapability() { return mCapability; }

  // The table itself, null before the first entry; valid until the next change of size.
  const void** GetDataPtr() { return mTable; }

 private:
  friend struct qvx::containers::PtrArrayAccess;

  int Insert(const void* data, int position);
  bool FindDataAtPos(int index, const void* key, int (*match)(const void*, const void*));
  void SetFindData(int origin, int backward, int forward);
  static int IncreaseCapability(int capability, int needed);
  static int DecreaseCapability(int capability, int needed);
  int FittingCapability(int newCount) const;
  bool OnSizeChange(int newCount);
  void UpdateSteady();
  void InstallTable(const void** table, int capability);
  int InsertTable(const void* const* entries, int count, int position);
  int InsertOneByOne(CPtrCtrl* source, int position);
  void CloseGap(int index, int count);

  const void** mTable = nullptr;
  int mCount = 0;
  int mCapability = 0;
  tagPTRFINDDATA mFind;
  int mSteadyUntil = 0;  // up to this count an added entry leaves the table as it is
};
