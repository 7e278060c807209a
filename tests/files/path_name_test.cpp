#include "qvx/path_name.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <type_traits>

#include "files/library_path.h"
#include "qvx/platform.h"
#include "support/fault_plan.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

using namespace std::string_literals;

// What a function makes of the text in its first argument.
template <typename Result, typename C, typename... Arguments>
std::basic_string<C> Changed(std::basic_string<C> text, Result (*function)(C*, Arguments...),
                             std::type_identity_t<Arguments>... arguments) {
  text.resize(600);
  function(text.data(), arguments...);
  return text.c_str();
}

// What a function writes into its first argument.
template <typename Result, typename C, typename... Arguments>
std::basic_string<C> Written(Result (*function)(C*, Arguments...),
                             std::type_identity_t<Arguments>... arguments) {
  return Changed(std::basic_string<C>(9, C('?')), function, arguments...);
}

TEST(PathName, TrailingBackslash) {
  EXPECT_EQ(Changed(""s, FixToPathNameA), "");
  EXPECT_EQ(Changed("C:\\a\\"s, FixToPathNameA), "C:\\a\\");
  EXPECT_EQ(Changed("C:\\a"s, FixToPathNameA), "C:\\a\\");
  EXPECT_EQ(Changed(u"\u4E2D"s, FixToPathNameW), u"\u4E2D\\");
  EXPECT_EQ(Changed(""s, FixToFileNameA), "");
  EXPECT_EQ(Changed("C:\\a\\\\"s, FixToFileNameA), "C:\\a\\");
  EXPECT_EQ(Changed("C:\\a"s, FixToFileNameA), "C:\\a");
  EXPECT_EQ(Changed(u"\u4E2D\\"s, FixToFileNameW), u"\u4E2D");
}

TEST(PathName, CombineAndAbsolute) {
  const std::string folder(300, 'f');
  const std::string folder_258(258, 'f');
  const std::string folder_250(250, 'f');
  const struct {
    const char* folder;
    const char* name;
    std::string combined;
  } cases[] = {{"C:\\a", "b.txt", "C:\\a\\b.txt"},
               {"C:\\a\\", "b.txt", "C:\\a\\b.txt"},
               {"", "b.txt", "b.txt"},
               {nullptr, "b.txt", "b.txt"},
               {"C:\\a", nullptr, "C:\\a\\"},
               {"C:\\a", "\\b", "C:\\a\\\\b"},
               {nullptr, nullptr, ""},
               {folder.c_str(), "b", folder.substr(0, 259)},
               {folder_258.c_str(), "b", folder_258 + "\\"},
               {folder_250.c_str(), "123456789", folder_250 + "\\12345678"}};
  for (const auto& each : cases)
    EXPECT_EQ(Written(CombinePathNameA, each.folder, each.name), each.combined);
  EXPECT_EQ(Written(CombinePathNameW, u"C:\\\u4E2D", u"b"), u"C:\\\u4E2D\\b");
  EXPECT_EQ(CombinePathNameA(nullptr, "a", "b"), 0);
  char alias[260] = "name";
  EXPECT_EQ(CombinePathNameA(alias, "C:\\d", alias), 1);
  EXPECT_STREQ(alias, "C:\\d\\name");

  EXPECT_EQ(Written(GetFileAbsolutePathA, "D:\\x", "C:\\r"), "D:\\x");
  EXPECT_EQ(Written(GetFileAbsolutePathW, u"x", u"C:\\r"), u"C:\\r\\x");
}

TEST(PathName, ParentAndShortName) {
  const struct {
    const char* path;
    const char* parent;
    const char* name;
  } cases[] = {{"C:\\a\\b\\", "C:\\a", ""},
               {"C:\\a\\b", "C:\\a", "b"},
               {"C:\\a", "C:", "a"},
               {"a", "", "a"},
               {"", "", ""},
               {"\\", "", ""}};
  for (const auto& each : cases) {
    EXPECT_EQ(Written(GetFileParentDirA, each.path), each.parent);
    EXPECT_EQ(Written(GetFileShortNameA, each.path), each.name);
    std::string same = each.path;
    EXPECT_EQ(GetFileParentDirA(same.data(), same.data()), 1);
    EXPECT_STREQ(same.c_str(), each.parent);
  }
  const std::string path = std::string(255, 'p') + "\\" + std::string(20, 'n');
  EXPECT_EQ(Written(GetFileShortNameA, path.c_str()), "nnn");
  EXPECT_EQ(Written(GetFileParentDirW, u"\u4E2D\\b"), u"\u4E2D");
  EXPECT_EQ(Written(GetFileShortNameW, u"a\\\u4E2D"), u"\u4E2D");
  EXPECT_EQ(GetFileParentDirA(nullptr, "a"), 0);
  char dest[260];
  EXPECT_EQ(GetFileShortNameA(dest, "a"), 1);
  EXPECT_EQ(GetFileShortNameA(dest, nullptr), 0);
}

