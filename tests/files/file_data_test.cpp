#include "qvx/file_data.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "files/library_path.h"
#include "support/debug_lines.h"
#include "support/fault_plan.h"
#include "support/small_disk.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

namespace fs = std::filesystem;
using platform::Operation;

std::string ReadData(const std::string& native) {
  void* data = &data;
  const std::uint64_t size = ReadFileDataA(Library<char>(native).c_str(), &data);
  EXPECT_EQ(data == nullptr, size == 0);
  std::string content(size == 0 ? "" : static_cast<const char*>(data), size);
  ReleaseFileData(data);
  return content;
}

TEST(ReadFileData, GivesWholeRegularFilesOnly) {
  TempFolder folder;
  const std::string content("a\0b\r\n", 5);
  const std::string path = folder.Write("\u4E2D \\:*?\xFF", content);
  ASSERT_EQ(symlink(path.c_str(), folder.Path("link").c_str()), 0);
  EXPECT_EQ(ReadData(path), content);
  EXPECT_EQ(ReadData(folder.Path("link")), content);
  EXPECT_EQ(ReadFileDataA(Library<char>(path).c_str(), nullptr), 5u);
  EXPECT_EQ(ReadFileDataW(Library<char16_t>(path).c_str(), nullptr), 5u);
  EXPECT_EQ(ReadData(folder.Write("empty", "")), "");
  // The last is a regular file of size 0.
  for (const std::string& none : {folder.Path(), folder.Path("none"), std::string("/dev/zero"),
                                  std::string("/proc/self/status")}) {
    EXPECT_EQ(ReadData(none), "") << none;
  }
  EXPECT_EQ(ReadFileDataA(nullptr, nullptr), 0u);
  FaultPlan plan;
  plan.Shorten(Operation::kFileRead, 1, 3);
  EXPECT_EQ(ReadData(path), content);
  plan.Fail(Operation::kFileRead, 1, EIO);
  EXPECT_EQ(ReadData(path), "");
}

TEST(WriteFileData, ReplacesOrAppends) {
  TempFolder folder;
  const std::string native = folder.Path("\u4E2D");
  const std::string path = Library<char>(native);
  const std::u16string wide = Library<char16_t>(native);
  EXPECT_EQ(WriteFileDataA(path.c_str(), "ab", 2, 1), 1);
  EXPECT_EQ(WriteFileDataW(wide.c_str(), "cd", 2, 1), 1);
  EXPECT_EQ(ReadWhole(native), "abcd");
  EXPECT_EQ(WriteFileDataA(path.c_str(), "x", 0, 1), 1);
  EXPECT_EQ(ReadWhole(native), "abcd");
  EXPECT_EQ(WriteFileDataW(wide.c_str(), "e", 1, 0), 1);
  EXPECT_EQ(ReadWhole(native), "e");
  EXPECT_EQ(WriteFileDataA(path.c_str(), "x", 0, 0), 1);
  EXPECT_EQ(ReadWhole(native), "");
  EXPECT_EQ(WriteFileDataA(nullptr, "x", 1, 0) + WriteFileDataA(path.c_str(), nullptr, 0, 0), 0);
}

TEST(WriteFileData, LogsWhatItCouldNotOpen) {
  DebugLines log;
  EXPECT_EQ(WriteFileDataA("C:\\none\\f", "x", 1, 0), 0);
  EXPECT_EQ(WriteFileDataW(u"C:\\dev\\null", "x", 1, 1), 0);
  const std::string start = "WriteFile failed create file:C:\\";
  EXPECT_EQ(log.Count(3, start + "none\\f, error=No such file or directory\r\n"), 1);
  EXPECT_EQ(log.Count(3, start + "dev\\null, error=Invalid argument\r\n"), 1);
}

TEST(WriteFileData, LateFailuresGiveZero) {
  TempFolder folder;
  const std::string path = Library<char>(folder.Path("f"));
  FaultPlan plan;
  plan.Fail(Operation::kFileClose, 1, EIO);
  EXPECT_EQ(WriteFileDataA(path.c_str(), "abc", 3, 0), 0);
  const std::string result = OnSmallDisk(64, [](const std::string& disk) -> std::string {
    const std::string data(100000, 'x');
    const std::string target = Library<char>(disk + "/f");
    if (WriteFileDataA(target.c_str(), data.data(), data.size(), 0) != 0) return "written";
    return WriteFileDataA(target.c_str(), data.data(), 10, 0) == 1 ? "" : "small one failed";
  });
  if (result == kNoSmallDisk) GTEST_SKIP() << result;
  EXPECT_EQ(result, "");
}

