#include "qvx/ptr_list.h"

#include <gtest/gtest.h>

#include "containers/ptr_support.h"
#include "qvx/ptr_array.h"

namespace qvx::test {
namespace {

// The index that the list remembers: a search that never hits begins there.
int Remembered(CPtrListCtrl& list) {
  Numbers order;
  const auto note = [](const void* entry, const void* key) {
    const_cast<Numbers*>(static_cast<const Numbers*>(key))->push_back(Number(entry));
    return 0;
  };
  list.FindFirst(&order, note);
  return order.empty() ? -1 : static_cast<int>(order.front());
}

// 0, 1, 2, ... so that an entry is its own index.
void Count(CPtrListCtrl& list, int count) {
  list.DeleteAll();
  for (int i = 0; i < count; ++i) list.AddData(Entry(i), -1);
}

TEST(PtrList, RemembersTheLastPlaceItTouched) {
  CPtrListCtrl list;
  EXPECT_EQ(Remembered(list), -1);
  Count(list, 10);
  EXPECT_EQ(Remembered(list), 9);
  for (int index : {5, 4, 9, 8, 2, 1, 7}) {
    EXPECT_EQ(list.GetAt(index), Entry(index));
    EXPECT_EQ(Remembered(list), index);
  }
  list.IsDataAvailable(3);
  EXPECT_EQ(Remembered(list), 3);
  list.Set(6, Entry(6));
  EXPECT_EQ(Remembered(list), 6);
  list.GetAt(6);
  list.GetAt(99);
  list.GetHead();
  list.GetTail();
  EXPECT_EQ(Remembered(list), 6);
  list.AddData(Entry(2), 2);
  EXPECT_EQ(Remembered(list), 2);
}

TEST(PtrList, RemembersTheSuccessorOfWhatItRemoved) {
  CPtrListCtrl list;
  Count(list, 6);
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

TEST(PtrList, SearchesAroundTheRememberedPlace) {
  CPtrListCtrl list;
  Fill(list, {1, 2, 3});
  EXPECT_EQ(list.FindFirst(Entry(1), nullptr), 0);
  Fill(list, {7, 0, 7, 0, 0, 7, 0, 7});
  list.GetAt(4);
  EXPECT_EQ(list.FindFirst(Entry(7), nullptr), 5);
  EXPECT_EQ(list.FindNext(Entry(7), nullptr), 7);
  EXPECT_EQ(list.FindNext(Entry(7), nullptr), 0);
  EXPECT_EQ(list.FindNext(Entry(7), nullptr), 2);
  EXPECT_EQ(list.FindNext(Entry(7), nullptr), -1);
}

TEST(PtrList, WalksOutwardsAndWraps) {
  CPtrListCtrl list;
  Count(list, 6);
  list.GetAt(4);
  Numbers order;
  const auto note = [](const void* entry, const void* key) {
    const_cast<Numbers*>(static_cast<const Numbers*>(key))->push_back(Number(entry));
    return 0;
  };
  EXPECT_EQ(list.FindFirst(&order, note), -1);
  EXPECT_EQ(order, (Numbers{4, 5, 3, 0, 2, 1}));
}

TEST(PtrList, DiffersFromTheArrayWhereTold) {
  CPtrListCtrl list;
  CPtrArrayCtrl result;
  EXPECT_EQ(list.AddPtrCtrl(nullptr, 0), 0);
  Fill(list, {1, 2});
  EXPECT_EQ(list.AddPtrCtrl(&list, -1), 2);
  EXPECT_EQ(Content(list), (Numbers{1, 2, 1, 2}));
  EXPECT_EQ(list.AddPtrCtrl(&list, 1), 4);
  EXPECT_EQ(Content(list), (Numbers{1, 1, 2, 1, 2, 2, 1, 2}));
  list.FindAll(&result, Entry(1), nullptr);
  EXPECT_EQ(Content(result), (Numbers{0, 1, 3, 6}));
  EXPECT_EQ(list.DeleteAt(0, 0), nullptr);
  EXPECT_EQ(list.DeleteAt(0, -1), nullptr);
  Fill(list, {1, 2, 3});
  EXPECT_TRUE(list.MoveData(0, 1, -1));
  EXPECT_EQ(Content(list), (Numbers{2, 3, 1}));
}

TEST(PtrList, RemembersTheLastNodeAfterASort) {
  CPtrListCtrl list;
  Fill(list, {3, 1, 2});
  list.GetAt(0);
  list.QuickSort(0, -1, &Order);
  EXPECT_EQ(Content(list), (Numbers{1, 2, 3}));
  list.GetAt(0);
  list.QuickSort(0, 0, &Order);
  EXPECT_EQ(Remembered(list), 3);
}

}  // namespace
}  // namespace qvx::test
