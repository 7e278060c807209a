#include "qvx/string_split.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "qvx/ptr_array.h"
#include "qvx/ptr_list.h"
#include "support/failing_new.h"
#include "support/fault_plan.h"
#include "support/processor_turn.h"
#include "text/widths.h"

namespace qvx::test {
namespace {

QVX_TWIN(DevideStringByCharList);
QVX_TWIN(DevideStringByStringList);
QVX_TWIN(FindStringFromStringWithSeprator);
QVX_TWIN(FormatString);
QVX_TWIN(GetStringLines);

// Fields are told with a slash behind each.
template <typename T>
class StringSplitTwin : public testing::Test {
 protected:
  using Text = std::basic_string<T>;

  static Text Take(CPtrCtrl& out, T* block) {
    Text fields;
    for (int i = 0; i < out.GetCount(); ++i)
      fields += static_cast<const T*>(out.GetAt(i)) + Text(1, T('/'));
    Internal_DelArrayA(block);
    return fields;
  }

  static Text ByCharacters(const Text& text, const Text& set, int skip, int most) {
    const Text longer = text + set;
    CPtrListCtrl out;
    T* block = DevideStringByCharList<T>(longer.data(), static_cast<int>(text.size()), set.data(),
                                         static_cast<int>(set.size()), skip, &out, most);
    return Take(out, block);
  }

  static Text ByStrings(const Text& text, const std::vector<Text>& separators) {
    std::vector<const T*> pointers{nullptr};
    for (const Text& one : separators) pointers.push_back(one.c_str());
    CPtrArrayCtrl out;
    T* block =
        DevideStringByStringList<T>(text.data(), static_cast<int>(text.size()), pointers.data(),
                                    static_cast<int>(pointers.size()), &out);
    return Take(out, block);
  }