TEST(IsFileDataEqual, LooksAtEveryByte) {
  TempFolder folder;
  const std::string content(3 * 0x100000, 'x');
  std::string other = content;
  other.back() = 'y';
  const auto equal = [](const std::string& one, const std::string& two) {
    return IsFileDataEqual(Library<char>(one).c_str(), Library<char>(two).c_str());
  };
  const std::string one = folder.Write("one", content);
  EXPECT_EQ(equal(one, one), 1);
  EXPECT_EQ(equal(one, folder.Write("same", content)), 1);
  EXPECT_EQ(equal(one, folder.Write("other", other)), 0);
  EXPECT_EQ(equal(one, folder.Write("longer", content + "x")), 0);
  EXPECT_EQ(equal(folder.Write("e1", ""), folder.Write("e2", "")), 1);
  EXPECT_EQ(equal(one, folder.Path("none")), 0);
  EXPECT_EQ(IsFileDataEqual(nullptr, Library<char>(one).c_str()), 0);
  FaultPlan plan;
  plan.Fail(Operation::kFileRead, 2, EIO);
  EXPECT_EQ(equal(one, folder.Path("same")), 0);
}

using Steps = std::vector<std::int64_t>;

class Recorder : public IFileCopyProgressListener {
 public:
  void OnFileCopyProgress(std::uint64_t userData, std::int64_t copied,
                          std::int64_t total) override {
    EXPECT_EQ(userData, 42u);
    EXPECT_EQ(total, expected_total);
    steps.push_back(copied);
  }
  std::int64_t expected_total = 0;
  Steps steps;
};

TEST(CopyFileWithCallback, TellsEachBlock) {
  TempFolder folder;
  const std::string target = folder.Write("target", "an older and longer text");
  const struct {
    int size;
    Steps steps;
  } cases[] = {
      {0, {}}, {1, {0, 1}}, {0x100000, {0, 0x100000}}, {0x100001, {0, 0x100000, 0x100001}}};
  for (const auto& each : cases) {
    const std::string content(static_cast<std::size_t>(each.size), 'x');
    const std::string source = folder.Write("source", content);
    Recorder recorder;
    recorder.expected_total = each.size;
    EXPECT_EQ(CopyFileWithCallback(Library<char>(source).c_str(), Library<char>(target).c_str(),
                                   &recorder, 42),
              1);
    EXPECT_TRUE(ReadWhole(target) == content);
    EXPECT_EQ(recorder.steps, each.steps);
  }
}

TEST(CopyFileWithCallback, FailuresGiveZero) {
  TempFolder folder;
  const std::string source = Library<char>(folder.Write("source", std::string(0x100001, 'x')));
  const std::string target = Library<char>(folder.Path("target"));
  const auto copy = [](const std::string& from, const std::string& to) {
    return CopyFileWithCallback(from.c_str(), to.c_str(), nullptr, 0);
  };
  EXPECT_EQ(CopyFileWithCallback(nullptr, target.c_str(), nullptr, 0), 0);
  EXPECT_EQ(CopyFileWithCallback(source.c_str(), nullptr, nullptr, 0), 0);
  EXPECT_EQ(copy(source, "C:\\none\\f"), 0);
  EXPECT_EQ(copy(source, source), 0);
  EXPECT_EQ(ReadWhole(folder.Path("source")).size(), 0x100001u);
  for (Operation operation :
       {Operation::kFileRead, Operation::kFileWrite, Operation::kFileClose, Operation::kFileSize}) {
    FaultPlan plan;
    plan.Fail(operation, 1, EIO);
    EXPECT_EQ(copy(source, target), 0);
  }
  EXPECT_EQ(copy(source, target), 1);
}

