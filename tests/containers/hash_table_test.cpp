#include "qvx/hash_table.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <map>
#include <random>
#include <string>

#include "qvx/ptr_list.h"
#include "support/failing_new.h"

namespace qvx::test {
namespace {

const void* Value(std::uintptr_t number) {
  return reinterpret_cast<const void*>(number);
}

// Both tables behind one face, with keys that are numbers.
class Numbers {
 public:
  explicit Numbers(int size) : table_(size) {}
  CHashTable& Table() { return table_; }
  void Add(unsigned key, const void* data) { table_.AddData(key, data); }
  void Set(unsigned key, const void* data) { table_.SetData(key, data); }
  const void* First(unsigned key) { return table_.FindFirstData(key); }
  const void* Next(unsigned key) { return table_.FindNextData(key); }
  const void* DropFirst(unsigned key) { return table_.DeleteFirstData(key); }
  const void* DropNext(unsigned key) { return table_.DeleteNextData(key); }
  void DropSlot(unsigned key) { table_.DeleteAllData(key); }
  void All(CPtrCtrl* result, unsigned key) { table_.FindAllHashData(result, key); }
  int Has(unsigned key) { return table_.IsDataAvailable(key); }
  unsigned SlotOf(unsigned key, int size) { return key % static_cast<unsigned>(size); }

 private:
  CHashTable table_;
};

class Texts {
 public:
  explicit Texts(int size) : table_(size) {}
  CCRCHashTable& Table() { return table_; }
  void Add(unsigned key, const void* data) {
    const std::string text = Text(key);
    table_.AddData(text.data(), Length(text), data);
  }
  void Set(unsigned key, const void* data) {
    table_.SetData(Text(key).data(), Length(Text(key)), data);
  }
  const void* First(unsigned key) {
    return table_.FindFirstData(Text(key).data(), Length(Text(key)));
  }
  const void* Next(unsigned key) {
    return table_.FindNextData(Text(key).data(), Length(Text(key)));
  }
  const void* DropFirst(unsigned key) {
    return table_.DeleteFirstData(Text(key).data(), Length(Text(key)));
  }
  const void* DropNext(unsigned key) {
    return table_.DeleteNextData(Text(key).data(), Length(Text(key)));
  }
  void DropSlot(unsigned key) { table_.DeleteAllData(Text(key).data(), Length(Text(key))); }
  void All(CPtrCtrl* result, unsigned key) {
    table_.FindAllCRCHashData(result, Text(key).data(), Length(Text(key)));
  }
  int Has(unsigned key) { return table_.IsDataAvailable(Text(key).data(), Length(Text(key))); }
  unsigned SlotOf(unsigned key, int size) {
    CCRC32 crc;
    const std::string text = Text(key);
    crc.AppendData(reinterpret_cast<const unsigned char*>(text.data()), Length(text));
    return crc.GetResult() % static_cast<unsigned>(size);
  }

 private:
  // Key 0 is the empty key; the others have many lengths.
  static std::string Text(unsigned key) {
    return key == 0 ? "" : std::string(key % 40, 'k') + std::to_string(key);
  }
  static int Length(const std::string& text) { return static_cast<int>(text.size()); }

  CCRCHashTable table_;
};

template <class T>
class HashTables : public testing::Test {};
using Kinds = testing::Types<Numbers, Texts>;
TYPED_TEST_SUITE(HashTables, Kinds);

// The array of each slot, with all that is done to it.
class Slots {
 public:
  struct Record {
    unsigned key;
    const void* data;
  };

  CPtrArrayCtrl& Of(unsigned slot) { return arrays_[slot]; }
  std::map<unsigned, CPtrArrayCtrl>& All() { return arrays_; }
  static int HasKey(const void* record, const void* key) {
    return static_cast<const Record*>(record)->key == *static_cast<const unsigned*>(key);
  }
  static const void* Data(CPtrArrayCtrl& array, int index) {
    const void* record = array.GetAt(index);
    return record != nullptr ? static_cast<const Record*>(record)->data : nullptr;
  }
  void Add(CPtrArrayCtrl& array, unsigned key, const void* data) {
    records_.push_back({key, data});
    array.AddData(&records_.back(), -1);
  }
  static const void* Drop(CPtrArrayCtrl& array, int index) {
    const void* data = Data(array, index);
    array.DeleteAt(index, 1);
    return data;
  }

