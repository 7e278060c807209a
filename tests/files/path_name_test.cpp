#include "qvx/path_name.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <optional>
#include <set>
#include <string>
#include <type_traits>

#include "files/library_path.h"
#include "qvx/platform.h"
#include "support/fault_plan.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

class WideArgument {
 public:
  explicit WideArgument(const char* ascii) {
    if (ascii != nullptr) text_ = WideText(ascii);
  }
  operator const WCHAR*() const { return text_ ? text_->c_str() : nullptr; }

 private:
  std::optional<std::u16string> text_;
};

WideArgument Widened(const char* ascii) {
  return WideArgument(ascii);
}

int Widened(int number) {
  return number;
}

// What a narrow function writes into its first argument; its wide twin must write the same.
template <typename Narrow, typename Wide, typename... Arguments>
std::string Written(Narrow narrow, Wide wide, Arguments... arguments) {
  char text[600] = "untouched";
  WCHAR wide_text[600] = u"untouched";
  if constexpr (std::is_void_v<decltype(narrow(text, arguments...))>) {
    narrow(text, arguments...);
    wide(wide_text, Widened(arguments)...);
  } else {
    EXPECT_EQ(narrow(text, arguments...), 1);
    EXPECT_EQ(wide(wide_text, Widened(arguments)...), 1);
  }
  EXPECT_EQ(WideText(text), wide_text);
  return text;
}

// What a function that works in place makes of a text.
template <typename C, typename... Arguments>
std::basic_string<C> Changed(void (*function)(C*, Arguments...),
                             std::type_identity_t<std::basic_string<C>> path,
                             std::type_identity_t<Arguments>... arguments) {
  path.resize(path.size() + 10);
  function(path.data(), arguments...);
  return path.c_str();
}

TEST(PathName, TrailingBackslash) {
  EXPECT_EQ(Changed(FixToPathNameA, ""), "");
  EXPECT_EQ(Changed(FixToPathNameA, "C:\\a\\"), "C:\\a\\");
  EXPECT_EQ(Changed(FixToPathNameA, "C:\\a"), "C:\\a\\");
  EXPECT_EQ(Changed(FixToPathNameW, u"\u4E2D"), u"\u4E2D\\");
  EXPECT_EQ(Changed(FixToFileNameA, ""), "");
  EXPECT_EQ(Changed(FixToFileNameA, "C:\\a\\\\"), "C:\\a\\");
  EXPECT_EQ(Changed(FixToFileNameA, "C:\\a"), "C:\\a");
  EXPECT_EQ(Changed(FixToFileNameW, u"\u4E2D\\"), u"\u4E2D");
}

TEST(PathName, CombineAndAbsolute) {
  const auto combine = [](const char* folder, const char* name) {
    return Written(CombinePathNameA, CombinePathNameW, folder, name);
  };
  EXPECT_EQ(combine("C:\\a", "b.txt"), "C:\\a\\b.txt");
  EXPECT_EQ(combine("C:\\a\\", "b.txt"), "C:\\a\\b.txt");
  EXPECT_EQ(combine("", "b.txt"), "b.txt");
  EXPECT_EQ(combine(nullptr, "b.txt"), "b.txt");
  EXPECT_EQ(combine("C:\\a", nullptr), "C:\\a\\");
  EXPECT_EQ(combine("C:\\a", "\\b"), "C:\\a\\\\b");
  EXPECT_EQ(combine(nullptr, nullptr), "");
  const std::string folder(300, 'f');
  EXPECT_EQ(combine(folder.c_str(), "b"), folder.substr(0, 259));
  EXPECT_EQ(combine(folder.substr(0, 258).c_str(), "b"), folder.substr(0, 258) + "\\");
  EXPECT_EQ(combine(folder.substr(0, 250).c_str(), "123456789"),
            folder.substr(0, 250) + "\\12345678");
  EXPECT_EQ(CombinePathNameA(nullptr, "a", "b"), 0);
  char alias[260] = "name";
  CombinePathNameA(alias, "C:\\d", alias);
  EXPECT_STREQ(alias, "C:\\d\\name");

  EXPECT_EQ(Written(GetFileAbsolutePathA, GetFileAbsolutePathW, "D:\\x", "C:\\r"), "D:\\x");
  EXPECT_EQ(Written(GetFileAbsolutePathA, GetFileAbsolutePathW, "x", "C:\\r"), "C:\\r\\x");
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
    EXPECT_EQ(Written(GetFileParentDirA, GetFileParentDirW, each.path), each.parent);
    EXPECT_EQ(Written(GetFileShortNameA, GetFileShortNameW, each.path), each.name);
    std::string same = each.path;
    GetFileParentDirA(same.data(), same.data());
    EXPECT_STREQ(same.c_str(), each.parent);
  }
  const std::string path = std::string(255, 'p') + "\\" + std::string(20, 'n');
  EXPECT_EQ(Written(GetFileShortNameA, GetFileShortNameW, path.c_str()), "nnn");
  EXPECT_EQ(GetFileParentDirA(nullptr, "a"), 0);
  char dest[260];
  EXPECT_EQ(GetFileShortNameA(dest, nullptr), 0);
}

