#include "qvx/hash_table.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <type_traits>

#include "containers/ptr_support.h"
#include "qvx/ptr_list.h"
#include "support/failing_new.h"

namespace qvx::test {
namespace {

std::uint32_t CrcOf(const std::string& text) {
  CCRC32 crc;
  crc.AppendData(reinterpret_cast<const unsigned char*>(text.data()),
                 static_cast<int>(text.size()));
  return crc.GetResult();
}

// Either table with keys that are numbers; for the one of bytes they become texts.
template <class Table>
class Keyed : public Table {
 public:
  static constexpr bool kTakesNumbers = std::is_same_v<Table, CHashTable>;
  using Table::Table;

  // Calls a member whose arguments begin with the key.
  template <class Result, class... Parameters, class... Rest>
  Result Call(Result (Table::*member)(Parameters...), unsigned key, Rest... rest) {
    return With(key, [&](auto... parts) { return (this->*member)(parts..., rest...); });
  }
  int Has(unsigned key) {
    return With(key, [this](auto... parts) { return this->IsDataAvailable(parts...); });
  }
  void FindAll(CPtrCtrl* result, unsigned key) {
    With(key, [&](auto... parts) {
      if constexpr (kTakesNumbers) {
        this->FindAllHashData(result, parts...);
      } else {
        this->FindAllCRCHashData(result, parts...);
      }
    });
  }
  static unsigned SlotOf(unsigned key, int size) {
    return (kTakesNumbers ? key : CrcOf(Text(key))) % static_cast<unsigned>(size);
  }

 private:
  // Key 0 is the empty key; the others have many lengths.
  static std::string Text(unsigned key) {
    return key == 0 ? "" : std::string(key % 40, 'k') + std::to_string(key);
  }
  template <class Function>
  static auto With(unsigned key, Function function) {
    if constexpr (kTakesNumbers) {
      return function(key);
    } else {
      const std::string text = Text(key);
      return function(text.data(), static_cast<int>(text.size()));
    }
  }
};

template <class Table>
class HashTables : public testing::Test {};
using Kinds = testing::Types<CHashTable, CCRCHashTable>;
TYPED_TEST_SUITE(HashTables, Kinds);

// The keys of a slot and, at the same indices, their data.
struct Slot {
  int First(unsigned key) { return keys.FindFirst(Entry(key), nullptr); }
  int Next(unsigned key) { return keys.FindNext(Entry(key), nullptr); }
  const void* Drop(int index) {
    keys.DeleteAt(index, 1);
    return data.DeleteAt(index, 1);
  }
  // The data of all records of the key behind the number 7.
  Numbers All(unsigned key) {
    Numbers all{7};
    for (int i = 0; i < keys.GetCount(); ++i) {
      if (keys.GetAt(i) == Entry(key)) all.push_back(Number(data.GetAt(i)));
    }
    return all;
  }

