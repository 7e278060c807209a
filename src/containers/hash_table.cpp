#include "qvx/hash_table.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "containers/hash_index.h"

using qvx::containers::HashIndex;

// Both tables keep their slots in the same way; what differs is the record and its key.
namespace {

struct NumberRecord {
  using Key = std::uint64_t;

  std::uint64_t key;
  const void* data;
};

struct BytesKey {
  BytesKey(const void* key, int key_length, std::uint32_t key_crc)
      : bytes(key), length(key != nullptr ? std::max(key_length, 0) : 0), crc(key_crc) {}

  const void* bytes;
  int length;
  std::uint32_t crc;
};

// A record's copy of its key stands right behind it.
struct BytesRecord {
  using Key = BytesKey;

  const unsigned char* key;
  int length;
  std::uint32_t crc;
  const void* data;
};

std::uint64_t TagOf(std::uint64_t key) {
  return key;
}

std::uint64_t TagOf(const BytesKey& key) {
  return std::uint64_t{static_cast<std::uint32_t>(key.length)} << 32 | key.crc;
}

std::uint64_t KeyOf(const NumberRecord& record) {
  return record.key;
}

BytesKey KeyOf(const BytesRecord& record) {
  return {record.key, record.length, record.crc};
}

bool Same(const NumberRecord& record, std::uint64_t key) {
  return record.key == key;
}

bool Same(const BytesRecord& record, const BytesKey& key) {
  if (record.length != key.length || record.crc != key.crc) return false;
  return key.length == 0 ||
         std::memcmp(record.key, key.bytes, static_cast<std::size_t>(key.length)) == 0;
}

template <class Record>
bool SameKey(const void* record, const typename Record::Key& key) {
  return Same(*static_cast<const Record*>(record), key);
}

template <class Record>
int Match(const void* record, const void* key) {
  return SameKey<Record>(record, *static_cast<const typename Record::Key*>(key)) ? 1 : 0;
}

// Records are plain blocks, so that a key of any length can follow one.
struct FreeBlock {
  void operator()(const void* block) const { ::operator delete(const_cast<void*>(block)); }
};

template <class Record>
using OwnedRecord = std::unique_ptr<Record, FreeBlock>;

OwnedRecord<NumberRecord> MakeRecord(std::uint64_t key, const void* data) {
  void* block = ::operator new(sizeof(NumberRecord));
  return OwnedRecord<NumberRecord>(new (block) NumberRecord{key, data});
}

OwnedRecord<BytesRecord> MakeRecord(const BytesKey& key, const void* data) {
  const auto length = static_cast<std::size_t>(key.length);
  void* block = ::operator new(sizeof(BytesRecord) + length);
  auto* bytes = static_cast<unsigned char*>(block) + sizeof(BytesRecord);
  if (length > 0) std::memcpy(bytes, key.bytes, length);
  return OwnedRecord<BytesRecord>(new (block) BytesRecord{bytes, key.length, key.crc, data});
}

template <class Record>
Record* RecordAt(CPtrArrayCtrl* bucket, int index) {
  if (bucket == nullptr) return nullptr;
  return static_cast<Record*>(const_cast<void*>(bucket->CPtrArrayCtrl::GetAt(index)));
}

// One slot of a table: its array, made with its first record, and its part of the index.
template <class Record>
class Slot {
 public:
  using Key = typename Record::Key;

  Slot(CPtrArrayCtrl** buckets, HashIndex& index, std::size_t slot)
      : bucket_(buckets[slot]), index_(index), slot_(slot) {}

  void Add(const Key& key, const void* data) {
    auto record = MakeRecord(key, data);
    index_.Reserve();
    ShowPending();
    if (bucket_ == nullptr) bucket_ = new CPtrArrayCtrl;
    bucket_->AddData(record.get(), -1);
    index_.Add(slot_, TagOf(key), record.get(), data);
    record.release();
  }

  void Replace(const Key& key, const void* data) {
    HashIndex::Entry* entry = FindFirst(key);
    if (entry == nullptr) return;
    entry->data = data;
    static_cast<Record*>(const_cast<void*>(entry->record))->data = data;
  }

