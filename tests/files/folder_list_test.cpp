#include "qvx/folder_list.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "files/library_path.h"
#include "qvx/platform.h"
#include "qvx/ptr_array.h"
#include "qvx/ptr_list.h"
#include "support/failing_new.h"
#include "support/small_disk.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

Names Sorted(Names names) {
  std::sort(names.begin(), names.end());
  return names;
}

template <typename C>
std::basic_string<C> TextAt(CPtrCtrl& list, int index) {
  return static_cast<const C*>(list.GetAt(index));
}

Names Texts(CPtrCtrl& list) {
  Names texts;
  for (int i = 0; i < list.GetCount(); ++i) texts.push_back(TextAt<char>(list, i));
  return texts;
}

struct Lists {
  Names folders;
  Names files;
};

Lists List(const std::string& native, const char* filter, int hidden, int full) {
  CPtrListCtrl folders;
  CPtrArrayCtrl files;
  GetLocalFolderFileListA(Library<char>(native).c_str(), &folders, &files, filter, hidden, full);
  Lists lists{Sorted(Texts(folders)), Sorted(Texts(files))};
  FreeFileListA(&folders);
  FreeFileListA(&files);
  EXPECT_EQ(folders.GetCount() + files.GetCount(), 0);
  return lists;
}

TEST(FolderList, KindsHiddenAndFullPaths) {
  TempFolder folder;
  fs::create_directories(folder.Path("sub"));
  fs::create_directories(folder.Path(".hidden_sub"));
  folder.Write("\u4E2D \\:*?\xFF", "");
  folder.Write(".hidden", "");
  ASSERT_EQ(symlink("sub", folder.Path("link").c_str()), 0);
  ASSERT_EQ(symlink("none", folder.Path("dangling").c_str()), 0);
  ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink("fifo", folder.Path("to_fifo").c_str()), 0);
  ASSERT_EQ(symlink("/dev/null", folder.Path("to_device").c_str()), 0);
  const std::string odd = Library<char>("\u4E2D \\:*?\xFF");
  Lists lists = List(folder.Path(), nullptr, 0, 0);
  EXPECT_EQ(lists.folders, (Names{"sub"}));
  EXPECT_EQ(lists.files, Sorted({odd, "dangling", "link"}));
  lists = List(folder.Path(), "", 1, 1);
  const std::string base = Library<char>(folder.Path()) + "\\";
  EXPECT_EQ(lists.folders, (Names{base + ".hidden_sub", base + "sub"}));
  EXPECT_EQ(lists.files, Sorted({base + ".hidden", base + odd, base + "dangling", base + "link"}));
  EXPECT_EQ(List(folder.Path("none"), nullptr, 1, 1).files, Names());
  EXPECT_EQ(List(folder.Path("dangling"), nullptr, 1, 1).files, Names());
}

TEST(FolderList, Filter) {
  TempFolder folder;
  for (const char* name : {"a.TXT", "b", "c.tx", ".txt", "d.abc.txt", "e.txt."}) {
    folder.Write(name, "");
  }
  fs::create_directories(folder.Path("sub"));
  const auto files = [&folder](const char* filter) {
    const Lists lists = List(folder.Path(), filter, 1, 0);
    EXPECT_EQ(lists.folders, (Names{"sub"}));
    return lists.files;
  };
  EXPECT_EQ(files(".txt"), (Names{".txt", "a.TXT", "d.abc.txt"}));
  EXPECT_EQ(files(".png;.txt;.x"), (Names{".txt", "a.TXT", "d.abc.txt"}));
  EXPECT_EQ(files(".abc.txt;.txt"), Names());  // only the first place counts
  EXPECT_EQ(files(".txt;.abc.txt"), (Names{".txt", "a.TXT", "d.abc.txt"}));
  EXPECT_EQ(files("txt"), Names());
  EXPECT_EQ(files(".tx;"), (Names{"c.tx"}));
  CPtrListCtrl both;
  GetLocalFolderFileListA(Library<char>(folder.Path()).c_str(), &both, &both, ".tx", 1, 0);
  EXPECT_EQ(Sorted(Texts(both)), (Names{"c.tx", "sub"}));
  FreeFileListA(&both);
}