TEST(PathName, Extensions) {
  EXPECT_EQ(Changed("a.txt"s, SetFileExtNameA, ".log"), "a.log");
  EXPECT_EQ(Changed("a.txt"s, SetFileExtNameA, "log"), "alog");
  EXPECT_EQ(Changed("a.txt"s, SetFileExtNameA, ""), "a");
  EXPECT_EQ(Changed("a"s, SetFileExtNameA, ".log"), "a.log");
  EXPECT_EQ(Changed("C:\\d.x\\a"s, SetFileExtNameA, ".log"), "C:\\d.log");
  EXPECT_EQ(Changed(u"a.txt"s, SetFileExtNameW, u".\u4E2D"), u"a.\u4E2D");
  SetFileExtNameA(nullptr, ".x");
  const struct {
    const char* path;
    int size;
    const char* extension;
  } cases[] = {
      {"a.b.txt", 10, "txt"}, {"a.txt", 3, "tx"}, {"a.txt", 1, ""}, {"a", 10, ""}, {"a.", 10, ""}};
  for (const auto& each : cases) {
    char extension[10] = "?";
    GetFileExtNameA(each.path, extension, each.size);
    EXPECT_STREQ(extension, each.extension);
  }
  WCHAR wide[10];
  GetFileExtNameW(u"a.\u4E2D", wide, 10);
  EXPECT_EQ(std::u16string(wide), u"\u4E2D");
  GetFileExtNameA("a.txt", nullptr, 5);
}

TEST(PathName, Relative) {
  const char* cases[][3] = {{"C:\\a\\b.txt", "C:\\A\\", "b.txt"},
                            {"C:\\a", "C:\\a\\", ""},
                            {"C:\\a\\", "C:\\a", ""},
                            {"C:\\foobar\\x", "C:\\foo", "bar\\x"},
                            {"C:\\a\\\\\\b", "C:\\a", "b"},
                            {"C:\\b", "C:\\a", "C:\\b"},
                            {"C:\\", "C:\\long", "C:\\"},
                            {"C:\\[", "C:\\{", "C:\\["}};
  for (const auto& [path, root, relative] : cases)
    EXPECT_STREQ(GetFileRelativePathA(path, root), relative);
  const WCHAR* wide = u"C:\\a\\b";
  EXPECT_EQ(GetFileRelativePathW(wide, u"C:\\A"), wide + 5);
}

TEST(PathName, ExistenceAsASearchFindsIt) {
  TempFolder folder;
  folder.Write("f.txt", "");
  ASSERT_EQ(mkdir(folder.Path("sub").c_str(), 0700), 0);
  folder.Write("sub/\u4E2D*.log", "");
  ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink("sub", folder.Path("link").c_str()), 0);
  const auto exists = [&folder](const char* name) {
    const std::string narrow = Library<char>(folder.Path()) + name;
    const std::u16string wide = WideText(narrow);
    EXPECT_EQ(IsDirExistA(narrow.c_str()), IsDirExistW(wide.c_str()));
    return IsDirExistA(narrow.c_str()) * 100 + IsFileExistA(narrow.c_str()) * 10 +
           IsFileExistW(wide.c_str());
  };
  constexpr int kNothing = 0;
  constexpr int kFile = 11;
  constexpr int kFolder = 110;
  const struct {
    const char* name;
    int result;
  } cases[] = {{"", kFolder},           {"\\", kNothing},          {"\\sub", kFolder},
               {"\\link", kFolder},     {"\\lin*", kFile},         {"\\f.txt", kFile},
               {"/f.t?t", kFile},       {"\\F.TXT", kNothing},     {"\\*.txt", kFile},
               {"\\*.png", kNothing},   {"\\su?", kFolder},        {"\\fifo", kNothing},
               {"\\fif*", kNothing},    {"\\none", kNothing},      {"\\*\\f.txt", kNothing},
               {"\\sub\\*.log", kFile}, {"\\sub\\*\uF02A*", kFile}};
  for (const auto& each : cases) EXPECT_EQ(exists(each.name), each.result) << each.name;
  EXPECT_EQ(IsDirExistA(nullptr) + IsFileExistA(nullptr) + IsFileExistW(nullptr), 0);
  EXPECT_EQ(IsDirExistA("C:"), 1);
  for (const char* none : {"C:\\", "", "D:\\*"}) EXPECT_EQ(IsDirExistA(none), 0) << none;
  EXPECT_EQ(IsFileExistA("C:\\*"), IsFileExistA("C:*"));
}

