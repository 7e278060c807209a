#include "qvx/ptr_array.h"

#include <gtest/gtest.h>

#include "containers/ptr_support.h"
#include "qvx/ptr_list.h"

namespace qvx::test {
namespace {

TEST(PtrArray, SizesItsTableByDoublingAndHalving) {
  CPtrArrayCtrl array;
  const auto capability_at = [&](int count) {
    while (array.GetCount() < count) array.AddData(Entry(1), -1);
    while (array.GetCount() > count) array.DeleteTail();
    return array.GetCapability();
  };
  struct Case {
    int count, capability;
  };
  for (const Case& one : {Case{0, 0}, Case{1, 32}, Case{32, 32}, Case{33, 64}, Case{1024, 1024},
                          Case{512, 1024}, Case{511, 512}, Case{33, 64}, Case{0, 64}}) {
    EXPECT_EQ(capability_at(one.count), one.capability) << one.count;
  }
  array.DeleteAll();
  EXPECT_EQ(array.GetCapability(), 0);
  EXPECT_EQ(array.GetDataPtr(), nullptr);
  // A removal that leaves 32 or fewer keeps the table; the next insertion beyond makes it fit.
  EXPECT_EQ(capability_at(1024), 1024);
  EXPECT_EQ(array.DeleteAt(0, 1000), Entry(1));
  EXPECT_EQ(array.GetCapability(), 1024);
  EXPECT_EQ(capability_at(32), 1024);
  EXPECT_EQ(capability_at(33), 64);
}

TEST(PtrArray, AnswersWithTheIndexOfWhatItInserted) {
  CPtrArrayCtrl array;
  CPtrArrayCtrl pair;
  CPtrListCtrl list;
  Fill(array, {1, 2});
  EXPECT_EQ(array.AddPtrCtrl(nullptr, 0), -1);
  EXPECT_EQ(array.AddPtrCtrl(&pair, 0), -1);
  EXPECT_EQ(array.AddPtrCtrl(&array, 1), 1);
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
  EXPECT_EQ(Found(array, Entry(1)), (Numbers{0, 3, 2}));
  Fill(array, {1, 2, 3, 4, 5, 3});
  EXPECT_EQ(Found(array, Entry(13), &SameDigit), (Numbers{5, 2}));
  EXPECT_EQ(SearchOrder(array), (Numbers{1, 2, 3, 3, 5, 4}));
  // A hit moves the cursor of its own side only: the other side is walked again.
  Fill(array, {1, 0, 1, 0, 0, 1, 0, 1, 0, 0});
  EXPECT_EQ(Found(array, Entry(1)), (Numbers{0, 2, 5, 7}));
  Fill(array, {1, 0, 0, 1, 0, 0, 1, 0, 1, 0});
  EXPECT_EQ(Found(array, Entry(1)), (Numbers{0, 8, 6, 3}));
  // A search goes on without harm after the container shrank.
  array.FindFirst(Entry(3), nullptr);
  array.DeleteAt(1, 99);
  array.FindNext(Entry(1), nullptr);
}

TEST(PtrArray, DiffersFromTheListWhereTold) {
  CPtrArrayCtrl array;
  CPtrArrayCtrl result;
  Fill(array, {1, 2, 3});
  EXPECT_TRUE(array.MoveData(2, 1, -1));
  EXPECT_EQ(Content(array), (Numbers{3, 1, 2}));
  EXPECT_EQ(array.DeleteAt(1, 0), Entry(1));
  EXPECT_EQ(Content(array), (Numbers{3, 1, 2}));
  Fill(result, {9});
  array.FindAll(&result, Entry(1), nullptr);
  EXPECT_EQ(Content(result), (Numbers{9}));
}

}  // namespace
}  // namespace qvx::test