TEST(FolderList, ListsAreEmptiedAndMayBeMissingAndWide) {
  TempFolder folder;
  fs::create_directories(folder.Path("sub"));
  const std::string file = folder.Write("\u4E2D \\:*?\xFF", "");
  const std::string path = Library<char>(folder.Path());
  int kept = 0;
  CPtrListCtrl folders;
  CPtrListCtrl files;
  folders.AddData(&kept, -1);
  GetLocalFolderFileListA(nullptr, &folders, nullptr, nullptr, 1, 0);
  EXPECT_EQ(folders.GetCount(), 0);
  GetLocalFolderFileListA(path.c_str(), nullptr, &files, nullptr, 1, 1);
  EXPECT_EQ(Texts(files), Names{Library<char>(file)});
  GetLocalFolderFileListA(path.c_str(), &folders, nullptr, nullptr, 1, 0);
  EXPECT_EQ(Texts(folders), Names{"sub"});
  GetSubFolderFileListA(path.c_str(), "", nullptr, nullptr, 1, 1);
  FreeFileListA(&files);
  FreeFileListA(&folders);
  FreeFileListA(nullptr);
  GetLocalFolderFileListW(WideText(path).c_str(), &folders, &files, nullptr, 0, 1);
  EXPECT_EQ(TextAt<char16_t>(files, 0), Library<char16_t>(file));
  EXPECT_EQ(TextAt<char16_t>(folders, 0), Library<char16_t>(folder.Path("sub")));
  FreeFileListW(&folders);
  FreeFileListW(&files);
}

class Recorder : public ISkippedEntryListener {
 public:
  Recorder() : before_(GetSkippedEntryListener(&data_before_)) { SetSkippedEntryListener(this, 7); }
  ~Recorder() override { SetSkippedEntryListener(before_, data_before_); }
  void OnEntrySkipped(std::uint64_t userData, const WCHAR* path, int reason) override {
    EXPECT_EQ(userData, 7u);
    skipped[platform::ToNativePath(std::u16string_view(path)).value()] = reason;
  }
  std::map<std::string, int> skipped;

 private:
  std::uint64_t data_before_ = 0;
  ISkippedEntryListener* before_;
};

using Skipped = std::map<std::string, int>;

TEST(FolderList, TellsWhatIsLeftOut) {
  TempFolder folder;
  std::string deep = folder.Path();
  while (deep.size() < 240) deep += "/" + std::string(9, 'd');
  fs::create_directories(deep);
  const std::string fits(256 - deep.size(), 'n');
  const std::string too_long = fits + "n";
  WriteFile(deep + "/" + fits, "");
  WriteFile(deep + "/" + too_long, "");
  WriteFile(deep + "/.h", "");
  ASSERT_EQ(mkfifo((deep + "/p").c_str(), 0600), 0);
  Recorder recorder;
  EXPECT_EQ(List(deep, nullptr, 0, 1).files, (Names{Library<char>(deep + "/" + fits)}));
  EXPECT_EQ(recorder.skipped, (Skipped{{deep + "/" + too_long, kSkippedTooLong},
                                       {deep + "/.h", kSkippedHidden},
                                       {deep + "/p", kSkippedSpecial}}));
  recorder.skipped.clear();
  EXPECT_EQ(List(deep, nullptr, 1, 0).files.size(), 3u);
  EXPECT_EQ(recorder.skipped, (Skipped{{deep + "/p", kSkippedSpecial}}));
  { Recorder inner; }  // puts the other back
  ReportSkippedEntry(u"C:\\a", u"b", kSkippedFailed);
  EXPECT_EQ(recorder.skipped["/a/b"], kSkippedFailed);
}