TEST(PathName, ByNumber) {
  EXPECT_EQ(Written(GetFileNameByNumberA, ".log", "a", 7), "a7.log");
  EXPECT_EQ(Written(GetFileNameByNumberA, "log", "a", -7), "a-7.log");
  EXPECT_EQ(Written(GetFileNameByNumberA, "", "a", 7), "a7.");
  EXPECT_EQ(Written(GetFileNameByNumberA, nullptr, nullptr, 7), "7");
  const std::u16string prefix(300, u'p');
  EXPECT_EQ(Written(GetFileNameByNumberW, u"x.y", prefix.c_str(), 7), prefix.substr(0, 259));
  GetFileNameByNumberA(nullptr, "x", "a", 7);
}

TEST(PathName, ByDate) {
  tm local{};
  local.tm_isdst = -1;
  ASSERT_NE(strptime("2020-03-04 05:06:07", "%F %T", &local), nullptr);
  FaultPlan plan;
  plan.FakeClock(std::int64_t{mktime(&local)} * 1000000000 + 8000000);
  EXPECT_EQ(Written(GetFileNameByDateA, "txt", "p", "s", 0, 1, 1), "p2020_03_04_05_06_07_008s.txt");
  EXPECT_EQ(Written(GetFileNameByDateA, "", "p", "s", 99, 0, 0), "p05_06_07s");
  EXPECT_EQ(Written(GetFileNameByDateA, nullptr, nullptr, nullptr, 0, 1, 0), "2020_03_04_05_06_07");
  EXPECT_EQ(Written(GetFileNameByDateW, u".txt", u"p", u"s", 0, 0, 1), u"p05_06_07_008s.txt");
}

TEST(PathName, ByRandomLeavesTheHostsGeneratorAlone) {
  srand(5);
  const int expected = rand();
  srand(5);
  const std::string name = Written(GetFileNameByRandomA, "tmp", "p_", 10);
  EXPECT_EQ(name.size(), 16u);
  EXPECT_EQ(name.substr(0, 2) + name.substr(12), "p_.tmp");
  EXPECT_NE(Written(GetFileNameByRandomA, "tmp", "p_", 10), name);
  EXPECT_EQ(rand(), expected);
  EXPECT_EQ(Written(GetFileNameByRandomA, "x", nullptr, 1000).size(), 259u);
  EXPECT_EQ(Written(GetFileNameByRandomW, u"x", u"p", -1), u"p.x");
}

TEST(HostPaths, ConversionsReplaceWhatTheStringHeld) {
  CBaseStringA narrow("C:\\ABC");
  ASSERT_EQ(NativePathToLibraryA("/abc", &narrow), 1);
  EXPECT_STREQ(narrow.GetString(), "C:\\abc");  // also where only the case differs
  ASSERT_EQ(LibraryPathToNativeA("C:\\abc\\\uF05C", &narrow), 1);
  EXPECT_STREQ(narrow.GetString(), "/abc/\\");
  CBaseStringW wide;
  ASSERT_EQ(NativePathToLibraryW("/a/\xFF", &wide), 1);
  EXPECT_EQ(std::u16string(wide.GetString()), u"C:\\a\\" + std::u16string{0xDCFF});
  ASSERT_EQ(LibraryPathToNativeW(wide.GetString(), &narrow), 1);
  EXPECT_STREQ(narrow.GetString(), "/a/\xFF");
  EXPECT_EQ(LibraryPathToNativeW(u"D:\\x", &narrow), 0);
  EXPECT_EQ(narrow.GetLength(), 0);
  EXPECT_EQ(NativePathToLibraryW(nullptr, &wide) + NativePathToLibraryW("", &wide), 0);
  EXPECT_EQ(NativePathToLibraryA("/a", nullptr), 0);
}

}  // namespace
}  // namespace qvx::test
