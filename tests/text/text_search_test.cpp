#include "qvx/text_search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "support/processor_turn.h"
#include "text/widths.h"

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
  const std::tuple<int, const char*, int, int> cases[] = {{6, "abc", -1, 3},  {5, "abc", 3, -1},
                                                          {-1, "abc", 3, -1}, {-1, "b", 1, 1},
                                                          {0, "", 0, 0},      {0, "a", 1, -1}};
  for (const auto& [length, pattern, pattern_length, place] : cases) {
    const char* hit = MemFindBufA(text.data(), length, pattern, pattern_length);
    EXPECT_EQ(hit == nullptr ? -1 : hit - text.data(), place) << pattern;
  }
  EXPECT_EQ(MemFindBufA(text.data(), 6, "\0a", 2), text.data() + 2);
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

template <typename T>
std::string_view BytesOf(const std::basic_string<T>& text) {
  return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(T)};
}

QVX_TWIN(MemFindBuf);
QVX_TWIN(CreateKMPPattern);
QVX_TWIN(CreateKMPPatternNoCase);
QVX_TWIN(BufFindPattern);
QVX_TWIN(BufFindPatternNoCase);
QVX_TWIN(StrMaxSameLength);

template <typename T>
class TextSearchTwin : public testing::Test {
 protected:
  using Text = std::basic_string<T>;

  static std::vector<int> Table(const Text& pattern, bool fold) {
    std::vector<int> next(std::max<std::size_t>(pattern.size(), 1), 7);
    const auto create = fold ? CreateKMPPatternNoCase<T> : CreateKMPPattern<T>;
    create(next.data(), pattern.data(), static_cast<int>(pattern.size()));
    return next;
  }

  // Where the pattern stands in the text, or -1.
  static std::ptrdiff_t Find(const Text& text, const Text& pattern, bool fold) {
    const auto find = fold ? BufFindPatternNoCase<T> : BufFindPattern<T>;
    const T* hit = find(text.data(), static_cast<int>(text.size()), pattern.data(),
                        static_cast<int>(pattern.size()), Table(pattern, fold).data());
    return hit == nullptr ? -1 : hit - text.data();
  }

  static bool Same(T left, T right, bool fold) {
    const auto upper = [](T c) { return c >= T('a') && c <= T('z') ? static_cast<T>(c - 32) : c; };
    return left == right || (fold && upper(left) == upper(right));
  }

  static std::ptrdiff_t Expected(const Text& text, const Text& pattern, bool fold) {
    const auto hit = std::search(text.begin(), text.end(), pattern.begin(), pattern.end(),
                                 [&](T left, T right) { return Same(left, right, fold); });
    return hit == text.end() && !pattern.empty() ? -1 : hit - text.begin();
  }

  // The rule word for word: every start in both, and every pair behind it.
  static int MostAgreeing(const Text& first, const Text& second, bool fold) {
    int most = 0;
    for (std::size_t i = 0; i < first.size(); ++i) {
      for (std::size_t j = 0; j < second.size(); ++j) {
        int count = 0;
        for (std::size_t k = 0; i + k < first.size() && j + k < second.size(); ++k) {
          const bool same = Same(first[i + k], second[j + k], fold);
          if (!same && !fold) break;
          count += same ? 1 : 0;
        }
        most = std::max(most, count);
      }
    }
    return most;
  }
};

TYPED_TEST_SUITE(TextSearchTwin, Widths);

TYPED_TEST(TextSearchTwin, BuildsTheTable) {
  using T = TypeParam;
  const std::tuple<const char*, bool, std::vector<int>> cases[] = {
      {"abcabd", false, {-1, 0, 0, -1, 0, 2}},
      {"aaaa", false, {-1, -1, -1, -1}},
      {"aBAbaC", false, {-1, 0, 0, 0, -1, 1}},
      {"aBAbaC", true, {-1, 0, -1, 0, -1, 3}},
      {"", false, {-1}}};
  for (const auto& [pattern, fold, table] : cases) {
    EXPECT_EQ(TestFixture::Table(Widen<T>(pattern), fold), table) << pattern;
  }
  const std::basic_string<T> text = Widen<T>("ab");
  EXPECT_EQ(BufFindPattern<T>(text.data(), 2, text.data(), 3, nullptr), nullptr);
  EXPECT_EQ(BufFindPattern<T>(nullptr, 2, text.data(), 1, nullptr), nullptr);
}

