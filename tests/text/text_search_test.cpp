#include "qvx/text_search.h"

#include <gtest/gtest.h>

#include <string>

namespace qvx::test {
namespace {

TEST(TextSearch, FindsCharacters) {
  const char text[] = "ab\0cb";
  EXPECT_EQ(MemFindChrA(text, 'b', 5), text + 1);
  EXPECT_EQ(MemFindChrA(text, 'c', 5), text + 3);
  EXPECT_EQ(MemFindChrA(text, 'c', 3), nullptr);
  EXPECT_EQ(MemFindChrA(text, 'a', 0), nullptr);
  EXPECT_EQ(MemFindChrA(text, 'a', -1), nullptr);
  EXPECT_EQ(MemFindChrA(nullptr, 'a', 3), nullptr);
  const WCHAR wide[] = u"\u0161a";
  EXPECT_EQ(MemFindChrW(wide, u'a', 2), wide + 1);
}

TEST(TextSearch, FindsBytes) {
  const std::string text("ab\0abc", 6);
  struct Case {
    int length;
    std::string pattern;
    int pattern_length, place;
  };
  const Case cases[] = {{6, "abc", 3, 3},   {6, "abc", -1, 3}, {5, "abc", 3, -1},
                        {-1, "abc", 3, -1}, {-1, "b", 1, 1},   {6, std::string("\0a", 2), 2, 2},
                        {6, "", 0, 0},      {0, "", 0, 0},     {0, "a", 1, -1}};
  for (const Case& one : cases) {
    const char* hit = MemFindBufA(text.data(), one.length, one.pattern.c_str(), one.pattern_length);
    EXPECT_EQ(hit == nullptr ? -1 : hit - text.data(), one.place) << one.pattern;
  }
  EXPECT_EQ(MemFindBufA(nullptr, 1, "a", 1), nullptr);
  EXPECT_EQ(MemFindBufA("a", 1, nullptr, 1), nullptr);
}

// Wide text is searched byte by byte, so a hit may straddle two characters.
TEST(TextSearch, FindsWideTextAtAnyByte) {
  const WCHAR text[] = u"ab\u0061\u0100\u0041";
  const WCHAR pattern[] = {0x4101};
  const WCHAR* hit = MemFindBufW(text, -1, pattern, 1);
  ASSERT_NE(hit, nullptr);
  EXPECT_EQ(reinterpret_cast<const char*>(hit) - reinterpret_cast<const char*>(text), 7);
  EXPECT_EQ(MemFindBufW(text, -1, u"b", -1), text + 1);
  EXPECT_EQ(MemFindBufW(text, 1, u"b", -1), nullptr);
}

}  // namespace
}  // namespace qvx::test
