#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <random>
#include <string>

#include "platform/code_page.h"
#include "qvx/string_split.h"
#include "text/widths.h"

namespace qvx::test {
namespace {

TEST(NumberWords, Radix36) {
  std::mt19937_64 random(36);
  for (int i = 0; i < 5000; ++i) {
    const std::uint64_t value = random() >> (random() % 64);
    CBaseStringA narrow;
    CBaseStringW wide;
    ConvertNumberToRadix36StringA(value, &narrow);
    ConvertNumberToRadix36StringW(value, &wide);
    ASSERT_EQ(std::stoull(narrow.GetString(), nullptr, 36), value);
    ASSERT_EQ(Content(wide), Content(CBaseStringW(narrow.GetString())));
    ASSERT_EQ(ConvertRadix36StringToNumberA(narrow.GetString(), -1), value);
    ASSERT_EQ(ConvertRadix36StringToNumberW(wide.GetString(), wide.GetLength()), value);
  }
  EXPECT_EQ(ConvertRadix36StringToNumberA("zZ", -1), 1295u);
  EXPECT_EQ(ConvertRadix36StringToNumberA("1-0", 3), 36u * 36);
  EXPECT_EQ(ConvertRadix36StringToNumberA("1000000000000000", -1),  // 36 to the power of 15
            0x70F29E2E40000000u);
  EXPECT_EQ(ConvertRadix36StringToNumberA("", -1), 0u);
  CBaseStringA held("ab");
  ConvertNumberToRadix36StringA(UINT64_MAX, &held);
  EXPECT_EQ(Content(held), "3W5E11264SGSFba");
  CBaseStringA zero;
  ConvertNumberToRadix36StringA(0, &zero);
  EXPECT_EQ(Content(zero), "0");
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

bool SpellsWell(int value) {
  WCHAR wide[40];
  char narrow[80];
  ConvertNumberToChineseNumberW(value, wide, 40);
  ConvertNumberToChineseNumberA(value, narrow, 80);
  return Spelled(value) == wide && SpelledShort(value) == CBaseStringW(narrow).GetString();
}

TEST(NumberWords, ChineseWords) {
  const ChineseCodePage scope;
  const struct {
    int value;
    const char16_t *wide, *narrow;
  } known[] = {{0, u"零", u"零"},
               {15, u"十五", u"十五"},
               {20, u"二十", u"二十"},
               {105, u"一百零五", u"一百五"},
               {110, u"一百一十", u"一百十"},
               {1001, u"一千零一", u"一千一"},
               {100000, u"一十万", u"一十万"},
               {201000, u"二十万零一千", u"二十万一千"},
               {1000000000, u"十亿", u"十亿"}};
  for (const auto& [value, wide, narrow] : known) {
    EXPECT_EQ(Spelled(value), wide) << value;
    EXPECT_EQ(SpelledShort(value), narrow) << value;
    EXPECT_TRUE(SpellsWell(value)) << value;
  }
  EXPECT_EQ(Spelled(INT_MIN), u"负二十一亿四千七百四十八万三千六百四十八");
  EXPECT_TRUE(SpellsWell(INT_MIN));
  for (int value = -1000; value <= 200000; ++value) ASSERT_TRUE(SpellsWell(value)) << value;
  for (int power = 1; power < 1000000000; power *= 10) {
    for (int near = -1100; near <= 1100; ++near) {
      ASSERT_TRUE(SpellsWell(power * 10 + near)) << power * 10 + near;
      ASSERT_TRUE(SpellsWell(-2 * power + near)) << -2 * power + near;
    }
  }
  std::mt19937 random(9);
  for (int i = 0; i < 200000; ++i) {
    const int step = i % 2 == 0 ? 1 : 100000;
    const int value = static_cast<int>(random()) / step * step;
    ASSERT_TRUE(SpellsWell(value)) << value;
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