TEST(FolderList, NarrowNamesThatTheCodePageLacksAreLeftOut) {
  TempFolder folder;
  folder.Write("\u4E2D", "");
  folder.Write("\U0001F600", "");
  ASSERT_EQ(SetAnsiCodePage(936), 1);
  Recorder recorder;
  const Names files = List(folder.Path(), nullptr, 1, 0).files;
  SetAnsiCodePage(65001);
  EXPECT_EQ(files, (Names{"\xD6\xD0"}));
  EXPECT_EQ(recorder.skipped, (Skipped{{folder.Path("\U0001F600"), kSkippedNoNarrowForm}}));
}

TEST(FolderList, SubFoldersComeAheadOfTheirParentsFiles) {
  TempFolder folder;
  fs::create_directories(folder.Path("r/s/t"));
  folder.Write("r/a.txt", "");
  folder.Write("r/s/b.txt", "");
  folder.Write("r/s/t/c.txt", "");
  folder.Write("r/s/t/c.log", "");
  const std::string root = Library<char>(folder.Path());
  const std::string base = root + "\\r\\";
  CPtrListCtrl list;
  GetSubFolderFileListA(root.c_str(), "r", &list, ".txt", 1, 1);
  EXPECT_EQ(Texts(list), (Names{base + "s\\t\\c.txt", base + "s\\b.txt", base + "a.txt"}));
  GetSubFolderFileListA(root.c_str(), "r", &list, nullptr, 1, 0);
  EXPECT_EQ(list.GetCount(), 4);
  FreeFileListA(&list);
  GetSubFolderFileListW(WideText(root).c_str(), u"r", &list, u".log", 1, 1);
  EXPECT_EQ(TextAt<char16_t>(list, 0), WideText(base + "s\\t\\c.log"));
  FreeFileListW(&list);
  GetSubFolderFileListA(root.c_str(), std::string(300, 'x').c_str(), &list, nullptr, 1, 1);
  EXPECT_EQ(list.GetCount(), 0);
}

TEST(FindFile, InOneFolder) {
  TempFolder folder;
  folder.Write("a.txt", "");
  folder.Write(".h", "");
  fs::create_directories(folder.Path("sub"));
  const std::string path = Library<char>(folder.Path());
  const struct {
    const char* name;
    int hidden;
    int found;
  } cases[] = {{"a.txt", 0, 1}, {"A.TXT", 0, 0}, {"*.txt", 0, 0}, {"sub", 0, 1}, {".h", 0, 0},
               {".h", 1, 1},    {".", 1, 0},     {"..", 1, 0},    {"", 1, 0},    {nullptr, 1, 0}};
  for (const auto& each : cases) {
    EXPECT_EQ(FindFileInFolderA(path.c_str(), each.name, each.hidden), each.found);
  }
  EXPECT_EQ(FindFileInFolderW(WideText(path).c_str(), u"a.txt", 0), 1);
  EXPECT_EQ(FindFileInFolderA(nullptr, "a", 1), 0);
}

TEST(FindFile, InATree) {
  TempFolder folder;
  fs::create_directories(folder.Path("r/s/t"));
  folder.Write("r/s/t/deep", "");
  folder.Write("r/s/f", "");
  folder.Write("r/s/t/f", "");
  ASSERT_EQ(symlink("s", folder.Path("r/link").c_str()), 0);
  const std::string root = Library<char>(folder.Path());
  char found[260] = "untouched";
  EXPECT_EQ(FindFileInSubFolderA(root.c_str(), "r", "f", 0, 0, found), 0);
  EXPECT_STREQ(found, "untouched");
  EXPECT_EQ(FindFileInSubFolderA(root.c_str(), "r", "f", 0, 1, found), 1);
  EXPECT_EQ(found, root + "\\r\\s\\f");
  EXPECT_EQ(FindFileInSubFolderA(root.c_str(), "r", "deep", 0, 1, nullptr), 1);
  EXPECT_EQ(FindFileInSubFolderA(root.c_str(), "r", "none", 0, 1, found), 0);
  WCHAR wide[260];
  EXPECT_EQ(FindFileInSubFolderW(WideText(root).c_str(), u"r\\s", u"t", 0, 0, wide), 1);
  EXPECT_EQ(wide, WideText(root) + u"\\r\\s\\t");
}

