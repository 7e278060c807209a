#include "qvx/ptr_array.h"

#include <gtest/gtest.h>

#include "containers/ptr_support.h"
#include "qvx/ptr_list.h"

namespace qvx::test {
namespace {

TEST(PtrArray, SizesItsTableByDoublingAndHalving) {
  CPtrArrayCtrl array;
  EXPECT_EQ(array.GetDataPtr(), nullptr);
  EXPECT_EQ(array.GetCapability(), 0);
  const auto grow_to = [&](int count) {
    while (array.GetCount() < count) array.AddData(Entry(1), -1);
    return array.GetCapability();
  };
  const auto shrink_to = [&](int count) {
    while (array.GetCount() > count) array.DeleteTail();
    return array.GetCapability();
  };
  EXPECT_EQ(grow_to(1), 32);
  EXPECT_EQ(grow_to(32), 32);
  EXPECT_EQ(grow_to(33), 64);
  EXPECT_EQ(grow_to(1024), 1024);
  EXPECT_EQ(shrink_to(512), 1024);
  EXPECT_EQ(shrink_to(511), 512);
  EXPECT_EQ(shrink_to(33), 64);
  EXPECT_EQ(shrink_to(0), 64);
  array.DeleteAll();
  EXPECT_EQ(array.GetCapability(), 0);
  EXPECT_EQ(array.GetDataPtr(), nullptr);
  // A removal that leaves 32 or fewer keeps the table; the next insertion beyond makes it fit.
  EXPECT_EQ(grow_to(1024), 1024);
  EXPECT_EQ(array.DeleteAt(0, 1000), Entry(1));
  EXPECT_EQ(array.GetCapability(), 1024);
  EXPECT_EQ(grow_to(32), 1024);
  EXPECT_EQ(grow_to(33), 64);
}

TEST(PtrArray, AnswersWithTheIndexOfWhatItInserted) {
  CPtrArrayCtrl array;
  CPtrArrayCtrl pair;
  CPtrListCtrl list;
  Fill(array, {1, 2});
  EXPECT_EQ(array.AddPtrCtrl(nullptr, 0), -1);
  EXPECT_EQ(array.AddPtrCtrl(&pair, 0), -1);
  EXPECT_EQ(array.AddPtrCtrl(&array, 1), 1);
  EXPECT_EQ(Content(array), (Numbers{1, 1, 2, 2}));
  Fill(pair, {8, 9});
  EXPECT_EQ(array.AddPtrCtrl(&pair, -1), 4);
  EXPECT_EQ(array.AddPtrCtrl(&pair, 99), 6);
  Fill(list, {5, 6});
  EXPECT_EQ(array.AddPtrCtrl(&list, 1), 3);
  EXPECT_EQ(array.AddPtrCtrl(&list, -1), -1);
  EXPECT_EQ(Content(array), (Numbers{1, 5, 6, 1, 2, 2, 8, 9, 8, 9, 5, 6}));
}

TEST(PtrArray, SearchesFromBothEnds) {
  CPtrArrayCtrl array;
  Fill(array, {1, 0, 1, 1});
  EXPECT_EQ(array.FindFirst(Entry(1), nullptr), 0);
  EXPECT_EQ(array.FindNext(Entry(1), nullptr), 3);
  EXPECT_EQ(array.FindNext(Entry(1), nullptr), 2);
  EXPECT_EQ(array.FindNext(Entry(1), nullptr), -1);
  Fill(array, {1, 2, 3, 4, 5, 3});
  EXPECT_EQ(array.FindFirst(Entry(3), nullptr), 5);
  EXPECT_EQ(array.FindFirst(Entry(13), &SameDigit), 5);
  Numbers order;
  const auto note = [](const void* entry, const void* key) {
    const_cast<Numbers*>(static_cast<const Numbers*>(key))->push_back(Number(entry));
    return 0;
  };
  EXPECT_EQ(array.FindFirst(&order, note), -1);
  EXPECT_EQ(order, (Numbers{1, 2, 3, 3, 5, 4}));
  // A search goes on without harm after the container shrank.
  array.FindFirst(Entry(3), nullptr);
  array.DeleteAt(1, 99);
  array.FindNext(Entry(1), nullptr);
}

TEST(PtrArray, DeletesBlocks) {
  CPtrArrayCtrl array;
  Fill(array, {1, 2, 3});
  EXPECT_EQ(array.DeleteAt(1, 0), Entry(2));
  EXPECT_EQ(array.DeleteAt(1, 100), Entry(2));
  EXPECT_EQ(Content(array), (Numbers{1}));
}

TEST(PtrArray, MovesToTheFrontForANegativePlace) {
  CPtrArrayCtrl array;
  Fill(array, {1, 2, 3});
  EXPECT_TRUE(array.MoveData(2, 1, -1));
  EXPECT_EQ(Content(array), (Numbers{3, 1, 2}));
}

TEST(PtrArray, FindsAllOnlyWithACallback) {
  CPtrArrayCtrl array;
  CPtrArrayCtrl result;
  Fill(array, {1, 2});
  Fill(result, {9});
  array.FindAll(&result, Entry(1), nullptr);
  EXPECT_EQ(Content(result), (Numbers{9}));
}

}  // namespace
}  // namespace qvx::test
