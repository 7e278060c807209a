#include "platform/code_page.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>

#include <qvx/platform.h>

namespace {

using qvx::platform::AnsiFromWide;
using qvx::platform::AnsiPrefixForWide;
using qvx::platform::AnsiToWide;
using qvx::platform::Utf16ToUtf8;
using qvx::platform::Utf8ToUtf16;
using qvx::platform::WideFromAnsi;
using qvx::platform::WidePrefixForAnsi;
using qvx::platform::WideToAnsi;

class CodePage : public testing::Test {
 protected:
  ~CodePage() override { SetAnsiCodePage(65001); }
};

std::u16string ToWide(const std::string& text, int capacity = 100) {
  char16_t out[100];
  return std::u16string(out, static_cast<std::size_t>(AnsiToWide(text, out, capacity)));
}

std::string ToAnsi(const std::u16string& text, int capacity = 100) {
  char out[100];
  return std::string(out, static_cast<std::size_t>(WideToAnsi(text, out, capacity)));
}

TEST_F(CodePage, EveryCharacterRoundTripsThroughUtf8) {
  std::u16string all;
  for (char32_t c = 1; c <= 0x10FFFF; c += c < 0x3000 ? 1 : 61) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    if (c >= 0x10000) all += static_cast<char16_t>(0xD7C0 + (c >> 10));
    all += static_cast<char16_t>(c < 0x10000 ? c : 0xDC00 + (c & 0x3FF));
  }
  bool exact = false;
  const std::string utf8 = Utf16ToUtf8(all, &exact);
  EXPECT_TRUE(exact);
  EXPECT_EQ(Utf8ToUtf16(utf8, &exact), all);
  EXPECT_TRUE(exact);
  EXPECT_EQ(Utf16ToUtf8(u"A\u00e9\u4e2d\U0001F600"), "A\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80");
}

