#include "qvx/ptr_list.h"

#include <gtest/gtest.h>

#include "containers/ptr_support.h"
#include "qvx/ptr_array.h"

namespace qvx::test {
namespace {

// The entry that the list remembers: a search begins there.
int Remembered(CPtrListCtrl& list) {
  const Numbers order = SearchOrder(list);
  return order.empty() ? -1 : static_cast<int>(order.front());
}

TEST(PtrList, RemembersTheLastPlaceItTouched) {
  CPtrListCtrl list;
  EXPECT_EQ(Remembered(list), -1);
  Fill(list, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
  EXPECT_EQ(Remembered(list), 9);
  for (int index : {5, 4, 9, 8, 2, 1, 7}) {
    EXPECT_EQ(list.GetAt(index), Entry(index));
    EXPECT_EQ(Remembered(list), index);
  }
  list.IsDataAvailable(3);
  EXPECT_EQ(Remembered(list), 3);
  list.Set(6, Entry(6));
  list.GetAt(99);
  list.GetHead();
  list.GetTail();
  EXPECT_EQ(Remembered(list), 6);
  list.AddData(Entry(22), 2);
  EXPECT_EQ(Remembered(list), 22);
  list.QuickSort(0, 0, &Order);
  EXPECT_EQ(Remembered(list), 9);
}

TEST(PtrList, RemembersTheSuccessorOfWhatItRemoved) {
  CPtrListCtrl list;
  Fill(list, {0, 1, 2, 3, 4, 5});
  EXPECT_EQ(list.DeleteAt(2, 1), Entry(2));
  EXPECT_EQ(Remembered(list), 3);
  EXPECT_EQ(list.DeleteTail(), Entry(5));
  EXPECT_EQ(Remembered(list), 4);
  EXPECT_EQ(list.DeleteHead(), Entry(0));
  EXPECT_EQ(Remembered(list), 1);
  EXPECT_EQ(list.DeleteAt(1, 99), Entry(3));
  EXPECT_EQ(Remembered(list), 1);
  list.DeleteTail();
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_EQ(Remembered(list), -1);
}

TEST(PtrList, SearchesOutwardsFromTheRememberedPlace) {
  CPtrListCtrl list;
  Fill(list, {0, 1, 2, 3, 4, 5});
  list.GetAt(4);
  EXPECT_EQ(SearchOrder(list), (Numbers{4, 5, 3, 0, 2, 1}));
  Fill(list, {7, 0, 7, 0, 0, 7, 0, 7});
  list.GetAt(4);
  EXPECT_EQ(Found(list, Entry(7)), (Numbers{5, 7, 0, 2}));
}

TEST(PtrList, DiffersFromTheArrayWhereTold) {
  CPtrListCtrl list;
  CPtrArrayCtrl result;
  EXPECT_EQ(list.AddPtrCtrl(nullptr, 0), 0);
  Fill(list, {1, 2});
  EXPECT_EQ(list.AddPtrCtrl(&list, -1), 2);
  EXPECT_EQ(list.AddPtrCtrl(&list, 1), 4);
  EXPECT_EQ(Content(list), (Numbers{1, 1, 2, 1, 2, 2, 1, 2}));
  list.FindAll(&result, Entry(1), nullptr);
  EXPECT_EQ(Content(result), (Numbers{0, 1, 3, 6}));
  EXPECT_EQ(list.DeleteAt(0, -1), nullptr);
  Fill(list, {1, 2, 3});
  EXPECT_TRUE(list.MoveData(0, 1, -1));
  EXPECT_EQ(Content(list), (Numbers{2, 3, 1}));
}

}  // namespace
}  // namespace qvx::test
