#include "qvx/path_name.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <set>
#include <string>

#include "files/library_path.h"
#include "qvx/platform.h"
#include "support/fault_plan.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

// Runs a narrow function and its wide twin on ASCII texts; both must give the same.
template <typename Narrow, typename Wide>
std::string Both(Narrow narrow, Wide wide) {
  char text[600] = "untouched";
  WCHAR wide_text[600] = u"untouched";
  narrow(text);
  wide(wide_text);
  EXPECT_EQ(WideText(text), wide_text);
  return text;
}

std::string Combine(const char* folder, const char* name) {
  const std::u16string wide_folder = WideText(folder == nullptr ? "" : folder);
  const std::u16string wide_name = WideText(name == nullptr ? "" : name);
  return Both([&](char* dest) { EXPECT_EQ(CombinePathNameA(dest, folder, name), 1); },
              [&](WCHAR* dest) {
                CombinePathNameW(dest, folder == nullptr ? nullptr : wide_folder.c_str(),
                                 name == nullptr ? nullptr : wide_name.c_str());
              });
}

// A pair of functions with a result and one argument.
template <typename Narrow, typename Wide>
std::string OfPath(Narrow narrow, Wide wide, const std::string& path) {
  const std::u16string wide_path = WideText(path);
  return Both([&](char* dest) { EXPECT_EQ(narrow(dest, path.c_str()), 1); },
              [&](WCHAR* dest) { EXPECT_EQ(wide(dest, wide_path.c_str()), 1); });
}

std::string FixPath(std::string path) {
  path.resize(path.size() + 2);
  FixToPathNameA(path.data());
  return path.c_str();
}

std::string FixFile(std::string path) {
  FixToFileNameA(path.data());
  return path.c_str();
}

TEST(PathName, TrailingBackslash) {
  EXPECT_EQ(FixPath(""), "");
  EXPECT_EQ(FixPath("C:\\a\\"), "C:\\a\\");
  EXPECT_EQ(FixPath("C:\\a"), "C:\\a\\");
  EXPECT_EQ(FixFile(""), "");
  EXPECT_EQ(FixFile("C:\\a\\\\"), "C:\\a\\");
  EXPECT_EQ(FixFile("C:\\a"), "C:\\a");
  WCHAR wide[8] = u"\u4E2D";
  FixToPathNameW(wide);
  EXPECT_EQ(std::u16string(wide), u"\u4E2D\\");
  FixToFileNameW(wide);
  EXPECT_EQ(std::u16string(wide), u"\u4E2D");
}

TEST(PathName, Combine) {
  EXPECT_EQ(Combine("C:\\a", "b.txt"), "C:\\a\\b.txt");
  EXPECT_EQ(Combine("C:\\a\\", "b.txt"), "C:\\a\\b.txt");
  EXPECT_EQ(Combine("", "b.txt"), "b.txt");
  EXPECT_EQ(Combine(nullptr, "b.txt"), "b.txt");
  EXPECT_EQ(Combine("C:\\a", nullptr), "C:\\a\\");
  EXPECT_EQ(Combine("C:\\a", "\\b"), "C:\\a\\\\b");
  EXPECT_EQ(Combine(nullptr, nullptr), "");
  const std::string folder(300, 'f');
  EXPECT_EQ(Combine(folder.c_str(), "b"), folder.substr(0, 259));
  EXPECT_EQ(Combine(folder.substr(0, 258).c_str(), "b"), folder.substr(0, 258) + "\\");
  EXPECT_EQ(Combine(folder.substr(0, 250).c_str(), "123456789"),
            folder.substr(0, 250) + "\\12345678");
  EXPECT_EQ(CombinePathNameA(nullptr, "a", "b"), 0);
  char alias[260] = "name";
  CombinePathNameA(alias, "C:\\d", alias);
  EXPECT_STREQ(alias, "C:\\d\\name");
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
    EXPECT_EQ(OfPath(GetFileParentDirA, GetFileParentDirW, each.path), each.parent);
    EXPECT_EQ(OfPath(GetFileShortNameA, GetFileShortNameW, each.path), each.name);
    std::string same = each.path;
    GetFileParentDirA(same.data(), same.data());
    EXPECT_STREQ(same.c_str(), each.parent);
  }
  const std::string path = std::string(255, 'p') + "\\" + std::string(20, 'n');
  EXPECT_EQ(OfPath(GetFileShortNameA, GetFileShortNameW, path), "nnn");
  EXPECT_EQ(GetFileParentDirA(nullptr, "a"), 0);
  char dest[260];
  EXPECT_EQ(GetFileShortNameA(dest, nullptr), 0);
}

std::string WithExtension(const std::string& path, const char* ext) {
  return Both(
      [&](char* text) {
        text[path.copy(text, path.size())] = '\0';
        SetFileExtNameA(text, ext);
      },
      [&](WCHAR* text) {
        text[WideText(path).copy(text, path.size())] = u'\0';
        SetFileExtNameW(text, WideText(ext).c_str());
      });
}

std::string Extension(const char* path, int size) {
  return Both([&](char* ext) { GetFileExtNameA(path, ext, size); },
              [&](WCHAR* ext) { GetFileExtNameW(WideText(path).c_str(), ext, size); });
}

