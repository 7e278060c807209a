#include "core/printf_engine.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>

#include <qvx/base_string.h>

#include "support/temp_folder.h"

// Formats come from tables, and wide texts are no wchar_t here.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

namespace {

std::u16string Wide(const std::string& ascii) {
  return std::u16string(ascii.begin(), ascii.end());
}

template <typename T>
std::basic_string<T> Content(const CBaseStringT<T>& text) {
  return {text.GetString(), static_cast<std::size_t>(text.GetLength())};
}

// In the width of the format.
template <typename T, typename... Values>
std::basic_string<T> Formatted(const T* format, Values... values) {
  CBaseStringT<T> text;
  text.Format(format, values...);
  return Content(text);
}

// Formats with the engine in both widths and with the C library, and wants the same of all.
template <typename... Values>
void ExpectAsTheCLibrary(const std::string& format, Values... values) {
  char buffer[4096];
  const int length = std::snprintf(buffer, sizeof(buffer), format.c_str(), values...);
  const std::string expected(buffer, static_cast<std::size_t>(length));
  EXPECT_EQ(Formatted(format.c_str(), values...), expected) << format;
  EXPECT_EQ(Formatted(Wide(format).c_str(), values...), Wide(expected)) << format;
}

TEST(Printf, PrintsIntegersAsTheCLibrary) {
  for (const char* letter : {"d", "i", "u", "o", "x", "X"}) {
    for (const char* flags : {"", "-", "+", " ", "#", "0", "-0", "+ ", "#0", "'", "#-+ 0"}) {
      for (const char* amounts : {"", "1", "12", ".0", ".", ".1", ".9", "12.5", "3.9", "40"}) {
        const std::string head = std::string("%") + flags + amounts;
        for (int value : {0, 1, -1, 8, 12345, INT_MAX, INT_MIN}) {
          for (const char* size : {"", "h", "hh"}) ExpectAsTheCLibrary(head + size + letter, value);
        }
        for (const char* size : {"l", "ll", "q", "L", "j", "z", "t"}) {
          ExpectAsTheCLibrary(head + size + letter, INT64_MIN);
          ExpectAsTheCLibrary(head + size + letter, std::int64_t{1} << 40);
        }
      }
    }
  }
}

TEST(Printf, PrintsFloatsAsTheCLibrary) {
  for (const char* letter : {"e", "E", "f", "F", "g", "G", "a", "A"}) {
    for (const char* flags : {"", "-", "+", " ", "#", "0", "#+0"}) {
      for (const char* amounts : {"", "20", ".0", ".3", "20.7", ".30"}) {
        const std::string head = std::string("%") + flags + amounts;
        for (double value : {0.0, -0.0, 1.5, -123456.789, 1e-9, 1e300, std::nan(""),
                             std::numeric_limits<double>::infinity()}) {
          ExpectAsTheCLibrary(head + letter, value);
          ExpectAsTheCLibrary(head + "L" + letter, static_cast<long double>(value));
        }
      }
    }
  }
  ExpectAsTheCLibrary("%.800f|%1500.2f", 0.1, 2.0);
}

TEST(Printf, PrintsTheRestAsTheCLibrary) {
  ExpectAsTheCLibrary("plain text, no conversion");
  ExpectAsTheCLibrary("100%% %c%c%5c|%-5c|", 'a', 'b', 'c', 'd');
  ExpectAsTheCLibrary("%*d|%-*d|%*d|%.*d|%.*d|%*.*f", 6, 1, 6, 2, -6, 3, 4, 5, -4, 6, 9, 2, 1.234);
  ExpectAsTheCLibrary("%d %ld %lld %f %d %d %d %d %f", 1, 2L, 3LL, 4.0, 5, 6, 7, 8, 9.0);
  ExpectAsTheCLibrary("%2$hs %1$hs %2$.1hs", "one", "two");
  ExpectAsTheCLibrary("%% %1$d %3$*2$.*4$Lf|%5$lld|%1$x|%6$c|%7$-8.2f|%%|%8$hhd", 255, 12, 2.5L, 3,
                      INT64_MAX, 'c', 1.25, 300);
  errno = ENOENT;
  EXPECT_EQ(Formatted("%m|%30m"), "No such file or directory|     No such file or directory");
}

TEST(Printf, PrintsTextOfEitherWidth) {
  const char* narrow = "na\xC3\xAFve";
  const WCHAR* wide = u"Gr\u00fc\u00dfe";
  EXPECT_EQ(Formatted("%s|%7s|%-7s|%.2s|", narrow, "abc", "abc", "abc"),
            "na\xC3\xAFve|    abc|abc    |ab|");
  EXPECT_EQ(Formatted("%S|%ls|%8S|%-8S|%.3S|%.4S|%C%lc%hc%hs", wide, wide, wide, wide, wide, wide,
                      u'\u00fc', u'w', 'n', narrow),
            "Gr\u00fc\u00dfe|Gr\u00fc\u00dfe| Gr\u00fc\u00dfe|Gr\u00fc\u00dfe "
            "|Gr|Gr\u00fc|\u00fcwnna\u00efve");
  EXPECT_EQ(Formatted(u"%s|%ls|%S|%hs|%8S|%.3S|%c%C%hc%lc", wide, wide, narrow, narrow, narrow,
                      narrow, u'\u4e2d', 'C', 'h', u'\u6587'),
            u"Gr\u00fc\u00dfe|Gr\u00fc\u00dfe|na\u00efve|na\u00efve|   na\u00efve|na\u00ef|\u4e2dCh"
            u"\u6587");
  CBaseStringA a;
  CBaseStringW w;
  a.Format(u"%s", u"from wide");
  w.Format("%s", "from narrow");
  EXPECT_EQ(Content(a), "from wide");
  EXPECT_EQ(Content(w), u"from narrow");
}

TEST(Printf, ReadsNoTextBehindItsPrecision) {
  // Exact blocks without a terminator, so that a sanitizer sees a read behind them.
  const std::unique_ptr<char[]> narrow(new char[6]{'\xE4', '\xB8', '\xAD', 'a', 'b', 'c'});
  const std::unique_ptr<WCHAR[]> wide(new WCHAR[3]{u'a', u'\u00e9', u'c'});
  EXPECT_EQ(Formatted("%.6s", narrow.get()), "\u4e2dabc");
  EXPECT_EQ(Formatted(u"%.4S%.3s", narrow.get(), wide.get()), u"\u4e2dabca\u00e9c");
}

TEST(Printf, PrintsPointersNullTextsAndWideIntegers) {
  const WCHAR* none = nullptr;
  EXPECT_EQ(Formatted("%p|%20p|%-18p|", reinterpret_cast<void*>(0x12ab),
                      static_cast<void*>(nullptr), reinterpret_cast<void*>(UINT64_MAX)),
            "00000000000012AB|    0000000000000000|FFFFFFFFFFFFFFFF  |");
  EXPECT_EQ(Formatted(u"%s|%S|%10hs|%.3s|%I64d|%I64X|%08I64u", none, none, none, none, INT64_MIN,
                      std::uint64_t{0xABCDEF0123}, std::uint64_t{42}),
            u"(null)|(null)|    (null)||-9223372036854775808|ABCDEF0123|00000042");
}

TEST(Printf, HasNoLengthLimit) {
  for (int length : {1022, 1023, 1024, 1025, 2000, 100000}) {
    const std::string text(static_cast<std::size_t>(length), 'x');
    EXPECT_EQ(Formatted("%s", text.c_str()), text);
    EXPECT_EQ(Formatted(u"%S", text.c_str()), Wide(text));
    EXPECT_EQ(Formatted("%*d", length, 7).size(), text.size());
  }
}

TEST(Printf, RefusesAFormatWithAnError) {
  for (const WCHAR* format : {u"%",
                              u"abc %",
                              u"%-",
                              u"%5",
                              u"%5.",
                              u"%l",
                              u"%I64",
                              u"%n",
                              u"%k",
                              u"%\u4e2d",
                              u"%99999999999d",
                              u"%.99999999999d",
                              u"%2147483647d%d",
                              u"%2$d",
                              u"%d %2$d",
                              u"%1$d %d",
                              u"%1$d %1$f",
                              u"%65$d",
                              u"%0$d",
                              u"%1$*d",
                              u"%1$d %2$k",
                              u"%1$",
                              u"%*2$d"}) {
    const CBaseStringA narrow_format(format);
    CBaseStringA a("before");
    CBaseStringW w("before");
    a.AppendFormat(narrow_format.GetString(), 1, 2, 3);
    w.AppendFormat(format, 1, 2, 3);
    EXPECT_EQ(Content(a), "before") << narrow_format.GetString();
    EXPECT_EQ(Content(w), u"before") << narrow_format.GetString();
    a.Format(narrow_format.GetString(), 1, 2, 3);
    w.Format(format, 1, 2, 3);
    EXPECT_EQ(a.GetLength() + w.GetLength(), 0) << narrow_format.GetString();
  }
}

// A host's locale with a decimal comma, made by the test, since the machine may have none.
TEST(Printf, KeepsTheCLocaleUnderAnyHostLocale) {
  const qvx::test::TempFolder folder;
  const std::string source = folder.Write("source",
                                          "comment_char %\nescape_char /\nLC_NUMERIC\n"
                                          "decimal_point \"<U002C>\"\nthousands_sep \"<U002E>\"\n"
                                          "grouping 3;3\nEND LC_NUMERIC\n");
  const std::string command = "localedef -c --no-archive -i " + source + " -f ANSI_X3.4-1968 " +
                              folder.Path("xx_XX") + " >" + folder.Path("out") + " 2>&1";
  if (std::system(command.c_str()) < 0) GTEST_SKIP() << "no localedef here";
  setenv("LOCPATH", folder.Path().c_str(), 1);
  const bool has_comma = std::setlocale(LC_NUMERIC, "xx_XX") != nullptr;
  const std::string text = Formatted("%.2f %'d", 1234.5, 1234567);
  const std::u16string wide = Formatted(u"%g", 0.25);
  char own[16];
  std::snprintf(own, sizeof(own), "%.1f", 0.5);
  std::setlocale(LC_NUMERIC, "C");
  unsetenv("LOCPATH");
  if (!has_comma) GTEST_SKIP() << "localedef made no locale";
  EXPECT_EQ(text, "1234.50 1234567");
  EXPECT_EQ(wide, u"0.25");
  EXPECT_STREQ(own, "0,5") << "the host's own locale still holds";
}

}  // namespace