TEST_F(CodePage, ReplacesWhatIsNotWellFormed) {
  struct Case {
    const char* bytes;
    const char16_t* wide;
  };
  for (const Case& c :
       {Case{"a\x80z", u"a\uFFFDz"}, Case{"\xC0\xAF", u"\uFFFD\uFFFD"},
        Case{"\xE4\xB8", u"\uFFFD\uFFFD"}, Case{"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
        Case{"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        Case{"\xFF"
             "abcdefghij",
             u"\uFFFDabcdefghij"}}) {
    bool exact = true;
    EXPECT_EQ(Utf8ToUtf16(c.bytes, &exact), c.wide);
    EXPECT_FALSE(exact);
    EXPECT_EQ(ToWide(c.bytes), c.wide);
    EXPECT_FALSE(WideFromAnsi(c.bytes).has_value());
  }
  const char16_t lone[] = {u'a', 0xD800, u'b', 0xDC00, 0};
  EXPECT_EQ(Utf16ToUtf8(lone),
            "a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD");
  EXPECT_FALSE(AnsiFromWide(lone).has_value());
}

TEST_F(CodePage, ConvertsAllOrNothing) {
  EXPECT_EQ(ToWide("0123456789abcdef", 16).size(), 16u);
  EXPECT_EQ(ToWide("0123456789abcdef", 15), u"");
  EXPECT_EQ(ToWide("a\xF0\x9F\x98\x80", 2), u"");
  EXPECT_EQ(ToAnsi(u"a\u4e2d", 4), "a\xE4\xB8\xAD");
  EXPECT_EQ(ToAnsi(u"a\u4e2d", 3), "");
}

TEST_F(CodePage, ConvertsChineseTextInItsOwnPage) {
  ASSERT_EQ(SetAnsiCodePage(936), 1);
  EXPECT_EQ(GetAnsiCodePage(), 936u);
  EXPECT_EQ(ToAnsi(u"C:\\\u4e2d\u6587.txt"), "C:\\\xD6\xD0\xCE\xC4.txt");
  EXPECT_EQ(ToWide("C:\\\xD6\xD0\xCE\xC4.txt"), u"C:\\\u4e2d\u6587.txt");
  EXPECT_EQ(ToAnsi(u"\u00ff\U0001F600"), "??");
  EXPECT_EQ(ToWide("a\xD6"), u"a\uFFFD");
  EXPECT_EQ(ToWide("\xD6 x"), u"\uFFFD x");
  const CBaseStringA narrow(u"\u4e2d\u6587");
  EXPECT_STREQ(narrow.GetString(), "\xD6\xD0\xCE\xC4");
  EXPECT_EQ(narrow.StartWith(u'\u4e2d', 0), 1);
  EXPECT_EQ(AnsiPrefixForWide("\xD6\xD0\xCE\xC4", 1), 2);
  EXPECT_EQ(WidePrefixForAnsi(u"\u4e2d\u6587", 3), 1);
  EXPECT_EQ(AnsiFromWide(u"\u4e2d"), "\xD6\xD0");
  EXPECT_FALSE(AnsiFromWide(u"\u00ff").has_value());
  CBaseStringA letters("\xD6\x41Z\x81\x7Az\xD6 Q\xD6");
  letters.ToLower();
  EXPECT_STREQ(letters.GetString(), "\xD6\x41z\x81\x7Az\xD6 q\xD6") << "no trail byte is a letter";
  letters.ToUpper();
  EXPECT_STREQ(letters.GetString(), "\xD6\x41Z\x81\x7AZ\xD6 Q\xD6");
  CBaseStringA utf8;
  EXPECT_EQ(WideToUtf8(u"\u4e2d", -1, &utf8), 1);
  EXPECT_STREQ(utf8.GetString(), "\xE4\xB8\xAD") << "whatever the code page";
}

TEST_F(CodePage, TakesSingleAndDoubleBytePagesOnly) {
  struct Case {
    unsigned int page;
    const char* bytes;
    const char16_t* wide;
  };
  for (const Case& c :
       {Case{1252, "\x80\xE9", u"\u20ac\u00e9"}, Case{932, "\x93\xFA\xB1", u"\u65e5\uff71"},
        Case{949, "\xC7\xD1", u"\ud55c"}, Case{950, "\xA4\xA4", u"\u4e2d"},
        Case{437, "\x81", u"\u00fc"}, Case{1255, "\xF9\xE0", u"\u05e9\u05d0"},
        Case{28605, "\xA4", u"\u20ac"}}) {
    ASSERT_EQ(SetAnsiCodePage(c.page), 1) << c.page;
    EXPECT_EQ(ToWide(c.bytes), c.wide) << c.page;
    EXPECT_EQ(ToAnsi(c.wide), c.bytes) << c.page;
  }
  for (unsigned int page : {0u, 1u, 37u, 1200u, 54936u, 65000u, 99999u}) {
    EXPECT_EQ(SetAnsiCodePage(page), 0) << page;
  }
  EXPECT_EQ(GetAnsiCodePage(), 28605u);
}

TEST_F(CodePage, SwitchesWhileOthersConvert) {
  std::atomic<bool> stop{false};
  std::array<std::jthread, 3> threads;
  for (std::jthread& each : threads) {
    each = std::jthread([&stop] {
      while (!stop) ASSERT_EQ(ToWide("plain text").size(), 10u);
    });
  }
  for (int i = 0; i < 50; ++i) SetAnsiCodePage(i % 2 == 0 ? 936 : 65001);
  stop = true;
}

TEST_F(CodePage, ResultsReplaceWhatTheStringHeld) {
  CBaseStringA narrow("ABC");
  EXPECT_EQ(WideToUtf8(u"abc", -1, &narrow), 1);
  EXPECT_STREQ(narrow.GetString(), "abc");
  EXPECT_EQ(WideToUtf8(nullptr, -1, &narrow), 1);
  EXPECT_EQ(narrow.GetLength(), 0);
  CBaseStringW wide;
  EXPECT_EQ(Utf8ToWide("\xE4\xB8\xAD"
                       "a",
                       3, &wide),
            1);
  EXPECT_EQ(std::u16string(wide.GetString()), u"\u4e2d");
  EXPECT_EQ(Utf8ToWide("a\xFF", -1, &wide), 0);
  EXPECT_EQ(Utf8ToWide("a", -1, nullptr), 0);
}

}  // namespace
