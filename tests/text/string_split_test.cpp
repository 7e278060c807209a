#include "qvx/string_split.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "qvx/ptr_array.h"
#include "qvx/ptr_list.h"
#include "support/failing_new.h"
#include "support/fault_plan.h"
#include "support/processor_turn.h"
#include "text/widths.h"

namespace qvx::test {
namespace {

TEST(StringSplit, CutsAtCharacters) {
  using Fields = std::vector<std::string>;
  struct Case {
    const char* text;
    int length;
    const char* separators;
    int skip_empty, max_count;
    Fields fields;
  };
  const Case cases[] = {{"a,b,", -1, ",", 0, 0, {"a", "b"}},
                        {",a", -1, ",", 0, 0, {"", "a"}},
                        {",a", -1, ",", 1, 0, {"a"}},
                        {"a,,b", -1, ",", 0, 0, {"a", "", "b"}},
                        {"a,,b", -1, ",", 1, 0, {"a", "b"}},
                        {"a,b,c", -1, ",", 0, 2, {"a", "b,c"}},
                        {"a,b,c", -1, ",", 0, 1, {"a,b,c"}},
                        {",,a,b,", -1, ",", 1, 2, {"a", "b,"}},
                        {"a,b;c d", 5, ";,", 0, 0, {"a", "b", "c"}},
                        {",,", -1, ",", 0, 0, {"", ""}},
                        {",,", -1, ",", 1, 0, {}},
                        {"", -1, ",", 0, 0, {}},
                        {"a,b", -1, "", 0, 0, {"a,b"}}};
  for (const Case& one : cases) {
    CPtrListCtrl out;
    const int count = static_cast<int>(std::string(one.separators).size());
    char* block = DevideStringByCharListA(one.text, one.length, one.separators, count,
                                          one.skip_empty, &out, one.max_count);
    Fields fields;
    for (int i = 0; i < out.GetCount(); ++i) {
      fields.emplace_back(static_cast<const char*>(out.GetAt(i)));
    }
    EXPECT_EQ(fields, one.fields) << one.text;
    Internal_DelArrayA(block);
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

QVX_TWIN(DevideStringByCharList);
QVX_TWIN(DevideStringByStringList);
QVX_TWIN(FindStringFromStringWithSeprator);
QVX_TWIN(FormatString);
QVX_TWIN(GetStringLines);

template <typename T>
class StringSplitTwin : public testing::Test {
 protected:
  using Text = std::basic_string<T>;
  using Fields = std::vector<Text>;

  static Fields Take(CPtrCtrl& out, T* block) {
    Fields fields;
    fields.reserve(static_cast<std::size_t>(out.GetCount()));
    for (int i = 0; i < out.GetCount(); ++i) {
      fields.emplace_back(static_cast<const T*>(out.GetAt(i)));
    }
    Internal_DelArrayA(block);
    return fields;
  }

  static Fields ByStrings(const Text& text, const Fields& separators) {
    std::vector<const T*> pointers{nullptr};
    for (const Text& one : separators) pointers.push_back(one.c_str());
    CPtrArrayCtrl out;
    T* block =
        DevideStringByStringList<T>(text.data(), static_cast<int>(text.size()), pointers.data(),
                                    static_cast<int>(pointers.size()), &out);
    return Take(out, block);
  }

  // Looks at every place of the text.
  static Fields NaiveByStrings(const Text& text, const Fields& separators) {
    Fields fields;
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size();) {
      std::size_t longest = 0;
      for (const Text& one : separators) {
        if (text.compare(i, one.size(), one) == 0) longest = std::max(longest, one.size());
      }
      if (longest > 0) fields.push_back(text.substr(start, i - start));
      i += std::max<std::size_t>(longest, 1);
      if (longest > 0) start = i;
    }
    if (start < text.size()) fields.push_back(text.substr(start));
    return fields;
  }

  static Fields NaiveByCharacters(const Text& text, const Text& set, bool skip, std::size_t most) {
    Fields fields;
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (set.find(text[i]) == set.npos) continue;
      const bool left_out = skip && i == start;
      if (!left_out && most > 0 && fields.size() == most - 1) break;
      if (!left_out) fields.push_back(text.substr(start, i - start));
      start = i + 1;
    }
    if (start < text.size()) fields.push_back(text.substr(start));
    return fields;
  }
};

TYPED_TEST_SUITE(StringSplitTwin, Widths);

TYPED_TEST(StringSplitTwin, CutsLikeAPlainLoop) {
  using T = TypeParam;
  std::mt19937 random(84);
  for (unsigned round = 0; round < 3000; ++round) {
    const ProcessorTurn turn(round);
    std::basic_string<T> text(random() % (round % 10 == 0 ? 9000 : 200), T());
    for (T& c : text) c = static_cast<T>(random() % 3 == 0 ? ",;|. \t"[random() % 6] : 'a');
    const std::basic_string<T> set = Widen<T>(",;|. \t").substr(0, random() % 7);
    const int skip = static_cast<int>(random() % 2);
    const int most = random() % 2 == 0 ? 0 : static_cast<int>(random() % 8);
    CPtrListCtrl out;
    T* block = DevideStringByCharList<T>(text.data(), static_cast<int>(text.size()), set.data(),
                                         static_cast<int>(set.size()), skip, &out, most);
    ASSERT_EQ(TestFixture::Take(out, block),
              TestFixture::NaiveByCharacters(text, set, skip != 0, static_cast<std::size_t>(most)));
  }
}

TYPED_TEST(StringSplitTwin, CutsAtStrings) {
  using T = TypeParam;
  const auto all = [](std::initializer_list<const char*> texts) {
    std::vector<std::basic_string<T>> fields;
    fields.reserve(texts.size());
    for (const char* text : texts) fields.push_back(Widen<T>(text));
    return fields;
  };
  EXPECT_EQ(TestFixture::ByStrings(Widen<T>("a<>b"), all({"<", "<>"})), all({"a", "b"}));
  EXPECT_EQ(TestFixture::ByStrings(Widen<T>("<>a<><"), all({"<", "<>"})), all({"", "a", ""}));
  EXPECT_EQ(TestFixture::ByStrings(Widen<T>("a<b"), all({})), all({"a<b"}));
  EXPECT_EQ(TestFixture::ByStrings(Widen<T>("a<b"), all({""})), all({"a<b"}));
  EXPECT_EQ(TestFixture::ByStrings(Widen<T>(""), all({"<"})), all({}));
  const std::vector<std::basic_string<T>> separators = all({"ab", "aba", "b", "cc", "never there"});
  std::mt19937 random(48);
  for (unsigned round = 0; round < 3000; ++round) {
    const ProcessorTurn turn(round);
    std::basic_string<T> text(random() % 60, T());
    for (T& c : text) c = static_cast<T>("abcd"[random() % 4]);
    ASSERT_EQ(TestFixture::ByStrings(text, separators),
              TestFixture::NaiveByStrings(text, separators));
  }
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
  struct Case {
    const char *text, *word, *separators;
    int ignore_case, result;
  };
  const Case cases[] = {{"dog cat bird", "cat", " ", 0, 1},
                        {"concat cat", "cat", " ", 0, 0},
                        {"cat", "cat", "", 0, 1},
                        {"dog,cat", "cat", " ,", 0, 1},
                        {"catalog", "cat", " ", 0, 0},
                        {"dog CAT", "cat", " ", 0, 0},
                        {"dog CAT", "cat", " ", 1, 1},
                        {"", "cat", " ", 0, 0},
                        {"cat", "", " ", 0, 0},
                        {"dog", "cat", " ", 1, 0}};
  for (const Case& one : cases) {
    EXPECT_EQ(FindStringFromStringWithSeprator<T>(
                  Widen<T>(one.text).c_str(), -1, Widen<T>(one.word).c_str(), -1,
                  Widen<T>(one.separators).c_str(), -1, one.ignore_case),
              one.result)
        << one.text;
  }
  EXPECT_EQ(FindStringFromStringWithSeprator<T>(Widen<T>("cats").c_str(), 3,
                                                Widen<T>("cat").c_str(), 3, nullptr, 0, 0),
            1);
  EXPECT_EQ(
      FindStringFromStringWithSeprator<T>(nullptr, -1, Widen<T>("a").c_str(), -1, nullptr, 0, 0),
      0);
  EXPECT_EQ(GetStringLines<T>(Widen<T>("a\nb\n").c_str(), 4), 3);
  EXPECT_EQ(GetStringLines<T>(Widen<T>("a\nb\n").c_str(), 3), 2);
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
  struct Case {
    const char* text;
    int most;
    std::vector<int> values;
  };
  const Case cases[] = {{"1,2,3", 2, {1, 2}},
                        {"1,,3", 3, {1, 0, 3}},
                        {" -7x,+8,", 9, {-7, 8}},
                        {",", 9, {0}},
                        {"4294967297,99999999999999999999", 9, {1, -1}},
                        {"", 9, {}},
                        {"1", 0, {}}};
  for (const Case& one : cases) {
    std::vector<int> values(10, 77);
    const int count = ParseIntValues(one.text, values.data(), one.most);
    EXPECT_EQ(values[static_cast<std::size_t>(count)], 77);
    values.resize(static_cast<std::size_t>(count));
    EXPECT_EQ(values, one.values) << one.text;
  }
  EXPECT_EQ(ParseIntValues(nullptr, nullptr, 1), 0);
}

void ExpectRect(const RECT& rect, int left, int top, int right, int bottom, int line) {
  EXPECT_TRUE(rect.left == left && rect.top == top && rect.right == right && rect.bottom == bottom)
      << line << ": " << rect.left << ' ' << rect.top << ' ' << rect.right << ' ' << rect.bottom;
}

TEST(StringSplit, ParsesRectangles) {
  RECT rect{1, 2, 3, 4};
  EXPECT_EQ(ParseRectFromString(nullptr, &rect), 0);
  ExpectRect(rect, 1, 2, 3, 4, __LINE__);
  EXPECT_EQ(ParseRectFromString("10,20,30,40", &rect), 1);
  ExpectRect(rect, 10, 20, 40, 60, __LINE__);
  EXPECT_EQ(ParseRectFromString(",,-1,,2,3,4,5,", &rect), 1);
  ExpectRect(rect, -1, 2, 2, 6, __LINE__);
  EXPECT_EQ(ParseRectFromString("10,20,30,", &rect), 0);
  ExpectRect(rect, 0, 0, 0, 0, __LINE__);
  EXPECT_EQ(ParseRectFromString("1,2,3,                       4567", &rect), 1);
  ExpectRect(rect, 1, 2, 4, 47, __LINE__);  // the 31st character is the 5
}

TEST(StringSplit, PlacesTextBoxes) {
  const RECT area{0, 0, 100, 100};
  struct Case {
    int width, height;
    char direct;
    RECT result;
  };
  const Case cases[] = {{20, 10, 5, {40, 45, 60, 55}},  {200, 10, 2, {0, 0, 100, 10}},
                        {20, 10, 0, {0, 0, 20, 10}},    {20, 10, 10, {80, 90, 100, 100}},
                        {25, 10, 3, {37, 0, 62, 10}},   {20, 300, 4, {0, 0, 20, 100}},
                        {-10, 10, 0, {-10, 0, -10, 10}}};
  for (const Case& one : cases) {
    RECT out{};
    EXPECT_EQ(GetTextRectByDirect(&area, one.width, one.height, one.direct, &out), &out);
    ExpectRect(out, one.result.left, one.result.top, one.result.right, one.result.bottom,
               one.direct);
  }
  EXPECT_EQ(GetTextRectByDirect(&area, 1, 1, 0, nullptr), nullptr);
}

}  // namespace
}  // namespace qvx::test