  // What the array's own search would find first, or null. Only an unsuccessful search needs
  // the array.
  HashIndex::Entry* FindFirst(const Key& key) {
    HashIndex::Entry* entry = index_.FindFirst(
        slot_, TagOf(key), [&](const void* record) { return SameKey<Record>(record, key); });
    if (entry == nullptr && bucket_ != nullptr) {
      bucket_->CPtrArrayCtrl::FindFirst(&key, &Match<Record>);
    }
    return entry;
  }

  const void* FirstData(const Key& key) {
    const HashIndex::Entry* entry = FindFirst(key);
    return entry != nullptr ? entry->data : nullptr;
  }

  const void* NextData(const Key& key) {
    const Record* record = RecordAt<Record>(bucket_, NextPosition(key));
    return record != nullptr ? record->data : nullptr;
  }

  const void* RemoveFirst(const Key& key, int& count) {
    const HashIndex::Entry* entry = FindFirst(key);
    if (entry == nullptr) return nullptr;
    const int position = entry->position;
    ShowPending();
    return Remove(position, count);
  }

  const void* RemoveNext(const Key& key, int& count) { return Remove(NextPosition(key), count); }

  void AppendAll(CPtrCtrl* result, const Key& key) {
    if (result == nullptr || bucket_ == nullptr) return;
    CPtrArrayCtrl hits;
    for (int i = 0; i < bucket_->GetCount(); ++i) {
      const Record* record = RecordAt<Record>(bucket_, i);
      if (SameKey<Record>(record, key)) hits.AddData(record->data, -1);
    }
    result->AddPtrCtrl(&hits, -1);
  }

  void Clear(int& count) {
    if (bucket_ == nullptr) return;
    for (int i = 0; i < bucket_->GetCount(); ++i) FreeBlock()(bucket_->CPtrArrayCtrl::GetAt(i));
    count -= bucket_->GetCount();
    delete bucket_;
    bucket_ = nullptr;
    index_.Clear(slot_);
  }

 private:
  // Has the array do the search that the index did, before anything depends on where it stands.
  void ShowPending() {
    const auto* record = static_cast<const Record*>(index_.TakePending(slot_));
    if (record == nullptr) return;
    const Key key = KeyOf(*record);
    bucket_->CPtrArrayCtrl::FindFirst(&key, &Match<Record>);
  }

  int NextPosition(const Key& key) {
    if (bucket_ == nullptr) return -1;
    ShowPending();
    return bucket_->CPtrArrayCtrl::FindNext(&key, &Match<Record>);
  }

  const void* Remove(int position, int& count) {
    Record* record = RecordAt<Record>(bucket_, position);
    if (record == nullptr) return nullptr;
    bucket_->DeleteAt(position, 1);
    index_.Remove(slot_, position);
    --count;
    const OwnedRecord<Record> owned(record);
    return owned->data;
  }

  CPtrArrayCtrl*& bucket_;
  HashIndex& index_;
  std::size_t slot_;
};

// key modulo size; most sizes are powers of two, for which that needs no division.
std::size_t SlotIn(std::uint64_t key, std::uint64_t size) {
  return (size & (size - 1)) == 0 ? key & (size - 1) : key % size;
}

// Slots and index of a new table.
void MakeSlots(int size, CPtrArrayCtrl**& buckets, HashIndex*& index) {
  auto made = std::make_unique<HashIndex>(size);
  buckets = new CPtrArrayCtrl* [static_cast<std::size_t>(size)] {};
  index = made.release();
}

template <class Record>
void ClearAll(CPtrArrayCtrl** buckets, HashIndex& index, int size, int& count) {
  for (std::size_t i = 0; i < static_cast<std::size_t>(size); ++i) {
    Slot<Record>(buckets, index, i).Clear(count);
  }
}

template <class Record>
const void* DataAt(CPtrArrayCtrl* bucket, int position) {
  const Record* record = RecordAt<Record>(bucket, position);
  return record != nullptr ? record->data : nullptr;
}

CPtrArrayCtrl* BucketAt(CPtrArrayCtrl* const* buckets, int size, tagHASHPOSITION position) {
  return position.bucket >= 0 && position.bucket < size ? buckets[position.bucket] : nullptr;
}

// Moves the position on to a record, if it does not stand on one.
int Settle(CPtrArrayCtrl* const* buckets, int size, tagHASHPOSITION& position) {
  for (; position.bucket < size; ++position.bucket, position.index = 0) {
    CPtrArrayCtrl* bucket = BucketAt(buckets, size, position);
    if (bucket != nullptr && bucket->CPtrArrayCtrl::IsDataAvailable(position.index)) return 1;
  }
  return 0;
}

int SettleAtHead(CPtrArrayCtrl* const* buckets, int size, tagHASHPOSITION& position) {
  position = {0, 0};
  return Settle(buckets, size, position);
}

int SettleBehind(CPtrArrayCtrl* const* buckets, int size, tagHASHPOSITION& position) {
  if (position.bucket < 0 || position.bucket >= size) return 0;
  ++position.index;
  return Settle(buckets, size, position);
}

}  // namespace

