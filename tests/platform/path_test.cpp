#include "platform/path.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "platform/code_page.h"

namespace qvx::platform {
namespace {

std::string Native(std::u16string_view path) {
  return ToNativePath(path).value_or("(none)");
}

TEST(Path, DrivesAndSeparators) {
  const struct {
    std::u16string path;
    std::string native;
  } cases[] = {
      {u"C:\\a\\b", "/a/b"}, {u"c:/a\\b", "/a/b"}, {u"C:", "/"},      {u"C:\\", "/"},
      {u"C:a", "/a"},        {u"\\a", "/a"},       {u"a\\b", "a/b"},  {u".", "."},
      {u"C:\\a\\", "/a/"},   {u"D:\\a", "(none)"}, {u"", "(none)"},   {u"a:b", "(none)"},
      {u"C:\\a*", "(none)"}, {u"C:\\?", "(none)"}, {u"1:", "(none)"}, {u"C:\\a:b", "(none)"},
  };
  for (const auto& each : cases) EXPECT_EQ(Native(each.path), each.native);
  EXPECT_EQ(FromNativePath<char16_t>("/"), u"C:\\");
  EXPECT_EQ(FromNativePath<char>("/a/b"), "C:\\a\\b");
  EXPECT_EQ(FromNativePath<char>("a/b"), "a\\b");
}

TEST(Path, NamesThatTheLibraryFormHasNoCharacterFor) {
  EXPECT_EQ(FromNativeName<char16_t>("a\\b:c*d?"), u"a\uF05Cb\uF03Ac\uF02Ad\uF03F");
  EXPECT_EQ(FromNativeName<char16_t>("\xFF\xE4\xB8"), (std::u16string{0xDCFF, 0xDCE4, 0xDCB8}));
  EXPECT_EQ(FromNativeName<char16_t>("\xEF\x81\x9C"), (std::u16string{0xDCEF, 0xDC81, 0xDC9C}));
  EXPECT_EQ(FromNativeName<char16_t>("\u4E2D\U0001F600"), u"\u4E2D\U0001F600");
  EXPECT_EQ(FromNativeName<char>("\u4E2D:"), "\u4E2D\uF03A");
  EXPECT_EQ(Native(std::u16string{0xD800}), "(none)");
  EXPECT_EQ(Native(std::u16string{u'a', 0xDC41}), "(none)");
  // A host's narrow path with a byte that is no UTF-8 names the file of these bytes.
  EXPECT_EQ(ToNativePath(std::string_view("C:\\f\xE9")), "/f\xE9");
}

// Bytes that meet all the special cases often, in any order.
std::string RandomNativeName(std::mt19937& random) {
  static constexpr std::string_view kBytes = "a\\:*?. \n\xEF\x81\x9C\xED\xB2\x80\xA0\xF0\xFF\xC3";
  static constexpr std::string_view kTexts[] = {"\uF05C",       "\uF02A",      "\uF03F",
                                                "\uF03A",       "\u4E2D",      "\U0001F600",
                                                "\xED\xB2\x80", "\xED\xA0\x80"};
  std::string name;
  for (auto count = 1 + random() % 12; count > 0; --count) {
    const auto kind = random() % 4;
    if (kind == 0) {
      name += kTexts[random() % std::size(kTexts)];
    } else if (kind == 1) {
      name += kBytes[random() % kBytes.size()];
    } else if (const char byte = static_cast<char>(1 + random() % 255); byte != '/') {
      name += byte;
    }
  }
  return name.empty() ? "x" : name;
}

TEST(Path, EveryNativeNameRoundTripsInBothWidths) {
  std::mt19937 random(20240131);
  for (int i = 0; i < 20000; ++i) {
    const std::string native = "/" + RandomNativeName(random) + "/" + RandomNativeName(random);
    const std::u16string wide = FromNativePath<char16_t>(native).value();
    const std::string narrow = FromNativePath<char>(native).value();
    ASSERT_EQ(ToNativePath(std::u16string_view(wide)), native);
    ASSERT_EQ(ToNativePath(std::string_view(narrow)), native);
    ASSERT_EQ(wide.find_first_of(u"*?", 0), std::u16string::npos);
    ASSERT_EQ(WidePath(std::string_view(narrow)), wide);
  }
}

class OtherCodePage : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(SetAnsiCodePage(936)); }
  void TearDown() override { SetAnsiCodePage(65001); }
};

TEST_F(OtherCodePage, NarrowPathsAreInItOrHaveNoForm) {
  EXPECT_EQ(ToNativePath(std::string_view("C:\\\xD6\xD0")), "/\u4E2D");
  EXPECT_EQ(FromNativePath<char>("/\u4E2D"), "C:\\\xD6\xD0");
  EXPECT_FALSE(FromNativePath<char>("/\xFF"));
  EXPECT_FALSE(FromNativePath<char>("/\U0001F600"));
  EXPECT_FALSE(ToNativePath(std::string_view("C:\\\xD6")));
  EXPECT_EQ(FromNativePath<char16_t>("/\xFF"), (std::u16string{u'C', u':', u'\\', 0xDCFF}));
}

TEST(Path, JoiningNeverCuts) {
  const std::string folder = "C:\\" + std::string(250, 'f');
  EXPECT_EQ(JoinPath("C:\\a\\", "b"), "C:\\a\\b");
  EXPECT_EQ(JoinPath(u"C:\\a", u"b"), u"C:\\a\\b");
  EXPECT_EQ(JoinPath<char>("", "b"), "b");
  EXPECT_EQ(JoinPath<char>(nullptr, "b"), "b");
  EXPECT_EQ(JoinPath(folder.c_str(), "12345")->size(), 259u);
  EXPECT_FALSE(JoinPath(folder.c_str(), "123456"));
}

}  // namespace
}  // namespace qvx::platform
