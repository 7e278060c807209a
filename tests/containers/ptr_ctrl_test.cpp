// What holds of both containers, and of one beside the other.
#include "qvx/ptr_ctrl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "containers/ptr_support.h"
#include "qvx/base_buffer.h"
#include "qvx/ptr_array.h"
#include "qvx/ptr_list.h"
#include "support/debug_lines.h"
#include "support/failing_new.h"

namespace qvx::test {
namespace {

template <class Container>
class PtrCtrl : public testing::Test {
 protected:
  Container container_;
};

using Both = testing::Types<CPtrArrayCtrl, CPtrListCtrl>;
TYPED_TEST_SUITE(PtrCtrl, Both);

TYPED_TEST(PtrCtrl, AnswersBadIndicesWithNothing) {
  CPtrCtrl& c = this->container_;
  EXPECT_TRUE(c.IsEmpty());
  for (const void* none : {c.GetHead(), c.GetTail(), c.DeleteHead(), c.DeleteTail()}) {
    EXPECT_EQ(none, nullptr);
  }
  EXPECT_EQ(c.FindFirst(Entry(1), nullptr), -1);
  EXPECT_EQ(c.FindNext(Entry(1), nullptr), -1);
  Fill(c, {1, 2, 3});
  for (int index : {-1, 3, INT_MAX, INT_MIN}) {
    EXPECT_EQ(c.GetAt(index), nullptr);
    EXPECT_EQ(c.Set(index, Entry(9)), -1);
    EXPECT_EQ(c.DeleteAt(index, 1), nullptr);
  }
  EXPECT_EQ(Content(c), (Numbers{1, 2, 3}));
}

TYPED_TEST(PtrCtrl, CopiesAndCompares) {
  CPtrCtrl& c = this->container_;
  CPtrArrayCtrl array;
  CPtrListCtrl list;
  EXPECT_TRUE(c.Compare(&array, nullptr));
  Fill(array, {11, 12, 13});
  EXPECT_EQ(c.CopyPtrCtrl(nullptr), 0);
  EXPECT_EQ(c.CopyPtrCtrl(&array), 3);
  EXPECT_EQ(list.CopyPtrCtrl(&c), 3);
  EXPECT_TRUE(c.Compare(&list, nullptr));
  list.Set(1, Entry(22));
  EXPECT_FALSE(c.Compare(&list, nullptr));
  EXPECT_TRUE(c.Compare(&list, &EqualDigit));
  list.AddData(Entry(4), -1);
  EXPECT_FALSE(c.Compare(&list, &EqualDigit));
  EXPECT_EQ(Content(*std::make_unique<TypeParam>(&list)), (Numbers{11, 22, 13, 4}));
  EXPECT_TRUE(std::make_unique<TypeParam>(static_cast<CPtrCtrl*>(nullptr))->IsEmpty());
  EXPECT_EQ(c.CopyPtrCtrl(&c), 0);
  EXPECT_TRUE(c.IsEmpty());
}

TYPED_TEST(PtrCtrl, SortsTheRangeInItsBounds) {
  struct Case {
    int start, end;
    Numbers result;
  };
  const Case cases[] = {
      {0, -1, {1, 2, 3, 4, 5}},  {-7, 99, {1, 2, 3, 4, 5}}, {1, 3, {5, 1, 2, 4, 3}},
      {99, 99, {5, 4, 1, 2, 3}}, {4, 1, {5, 4, 1, 2, 3}},
  };
  for (const Case& one : cases) {
    Fill(this->container_, {5, 4, 1, 2, 3});
    this->container_.QuickSort(one.start, one.end, &Order);
    EXPECT_EQ(Content(this->container_), one.result) << one.start << " to " << one.end;
  }
}

int calls_of_order;

// Data that is hard on a sort, and answers that contradict themselves.
TYPED_TEST(PtrCtrl, SortsAnyInputInTimeAndSurvivesAnyCompare) {
  constexpr int kCount = 1 << 13;
  const auto counting_order = [](void*& left, void*& right) {
    ++calls_of_order;
    return Order(left, right);
  };
  using Compare = int (*)(void*&, void*&);
  const Compare liars[] = {
      [](void*&, void*&) { return -1; }, [](void*&, void*&) { return 1; },
      [](void*& a, void*& b) { return static_cast<int>((Number(a) * 31 + Number(b)) % 5) - 2; }};
  std::mt19937 random(20);
  for (int kind = 0; kind < 6; ++kind) {
    SCOPED_TRACE(kind);
    Numbers numbers;
    for (int i = 0; i < kCount; ++i) {
      const int organ_pipe = i < kCount / 2 ? i : kCount - i;
      // A median of few samples is always close to an end.
      const int misleading = i % 2 == 0 ? i : kCount - 1;
      const int values[] = {static_cast<int>(random() % 100000), i,          kCount - i,
                            static_cast<int>(random() % 3),      organ_pipe, misleading};
      numbers.push_back(values[kind] + 1);
    }
    Fill(this->container_, numbers);
    calls_of_order = 0;
    this->container_.QuickSort(0, -1, counting_order);
    EXPECT_LT(calls_of_order, 6 * 13 * kCount);
    std::sort(numbers.begin(), numbers.end());
    EXPECT_EQ(Content(this->container_), numbers);
    for (Compare liar : liars) {
      this->container_.QuickSort(0, -1, liar);
      Numbers after = Content(this->container_);
      std::sort(after.begin(), after.end());
      EXPECT_EQ(after, numbers);
    }
  }
}

TYPED_TEST(PtrCtrl, FindsAllIndices) {
  TypeParam& c = this->container_;
  CPtrListCtrl result;
  Fill(c, {1, 2, 13, 4, 5, 23});
  c.FindAll(&result, Entry(3), &SameDigit);
  EXPECT_EQ(Content(result), (Numbers{2, 5}));
  c.FindAll(&result, Entry(99), &SameDigit);
  EXPECT_TRUE(result.IsEmpty());
  c.FindAll(nullptr, Entry(3), &SameDigit);
  c.FindAll(&c, Entry(3), &SameDigit);
  EXPECT_TRUE(c.IsEmpty());
}

// Random operations against a plain vector.
template <class Container>
class Model {
 public:
  explicit Model(unsigned seed) : random_(seed) {}