CHashTable::CHashTable(int size) : mTableSize(std::max(size, 1)) {
  InitHashTable();
}

CHashTable::~CHashTable() {
  DeleteAll();
  delete[] mBuckets;
  delete mIndex;
}

void CHashTable::InitHashTable() {
  MakeSlots(mTableSize, mBuckets, mIndex);
}

std::size_t CHashTable::SlotOf(std::uint64_t key) const {
  return SlotIn(key, static_cast<std::uint64_t>(mTableSize));
}

void CHashTable::AddData(std::uint64_t key, const void* data) {
  Slot<NumberRecord> slot(mBuckets, *mIndex, SlotOf(key));
  slot.Add(key, data);
  ++mCount;
}

void CHashTable::SetData(std::uint64_t key, const void* data) {
  Slot<NumberRecord> slot(mBuckets, *mIndex, SlotOf(key));
  slot.Replace(key, data);
}

const void* CHashTable::FindFirstData(std::uint64_t key) {
  Slot<NumberRecord> slot(mBuckets, *mIndex, SlotOf(key));
  return slot.FirstData(key);
}

const void* CHashTable::FindNextData(std::uint64_t key) {
  Slot<NumberRecord> slot(mBuckets, *mIndex, SlotOf(key));
  return slot.NextData(key);
}

void CHashTable::FindAllHashData(CPtrCtrl* result, std::uint64_t key) {
  Slot<NumberRecord> slot(mBuckets, *mIndex, SlotOf(key));
  slot.AppendAll(result, key);
}

const void* CHashTable::DeleteFirstData(std::uint64_t key) {
  Slot<NumberRecord> slot(mBuckets, *mIndex, SlotOf(key));
  return slot.RemoveFirst(key, mCount);
}

const void* CHashTable::DeleteNextData(std::uint64_t key) {
  Slot<NumberRecord> slot(mBuckets, *mIndex, SlotOf(key));
  return slot.RemoveNext(key, mCount);
}

void CHashTable::DeleteAllData(std::uint64_t key) {
  Slot<NumberRecord> slot(mBuckets, *mIndex, SlotOf(key));
  slot.Clear(mCount);
}

void CHashTable::DeleteAll() {
  ClearAll<NumberRecord>(mBuckets, *mIndex, mTableSize, mCount);
}

int CHashTable::IsDataAvailable(std::uint64_t key) {
  Slot<NumberRecord> slot(mBuckets, *mIndex, SlotOf(key));
  return slot.FindFirst(key) != nullptr ? 1 : 0;
}

int CHashTable::GetCount() {
  return mCount;
}

int CHashTable::GetHeadPosition(tagHASHPOSITION& position) {
  return SettleAtHead(mBuckets, mTableSize, position);
}

int CHashTable::MoveHashPositionNext(tagHASHPOSITION& position) {
  return SettleBehind(mBuckets, mTableSize, position);
}

int CHashTable::IsDataAvailable(tagHASHPOSITION position) {
  CPtrArrayCtrl* bucket = BucketAt(mBuckets, mTableSize, position);
  return RecordAt<NumberRecord>(bucket, position.index) != nullptr ? 1 : 0;
}

const void* CHashTable::GetDataAt(tagHASHPOSITION position) {
  return DataAt<NumberRecord>(BucketAt(mBuckets, mTableSize, position), position.index);
}

CCRCHashTable::CCRCHashTable(int size) : mTableSize(std::max(size, 1)) {
  InitCRCHashTable();
}