 private:
  std::deque<Record> records_;
  std::map<unsigned, CPtrArrayCtrl> arrays_;
};

TYPED_TEST(HashTables, AgreeWithTheArraysOfTheirSlots) {
  std::mt19937 random(23);
  for (const int size : {1, 3, 64}) {
    TypeParam table(size);
    Slots slots;
    int count = 0;
    for (unsigned turn = 1; turn < 6000; ++turn) {
      const unsigned key = static_cast<unsigned>(random() % 50);
      CPtrArrayCtrl& array = slots.Of(table.SlotOf(key, size));
      const int before = array.GetCount();
      switch (random() % 10) {
        case 0: {
          table.Set(key, Value(1000000 + turn));
          const int index = array.FindFirst(&key, &Slots::HasKey);
          if (index < 0) break;
          auto* record = static_cast<const Slots::Record*>(array.GetAt(index));
          const_cast<Slots::Record*>(record)->data = Value(1000000 + turn);
          break;
        }
        case 1:
          ASSERT_EQ(table.DropFirst(key),
                    Slots::Drop(array, array.FindFirst(&key, &Slots::HasKey)));
          break;
        case 2:
          ASSERT_EQ(table.DropNext(key), Slots::Drop(array, array.FindNext(&key, &Slots::HasKey)));
          break;
        case 3: {
          CPtrListCtrl found;
          found.AddData(Value(7), -1);
          table.All(&found, key);
          CPtrArrayCtrl indices;
          array.FindAll(&indices, &key, &Slots::HasKey);
          ASSERT_EQ(found.GetCount(), indices.GetCount() + 1);
          for (int i = 0; i < indices.GetCount(); ++i) {
            const auto index = static_cast<int>(reinterpret_cast<std::intptr_t>(indices.GetAt(i)));
            ASSERT_EQ(found.GetAt(i + 1), Slots::Data(array, index));
          }
          break;
        }
        case 4:
          if (random() % 64 != 0) break;
          table.DropSlot(key);
          count -= before;
          slots.All().erase(table.SlotOf(key, size));
          continue;
        case 5:
          ASSERT_EQ(table.Has(key), array.FindFirst(&key, &Slots::HasKey) >= 0 ? 1 : 0);
          break;
        case 6:
          table.Add(key, Value(turn));
          slots.Add(array, key, Value(turn));
          break;
        case 7:
          ASSERT_EQ(table.First(key), Slots::Data(array, array.FindFirst(&key, &Slots::HasKey)));
          break;
        default:
          ASSERT_EQ(table.Next(key), Slots::Data(array, array.FindNext(&key, &Slots::HasKey)));
          break;
      }
      count += array.GetCount() - before;
      ASSERT_EQ(table.Table().GetCount(), count);
    }
    tagHASHPOSITION position;
    int more = table.Table().GetHeadPosition(position);
    for (auto& [slot, array] : slots.All()) {
      for (int i = 0; i < array.GetCount(); ++i) {
        ASSERT_EQ(more, 1);
        ASSERT_EQ(table.Table().IsDataAvailable(position), 1);
        ASSERT_EQ(table.Table().GetDataAt(position), Slots::Data(array, i));
        ASSERT_EQ(position.bucket, static_cast<int>(slot));
        more = table.Table().MoveHashPositionNext(position);
      }
    }
    ASSERT_EQ(more, 0);
    ASSERT_EQ(position.bucket, size);
    ASSERT_EQ(table.Table().IsDataAvailable(position), 0);
    ASSERT_EQ(table.Table().MoveHashPositionNext(position), 0);
    table.Table().DeleteAll();
    ASSERT_EQ(table.Table().GetCount(), 0);
    ASSERT_EQ(table.Table().GetHeadPosition(position), 0);
    ASSERT_EQ(table.Table().GetDataAt({-1, 0}), nullptr);
  }
}

TYPED_TEST(HashTables, AreAsTheyWereWhenMemoryIsOut) {
  TypeParam table(4);
  for (unsigned i = 0; i < 64; ++i) table.Add(1, Value(i + 1));
  CPtrArrayCtrl found;
  found.AddData(Value(9), -1);
  for (int allowed = 0; allowed < 4; ++allowed) {
    const FailingAllocations failing(allowed + 1, 1000);
    try {
      table.All(&found, 1);
      break;
    } catch (const std::bad_alloc&) {
      ASSERT_EQ(found.GetCount(), 1);
    }
  }
  for (const unsigned key : {1u, 2u}) {
    for (int allowed = 0; allowed < 2; ++allowed) {
      {
        const FailingAllocations failing(allowed + 1, 1000);
        EXPECT_THROW(table.Add(key, Value(5)), std::bad_alloc);
      }
      EXPECT_EQ(table.Table().GetCount(), 64);
      EXPECT_EQ(table.Has(2), 0);
    }
  }
  table.Add(2, Value(5));
  EXPECT_EQ(table.First(2), Value(5));
}

TEST(CrcHashTable, TellsKeysOfEqualCrcApart) {
  // The difference of two keys of equal CRC is a multiple of the polynomial.
  const unsigned char difference[] = {0x01, 0x04, 0xC1, 0x1D, 0xB7};
  unsigned char first[] = {1, 2, 3, 4, 5, 6};
  unsigned char second[6];
  std::memcpy(second, first, sizeof(second));
  for (int i = 0; i < 5; ++i) second[i] ^= difference[i];
  CCRC32 crc;
  crc.AppendData(first, 6);
  const unsigned expected = crc.GetResult();
  crc.Reset();
  crc.AppendData(second, 6);
  ASSERT_EQ(crc.GetResult(), expected);

  CCRCHashTable table;
  table.AddData(first, 6, Value(1));
  EXPECT_EQ(table.IsDataAvailable(second, 6), 0);
  table.AddData(second, 6, Value(2));
  first[0] = 99;  // the table has a copy
  EXPECT_EQ(table.FindFirstData(second, 6), Value(2));
  first[0] = 1;
  EXPECT_EQ(table.FindFirstData(first, 6), Value(1));
  EXPECT_EQ(table.FindFirstData(first, 5), nullptr);
  table.AddData(nullptr, 3, Value(3));
  EXPECT_EQ(table.FindFirstData("x", -1), Value(3));
}

TEST(HashTable, HasOneSlotAtLeast) {
  CHashTable table(-5);
  table.AddData(UINT64_MAX, Value(1));
  EXPECT_EQ(table.FindFirstData(UINT64_MAX), Value(1));
  table.FindAllHashData(nullptr, UINT64_MAX);
}

}  // namespace
}  // namespace qvx::test