  CPtrArrayCtrl keys;
  CPtrArrayCtrl data;
};

TYPED_TEST(HashTables, AgreeWithTheArraysOfTheirSlots) {
  std::mt19937 random(23);
  for (const int size : {1, 3, 64}) {
    Keyed<TypeParam> table(size);
    std::map<unsigned, Slot> slots;
    int count = 0;
    for (int turn = 1; turn < 6000; ++turn) {
      const unsigned key = static_cast<unsigned>(random() % 50);
      Slot& slot = slots[table.SlotOf(key, size)];
      const int before = slot.keys.GetCount();
      CPtrListCtrl found;
      switch (random() % 10) {
        case 0:
          table.Call(&TypeParam::SetData, key, Entry(1000000 + turn));
          slot.data.Set(slot.First(key), Entry(1000000 + turn));
          break;
        case 1:
          ASSERT_EQ(table.Call(&TypeParam::DeleteFirstData, key), slot.Drop(slot.First(key)));
          break;
        case 2:
          ASSERT_EQ(table.Call(&TypeParam::DeleteNextData, key), slot.Drop(slot.Next(key)));
          break;
        case 3:
          found.AddData(Entry(7), -1);
          table.FindAll(&found, key);
          ASSERT_EQ(Content(found), slot.All(key));
          break;
        case 4:
          if (random() % 64 != 0) break;
          table.Call(&TypeParam::DeleteAllData, key);
          slots.erase(table.SlotOf(key, size));
          count -= before;
          continue;
        case 5:
          ASSERT_EQ(table.Has(key), slot.First(key) >= 0 ? 1 : 0);
          break;
        case 6:
          table.Call(&TypeParam::AddData, key, Entry(turn));
          slot.keys.AddData(Entry(key), -1);
          slot.data.AddData(Entry(turn), -1);
          break;
        case 7:
          ASSERT_EQ(table.Call(&TypeParam::FindFirstData, key), slot.data.GetAt(slot.First(key)));
          break;
        default:
          ASSERT_EQ(table.Call(&TypeParam::FindNextData, key), slot.data.GetAt(slot.Next(key)));
          break;
      }
      count += slot.keys.GetCount() - before;
      ASSERT_EQ(table.GetCount(), count);
    }
    tagHASHPOSITION position;
    int more = table.GetHeadPosition(position);
    for (auto& [number, slot] : slots) {
      for (std::intptr_t data : Content(slot.data)) {
        ASSERT_EQ(more, 1);
        ASSERT_EQ(table.IsDataAvailable(position), 1);
        ASSERT_EQ(table.GetDataAt(position), Entry(data));
        ASSERT_EQ(position.bucket, static_cast<int>(number));
        more = table.MoveHashPositionNext(position);
      }
    }
    ASSERT_EQ(more, 0);
    ASSERT_EQ(position.bucket, size);
    ASSERT_EQ(table.IsDataAvailable(position), 0);
    ASSERT_EQ(table.MoveHashPositionNext(position), 0);
    table.DeleteAll();
    ASSERT_EQ(table.GetCount(), 0);
    ASSERT_EQ(table.GetHeadPosition(position), 0);
    ASSERT_EQ(table.GetDataAt({-1, 0}), nullptr);
  }
}

TYPED_TEST(HashTables, AreAsTheyWereWhenMemoryIsOut) {
  Keyed<TypeParam> table(4);
  for (unsigned i = 1; i <= 64; ++i) table.Call(&TypeParam::AddData, 1, Entry(i));
  CPtrArrayCtrl found;
  found.AddData(Entry(9), -1);
  for (int first = 1; found.GetCount() == 1; ++first) {
    const FailingAllocations failing(first, 1000);
    try {
      table.FindAll(&found, 1);
    } catch (const std::bad_alloc&) {
      ASSERT_EQ(found.GetCount(), 1);
    }
  }
  for (const unsigned key : {1u, 2u}) {
    for (int first : {1, 2}) {
      {
        const FailingAllocations failing(first, 1000);
        EXPECT_THROW(table.Call(&TypeParam::AddData, key, Entry(5)), std::bad_alloc);
      }
      EXPECT_EQ(table.GetCount(), 64);
      EXPECT_EQ(table.Has(2), 0);
    }
  }
  table.Call(&TypeParam::AddData, 2, Entry(5));
  EXPECT_EQ(table.Call(&TypeParam::FindFirstData, 2), Entry(5));
}

TEST(CrcHashTable, TellsKeysOfEqualCrcApart) {
  // The difference of two keys of equal CRC is a multiple of the polynomial.
  std::string first = "\1\2\3\4\5\6";
  std::string second = first;
  for (std::size_t i = 0; i < 5; ++i) second[i] ^= "\x01\x04\xC1\x1D\xB7"[i];
  ASSERT_EQ(CrcOf(first), CrcOf(second));

  CCRCHashTable table;
  table.AddData(first.data(), 6, Entry(1));
  EXPECT_EQ(table.IsDataAvailable(second.data(), 6), 0);
  table.AddData(second.data(), 6, Entry(2));
  first[0] = 99;  // the table has a copy
  EXPECT_EQ(table.FindFirstData(second.data(), 6), Entry(2));
  EXPECT_EQ(table.FindFirstData("\1\2\3\4\5\6", 6), Entry(1));
  EXPECT_EQ(table.FindFirstData("\1\2\3\4\5\6", 5), nullptr);
  table.AddData(nullptr, 3, Entry(3));
  EXPECT_EQ(table.FindFirstData("x", -1), Entry(3));
}

TEST(HashTable, HasOneSlotAtLeast) {
  CHashTable table(-5);
  table.AddData(UINT64_MAX, Entry(1));
  EXPECT_EQ(table.FindFirstData(UINT64_MAX), Entry(1));
  table.FindAllHashData(nullptr, UINT64_MAX);
}

}  // namespace
}  // namespace qvx::test