CCRCHashTable::~CCRCHashTable() {
  DeleteAll();
  delete[] mBuckets;
  delete mIndex;
}

void CCRCHashTable::InitCRCHashTable() {
  MakeSlots(mTableSize, mBuckets, mIndex);
}

std::uint32_t CCRCHashTable::HashOf(const void* key, int length) {
  mCrc.Reset();
  mCrc.AppendData(static_cast<const unsigned char*>(key), length);
  return mCrc.GetResult();
}

std::size_t CCRCHashTable::SlotOf(std::uint32_t hash) const {
  return SlotIn(hash, static_cast<std::uint64_t>(mTableSize));
}

void CCRCHashTable::AddData(const void* key, int length, const void* data) {
  const BytesKey sought(key, length, HashOf(key, length));
  Slot<BytesRecord> slot(mBuckets, *mIndex, SlotOf(sought.crc));
  slot.Add(sought, data);
  ++mCount;
}

void CCRCHashTable::SetData(const void* key, int length, const void* data) {
  const BytesKey sought(key, length, HashOf(key, length));
  Slot<BytesRecord> slot(mBuckets, *mIndex, SlotOf(sought.crc));
  slot.Replace(sought, data);
}

const void* CCRCHashTable::FindFirstData(const void* key, int length) {
  const BytesKey sought(key, length, HashOf(key, length));
  Slot<BytesRecord> slot(mBuckets, *mIndex, SlotOf(sought.crc));
  return slot.FirstData(sought);
}

const void* CCRCHashTable::FindNextData(const void* key, int length) {
  const BytesKey sought(key, length, HashOf(key, length));
  Slot<BytesRecord> slot(mBuckets, *mIndex, SlotOf(sought.crc));
  return slot.NextData(sought);
}

void CCRCHashTable::FindAllCRCHashData(CPtrCtrl* result, const void* key, int length) {
  const BytesKey sought(key, length, HashOf(key, length));
  Slot<BytesRecord> slot(mBuckets, *mIndex, SlotOf(sought.crc));
  slot.AppendAll(result, sought);
}

const void* CCRCHashTable::DeleteFirstData(const void* key, int length) {
  const BytesKey sought(key, length, HashOf(key, length));
  Slot<BytesRecord> slot(mBuckets, *mIndex, SlotOf(sought.crc));
  return slot.RemoveFirst(sought, mCount);
}

const void* CCRCHashTable::DeleteNextData(const void* key, int length) {
  const BytesKey sought(key, length, HashOf(key, length));
  Slot<BytesRecord> slot(mBuckets, *mIndex, SlotOf(sought.crc));
  return slot.RemoveNext(sought, mCount);
}

void CCRCHashTable::DeleteAllData(const void* key, int length) {
  const BytesKey sought(key, length, HashOf(key, length));
  Slot<BytesRecord> slot(mBuckets, *mIndex, SlotOf(sought.crc));
  slot.Clear(mCount);
}

void CCRCHashTable::DeleteAll() {
  ClearAll<BytesRecord>(mBuckets, *mIndex, mTableSize, mCount);
}

int CCRCHashTable::IsDataAvailable(const void* key, int length) {
  const BytesKey sought(key, length, HashOf(key, length));
  Slot<BytesRecord> slot(mBuckets, *mIndex, SlotOf(sought.crc));
  return slot.FindFirst(sought) != nullptr ? 1 : 0;
}

int CCRCHashTable::GetCount() {
  return mCount;
}

int CCRCHashTable::GetHeadPosition(tagHASHPOSITION& position) {
  return SettleAtHead(mBuckets, mTableSize, position);
}

int CCRCHashTable::MoveHashPositionNext(tagHASHPOSITION& position) {
  return SettleBehind(mBuckets, mTableSize, position);
}

int CCRCHashTable::IsDataAvailable(tagHASHPOSITION position) {
  CPtrArrayCtrl* bucket = BucketAt(mBuckets, mTableSize, position);
  return RecordAt<BytesRecord>(bucket, position.index) != nullptr ? 1 : 0;
}

const void* CCRCHashTable::GetDataAt(tagHASHPOSITION position) {
  return DataAt<BytesRecord>(BucketAt(mBuckets, mTableSize, position), position.index);
}