  void Step() {
    if (Pick(320) == 0) return Clear();
    using Action = void (Model::*)();
    const Action actions[] = {&Model::Add,      &Model::Add,  &Model::Add,       &Model::Delete,
                              &Model::AddOther, &Model::Move, &Model::Overwrite, &Model::Search};
    (this->*actions[Pick(8)])();
  }

  void Check() {
    EXPECT_EQ(container_.GetCount(), Size());
    EXPECT_EQ(Content(container_), model_);
    EXPECT_EQ(Number(container_.GetTail()), model_.empty() ? 0 : model_.back());
  }

 private:
  int Pick(int below) { return static_cast<int>(random_() % static_cast<unsigned>(below)); }
  int PickPosition() { return Pick(Size() + 3) - 1; }
  int Size() const { return static_cast<int>(model_.size()); }
  // Positions outside are the end.
  Numbers::iterator At(int position) {
    return position < 0 || position > Size() ? model_.end() : model_.begin() + position;
  }

  void Add() {
    const int position = PickPosition();
    const std::intptr_t value = Pick(50) + 1;
    EXPECT_EQ(container_.AddData(Entry(value), position), At(position) - model_.begin());
    model_.insert(At(position), value);
  }

  void Delete() {
    const int index = PickPosition();
    const int count = Pick(4);
    const bool valid = At(index) != model_.end();
    const bool answers = valid && (count > 0 || Container().GetPtrCtrlName()[0] == 'A');
    EXPECT_EQ(container_.DeleteAt(index, count), answers ? Entry(*At(index)) : nullptr);
    if (valid) model_.erase(At(index), At(index + count));
  }

  void AddOther() {
    if (Size() > 400) return;
    Numbers more = model_;
    CPtrArrayCtrl array;
    CPtrListCtrl list;
    CPtrCtrl* const sources[] = {&container_, &array, &list};
    CPtrCtrl* source = sources[Pick(3)];
    if (source != &container_) {
      more = {7, 8, 9};
      Fill(*source, more);
    }
    const int position = PickPosition();
    container_.AddPtrCtrl(source, position);
    model_.insert(At(position), more.begin(), more.end());
  }

