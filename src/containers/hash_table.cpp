#include "qvx/hash_table.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

// Both tables keep their slots in the same way; what differs is the record and its key.
namespace {

struct NumberRecord {
  std::uint64_t key;
  const void* data;
};

// A record's copy of its key stands right behind it.
struct BytesRecord {
  const unsigned char* key;
  int length;
  std::uint32_t crc;
  const void* data;
};

struct BytesKey {
  BytesKey(const void* key, int key_length, std::uint32_t key_crc)
      : bytes(key), length(key != nullptr ? std::max(key_length, 0) : 0), crc(key_crc) {}

  const void* bytes;
  int length;
  std::uint32_t crc;
};

int MatchNumber(const void* record, const void* key) {
  return static_cast<const NumberRecord*>(record)->key == *static_cast<const std::uint64_t*>(key);
}

int MatchBytes(const void* record, const void* key) {
  const auto* held = static_cast<const BytesRecord*>(record);
  const auto* sought = static_cast<const BytesKey*>(key);
  if (held->length != sought->length || held->crc != sought->crc) return 0;
  if (held->length == 0) return 1;
  return std::memcmp(held->key, sought->bytes, static_cast<std::size_t>(held->length)) == 0;
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

CPtrArrayCtrl** MakeBuckets(int size) {
  return new CPtrArrayCtrl* [static_cast<std::size_t>(size)] {};
}

template <class Record>
void AddRecord(CPtrArrayCtrl*& bucket, OwnedRecord<Record> record) {
  if (bucket == nullptr) bucket = new CPtrArrayCtrl;
  bucket->AddData(record.get(), -1);
  record.release();
}

enum class Search { kFirst, kNext };

// The index of the record in its bucket, or -1.
template <Search kSearch>
int Find(CPtrArrayCtrl* bucket, const void* key, int (*match)(const void*, const void*)) {
  if (bucket == nullptr) return -1;
  return kSearch == Search::kFirst ? bucket->CPtrArrayCtrl::FindFirst(key, match)
                                   : bucket->CPtrArrayCtrl::FindNext(key, match);
}

template <class Record>
Record* RecordAt(CPtrArrayCtrl* bucket, int index) {
  if (bucket == nullptr) return nullptr;
  return static_cast<Record*>(const_cast<void*>(bucket->CPtrArrayCtrl::GetAt(index)));
}

template <class Record>
const void* DataAt(CPtrArrayCtrl* bucket, int index) {
  const Record* record = RecordAt<Record>(bucket, index);
  return record != nullptr ? record->data : nullptr;
}

template <class Record>
void Replace(CPtrArrayCtrl* bucket, int index, const void* data) {
  if (Record* record = RecordAt<Record>(bucket, index)) record->data = data;
}

// Takes a record out of its bucket; does nothing for an index of -1.
template <class Record>
const void* Remove(CPtrArrayCtrl* bucket, int index, int& count) {
  Record* record = RecordAt<Record>(bucket, index);
  if (record == nullptr) return nullptr;
  bucket->DeleteAt(index, 1);
  --count;
  const OwnedRecord<Record> owned(record);
  return owned->data;
}

template <class Record>
void Append(CPtrCtrl* result, CPtrArrayCtrl* bucket, const void* key,
            int (*match)(const void*, const void*)) {
  if (result == nullptr || bucket == nullptr) return;
  CPtrArrayCtrl hits;
  for (int i = 0; i < bucket->GetCount(); ++i) {
    const Record* record = RecordAt<Record>(bucket, i);
    if (match(record, key) != 0) hits.AddData(record->data, -1);
  }
  result->AddPtrCtrl(&hits, -1);
}

void Drop(CPtrArrayCtrl*& bucket, int& count) {
  if (bucket == nullptr) return;
  for (int i = 0; i < bucket->GetCount(); ++i) FreeBlock()(bucket->CPtrArrayCtrl::GetAt(i));
  count -= bucket->GetCount();
  delete bucket;
  bucket = nullptr;
}

void DropAll(CPtrArrayCtrl** buckets, int size, int& count) {
  std::for_each(buckets, buckets + size, [&](CPtrArrayCtrl*& bucket) { Drop(bucket, count); });
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
}

void CHashTable::InitHashTable() {
  mBuckets = MakeBuckets(mTableSize);
}

CPtrArrayCtrl*& CHashTable::BucketOf(std::uint64_t key) {
  return mBuckets[key % static_cast<std::uint64_t>(mTableSize)];
}

void CHashTable::AddData(std::uint64_t key, const void* data) {
  AddRecord(BucketOf(key), MakeRecord(key, data));
  ++mCount;
}

void CHashTable::SetData(std::uint64_t key, const void* data) {
  CPtrArrayCtrl* bucket = BucketOf(key);
  Replace<NumberRecord>(bucket, Find<Search::kFirst>(bucket, &key, &MatchNumber), data);
}

const void* CHashTable::FindFirstData(std::uint64_t key) {
  CPtrArrayCtrl* bucket = BucketOf(key);
  return DataAt<NumberRecord>(bucket, Find<Search::kFirst>(bucket, &key, &MatchNumber));
}

const void* CHashTable::FindNextData(std::uint64_t key) {
  CPtrArrayCtrl* bucket = BucketOf(key);
  return DataAt<NumberRecord>(bucket, Find<Search::kNext>(bucket, &key, &MatchNumber));
}

void CHashTable::FindAllHashData(CPtrCtrl* result, std::uint64_t key) {
  Append<NumberRecord>(result, BucketOf(key), &key, &MatchNumber);
}

const void* CHashTable::DeleteFirstData(std::uint64_t key) {
  CPtrArrayCtrl* bucket = BucketOf(key);
  return Remove<NumberRecord>(bucket, Find<Search::kFirst>(bucket, &key, &MatchNumber), mCount);
}

const void* CHashTable::DeleteNextData(std::uint64_t key) {
  CPtrArrayCtrl* bucket = BucketOf(key);
  return Remove<NumberRecord>(bucket, Find<Search::kNext>(bucket, &key, &MatchNumber), mCount);
}

void CHashTable::DeleteAllData(std::uint64_t key) {
  Drop(BucketOf(key), mCount);
}

void CHashTable::DeleteAll() {
  DropAll(mBuckets, mTableSize, mCount);
}

int CHashTable::IsDataAvailable(std::uint64_t key) {
  return Find<Search::kFirst>(BucketOf(key), &key, &MatchNumber) >= 0 ? 1 : 0;
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
}

void CCRCHashTable::InitCRCHashTable() {
  mBuckets = MakeBuckets(mTableSize);
}

std::uint32_t CCRCHashTable::HashOf(const void* key, int length) {
  mCrc.Reset();
  mCrc.AppendData(static_cast<const unsigned char*>(key), length);
  return mCrc.GetResult();
}

CPtrArrayCtrl*& CCRCHashTable::BucketOf(std::uint32_t hash) {
  return mBuckets[hash % static_cast<std::uint32_t>(mTableSize)];
}

void CCRCHashTable::AddData(const void* key, int length, const void* data) {
  const BytesKey sought(key, length, HashOf(key, length));
  AddRecord(BucketOf(sought.crc), MakeRecord(sought, data));
  ++mCount;
}

void CCRCHashTable::SetData(const void* key, int length, const void* data) {
  const BytesKey sought(key, length, HashOf(key, length));
  CPtrArrayCtrl* bucket = BucketOf(sought.crc);
  Replace<BytesRecord>(bucket, Find<Search::kFirst>(bucket, &sought, &MatchBytes), data);
}

const void* CCRCHashTable::FindFirstData(const void* key, int length) {
  const BytesKey sought(key, length, HashOf(key, length));
  CPtrArrayCtrl* bucket = BucketOf(sought.crc);
  return DataAt<BytesRecord>(bucket, Find<Search::kFirst>(bucket, &sought, &MatchBytes));
}

const void* CCRCHashTable::FindNextData(const void* key, int length) {
  const BytesKey sought(key, length, HashOf(key, length));
  CPtrArrayCtrl* bucket = BucketOf(sought.crc);
  return DataAt<BytesRecord>(bucket, Find<Search::kNext>(bucket, &sought, &MatchBytes));
}

void CCRCHashTable::FindAllCRCHashData(CPtrCtrl* result, const void* key, int length) {
  const BytesKey sought(key, length, HashOf(key, length));
  Append<BytesRecord>(result, BucketOf(sought.crc), &sought, &MatchBytes);
}

const void* CCRCHashTable::DeleteFirstData(const void* key, int length) {
  const BytesKey sought(key, length, HashOf(key, length));
  CPtrArrayCtrl* bucket = BucketOf(sought.crc);
  return Remove<BytesRecord>(bucket, Find<Search::kFirst>(bucket, &sought, &MatchBytes), mCount);
}

const void* CCRCHashTable::DeleteNextData(const void* key, int length) {
  const BytesKey sought(key, length, HashOf(key, length));
  CPtrArrayCtrl* bucket = BucketOf(sought.crc);
  return Remove<BytesRecord>(bucket, Find<Search::kNext>(bucket, &sought, &MatchBytes), mCount);
}

void CCRCHashTable::DeleteAllData(const void* key, int length) {
  Drop(BucketOf(HashOf(key, length)), mCount);
}

void CCRCHashTable::DeleteAll() {
  DropAll(mBuckets, mTableSize, mCount);
}

int CCRCHashTable::IsDataAvailable(const void* key, int length) {
  const BytesKey sought(key, length, HashOf(key, length));
  return Find<Search::kFirst>(BucketOf(sought.crc), &sought, &MatchBytes) >= 0 ? 1 : 0;
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