  // Looks for each separator at every place of the text.
  static Text Naive(const Text& text, const std::vector<Text>& separators, int skip, int most) {
    Text fields;
    int count = 0;
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size();) {
      std::size_t longest = 0;
      for (const Text& one : separators) {
        if (text.compare(i, one.size(), one) == 0) longest = std::max(longest, one.size());
      }
      const bool left_out = longest == 0 || (skip != 0 && i == start);
      if (!left_out && count == most - 1) break;
      if (!left_out) {
        fields += text.substr(start, i - start) + T('/');
        ++count;
      }
      i += std::max<std::size_t>(longest, 1);
      if (longest > 0) start = i;
    }
    return start < text.size() ? fields + text.substr(start) + T('/') : fields;
  }
};

TYPED_TEST_SUITE(StringSplitTwin, Widths);

TYPED_TEST(StringSplitTwin, CutsAtCharacters) {
  using T = TypeParam;
  const std::tuple<const char*, int, int, const char*> cases[] = {
      {"a,b,", 0, 0, "a/b/"},    {",a", 0, 0, "/a/"},      {",a", 1, 0, "a/"},
      {"a,;b", 0, 0, "a//b/"},   {"a,;b", 1, 0, "a/b/"},   {"a,b,c", 0, 2, "a/b,c/"},
      {"a,b,c", 0, 1, "a,b,c/"}, {",a,b,", 1, 2, "a/b,/"}, {",,", 0, 0, "//"},
      {",,", 1, 0, ""}};
  for (const auto& [text, skip, most, fields] : cases) {
    EXPECT_EQ(TestFixture::ByCharacters(Widen<T>(text), Widen<T>(",;"), skip, most),
              Widen<T>(fields))
        << text;
  }
  std::mt19937 random(84);
  for (unsigned round = 0; round < 3000; ++round) {
    const ProcessorTurn turn(round);
    std::basic_string<T> text(random() % (round % 10 == 0 ? 9000 : 200), T());
    for (T& c : text) c = static_cast<T>(random() % 3 == 0 ? ",;|. \t"[random() % 6] : 'a');
    const std::basic_string<T> set = Widen<T>(",;|. \t").substr(0, random() % 7);
    std::vector<std::basic_string<T>> separators;
    for (const T c : set) separators.emplace_back(1, c);
    const int skip = static_cast<int>(random() % 2);
    const int most = random() % 2 == 0 ? 0 : static_cast<int>(random() % 8);
    ASSERT_EQ(TestFixture::ByCharacters(text, set, skip, most),
              TestFixture::Naive(text, separators, skip, most));
  }
}

TYPED_TEST(StringSplitTwin, CutsAtStrings) {
  using T = TypeParam;
  const std::vector<std::basic_string<T>> signs = {Widen<T>("<"), Widen<T>("<>"), Widen<T>("")};
  EXPECT_EQ(TestFixture::ByStrings(Widen<T>("<>a<><"), signs), Widen<T>("/a//"));
  EXPECT_EQ(TestFixture::ByStrings(Widen<T>(""), signs), Widen<T>(""));
  EXPECT_EQ(TestFixture::ByStrings(Widen<T>("a<b"), {}), Widen<T>("a<b/"));
  const std::vector<std::basic_string<T>> separators = {
      Widen<T>("ab"), Widen<T>("aba"), Widen<T>("b"), Widen<T>("cc"), Widen<T>("never there")};
  std::mt19937 random(48);
  for (unsigned round = 0; round < 3000; ++round) {
    const ProcessorTurn turn(round);
    std::basic_string<T> text(random() % 60, T());
    for (T& c : text) c = static_cast<T>("abcd"[random() % 4]);
    ASSERT_EQ(TestFixture::ByStrings(text, separators), TestFixture::Naive(text, separators, 0, 0));
  }
}

TEST(StringSplit, LeavesTheContainerAloneOnFailure) {
  CPtrListCtrl out;
  EXPECT_EQ(DevideStringByCharListA(nullptr, 0, ",", 1, 0, &out, 0), nullptr);
  EXPECT_EQ(DevideStringByCharListA("a", 1, ",", 1, 0, nullptr, 0), nullptr);
  bool through = false;
  for (int n = 1; !through; ++n) {
    FaultPlan plan;
    plan.Fail(platform::Operation::kAllocate, n, ENOMEM);
    try {
      Internal_DelArrayA(DevideStringByCharListA("a,b,c", -1, ",", 1, 0, &out, 0));
      through = true;
    } catch (const std::bad_alloc&) {
      ASSERT_TRUE(out.IsEmpty()) << "allocation " << n;
    }
  }
  EXPECT_EQ(out.GetCount(), 3);
}

// A separator found in the middle of a character: the field behind it stands at an odd address,
// and ends within the block.
TEST(StringSplit, CutsWideTextAtAnyByte) {
  const WCHAR* separators[] = {u"\u4100"};
  CPtrArrayCtrl out;
  WCHAR* block = DevideStringByStringListW(u"a\u0061\u0041\u4262", -1, separators, 1, &out);
  ASSERT_EQ(out.GetCount(), 2);
  const auto* bytes = reinterpret_cast<const unsigned char*>(block);
  EXPECT_EQ(static_cast<const unsigned char*>(out.GetAt(1)) - bytes, 5);
  unsigned char field[5];
  std::memcpy(field, out.GetAt(1), sizeof(field));
  EXPECT_EQ(std::string(field, field + 5), std::string("\0bB\0\0", 5));
  Internal_DelArrayW(block);
}

TYPED_TEST(StringSplitTwin, FindsWholeFields) {
  using T = TypeParam;
  const auto find = [](const char* text, int length, const char* word, const char* separators,
                       int ignore_case) {
    return FindStringFromStringWithSeprator<T>(Widen<T>(text).c_str(), length,
                                               Widen<T>(word).c_str(), -1,
                                               Widen<T>(separators).c_str(), -1, ignore_case);
  };
  for (const char* text : {"dog cat bird", "cat", "dog,cat", "cat,"})
    EXPECT_EQ(find(text, -1, "cat", " ,", 0), 1) << text;
  for (const char* text : {"concat cat", "catalog", "dog CAT", "dog", ""})
    EXPECT_EQ(find(text, -1, "cat", " ,", 0), 0) << text;
  EXPECT_EQ(find("dog CAT", -1, "cat", " ", 1), 1);
  EXPECT_EQ(find("dog", -1, "cat", " ", 1), 0);
  EXPECT_EQ(find("cat", -1, "", " ", 0), 0);
  EXPECT_EQ(find("cats", 3, "cat", "", 0), 1);
  const std::basic_string<T> word = Widen<T>("a");
  EXPECT_EQ(FindStringFromStringWithSeprator<T>(nullptr, -1, word.c_str(), 1, nullptr, 0, 0), 0);
  const std::basic_string<T> lines = Widen<T>("a\nb\n");
  EXPECT_EQ(GetStringLines<T>(lines.c_str(), 4), 3);
  EXPECT_EQ(GetStringLines<T>(lines.c_str(), 3), 2);
  EXPECT_EQ(GetStringLines<T>(nullptr, 3), 1);
}

TYPED_TEST(StringSplitTwin, FormatsOnTheHeap) {
  using T = TypeParam;
  for (int width : {5, 1023, 1024, 100000}) {
    int length = -1;
    T* block = FormatString<T>(&length, Widen<T>("%*d|").c_str(), width, 42);
    EXPECT_EQ(std::basic_string<T>(block), Widen<T>(std::string(width - 2, ' ') + "42|"));
    EXPECT_EQ(length, width + 1);
    FreeFormatStringW(block);
  }
  int length = -5;
  T* block = FormatString<T>(&length, Widen<T>("before %n").c_str(), &length);
  EXPECT_EQ(std::basic_string<T>(block), Widen<T>("before "));
  EXPECT_EQ(length, -5);
  FreeFormatStringA(block);
}

TEST(StringSplit, ParsesIntegers) {
  const std::tuple<const char*, int, std::vector<int>> cases[] = {
      {"1,2,3", 2, {1, 2}},
      {"1,,3", 3, {1, 0, 3}},
      {" -7x,+8,", 9, {-7, 8}},
      {",", 9, {0}},
      {"4294967297,99999999999999999999", 9, {1, -1}},
      {"1", 0, {}}};
  for (const auto& [text, most, expected] : cases) {
    std::vector<int> values(10, 77);
    const auto count = static_cast<std::size_t>(ParseIntValues(text, values.data(), most));
    EXPECT_EQ(values[count], 77);
    values.resize(count);
    EXPECT_EQ(values, expected) << text;
  }
  EXPECT_EQ(ParseIntValues(nullptr, nullptr, 1), 0);
}

using Sides = std::array<int, 4>;

Sides SidesOf(const RECT& rect) {
  return {rect.left, rect.top, rect.right, rect.bottom};
}

TEST(StringSplit, ParsesRectangles) {
  RECT rect{1, 2, 3, 4};
  EXPECT_EQ(ParseRectFromString(nullptr, &rect), 0);
  EXPECT_EQ(SidesOf(rect), (Sides{1, 2, 3, 4}));
  const std::tuple<const char*, int, Sides> cases[] = {
      {"10,20,30,40", 1, {10, 20, 40, 60}},
      {",,-1,,2,3,4,5,", 1, {-1, 2, 2, 6}},
      {"10,20,30,", 0, {0, 0, 0, 0}},
      {"1,2,3,                       4567", 1, {1, 2, 4, 47}}};  // the 31st character is the 5
  for (const auto& [text, result, sides] : cases) {
    EXPECT_EQ(ParseRectFromString(text, &rect), result) << text;
    EXPECT_EQ(SidesOf(rect), sides) << text;
  }
}

TEST(StringSplit, PlacesTextBoxes) {
  const RECT area{0, 0, 100, 100};
  const std::tuple<int, int, char, Sides> cases[] = {
      {20, 10, 5, {40, 45, 60, 55}},  {200, 10, 2, {0, 0, 100, 10}},
      {20, 10, 0, {0, 0, 20, 10}},    {20, 10, 10, {80, 90, 100, 100}},
      {25, 10, 3, {37, 0, 62, 10}},   {20, 300, 4, {0, 0, 20, 100}},
      {-10, 10, 0, {-10, 0, -10, 10}}};
  for (const auto& [width, height, direct, sides] : cases) {
    RECT out{};
    EXPECT_EQ(GetTextRectByDirect(&area, width, height, direct, &out), &out);
    EXPECT_EQ(SidesOf(out), sides) << static_cast<int>(direct);
  }
  EXPECT_EQ(GetTextRectByDirect(&area, 1, 1, 0, nullptr), nullptr);
}

}  // namespace
}  // namespace qvx::test