TEST(PathName, Extensions) {
  EXPECT_EQ(Changed(SetFileExtNameA, "a.txt", ".log"), "a.log");
  EXPECT_EQ(Changed(SetFileExtNameA, "a.txt", "log"), "alog");
  EXPECT_EQ(Changed(SetFileExtNameA, "a.txt", ""), "a");
  EXPECT_EQ(Changed(SetFileExtNameA, "a", ".log"), "a.log");
  EXPECT_EQ(Changed(SetFileExtNameA, "C:\\d.x\\a", ".log"), "C:\\d.log");
  EXPECT_EQ(Changed(SetFileExtNameW, u"a.txt", u".\u4E2D"), u"a.\u4E2D");
  SetFileExtNameA(nullptr, ".x");
  const struct {
    const char* path;
    int size;
    const char* extension;
  } cases[] = {
      {"a.b.txt", 10, "txt"}, {"a.txt", 3, "tx"}, {"a.txt", 1, ""}, {"a", 10, ""}, {"a.", 10, ""}};
  for (const auto& each : cases) {
    EXPECT_EQ(Written([&](char* ext, int size) { GetFileExtNameA(each.path, ext, size); },
                      [&](WCHAR* ext, int size) { GetFileExtNameW(Widened(each.path), ext, size); },
                      each.size),
              each.extension);
  }
  GetFileExtNameA("a.txt", nullptr, 5);
}

TEST(PathName, Relative) {
  const struct {
    const char* path;
    const char* root;
    const char* relative;
  } cases[] = {{"C:\\a\\b.txt", "C:\\A\\", "b.txt"},
               {"C:\\a", "C:\\a\\", ""},
               {"C:\\a\\", "C:\\a", ""},
               {"C:\\foobar\\x", "C:\\foo", "bar\\x"},
               {"C:\\a\\\\\\b", "C:\\a", "b"},
               {"C:\\b", "C:\\a", "C:\\b"},
               {"C:\\", "C:\\long", "C:\\"},
               {"C:\\[", "C:\\{", "C:\\["}};
  for (const auto& each : cases) {
    EXPECT_STREQ(GetFileRelativePathA(each.path, each.root), each.relative);
    const WideArgument path(each.path);
    EXPECT_EQ(GetFileRelativePathW(path, Widened(each.root)), WideText(each.relative));
  }
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
  const auto name = [](const char* ext, const char* prefix, int number) {
    return Written(GetFileNameByNumberA, GetFileNameByNumberW, ext, prefix, number);
  };
  EXPECT_EQ(name(".log", "a", 7), "a7.log");
  EXPECT_EQ(name("log", "a", -7), "a-7.log");
  EXPECT_EQ(name("", "a", 7), "a7.");
  EXPECT_EQ(name(nullptr, nullptr, 7), "7");
  EXPECT_EQ(name("x.y", std::string(300, 'p').c_str(), 7), std::string(259, 'p'));
  GetFileNameByNumberA(nullptr, "x", "a", 7);
}

TEST(PathName, ByDate) {
  tm local{};
  local.tm_isdst = -1;
  ASSERT_NE(strptime("2020-03-04 05:06:07", "%F %T", &local), nullptr);
  FaultPlan plan;
  plan.FakeClock(std::int64_t{mktime(&local)} * 1000000000 + 8000000);
  const auto name = [](auto... arguments) {
    return Written(GetFileNameByDateA, GetFileNameByDateW, arguments...);
  };
  EXPECT_EQ(name("txt", "p", "s", 0, 1, 1), "p2020_03_04_05_06_07_008s.txt");
  EXPECT_EQ(name("", "p", "s", 99, 0, 0), "p05_06_07s");
  EXPECT_EQ(name(nullptr, nullptr, nullptr, 0, 1, 0), "2020_03_04_05_06_07");
  EXPECT_EQ(name(".txt", "p", "s", 0, 0, 1), "p05_06_07_008s.txt");
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
  EXPECT_EQ(Written(GetFileNameByRandomA, GetFileNameByRandomW, "x", "p", -1), "p.x");
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
