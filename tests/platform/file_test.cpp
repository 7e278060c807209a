#include "platform/file.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "platform/path.h"
#include "support/fault_plan.h"
#include "support/packet_bytes.h"
#include "support/temp_folder.h"

namespace qvx::platform {
namespace {

namespace fs = std::filesystem;
using test::FaultPlan;
using test::ReadWhole;
using test::TempFolder;

std::string FlagsOf(const std::string& text) {
  const auto mode = ParseOpenMode(text);
  if (!mode) return "none";
  std::string flags;
  if (mode->read) flags += 'r';
  if (mode->write) flags += 'w';
  if (mode->append) flags += 'a';
  if (mode->create) flags += 'c';
  if (mode->truncate) flags += 't';
  if (mode->exclusive) flags += 'x';
  return flags;
}

TEST(FileMode, Texts) {
  const struct {
    const char* text;
    const char* flags;
  } cases[] = {{"r", "r"},      {"rb", "r"},     {"r+b", "rw"},   {"rb+", "rw"},
               {"w", "wct"},    {"wt+", "rwct"}, {"wbx", "wctx"}, {"w+x", "rwctx"},
               {"ab+", "rwac"}, {"a", "wac"},    {"", "none"},    {"b", "none"},
               {"rw", "none"},  {"rbt", "none"}, {"r++", "none"}, {"rx", "none"},
               {"ax", "none"},  {"r ", "none"},  {"R", "none"},   {"rb,ccs=UTF-8", "none"}};
  for (const auto& each : cases) EXPECT_EQ(FlagsOf(each.text), each.flags) << each.text;
  EXPECT_TRUE(ParseOpenMode(u"ab+"));
  EXPECT_FALSE(ParseOpenMode(u"\u4E2D"));
}

using Names = std::vector<std::string>;

Names NamesIn(const std::string& folder) {
  Names names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

TEST(File, OnlyRegularFilesOpenAndNobodyWaits) {
  TempFolder folder;
  ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink("fifo", folder.Path("to_fifo").c_str()), 0);
  ASSERT_EQ(mkdir(folder.Path("sub").c_str(), 0700), 0);
  ASSERT_EQ(mknod(folder.Path("socket").c_str(), S_IFSOCK | 0600, 0), 0);
  for (const char* mode : {"rb", "wb", "ab+", "r+b"}) {
    for (const char* name : {"fifo", "to_fifo", "sub", "socket"}) {
      const FaultPlan plan;
      File file;
      EXPECT_FALSE(file.OpenNative(folder.Path(name), *ParseOpenMode(mode))) << name << mode;
      EXPECT_EQ(errno, std::string(name) == "sub" ? EISDIR : EINVAL) << name << mode;
      // It was never opened: a writer that waits at a FIFO must not be let in and left alone.
      EXPECT_EQ(plan.Calls(Operation::kFileClose), 0) << name << mode;
    }
    File device;
    EXPECT_FALSE(device.OpenNative("/dev/null", *ParseOpenMode(mode)));
  }
}

TEST(File, LibraryPathsModesAndExclusiveNames) {
  TempFolder folder;
  const std::string native = folder.Write("\u4E2D:\\*.bin", "abc");
  const std::string narrow = *FromNativePath<char>(native);
  File file;
  ASSERT_TRUE(file.Open(FromNativePath<char16_t>(native)->c_str(), u"rb"));
  EXPECT_EQ(fcntl(file.Descriptor(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_FALSE(file.Open(narrow.c_str(), "wbx"));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_FALSE(file.IsOpen());
  const char* none = nullptr;
  EXPECT_FALSE(file.Open(none, "rb"));
  EXPECT_FALSE(file.Open(narrow.c_str(), none));
  EXPECT_EQ(ReadWhole(native), "abc");
}

TEST(File, TransfersGoOnAfterInterruptsAndShortSteps) {
  TempFolder folder;
  const std::string data = test::Pattern(10000);
  FaultPlan plan;
  File file;
  ASSERT_TRUE(file.OpenNative(folder.Path("f"), *ParseOpenMode("w+b")));
  plan.Fail(Operation::kFileWrite, 1, EINTR, 2);
  EXPECT_EQ(file.WriteAt(0, data.data(), 5000).count, 5000u);
  plan.Shorten(Operation::kFileWrite, 1, 13, 10);
  EXPECT_EQ(file.WriteAt(5000, data.data() + 5000, 5000).count, 5000u);
  EXPECT_EQ(plan.Calls(Operation::kFileWrite), 14);
  std::string read(data.size() + 10, '\0');
  plan.Fail(Operation::kFileRead, 1, EINTR);
  Transfer got = file.ReadAt(0, read.data(), read.size());
  EXPECT_EQ(got.count, data.size());
  EXPECT_EQ(got.error, 0);
  EXPECT_EQ(read.substr(0, data.size()), data);
  plan.Shorten(Operation::kFileRead, 1, 13, 1000);
  got = file.ReadAt(5000, read.data(), 3000);
  EXPECT_EQ(got.count, 3000u);
  EXPECT_EQ(read.substr(0, 3000), data.substr(5000, 3000));
  plan.Fail(Operation::kFileRead, 1, EIO);
  EXPECT_EQ(file.ReadAt(0, read.data(), 10).error, EIO);
  plan.Fail(Operation::kFileWrite, 1, ENOSPC);
  EXPECT_EQ(file.WriteAt(0, data.data(), 10).error, ENOSPC);
  EXPECT_EQ(file.Size(), 10000);
}

TEST(File, AppendIgnoresOffsetsAndCloseReports) {
  TempFolder folder;
  const std::string path = folder.Write("f", "abc");
  File file;
  ASSERT_TRUE(file.OpenNative(path, *ParseOpenMode("ab+")));
  EXPECT_EQ(file.WriteAt(0, "de", 2).count, 2u);
  char first = 0;
  EXPECT_EQ(file.ReadAt(0, &first, 1).count, 1u);
  EXPECT_EQ(first, 'a');
  FaultPlan plan;
  plan.Fail(Operation::kFileClose, 1, ENOSPC);
  const int descriptor = file.Descriptor();
  EXPECT_FALSE(file.Close());
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(ReadWhole(path), "abcde");
}

TEST(FileNames, KindsAndAttributes) {
  TempFolder folder;
  ASSERT_EQ(mkdir(folder.Path(".d").c_str(), 0700), 0);
  ASSERT_EQ(symlink(".d", folder.Path("to_folder").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", folder.Path("dangling").c_str()), 0);
  ASSERT_EQ(symlink("/dev/null", folder.Path("to_device").c_str()), 0);
  const std::string file = folder.Write("f", "");
  const std::string locked = folder.Write(".locked", "");
  ASSERT_EQ(chmod(locked.c_str(), 0444), 0);
  EXPECT_EQ(KindOf(folder.Path("to_folder")), EntryKind::kFolder);
  EXPECT_EQ(KindAt(AT_FDCWD, folder.Path("to_folder").c_str()), EntryKind::kFile);
  EXPECT_EQ(KindOf(folder.Path("dangling")), EntryKind::kFile);
  EXPECT_EQ(KindAt(AT_FDCWD, folder.Path("to_device").c_str()), EntryKind::kSpecial);
  EXPECT_EQ(AttributesOf(file), 0x20u);
  EXPECT_EQ(AttributesOf(folder.Path(".d")), 0x12u);
  EXPECT_EQ(AttributesOf(locked), 0x3u);
  EXPECT_EQ(AttributesOf("/"), 0x10u);
  EXPECT_EQ(AttributesOf(folder.Path("none")), kNoAttributes);
  EXPECT_EQ(AttributesOf("/dev/null"), kNoAttributes);
}

TEST(FileNames, DeletingTakesFilesAndLinksOnly) {
  TempFolder folder;
  folder.Write("target", "kept");
  ASSERT_EQ(symlink("target", folder.Path("link").c_str()), 0);
  ASSERT_EQ(mkdir(folder.Path("sub").c_str(), 0700), 0);
  ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), 0600), 0);
  EXPECT_TRUE(DeleteName(folder.Path("link")));
  EXPECT_FALSE(DeleteName(folder.Path("sub")));
  EXPECT_FALSE(DeleteName(folder.Path("fifo")));
  EXPECT_FALSE(DeleteName(folder.Path("none")));
  EXPECT_EQ(NamesIn(folder.Path()), (Names{"fifo", "sub", "target"}));
}

// The ways in which a move is made; the first is what the system offers, the others are forced.
class Move : public testing::TestWithParam<int> {
 protected:
  void Begin() {
    if (GetParam() != 0) plan_.Fail(Operation::kFileRename, 1, GetParam());
  }
  TempFolder folder_;
  FaultPlan plan_;
};

TEST_P(Move, NeverReplacesAndTakesContentModeAndTime) {
  const std::string from = folder_.Write("from", "new");
  const std::string to = folder_.Write("to", "old");
  ASSERT_EQ(chmod(from.c_str(), 0646), 0);
  const timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, from.c_str(), old, 0), 0);
  ASSERT_EQ(symlink("nowhere", folder_.Path("dangling").c_str()), 0);
  for (const std::string& target : {to, folder_.Path("dangling")}) {
    Begin();
    EXPECT_FALSE(MoveWithoutOverwrite(from, target));
    EXPECT_EQ(errno, EEXIST);
  }
  EXPECT_EQ(ReadWhole(to), "old");
  EXPECT_EQ(ReadWhole(from), "new");
  EXPECT_EQ(NamesIn(folder_.Path()), (Names{"dangling", "from", "to"}));
  ASSERT_EQ(unlink(to.c_str()), 0);
  Begin();
  EXPECT_TRUE(MoveWithoutOverwrite(from, to));
  EXPECT_EQ(ReadWhole(to), "new");
  EXPECT_EQ(NamesIn(folder_.Path()), (Names{"dangling", "to"}));
  struct stat status;
  ASSERT_EQ(stat(to.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0646u);
  EXPECT_EQ(status.st_mtime, 1000000000);
}

TEST_P(Move, TakesLinksAsLinksAndFoldersWithinAFileSystem) {
  ASSERT_EQ(symlink("nowhere", folder_.Path("link").c_str()), 0);
  ASSERT_EQ(mkdir(folder_.Path("sub").c_str(), 0700), 0);
  folder_.Write("sub/f", "x");
  ASSERT_EQ(mkdir(folder_.Path("empty").c_str(), 0700), 0);
  Begin();
  EXPECT_TRUE(MoveWithoutOverwrite(folder_.Path("link"), folder_.Path("moved")));
  EXPECT_EQ(fs::read_symlink(folder_.Path("moved")), "nowhere");
  Begin();
  EXPECT_FALSE(MoveWithoutOverwrite(folder_.Path("sub"), folder_.Path("empty")));
  Begin();
  EXPECT_EQ(MoveWithoutOverwrite(folder_.Path("sub"), folder_.Path("sub2")), GetParam() != EXDEV);
  EXPECT_EQ(NamesIn(folder_.Path()),
            (Names{"empty", "moved", GetParam() == EXDEV ? "sub" : "sub2"}));
}

INSTANTIATE_TEST_SUITE_P(Ways, Move, testing::Values(0, EINVAL, EXDEV));

TEST(MoveAcross, RealFileSystems) {
  if (access("/dev/shm", W_OK) != 0) GTEST_SKIP() << "no second file system at /dev/shm";
  TempFolder here;
  TempFolder there("/dev/shm");
  struct stat one;
  struct stat two;
  ASSERT_EQ(stat(here.Path().c_str(), &one) | stat(there.Path().c_str(), &two), 0);
  if (one.st_dev == two.st_dev) GTEST_SKIP() << "/dev/shm is the same file system";
  const std::string from = here.Write("f", std::string(3000000, 'x'));
  EXPECT_TRUE(MoveWithoutOverwrite(from, there.Path("f")));
  EXPECT_EQ(ReadWhole(there.Path("f")).size(), 3000000u);
  EXPECT_EQ(NamesIn(here.Path()).size(), 0u);
  EXPECT_EQ(NamesIn(there.Path()), (Names{"f"}));
}

TEST(FileCopy, AFailureAtAnyStepLeavesTheOldFileAndNothingElse) {
  TempFolder folder;
  const std::string from = folder.Write("from", std::string(2500000, 'n'));
  const std::string to = folder.Write("to", "old");
  const std::pair<Operation, int> steps[] = {{Operation::kFileOpen, 1},  {Operation::kFileOpen, 2},
                                             {Operation::kFileSize, 1},  {Operation::kFileRead, 2},
                                             {Operation::kFileWrite, 3}, {Operation::kFileClose, 1},
                                             {Operation::kFileRename, 1}};
  for (const auto& [operation, call] : steps) {
    FaultPlan plan;
    plan.Fail(operation, call, EIO);
    EXPECT_FALSE(CopyFileContent(from, to));
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(ReadWhole(to), "old");
    EXPECT_EQ(NamesIn(folder.Path()), (Names{"from", "to"}));
  }
  EXPECT_TRUE(CopyFileContent(from, to));
  EXPECT_EQ(ReadWhole(to), ReadWhole(from));
}

}  // namespace
}  // namespace qvx::platform