TEST(FolderTree, CreatingParents) {
  TempFolder folder;
  const std::string path = Library<char>(folder.Path());
  folder.Write("file", "");
  for (const char* name : {"\\a\\b\\c\\", "\\a\\b\\c\\", "\\file\\x"}) {
    RecursiveCreateDirectoryA((path + name).c_str());
  }
  RecursiveCreateDirectoryW(WideText(path + "/a/x").c_str());
  EXPECT_TRUE(fs::is_directory(folder.Path("a/b/c")));
  EXPECT_TRUE(fs::is_directory(folder.Path("a/x")));
  for (const char* nothing : {"C:\\", "C:", "", "D:\\x", "C:\\a*\\b"}) {
    RecursiveCreateDirectoryA(nothing);
  }
  RecursiveCreateDirectoryA(nullptr);
  // Longer than the library's own paths: all of it is made, not a folder with a cut name.
  std::string deep = folder.Path();
  for (int i = 0; i < 30; ++i) deep += "/" + std::string(19, 'd');
  RecursiveCreateDirectoryA(Library<char>(deep).c_str());
  EXPECT_TRUE(fs::is_directory(deep));
}

TEST(FolderTree, Copying) {
  TempFolder folder;
  fs::create_directories(folder.Path("source/sub/empty"));
  folder.Write("source/.hidden", "1");
  folder.Write("source/sub/\u4E2D:", "2");
  ASSERT_EQ(mkfifo(folder.Path("source/sub/p").c_str(), 0600), 0);
  Recorder recorder;
  RecursiveCopyDirectoryA(Library<char>(folder.Path("source")).c_str(),
                          Library<char>(folder.Path("x/target")).c_str());
  EXPECT_EQ(ReadWhole(folder.Path("x/target/.hidden")), "1");
  EXPECT_EQ(ReadWhole(folder.Path("x/target/sub/\u4E2D:")), "2");
  EXPECT_EQ(recorder.skipped, (Skipped{{folder.Path("source/sub/p"), kSkippedSpecial}}));
  RecursiveCopyDirectoryW(Library<char16_t>(folder.Path("source/sub/empty")).c_str(),
                          Library<char16_t>(folder.Path("y")).c_str());
  EXPECT_TRUE(fs::is_empty(folder.Path("y")));
}

std::size_t OpenDescriptors() {
  const fs::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

// Makes each allocation of a call fail in turn, until none is left to fail.
template <typename Call>
void WithEachAllocationFailing(Call call) {
  const std::size_t descriptors = OpenDescriptors();
  for (int first = 1, failed = 1; failed != 0; ++first) {
    try {
      FailingAllocations failing(first);
      call();
      failed = failing.Seen() >= first;
    } catch (const std::bad_alloc&) {
    }
    ASSERT_EQ(OpenDescriptors(), descriptors);
  }
}

TEST(OutOfMemory, ListsStayWholeAndCopiesLeaveNoTemporary) {
  TempFolder folder;
  fs::create_directories(folder.Path("a_folder_with_a_name/another_one"));
  folder.Write("a_folder_with_a_name/a_file_with_a_longer_name.txt", "x");
  folder.Write("a_folder_with_a_name/another_one/a_file_with_a_name.txt", "content");
  const std::string root = Library<char>(folder.Path());
  CPtrListCtrl list;
  WithEachAllocationFailing([&] {
    FreeFileListA(&list);
    GetSubFolderFileListA(root.c_str(), "a_folder_with_a_name", &list, ".txt", 1, 1);
  });
  EXPECT_EQ(list.GetCount(), 2);
  FreeFileListA(&list);

  const std::string source = root + "\\a_folder_with_a_name";
  const std::string target = root + "\\copy";
  WithEachAllocationFailing([&] { RecursiveCopyDirectoryA(source.c_str(), target.c_str()); });
  const fs::recursive_directory_iterator copied(folder.Path("copy"));
  EXPECT_EQ(std::distance(begin(copied), end(copied)), 3);
  EXPECT_EQ(ReadWhole(folder.Path("copy/another_one/a_file_with_a_name.txt")), "content");
}

}  // namespace
}  // namespace qvx::test