// Few letters and many, short and long, so that all loops and both kinds of near misses come up.
TYPED_TEST(TextSearchTwin, FindsWhatAPlainSearchFinds) {
  using T = TypeParam;
  std::mt19937 random(81);
  const std::basic_string<T> letters = Widen<T>("aAbB@`[{zZ0 ") + static_cast<T>(0xE9);
  for (unsigned round = 0; round < 6000; ++round) {
    const ProcessorTurn turn(round);
    const std::size_t kinds = 2 + random() % (letters.size() - 1);
    const auto draw = [&](std::size_t length) {
      std::basic_string<T> text(length, T());
      for (T& c : text) c = letters[random() % kinds];
      return text;
    };
    const std::basic_string<T> text = draw(random() % 700);
    std::basic_string<T> pattern = draw(random() % 8);
    if (round % 2 == 0) {
      const std::size_t from = random() % (text.size() + 1);
      pattern = text.substr(from, random() % 150);
    }
    for (const bool fold : {false, true}) {
      ASSERT_EQ(TestFixture::Find(text, pattern, fold), TestFixture::Expected(text, pattern, fold))
          << round << " fold " << fold;
    }
    const std::size_t place = BytesOf(text).find(BytesOf(pattern));
    const T* hit = MemFindBuf<T>(text.data(), static_cast<int>(text.size()), pattern.data(),
                                 static_cast<int>(pattern.size()));
    const char* expected = place == std::string::npos ? nullptr : BytesOf(text).data() + place;
    ASSERT_EQ(reinterpret_cast<const char*>(hit), expected) << round;
  }
}

// Patterns that nearly fit at every place: only a linear search gets through these.
TYPED_TEST(TextSearchTwin, StaysLinear) {
  using T = TypeParam;
  constexpr std::size_t kSize = 1 << 20;
  std::basic_string<T> text(kSize, T('a'));
  std::basic_string<T> pattern(kSize / 2, T('a'));
  for (std::size_t odd : {std::size_t{0}, kSize / 4, kSize / 2 - 1}) {
    pattern[odd] = T('b');
    for (const bool fold : {false, true})
      EXPECT_EQ(TestFixture::Find(text, pattern, fold), -1) << odd;
    text[kSize - kSize / 2 + odd] = T('b');
    const auto place = static_cast<std::ptrdiff_t>(kSize / 2);
    for (const bool fold : {false, true})
      EXPECT_EQ(TestFixture::Find(text, pattern, fold), place) << odd;
    pattern[odd] = text[kSize - kSize / 2 + odd] = T('a');
  }
}

TYPED_TEST(TextSearchTwin, MeasuresWhatAgrees) {
  using T = TypeParam;
  std::mt19937 random(18);
  const auto draw = [&] {
    std::basic_string<T> text(random() % 12, T());
    for (T& c : text) c = static_cast<T>("abAB[{"[random() % 6]);
    return text;
  };
  for (int round = 0; round < 2000; ++round) {
    const std::basic_string<T> first = draw();
    const std::basic_string<T> second = draw();
    for (const bool fold : {false, true}) {
      ASSERT_EQ(StrMaxSameLength<T>(first.c_str(), second.c_str(), fold ? 1 : 0),
                TestFixture::MostAgreeing(first, second, fold))
          << round;
    }
  }
  EXPECT_EQ(StrMaxSameLength<T>(nullptr, Widen<T>("a").c_str(), 0), 0);
}

}  // namespace
}  // namespace qvx::test