TEST(RemoveFile, KeepsToItsOptionsAndItsTree) {
  TempFolder folder;
  const std::string tree = folder.Path("tree");
  fs::create_directories(tree + "/sub/deeper");
  fs::create_directories(folder.Path("outside"));
  folder.Write("outside/kept.jpg", "outside");
  for (const char* name : {"tree/.a.JPG", "tree/sub/b.jpg", "tree/sub/deeper/c.txt"})
    folder.Write(name, "");
  ASSERT_EQ(symlink("../../outside", (tree + "/sub/link").c_str()), 0);
  ASSERT_EQ(symlink("../outside", (tree + "/link.jpg").c_str()), 0);
  const std::string narrow = Library<char>(tree);
  RemoveFileA("", nullptr, 1, 1);
  RemoveFileA(nullptr, nullptr, 1, 1);
  RemoveFileA((narrow + "\\none").c_str(), nullptr, 1, 1);
  RemoveFileA(narrow.c_str(), ".png;.jpg", 1, 1);
  EXPECT_FALSE(fs::exists(tree + "/.a.JPG") || fs::exists(tree + "/sub/b.jpg"));
  EXPECT_FALSE(fs::is_symlink(tree + "/link.jpg"));
  RemoveFileA(narrow.c_str(), nullptr, 1, 0);
  EXPECT_TRUE(fs::exists(tree + "/sub/deeper/c.txt"));
  {
    // What can't be opened goes where it is empty.
    const std::string unread = folder.Path("unread");
    fs::create_directories(unread + "/empty");
    FaultPlan plan;
    plan.Fail(Operation::kFileOpen, 2, EACCES);
    RemoveFileA(Library<char>(unread).c_str(), nullptr, 0, 1);
    EXPECT_TRUE(fs::exists(unread + "/empty"));
    plan.Fail(Operation::kFileOpen, 2, EACCES);
    RemoveFileA(Library<char>(unread).c_str(), nullptr, 1, 1);
    EXPECT_TRUE(fs::is_empty(unread));
  }
  RemoveFileW(Library<char16_t>(tree).c_str(), nullptr, 1, 1);
  EXPECT_TRUE(fs::is_empty(tree));
  EXPECT_EQ(ReadWhole(folder.Path("outside/kept.jpg")), "outside");
}

TEST(GetFileSystemTime, LocalTimes) {
  TempFolder folder;
  const std::string native = folder.Write("f", "x");
  const timespec times[2] = {{1000000000, 0}, {1200000000, 250000000}};
  ASSERT_EQ(utimensat(AT_FDCWD, native.c_str(), times, 0), 0);
  SYSTEMTIME creation{};
  SYSTEMTIME access{};
  SYSTEMTIME write{};
  ASSERT_EQ(GetFileSystemTimeA(Library<char>(native).c_str(), &creation, &access, &write), 1);
  tm local{};
  localtime_r(&times[1].tv_sec, &local);
  EXPECT_EQ(write.wYear, 2008);
  EXPECT_EQ(write.wHour, local.tm_hour);
  EXPECT_EQ(write.wDay, local.tm_mday);
  EXPECT_EQ(write.wMilliseconds, 250);
  EXPECT_EQ(creation.wYear, 2008);
  EXPECT_EQ(access.wYear, 2001);
  EXPECT_EQ(GetFileSystemTimeW(Library<char16_t>(native).c_str(), nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(GetFileSystemTimeW(Library<char16_t>(folder.Path()).c_str(), &write, nullptr, nullptr),
            0);
  EXPECT_EQ(GetFileSystemTimeA(nullptr, &write, nullptr, nullptr), 0);

  // The creation is the earlier of birth and last write.
  const timespec later[2] = {{4000000000, 0}, {4000000000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, native.c_str(), later, 0), 0);
  ASSERT_EQ(GetFileSystemTimeA(Library<char>(native).c_str(), &creation, nullptr, &write), 1);
  EXPECT_EQ(write.wYear, 2096);
  EXPECT_LT(creation.wYear, 2096);
}

TEST(FormatFileSize, Units) {
  const struct {
    std::uint64_t size;
    const char* text;
  } cases[] = {{0, "0 "},
               {1023, "1023 "},
               {1024, "1.00 K"},
               {1536, "1.50 K"},
               {0xFFFFF, "1024.00 K"},
               {0x100000, "1.00 M"},
               {0x40000000, "1.00 G"},
               {1099511627776, "1.00 T"},
               {UINT64_MAX, "16777216.00 T"}};
  for (const auto& each : cases) {
    CBaseStringA narrow("1.00 k");
    CBaseStringW wide(u"1.00 k");
    FormatFileSizeA(each.size, &narrow);
    FormatFileSizeW(each.size, &wide);
    EXPECT_STREQ(narrow.GetString(), each.text);
    EXPECT_EQ(wide.GetString(), WideText(each.text));
  }
  FormatFileSizeA(1, nullptr);
}

}  // namespace
}  // namespace qvx::test
