// The abstract ordered container of pointer-sized entries. Code that reads or fills a
// container takes a CPtrCtrl*, so that the array (ptr_array.h) and the list (ptr_list.h)
// stand for each other. An entry is a plain value: the container neither owns nor frees
// what it points to, and it may as well hold an integer.
//
// Threads: none of the operations takes a lock, and searches write to the container too.
// An object that threads share needs its owner's lock.
//
// Failure: a failed allocation raises std::bad_alloc and leaves the entries unchanged.
#pragma once

#include <cstdint>

#include "qvx/types.h"

class QVX_API CPtrCtrl {
 public:
  virtual ~CPtrCtrl();

  // Replaces the entry at index. Returns index, or -1 if there is no such entry.
  virtual int Set(int index, const void* data) = 0;

  // Inserts before position; negative or above the count means the end. Returns the index
  // that the entry got.
  virtual int AddData(const void* data, int position) = 0;

  // Inserts all entries of source, which may be this object, before position. The result
  // depends on the class; see there.
  virtual int AddPtrCtrl(CPtrCtrl* source, int position) = 0;

  // Replaces all entries by those of source and returns the new count. Null changes nothing
  // and gives 0. Copying a container onto itself leaves it empty and gives 0.
  virtual int CopyPtrCtrl(CPtrCtrl* source) = 0;

  virtual bool IsDataAvailable(int index) = 0;

  // The entry, or null if there is none.
  virtual const void* GetAt(int index) = 0;
  virtual const void* GetHead() = 0;
  virtual const void* GetTail() = 0;

  // Begins a search, and goes on with it; return an index, or -1 for none (left). match gets
  // an entry and the key and answers non-zero for a hit; a null match compares the entry and
  // the key as pointers. FindFirst goes both ways at once from its start, so that it gives the
  // hit nearest to the start: the higher index at equal distance. FindNext does so from two
  // places, where FindFirst ended on either side; each hit of FindNext moves the place of its
  // own side. On an unchanged container both together report every hit exactly once.
  virtual int FindFirst(const void* key, int (*match)(const void*, const void*)) = 0;
  virtual int FindNext(const void* key, int (*match)(const void*, const void*)) = 0;

  // Removes count entries from index, or as many as there are. Returns the first one.
  virtual const void* DeleteAt(int index, int count) = 0;
  // Remove one entry and return it; null if empty.
  virtual const void* DeleteHead() = 0;
  virtual const void* DeleteTail() = 0;
  virtual void DeleteAll() = 0;

  // Moves count entries from index from so that the first of them ends at index to, or as far
  // back as they fit. A from beyond the end is the last index. False if nothing moves: fewer
  // than 2 entries, a count below 1, a negative from, or from equal to to.
  virtual bool MoveData(int from, int count, int to) = 0;

  // Whether both hold equal entries in the same order. equal gets an entry of each; null
  // compares as pointers.
  virtual bool Compare(CPtrCtrl* other, bool (*equal)(const void*, const void*)) = 0;

  // Sorts the entries start to end, inclusive; a negative end, or one past it, is the last
  // index. A negative result of compare puts its first entry ahead. Not stable. A compare
  // that contradicts itself gives some order and does no harm.
  virtual void QuickSort(int start, int end, int (*compare)(void*&, void*&)) = 0;

  virtual int GetCount() const = 0;
  virtual bool IsEmpty() const = 0;

  // "ArrayCtrl" or "ListCtrl".
  virtual const char* GetPtrCtrlName() const = 0;

  // Logs all entries at level 2, from the first to the last or the other way round.
  virtual void Dump(bool ascending) = 0;
};

// Where a search stands: its origin and the last indices that it reached on its way down and
// up; -1 for none. Private to the containers.
struct tagPTRFINDDATA {
  int origin = -1;
  int backward = -1;
  int forward = -1;
};

extern "C" {

// The sum of GetAvailSize over the CBaseBuffer objects that the entries point to; null
// entries, and a null list, count 0.
QVX_API std::int64_t GetBufferListLength(CPtrCtrl* list);

}  // extern "C"