TEST(PathName, Extensions) {
  EXPECT_EQ(WithExtension("a.txt", ".log"), "a.log");
  EXPECT_EQ(WithExtension("a.txt", "log"), "alog");
  EXPECT_EQ(WithExtension("a.txt", ""), "a");
  EXPECT_EQ(WithExtension("a", ".log"), "a.log");
  EXPECT_EQ(WithExtension("C:\\d.x\\a", ".log"), "C:\\d.log");
  EXPECT_EQ(Extension("a.b.txt", 10), "txt");
  EXPECT_EQ(Extension("a.txt", 3), "tx");
  EXPECT_EQ(Extension("a.txt", 1), "");
  EXPECT_EQ(Extension("a", 10), "");
  EXPECT_EQ(Extension("a.", 10), "");
  SetFileExtNameA(nullptr, ".x");
  GetFileExtNameA("a.txt", nullptr, 5);
}

std::string Relative(const std::string& path, const std::string& root) {
  const std::u16string wide = WideText(path);
  const std::string result = GetFileRelativePathA(path.c_str(), root.c_str());
  EXPECT_EQ(WideText(result), GetFileRelativePathW(wide.c_str(), WideText(root).c_str()));
  return result;
}

TEST(PathName, RelativeAndAbsolute) {
  EXPECT_EQ(Relative("C:\\a\\b.txt", "C:\\A\\"), "b.txt");
  EXPECT_EQ(Relative("C:\\a", "C:\\a\\"), "");
  EXPECT_EQ(Relative("C:\\a\\", "C:\\a"), "");
  EXPECT_EQ(Relative("C:\\foobar\\x", "C:\\foo"), "bar\\x");
  EXPECT_EQ(Relative("C:\\a\\\\\\b", "C:\\a"), "b");
  EXPECT_EQ(Relative("C:\\b", "C:\\a"), "C:\\b");
  EXPECT_EQ(Relative("C:\\", "C:\\long"), "C:\\");
  EXPECT_EQ(Relative("C:\\[", "C:\\{"), "C:\\[");
  char dest[260];
  GetFileAbsolutePathA(dest, "D:\\x", "C:\\r");
  EXPECT_STREQ(dest, "D:\\x");
  GetFileAbsolutePathA(dest, "x", "C:\\r");
  EXPECT_STREQ(dest, "C:\\r\\x");
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
  char dest[260] = "untouched";
  GetFileNameByNumberA(dest, ".log", "a", 7);
  EXPECT_STREQ(dest, "a7.log");
  GetFileNameByNumberA(dest, "log", "a", -7);
  EXPECT_STREQ(dest, "a-7.log");
  GetFileNameByNumberA(dest, "", "a", 7);
  EXPECT_STREQ(dest, "a7.");
  GetFileNameByNumberA(dest, nullptr, nullptr, 7);
  EXPECT_STREQ(dest, "7");
  WCHAR wide[260];
  GetFileNameByNumberW(wide, u"x.y", std::u16string(300, u'p').c_str(), 7);
  EXPECT_EQ(std::u16string(wide), std::u16string(259, u'p'));
  GetFileNameByNumberA(nullptr, "x", "a", 7);
}

// 2020-03-04 05:06:07.008 in the time zone of the process.
std::int64_t FixedTime() {
  tm local{};
  local.tm_year = 120;
  local.tm_mon = 2;
  local.tm_mday = 4;
  local.tm_hour = 5;
  local.tm_min = 6;
  local.tm_sec = 7;
  local.tm_isdst = -1;
  return std::int64_t{mktime(&local)} * 1000000000 + 8000000;
}

TEST(PathName, ByDate) {
  FaultPlan plan;
  plan.FakeClock(FixedTime());
  char dest[260];
  GetFileNameByDateA(dest, "txt", "p", "s", 0, 1, 1);
  EXPECT_STREQ(dest, "p2020_03_04_05_06_07_008s.txt");
  GetFileNameByDateA(dest, "", "p", "s", 99, 0, 0);
  EXPECT_STREQ(dest, "p05_06_07s");
  GetFileNameByDateA(dest, nullptr, nullptr, nullptr, 0, 1, 0);
  EXPECT_STREQ(dest, "2020_03_04_05_06_07");
  WCHAR wide[260];
  GetFileNameByDateW(wide, u".txt", u"p", u"s", 0, 0, 1);
  EXPECT_EQ(std::u16string(wide), u"p05_06_07_008s.txt");
}

TEST(PathName, ByRandomLeavesTheHostsGeneratorAlone) {
  srand(5);
  const int expected = rand();
  srand(5);
  std::set<std::string> names;
  char dest[260];
  for (int i = 0; i < 1000; ++i) {
    GetFileNameByRandomA(dest, "tmp", "p_", 10);
    const std::string name = dest;
    ASSERT_EQ(name.size(), 16u);
    EXPECT_EQ(name.substr(0, 2) + name.substr(12), "p_.tmp");
    names.insert(name);
  }
  EXPECT_EQ(names.size(), 1000u);
  EXPECT_EQ(rand(), expected);
  GetFileNameByRandomA(dest, "x", nullptr, 1000);
  EXPECT_EQ(std::string(dest).size(), 259u);
  GetFileNameByRandomA(dest, "x", "p", -1);
  EXPECT_STREQ(dest, "p.x");
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
