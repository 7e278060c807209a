#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>

#include "platform/code_page.h"
#include "qvx/string_split.h"
#include "text/widths.h"

namespace qvx::test {
namespace {

TEST(NumberWords, Radix36) {
  struct Case {
    std::uint64_t value;
    const char* text;
  };
  const Case cases[] = {
      {0, "0"}, {35, "Z"}, {36, "10"}, {1295, "ZZ"}, {UINT64_MAX, "3W5E11264SGSF"}};
  for (const Case& one : cases) {
    CBaseStringA narrow;
    CBaseStringW wide;
    ConvertNumberToRadix36StringA(one.value, &narrow);
    ConvertNumberToRadix36StringW(one.value, &wide);
    EXPECT_EQ(Content(narrow), one.text);
    EXPECT_EQ(Content(wide), Widen<WCHAR>(one.text));
    EXPECT_EQ(ConvertRadix36StringToNumberA(one.text, -1), one.value);
    EXPECT_EQ(ConvertRadix36StringToNumberW(wide.GetString(), wide.GetLength()), one.value);
  }
  EXPECT_EQ(ConvertRadix36StringToNumberA("zZ", -1), 1295u);
  EXPECT_EQ(ConvertRadix36StringToNumberA("1-0", 3), 36u * 36);
  EXPECT_EQ(ConvertRadix36StringToNumberA("1000000000000000", -1),  // 36 to the power of 15
            0x70F29E2E40000000u);
  EXPECT_EQ(ConvertRadix36StringToNumberA("", -1), 0u);
  CBaseStringA held("ab");
  ConvertNumberToRadix36StringA(36 * 36 + 2, &held);
  EXPECT_EQ(Content(held), "102ba");
  std::mt19937_64 random(36);
  for (int i = 0; i < 5000; ++i) {
    const std::uint64_t value = random() >> (random() % 64);
    CBaseStringA text;
    ConvertNumberToRadix36StringA(value, &text);
    ASSERT_EQ(std::stoull(text.GetString(), nullptr, 36), value);
  }
}

using Words = std::u16string;

void Rewrite(Words& words, const Words& from, const Words& to) {
  for (std::size_t at = words.find(from); at != words.npos; at = words.find(from)) {
    words.replace(at, from.size(), to);
  }
}

// Spells every digit with its unit, zeros too, and then rewrites the text as people shorten it.
Words Spelled(long long value) {
  if (value < 0) return u"负" + Spelled(-value);
  const std::string digits = std::to_string(value);
  const Words names = u"零一二三四五六七八九";
  const Words units = u"十百千万十百千亿十";
  Words words;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    words += names[static_cast<std::size_t>(digits[i] - '0')];
    if (i + 1 < digits.size()) words += units[digits.size() - i - 2];
  }
  if (digits.size() % 8 == 2 && digits[0] == '1') words.erase(0, 1);
  for (const char16_t* silent : {u"零十", u"零百", u"零千", u"零零"}) Rewrite(words, silent, u"零");
  Rewrite(words, u"零亿", u"亿");
  Rewrite(words, u"亿零万", u"亿零");
  Rewrite(words, u"零万", u"万零");
  Rewrite(words, u"零零", u"零");
  if (words.size() > 1 && words.back() == u'零') words.pop_back();
  return words;
}

// The narrow form is shorter still.
Words SpelledShort(long long value) {
  Words words = Spelled(value);
  if (words.size() > 1) words.erase(std::remove(words.begin(), words.end(), u'零'), words.end());
  if (std::abs(value) / 10 % 10 == 1) {
    const std::size_t at = words.rfind(u"一十");
    if (at != words.npos) words.erase(at, 1);
  }
  return words;
}

// While it lives, narrow text is GB2312.
struct ChineseCodePage {
  ChineseCodePage() { platform::SetAnsiCodePage(936); }
  ~ChineseCodePage() { platform::SetAnsiCodePage(65001); }
};

::testing::AssertionResult SpellsWell(int value) {
  WCHAR wide[40];
  char narrow[80];
  ConvertNumberToChineseNumberW(value, wide, 40);
  ConvertNumberToChineseNumberA(value, narrow, 80);
  if (Spelled(value) == wide && SpelledShort(value) == CBaseStringW(narrow).GetString()) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure() << value;
}

TEST(NumberWords, ChineseWordsThatAreKnown) {
  const ChineseCodePage scope;
  struct Case {
    int value;
    const char16_t *wide, *narrow;
  };
  const Case cases[] = {
      {0, u"零", u"零"},
      {15, u"十五", u"十五"},
      {20, u"二十", u"二十"},
      {105, u"一百零五", u"一百五"},
      {110, u"一百一十", u"一百十"},
      {115, u"一百一十五", u"一百十五"},
      {1001, u"一千零一", u"一千一"},
      {100000, u"一十万", u"一十万"},
      {201000, u"二十万零一千", u"二十万一千"},
      {123456789, u"一亿二千三百四十五万六千七百八十九", u"一亿二千三百四十五万六千七百八十九"},
      {1000000000, u"十亿", u"十亿"},
      {-2147483647 - 1, u"负二十一亿四千七百四十八万三千六百四十八",
       u"负二十一亿四千七百四十八万三千六百四十八"}};
  for (const Case& one : cases) {
    EXPECT_EQ(Spelled(one.value), one.wide) << one.value;
    EXPECT_EQ(SpelledShort(one.value), one.narrow) << one.value;
    EXPECT_TRUE(SpellsWell(one.value));
  }
}

TEST(NumberWords, ChineseWordsOfManyNumbers) {
  const ChineseCodePage scope;
  for (int value = -1000; value <= 200000; ++value) ASSERT_TRUE(SpellsWell(value));
  for (int power = 1; power < 1000000000; power *= 10) {
    for (int near = -1100; near <= 1100; ++near) {
      ASSERT_TRUE(SpellsWell(power * 10 + near));
      ASSERT_TRUE(SpellsWell(-2 * power + near));
    }
  }
  std::mt19937 random(9);
  for (int i = 0; i < 200000; ++i) {
    const auto value = static_cast<int>(random());
    ASSERT_TRUE(SpellsWell(i % 2 == 0 ? value : value / 100000 * 100000));
  }
}

TEST(NumberWords, CutsChineseWords) {
  const std::string bytes = "\xD2\xBB\xB0\xD9\xCE\xE5";
  for (int room = 1; room < 8; ++room) {
    WCHAR wide[8] = u"#######";
    char narrow[8] = "#######";
    ConvertNumberToChineseNumberW(105, wide, room);
    ConvertNumberToChineseNumberA(105, narrow, room);
    const auto kept = static_cast<std::size_t>(room) - 1;
    EXPECT_EQ(wide, Words(u"一百零五").substr(0, kept)) << room;
    EXPECT_EQ(narrow, bytes.substr(0, kept / 2 * 2)) << room;
    EXPECT_TRUE(room == 7 || (wide[room] == u'#' && narrow[room] == '#')) << room;
  }
  char untouched = '#';
  ConvertNumberToChineseNumberA(1, &untouched, 0);
  ConvertNumberToChineseNumberW(1, nullptr, 5);
  EXPECT_EQ(untouched, '#');
}

}  // namespace
}  // namespace qvx::test
