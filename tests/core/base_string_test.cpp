#include <qvx/base_string.h>

#include <gtest/gtest.h>

#include <new>
#include <random>
#include <string>

#include "core/capability.h"
#include "core/string_access.h"
#include "platform/code_page.h"
#include "support/failing_new.h"

namespace {

using qvx::core::StringAccess;
using qvx::test::FailingAllocations;

// The three fields of a string stand in a told order behind the pointer to its operations.
template <typename T>
int CapabilityOf(const CBaseStringT<T>& string) {
  struct Layout {
    void* operations;
    T* text;
    int length;
    int capability;
  };
  static_assert(sizeof(Layout) == sizeof(string));
  return reinterpret_cast<const Layout&>(string).capability;
}

TEST(BaseString, KeepsTheWorkedCapabilities) {
  CBaseStringA text;
  const auto set = [&text](const std::string& value) {
    text.Set(value.c_str());
    return CapabilityOf(text);
  };
  const auto cut = [&text](int length) {
    text.Trunk(length);
    return CapabilityOf(text);
  };
  EXPECT_EQ(set("abc"), 4);
  EXPECT_EQ(set("abcd"), 8);
  EXPECT_EQ(set("1234567"), 8);
  text.Append('8');
  EXPECT_EQ(CapabilityOf(text), 16);
  EXPECT_EQ(cut(7), 16);
  EXPECT_EQ(cut(6), 8);
  EXPECT_EQ(set(std::string(63, 'x')), 64);
  EXPECT_EQ(cut(2), 4);
  EXPECT_EQ(cut(-5), 1);
  EXPECT_EQ(text.IsDigit(), 1);
  text.Set(nullptr, -1);
  EXPECT_EQ(CapabilityOf(text), 1) << "an empty text equals an empty text";
  text.Free();
  EXPECT_EQ(CapabilityOf(text), 0);
  EXPECT_EQ(text.IsDigit(), 0);
  EXPECT_STREQ(text.GetString(), "");
  std::copy_n("abcd", 4, StringAccess::Reset(text, 4));
  EXPECT_STREQ(text.GetString(), "abcd");
  EXPECT_EQ(CapabilityOf(text), 8);
  EXPECT_EQ(StringAccess::Reset(text, 0), nullptr);
  EXPECT_EQ(CapabilityOf(text), 0);
  EXPECT_EQ(qvx::core::IncreaseCapability(1 << 30, (1 << 30) + 1), INT32_MAX);
}

TEST(BaseString, LeavesATextThatEqualsButForCase) {
  CBaseStringA text("abc");
  text.Set("ABC");
  text.Set(u"aBC");
  text = CBaseStringA("Abc");
  text = "ABc";
  text.Format("%s", "ABC");
  text.Replace("a", -1, "A", -1, 0);
  text.Set("ABCD", 3);
  EXPECT_STREQ(text.GetString(), "abc");
  CBaseStringW wide(u"[\u00e4");
  wide.Set(u"{\u00e4");
  EXPECT_EQ(wide.GetString()[0], u'{') << "only letters fold";
  wide.Set(u"{\u00c4");
  EXPECT_EQ(wide.GetString()[1], u'\u00c4');
  CBaseStringA counted("a\0b", 3);
  counted.Set("a\0c", 3);
  EXPECT_EQ(counted.GetString()[2], 'c') << "a difference behind a NUL is one";
}

TEST(BaseString, TakesItsOwnTextAsArgument) {
  CBaseStringA text("0123456");
  const char* own = text.GetString();
  text.Set(own + 2, -1);
  EXPECT_STREQ(text.GetString(), "23456");
  text.Set(text.GetString() + text.GetLength(), -1);
  EXPECT_STREQ(text.GetString(), "");
  text.Set("abc");
  for (int i = 0; i < 4; ++i) text.Append(text.GetString(), text.GetLength());
  EXPECT_EQ(std::string(text.GetString()).substr(40), "bcabcabc");
  EXPECT_EQ(text.GetLength(), 48);
  text.Set("xy");
  text.Append(text.GetString() + 1, -1);
  text.AppendFormat("%s%s", text.GetString(), text.GetString());
  EXPECT_STREQ(text.GetString(), "xyyxyyxyy");
  text.Set(&text);
  text = *&text;
  text.Format("<%s>", text.GetString());
  EXPECT_STREQ(text.GetString(), "<xyyxyyxyy>");
}

TEST(BaseString, SetsAndAppendsEitherWidth) {
  CBaseStringA narrow(u"wide");
  CBaseStringW wide("narrow");
  narrow.Append(&"-x"[0], 1);
  narrow.Append(u"text", 2);
  narrow.Append('!');
  narrow.Append(u'?');
  EXPECT_STREQ(narrow.GetString(), "wide-te!?");
  wide.Append(narrow.GetString());
  EXPECT_EQ(std::u16string(wide.GetString()), u"narrowwide-te!?");
  EXPECT_EQ(CBaseStringA(wide).GetLength(), 15);
  EXPECT_EQ(CBaseStringW(&narrow).Equal(&narrow, 0), 1);
  narrow.Append(nullptr, 3);
  narrow.Append("abc", 0);
  narrow.Set(static_cast<const CBaseStringA*>(nullptr));
  EXPECT_EQ(narrow.GetLength(), 9);
  narrow.Set(static_cast<const char*>(nullptr), 5);
  EXPECT_EQ(narrow.GetLength(), 0);
}

TEST(BaseString, DropsAConversionBeyondTwoBytesAUnit) {
  CBaseStringA text("keep");
  text.Append(u"\u4e2d\u6587");
  EXPECT_STREQ(text.GetString(), "keep") << "six bytes for two units";
  text.Append(u"\u00e9\u4e2d");
  EXPECT_STREQ(text.GetString(), "keep") << "five bytes for two units";
  text.Append(u"\U0001F600");
  EXPECT_STREQ(text.GetString(), "keep\xF0\x9F\x98\x80");
  text.Set(u"\u4e2d");
  EXPECT_EQ(text.GetLength(), 0);
  EXPECT_EQ(text.Equal(u'\u4e2d', 0), 1) << "it is compared as an empty text";
  EXPECT_EQ(CBaseStringW("\xE4\xB8\xAD").GetString()[0], u'\u4e2d');
}

template <typename T>
class BaseStringOf : public testing::Test {};
using Widths = testing::Types<char, WCHAR>;
TYPED_TEST_SUITE(BaseStringOf, Widths);

TYPED_TEST(BaseStringOf, EditsInPlace) {
  CBaseStringT<TypeParam> text("aaa");
  const auto is = [&text](const char* expected) { return text.Equal(expected, -1, 0) == 1; };
  text.Replace("aa", -1, "b", -1, 0);
  EXPECT_TRUE(is("ba"));
  text.Set("banana");
  text.Replace(u"a", -1, u"", -1, 0);
  EXPECT_TRUE(is("bnn"));
  text.Set("xAxaX");
  text.Replace("a", 1, "longer", -1, 1);
  EXPECT_TRUE(is("xlongerxlongerX"));
  text.Replace("nothing", -1, "y", -1, 0);
  text.Replace("", -1, "y", -1, 0);
  text.Replace("x", 0, "y", -1, 0);
  text.Replace("x", -1, nullptr, 0, 0);
  EXPECT_TRUE(is("xlongerxlongerX"));
  text.Replace("XLongerxlongerx", -1, "", -1, 1);
  EXPECT_EQ(CapabilityOf(text), 0);
  text.Set("ab\0ab\0a", 7);
  text.Replace("b", 2, "-", -1, 0);
  EXPECT_EQ(text.GetLength(), 5)
      << "a length beyond the NUL takes it along, and the search goes on";
  EXPECT_TRUE(is("a-a-a"));
  text.Set("a\0a", 3);
  text.Replace("a", -1, "-", -1, 0);
  EXPECT_EQ(text.GetString()[2], TypeParam('a')) << "the search ends at a NUL";
  text.Set("AbcabC");
  text.RemoveCharList("aB", -1, 0);
  EXPECT_TRUE(is("AbcbC"));
  text.Set("AbcabC");
  text.RemoveCharList(u"aBx", 2, 1);
  EXPECT_TRUE(is("cC"));
  text.Set("a[b{c");
  text.RemoveCharList("{", -1, 1);
  text.RemoveCharList("z", -1, 1);
  text.RemoveCharList("", -1, 1);
  EXPECT_TRUE(is("a[bc"));
  text.Revert();
  EXPECT_TRUE(is("cb[a"));
  text.Append('\xE9');
  text.ToUpper();
  EXPECT_EQ(text.StartWith("CB[A", -1, 0), 1);
  text.ToLower();
  text.Trunk(4);
  text.Trunk(10);
  EXPECT_TRUE(is("cb[a"));
}

TYPED_TEST(BaseStringOf, ComparesAndFinds) {
  CBaseStringT<TypeParam> text("Hello World");
  const TypeParam o = 'o';
  const TypeParam lower[] = {'w', 'o', 'r', 'l', 'd', 0};
  const TypeParam none[] = {0};
  for (const auto& [start, index] : {std::pair{0, 4}, {5, 7}, {8, -1}, {99, -1}}) {
    EXPECT_EQ(text.Find(o, start), index);
  }
  EXPECT_EQ(text.Find(lower, 0, 0), -1);
  EXPECT_EQ(text.Find(lower, 3, 1), 6);
  EXPECT_EQ(text.Find(lower + 1, 0, 0), 7);
  EXPECT_EQ(text.Find(none, 99, 0), 0);
  EXPECT_EQ(text.Find(static_cast<const TypeParam*>(nullptr), 0, 0), -1);
  EXPECT_EQ(text.Equal("hello world", -1, 1), 1);
  EXPECT_EQ(text.Equal(u"hello world", -1, 0), 0);
  EXPECT_EQ(text.Equal("Hello Worldx", 11, 0), 1);
  EXPECT_EQ(text.Equal("Hello", 5, 0), 0);
  EXPECT_EQ(text.Equal('H', 0), 0);
  EXPECT_EQ(text.StartWith("hello", -1, 1), 1);
  EXPECT_EQ(text.StartWith(u"Hello!", 5, 0), 1);
  EXPECT_EQ(text.StartWith("Hello World!", -1, 0), 0);
  EXPECT_EQ(text.StartWith(u'h', 1), 1);
  EXPECT_EQ(text.StartWith("", -1, 0), 0);
  EXPECT_EQ(text.StartWith(nullptr, -1, 0), 0);
  EXPECT_EQ(text.StartWith(&text, 0) + text.Equal(&text, 0), 2);
  EXPECT_EQ(text.Equal(static_cast<const CBaseStringW*>(nullptr), 0), 0);
  EXPECT_EQ(text.StartWith(static_cast<const CBaseStringA*>(nullptr), 0), 0);
  const CBaseStringT<TypeParam> empty;
  EXPECT_EQ(empty.Equal(nullptr, -1, 0) + empty.Equal("", -1, 0) + empty.StartWith(u"", -1, 0), 3);
  EXPECT_EQ(empty.StartWith(&empty, 0), 1);
  EXPECT_EQ(CBaseStringT<TypeParam>("012").IsDigit(), 1);
  EXPECT_EQ(CBaseStringT<TypeParam>("0a2").IsDigit(), 0);
  EXPECT_EQ(CBaseStringT<TypeParam>("azAZ").IsAlpha(), 1);
  EXPECT_EQ(CBaseStringT<TypeParam>("a[Z").IsAlpha(), 0);
}

TYPED_TEST(BaseStringOf, StaysAsItWasWithoutMemory) {
  CBaseStringT<TypeParam> text("0123456");
  const TypeParam* block = text.GetString();
  const auto fails = [](auto operation) {
    const FailingAllocations failing(1, 100);
    EXPECT_THROW(operation(), std::bad_alloc);
  };
  fails([&] { text.Append('7'); });
  fails([&] { text.Append("78", 2); });
  fails([&] { text.Append(u"78", 2); });
  fails([&] { text.Set("other"); });
  fails([&] { text.Replace("1", -1, "22", -1, 0); });
  fails([&] { text.RemoveCharList("1"); });
  fails([&] { text.Trunk(2); });
  fails([&] { text.Format("%2000d", 1); });
  fails([&] { text.AppendFormat("%d", 12345); });
  fails([&] { CBaseStringT<TypeParam>(text).Free(); });
  EXPECT_EQ(text.GetString(), block);
  EXPECT_EQ(text.Equal("0123456", -1, 0), 1);
  EXPECT_EQ(CapabilityOf(text), 8);
}

TYPED_TEST(BaseStringOf, AgreesWithAPlainStringOverRandomEdits) {
  std::mt19937 random(7);
  std::basic_string<TypeParam> model;
  CBaseStringT<TypeParam> text;
  for (int i = 0; i < 3000; ++i) {
    if (random() % 4 == 0) {
      model.resize(random() % (model.size() + 1));
      text.Trunk(static_cast<int>(model.size()));
    } else {
      const std::basic_string<TypeParam> piece(random() % 20, static_cast<TypeParam>('a' + i % 3));
      model += piece;
      text.Append(piece.c_str(), static_cast<int>(piece.size()));
    }
    ASSERT_EQ(text.GetString(), model);
    ASSERT_LT(text.GetLength(), std::max(CapabilityOf(text), 1));
    ASSERT_LE(CapabilityOf(text), 2 * (text.GetLength() + 1));
  }
}

TEST(RawText, SearchesWithoutCase) {
  const char* text = "hello WORLD";
  EXPECT_EQ(stristr(text, "wOr"), text + 6);
  EXPECT_EQ(stristr(text, ""), text);
  EXPECT_EQ(stristr("", ""), nullptr);
  EXPECT_EQ(stristr(nullptr, "a"), nullptr);
  EXPECT_EQ(stristr(text, "hello WORLD!"), nullptr);
  EXPECT_EQ(strnistr(text, 8, "world", -1), nullptr);
  EXPECT_EQ(strnistr(text, -1, "WORLDS", 5), text + 6);
  EXPECT_EQ(strnistr("a\0B", 3, "b", 1)[0], 'B');
  for (unsigned int code = 1; code < 256; ++code) {
    const char one[] = {static_cast<char>(code), 0};
    const char other[] = {static_cast<char>(code ^ 0x20), 0};
    const bool letter = (code >= 'a' && code <= 'z') || (code >= 'A' && code <= 'Z');
    if (other[0] == 0) continue;
    EXPECT_EQ(stristr(one, other) != nullptr, letter) << code;
  }
  EXPECT_EQ(wcsistr(u"\u00c4", u"\u00e4"), nullptr);
  EXPECT_EQ(wcsistr(u"\u0141", u"a"), nullptr) << "the low byte is a letter";
  const WCHAR* wide = u"Abc";
  EXPECT_EQ(wcsnistr(wide, 3, u"BC", -1), wide + 1);
  const char bytes[] = {'a', 0, 'b'};
  EXPECT_EQ(strnchr(bytes, 3, 'b'), bytes + 2);
  EXPECT_EQ(strnchr(bytes, 2, 'b'), nullptr);
  EXPECT_EQ(strnchr(nullptr, 3, 'b'), nullptr);
  EXPECT_EQ(wcsnchr(wide, 3, u'c'), wide + 2);
  EXPECT_EQ(IsDigitStringA("") + IsAlphaStringW(u"") + IsDigitStringW(u"5") + IsAlphaStringA("x"),
            4);
  EXPECT_EQ(IsDigitStringA(nullptr) + IsAlphaStringA(nullptr) + IsDigitStringA("5x"), 0);
  char mixed[] = "aZ[\xE9";
  ToUpperStringA(mixed);
  EXPECT_STREQ(mixed, "AZ[\xE9");
  ToLowerStringA(mixed);
  EXPECT_STREQ(mixed, "az[\xE9");
  ToLowerStringW(nullptr);
}

}  // namespace
