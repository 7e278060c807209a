// Chained hash tables from keys to pointers of the caller, which they neither own nor free:
// CHashTable by 64-bit numbers, CCRCHashTable by bytes of any length, of which it keeps a copy.
// The number of slots is fixed at construction. A key may occur any number of times.
//
// Each slot's records stand in a CPtrArrayCtrl in the order in which they were added. The
// FindAll... functions go from the first to the last; FindFirstData and FindNextData walk from
// both ends, as FindFirst and FindNext of that class do. The state of a search lives in the
// slot, so a search for another key of the same slot disturbs it.
//
// Threads: no operation takes a lock, and searches write to the object too. Failure: a failed
// allocation raises std::bad_alloc and leaves the records as they were.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qvx/crc.h"
#include "qvx/ptr_array.h"
#include "qvx/types.h"

namespace qvx::containers {
class HashIndex;
}

// Where a walk over a table stands. Adding or removing records ends a walk.
struct tagHASHPOSITION {
  int bucket;  // the slot
  int index;   // the record inside the slot
};

class QVX_API CHashTable {
 public:
  // size slots of 8 bytes; a size below 1 counts as 1. A record's slot is key modulo size.
  explicit CHashTable(int size = 4096);
  // Copies share the slots, which both would free: only for tables that are not used any more.
  CHashTable(const CHashTable&) = default;
  CHashTable& operator=(const CHashTable&) = default;
  virtual ~CHashTable();

  // Adds a record, also where the key exists already.
  void AddData(std::uint64_t key, const void* data);
  // Replaces the data of the record that FindFirstData would find; adds nothing.
  void SetData(std::uint64_t key, const void* data);

  // The data of the first and of the next match; null for none, as for null data.
  const void* FindFirstData(std::uint64_t key);
  const void* FindNextData(std::uint64_t key);
  // Appends the data of every match to result, in the order of the slot.
  void FindAllHashData(CPtrCtrl* result, std::uint64_t key);

  // Remove the record that FindFirstData or FindNextData would find and return its data.
  const void* DeleteFirstData(std::uint64_t key);
  const void* DeleteNextData(std::uint64_t key);
  // Removes all records of the key's slot, those of other keys included.
  void DeleteAllData(std::uint64_t key);
  void DeleteAll();

  int IsDataAvailable(std::uint64_t key);
  int GetCount();

  // A walk goes by rising slot and, inside a slot, by rising index. 1, or 0 for an empty
  // table and at the end, where the position's bucket is the number of slots.
  int GetHeadPosition(tagHASHPOSITION& position);
  int MoveHashPositionNext(tagHASHPOSITION& position);
  int IsDataAvailable(tagHASHPOSITION position);
  // Null where there is no record.
  const void* GetDataAt(tagHASHPOSITION position);

 private:
  void InitHashTable();
  std::size_t SlotOf(std::uint64_t key) const;

  CPtrArrayCtrl** mBuckets = nullptr;
  int mTableSize;
  int mCount = 0;
  qvx::containers::HashIndex* mIndex = nullptr;
};

// The same for keys of length bytes. A null key, and a length below 1, is the empty key. The slot
// is the key's CRC (a CCRC32 with its default parameters) modulo size.
class QVX_API CCRCHashTable {
 public:
  explicit CCRCHashTable(int size = 4096);
  CCRCHashTable(const CCRCHashTable&) = default;
  CCRCHashTable& operator=(const CCRCHashTable&) = default;
  virtual ~CCRCHashTable();

  void AddData(const void* key, int length, const void* data);
  void SetData(const void* key, int length, const void* data);

  const void* FindFirstData(const void* key, int length);
  const void* FindNextData(const void* key, int length);
  void FindAllCRCHashData(CPtrCtrl* result, const void* key, int length);

  const void* DeleteFirstData(const void* key, int length);
  const void* DeleteNextData(const void* key, int length);
  void DeleteAllData(const void* key, int length);
  void DeleteAll();

  int IsDataAvailable(const void* key, int length);
  int GetCount();

  int GetHeadPosition(tagHASHPOSITION& position);
  int MoveHashPositionNext(tagHASHPOSITION& position);
  int IsDataAvailable(tagHASHPOSITION position);
  const void* GetDataAt(tagHASHPOSITION position);

 private:
  void InitCRCHashTable();
  std::uint32_t HashOf(const void* key, int length);
  std::size_t SlotOf(std::uint32_t hash) const;

  CPtrArrayCtrl** mBuckets = nullptr;
  int mTableSize;
  int mCount = 0;
  CCRC32 mCrc;
  qvx::containers::HashIndex* mIndex = nullptr;
};