  void Move() {
    const int from = PickPosition();
    const int count = Pick(5);
    const int to = Pick(Size() + 3);
    const int first = std::min(from, Size() - 1);
    const bool moves = Size() > 1 && count > 0 && from >= 0 && first != std::min(to, Size() - 1);
    EXPECT_EQ(container_.MoveData(from, count, to), moves) << from << " " << count << " " << to;
    if (!moves) return;
    const Numbers block(At(first), At(first + count));
    model_.erase(At(first), At(first + count));
    model_.insert(At(to), block.begin(), block.end());
  }

  void Overwrite() {
    const int index = PickPosition();
    const bool valid = At(index) != model_.end();
    EXPECT_EQ(container_.IsDataAvailable(index), valid);
    EXPECT_EQ(container_.Set(index, Entry(51)), valid ? index : -1);
    if (valid) *At(index) = 51;
  }

  // First and next must report every hit exactly once, in whatever order.
  void Search() {
    const void* key = Entry(Pick(52));
    Numbers expected;
    for (int i = 0; i < Size(); ++i) {
      if (SameDigit(Entry(*At(i)), key) != 0) expected.push_back(i);
    }
    Numbers found = Found(container_, key, &SameDigit);
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, expected);
  }

  void Clear() {
    container_.DeleteAll();
    model_.clear();
  }

  Container container_;
  Numbers model_;
  std::mt19937 random_;
};

TYPED_TEST(PtrCtrl, AgreesWithAPlainVector) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    Model<TypeParam> model(seed);
    for (int step = 0; step <= 1500 && !this->HasFailure(); ++step) {
      model.Step();
      if (step % 5 == 0) model.Check();
    }
  }
}

// Fails the n-th allocation of an operation for n = 1, 2, ... until it goes through.
template <class Operation>
void ExpectUnchangedWithoutMemory(CPtrCtrl& container, Operation operation) {
  const Numbers before = Content(container);
  for (int n = 1; n < 1000; ++n) {
    try {
      const FailingAllocations failing(n);
      operation();
      EXPECT_GT(n, 1) << "no allocation failed";
      return;
    } catch (const std::bad_alloc&) {
      ASSERT_EQ(Content(container), before) << "allocation " << n;
    }
  }
  ADD_FAILURE() << "it never goes through";
}

TYPED_TEST(PtrCtrl, KeepsItsEntriesWithoutMemory) {
  TypeParam& c = this->container_;
  CPtrListCtrl list;
  Fill(list, Numbers(40, 7));
  const Numbers full(32, 1);
  Fill(c, full);
  ExpectUnchangedWithoutMemory(c, [&] { c.AddData(Entry(2), 5); });
  Fill(c, full);
  ExpectUnchangedWithoutMemory(c, [&] { c.AddPtrCtrl(&list, 5); });
  ExpectUnchangedWithoutMemory(c, [&] { c.AddPtrCtrl(&c, 5); });
  Fill(c, full);
  ExpectUnchangedWithoutMemory(c, [&] { c.CopyPtrCtrl(&list); });
  EXPECT_EQ(c.GetCount(), 40);
  ExpectUnchangedWithoutMemory(list, [&] { c.FindAll(&list, Entry(7), &SameDigit); });
}

TYPED_TEST(PtrCtrl, DumpsItsEntries) {
  Fill(this->container_, {7, 8, 18446});
  const DebugLines lines;
  this->container_.Dump(true);
  this->container_.Dump(false);
  using Line = std::pair<int, std::string>;
  const std::vector<Line> expected = {
      {2, "Dump, Asce\r\n"}, {2, "7\r\n"},     {2, "8\r\n"}, {2, "18446\r\n"},
      {2, "Dump, Desc\r\n"}, {2, "18446\r\n"}, {2, "8\r\n"}, {2, "7\r\n"}};
  EXPECT_EQ(lines.All(), expected);
}

TYPED_TEST(PtrCtrl, SumsBufferLengths) {
  CBaseBuffer first;
  CBaseBuffer second;
  first.SetBuffer("abc", 3);
  second.SetBuffer("defgh", 5);
  EXPECT_EQ(GetBufferListLength(&this->container_), 0);
  this->container_.AddData(&first, -1);
  this->container_.AddData(nullptr, -1);
  this->container_.AddData(&second, -1);
  EXPECT_EQ(GetBufferListLength(&this->container_), 8);
}

}  // namespace
}  // namespace qvx::test
