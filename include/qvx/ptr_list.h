// The pointer container as a doubly linked list that can still be used by index: it remembers
// the node of its last access and walks to an index from the head, the tail or that node,
// whichever is nearest. A loop over indices, up or down, costs one step an index. See
// ptr_ctrl.h for what holds of both containers.
//
// Threads: even reads by index move the remembered position, so a list that threads share
// needs its owner's lock for reading as well.
#pragma once

#include "qvx/ptr_ctrl.h"

// A node: a heap block of its own for each entry.
struct tagDATALIST {
  const void* data;
  tagDATALIST* next;  // null at the last node
  tagDATALIST* prev;  // of the first node: the head inside the list object
};

class QVX_API CPtrListCtrl : public CPtrCtrl {
 public:
  CPtrListCtrl();
  // Holds the entries of source; empty if source is null.
  explicit CPtrListCtrl(CPtrCtrl* source);
  // Copies share their nodes and are not usable. A real copy comes from the constructor above
  // or from CopyPtrCtrl.
  CPtrListCtrl(const CPtrListCtrl&) = default;
  CPtrListCtrl& operator=(const CPtrListCtrl&) = default;
  ~CPtrListCtrl() override;

  int Set(int index, const void* data) override;
  // The remembered position moves to the new node.
  int AddData(const void* data, int position) override;
  // Returns the number of entries of the source; 0 for a null source.
  int AddPtrCtrl(CPtrCtrl* source, int position) override;
  int CopyPtrCtrl(CPtrCtrl* source) override;
  bool IsDataAvailable(int index) override;
  const void* GetAt(int index) override {
    // A loop over the indices takes the next node; anything else is a search.
    if (index == mCurrentIndex + 1 && index != 0 && index < mCount) {
      mCurrentNode = mCurrentNode->next;
      mCurrentIndex = index;
      return mCurrentNode->data;
    }
    const tagDATALIST* node = SearchToPos(index);
    return node != nullptr ? node->data : nullptr;
  }
  const void* GetHead() override;
  const void* GetTail() override;

  // The search starts at the remembered position, and its tests move that position.
  int FindFirst(const void* key, int (*match)(const void*, const void*)) override;
  int FindNext(const void* key, int (*match)(const void*, const void*)) override;

  // Null if index is not valid or count is below 1. The remembered position moves to the node
  // that took the place of the last one removed, or to the new last node.
  const void* DeleteAt(int index, int count) override;
  const void* DeleteHead() override;
  const void* DeleteTail() override;
  void DeleteAll() override;

  // A negative to is the end.
  bool MoveData(int from, int count, int to) override;
  bool Compare(CPtrCtrl* other, bool (*equal)(const void*, const void*)) override;
  // Afterwards the remembered position is the last node.
  void QuickSort(int start, int end, int (*compare)(void*&, void*&)) override;

  int GetCount() const override { return mCount; }
  bool IsEmpty() const override { return mCount < 1; }
  const char* GetPtrCtrlName() const override;
  void Dump(bool ascending) override;

  // Empties result and adds the index of each matching entry, widened to a pointer, in rising
  // order. A null match compares as pointers. Does nothing if result is null.
  virtual void FindAll(CPtrCtrl* result, const void* key, int (*match)(const void*, const void*));

 private:
  bool FindDataAtPos(int index, const void* key, int (*match)(const void*, const void*));
  void SetFindData(int origin, int backward, int forward);
  tagDATALIST* SearchToPos(int index);
  tagDATALIST* WalkToPos(int index);
  void SetCurPos(int index, tagDATALIST* node);
  void Link(tagDATALIST* node, int position);
  tagDATALIST* Unlink(int index);
  const void* DeleteOne(int index);

  tagDATALIST mHead = {nullptr, nullptr, nullptr};
  tagDATALIST* mTail = nullptr;
  tagDATALIST* mCurrentNode = nullptr;
  int mCount = 0;
  int mCurrentIndex = -1;
  tagPTRFINDDATA mFind;
  int mPositionDepth = 0;
};
