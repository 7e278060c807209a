#include "qvx/url_markup.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <tuple>
#include <utility>

#include "support/failing_new.h"
#include "support/processor_turn.h"
#include "text/widths.h"

namespace qvx::test {
namespace {

using namespace std::string_literals;

std::string Encoded(const std::string& text) {
  CBaseStringA out;
  EncodeURL(text.data(), static_cast<int>(text.size()), &out);
  return Content(out);
}

std::string Decoded(const std::string& text) {
  CBaseStringA out;
  DecodeURL(text.data(), static_cast<int>(text.size()), &out);
  return Content(out);
}

// The rules by the C library's own functions.
std::string PlainEncoded(const std::string& text) {
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    char code[4] = {c};
    if (c == ' ') code[0] = '+';
    const bool kept = byte < 0x80 && (isalnum(byte) || c == '.' || c == '/' || c == ' ');
    if (!kept) std::snprintf(code, sizeof(code), "%%%02X", byte);
    out += code;
  }
  return out;
}

std::string PlainDecoded(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i] == '+' ? ' ' : text[i];
      continue;
    }
    if (i + 2 >= text.size()) break;
    out += static_cast<char>(std::strtoul(text.substr(i + 1, 2).c_str(), nullptr, 16));
    i += 2;
  }
  return out;
}

TEST(UrlMarkup, CodesUrls) {
  EXPECT_EQ(Encoded("a b/c-d\xE4"), "a+b/c%2Dd%E4");
  EXPECT_EQ(Decoded("a+b%2Dc"), "a b-c");
  EXPECT_EQ(Decoded("abc%4"), "abc");
  EXPECT_EQ(Decoded("abc%41"), "abcA");
  EXPECT_EQ(Decoded("%G1%1G%"), std::string("\0\1", 2));
  CBaseStringA nothing;
  DecodeURL("%4", -1, &nothing);
  EXPECT_EQ(nothing.IsDigit(), 0);  // there is still no block
  CBaseStringA out("kept");
  EncodeURL(nullptr, 3, &out);
  EncodeURL("abc", 0, &out);
  DecodeURL("abc", -2, &out);
  EncodeURL("abc", -1, nullptr);
  EXPECT_EQ(Content(out), "kept");
  EncodeURL("?", -1, &out);
  DecodeURL("%3F", -1, &out);
  EXPECT_EQ(Content(out), "kept%3F?");
}

TEST(UrlMarkup, DecodesEveryPair) {
  for (int pair = 0; pair < 65536; ++pair) {
    const std::string text = {'%', static_cast<char>(pair >> 8), static_cast<char>(pair)};
    ASSERT_EQ(Decoded(text), PlainDecoded(text)) << pair;
    const std::string longer = "+" + text + std::string(40, 'x') + text;
    ASSERT_EQ(Decoded(longer), PlainDecoded(longer)) << pair;
  }
}

TEST(UrlMarkup, CodesLikeAPlainLoopThereAndBack) {
  std::mt19937 random(85);
  for (unsigned round = 0; round < 4000; ++round) {
    const ProcessorTurn turn(round);
    std::string text(random() % 300, '\0');
    const auto kept = random() % 40;
    for (char& c : text)
      c = static_cast<char>(random() % 40 < kept ? 'a' + random() % 26 : random());
    const std::string encoded = Encoded(text);
    ASSERT_EQ(encoded, PlainEncoded(text)) << round;
    ASSERT_EQ(Decoded(encoded), text) << round;
    for (char& c : text) {
      if (random() % 40 >= kept) c = "%%%+07afFG"[random() % 10];
    }
    ASSERT_EQ(Decoded(text), PlainDecoded(text)) << round;
    CBaseStringA doubled(text.data(), static_cast<int>(text.size()));
    if (text.empty()) continue;
    EncodeURL(doubled.GetString(), doubled.GetLength(), &doubled);
    DecodeURL(doubled.GetString(), static_cast<int>(text.size()), &doubled);
    ASSERT_EQ(Content(doubled), text + PlainEncoded(text) + PlainDecoded(text)) << round;
  }
}

TEST(UrlMarkup, KeepsTheStringWithoutMemory) {
  CBaseStringA narrow("kept");
  CBaseStringW wide(u"kept");
  const std::string text(100, '&');
  const FailingAllocations failing(1, 100);
  EXPECT_THROW(EncodeURL(text.data(), 100, &narrow), std::bad_alloc);
  EXPECT_THROW(DecodeURL(text.data(), 100, &narrow), std::bad_alloc);
  EXPECT_THROW(HtmlCodeToString("a&#66;", 6, &wide), std::bad_alloc);
  EXPECT_STREQ(narrow.GetString(), "kept");
  EXPECT_EQ(wide.GetLength(), 4);
}

TEST(UrlMarkup, ResolvesReferences) {
  const std::pair<std::string, std::u16string> cases[] = {
      {"A&#66;C", u"ABC"},       {"&#x43;", u"C"},       {"ab&#66", u"ab"},
      {"&#X43;-&#;", u"\0-\0"s}, {"&#66;&", u"B&"},      {"&amp;", u"&amp;"},
      {"&#x4E2d;", u"中"},       {"&#20013;", u"中"},    {"&#65601;", u"A"},
      {"&#x1F600;", u"\xF600"},  {"&#-1; ", u"\xFFFF "}, {"&#x0x41;", u"A"},
      {"\xE4\xB8\xAD", u"中"},   {"&&#35;#", u"&##"}};
  for (const auto& [text, result] : cases) {
    CBaseStringW out(u"=");
    HtmlCodeToString(text.data(), static_cast<int>(text.size()), &out);
    EXPECT_EQ(Content(out), u"=" + result) << text;
  }
  CBaseStringW out;
  HtmlCodeToString("a&#66;", -1, &out);
  HtmlCodeToString("a", 0, &out);
  HtmlCodeToString(nullptr, -1, &out);
  EXPECT_EQ(Content(out), u"aB");
}

TEST(UrlMarkup, ReadsTimes) {
  const std::tuple<const char*, int, SYSTEMTIME> cases[] = {
      {"2021/03/04 05:06:07", 6, {2021, 3, 99, 4, 5, 6, 7, 99}},
      {" 2021/3/4  5:6:7x", 6, {2021, 3, 99, 4, 5, 6, 7, 99}},
      {"2021/03/04 05:06", 5, {2021, 3, 99, 4, 5, 6, 99, 99}},
      {"20210/3", 1, {2021, 99, 99, 99, 99, 99, 99, 99}},
      {"x", 0, {99, 99, 99, 99, 99, 99, 99, 99}},
      {"", -1, {99, 99, 99, 99, 99, 99, 99, 99}}};
  for (const auto& [text, count, expected] : cases) {
    SYSTEMTIME narrow{99, 99, 99, 99, 99, 99, 99, 99};
    SYSTEMTIME wide = narrow;
    EXPECT_EQ(StringToSystemTimeA(text, &narrow), count) << text;
    EXPECT_EQ(StringToSystemTimeW(Widen<WCHAR>(text).c_str(), &wide), count);
    EXPECT_EQ(std::memcmp(&narrow, &expected, sizeof(narrow)), 0) << text;
    EXPECT_EQ(std::memcmp(&wide, &expected, sizeof(wide)), 0) << text;
  }
  SYSTEMTIME time{};
  EXPECT_EQ(StringToSystemTimeW(u"2021/03中", &time), 2);
  EXPECT_EQ(StringToSystemTimeA(nullptr, &time), 0);
}

TEST(UrlMarkup, ReadsMilliseconds) {
  const std::tuple<const char*, unsigned int, unsigned int> cases[] = {
      {"1:2:03,5", 3723500, 62500}, {"01:2:3.05", 3723050, 62050},
      {"1:2:3,5000", 0, 0},         {"1:02:03", 3723000, 62000},
      {"01020304", 0, 0},           {"02:03,123", 0, 123123},
      {"0002:03.", 0, 0},           {"1,5:2:3.5", 3723500, 62500},
      {"0:1:2,250.5", 0, 1500}};
  for (const auto& [text, hours, minutes] : cases) {
    EXPECT_EQ(TimeStringToInt_HMS(text, -1), hours) << text;
    EXPECT_EQ(TimeStringToInt_MS(text, -1), minutes) << text;
  }
  EXPECT_EQ(TimeStringToInt_HMS("01:02:03,5000", 10), 3723500u);
  EXPECT_EQ(TimeStringToInt_MS(nullptr, 3), 0u);
}

}  // namespace
}  // namespace qvx::test
