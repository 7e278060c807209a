#include "qvx/zipper.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "archive/archive_support.h"
#include "qvx/platform.h"
#include "support/debug_lines.h"
#include "support/fault_plan.h"

namespace qvx::test {
namespace {

using platform::Operation;

// Reaches what derived classes may use.
struct Derived : CZipper {
  using CZipper::CZipper;
  using CZipper::PrepareSourcePath;
};

class Zipper : public ArchiveTest {
 protected:
  // The names in an archive, by our own reader, joined by "|".
  std::string Names(const std::string& archive = "out.zip") const {
    CUnzipper unzipper(Path(archive).c_str());
    std::string names;
    UZ_FileInfo info;
    for (int i = 0; i < unzipper.GetFileCount(); ++i) {
      unzipper.GetFileInfo(i, info);
      names += (i == 0 ? "" : "|") + std::string(info.fileName);
    }
    return names;
  }

  const std::string archive_ = Path("out.zip");
  const std::string root_ = Lib(temp_.Path());
};

TEST_F(Zipper, OtherProgramsReadATree) {
  MakeSampleTree(temp_, "tree");
  Put(temp_, "tree/.hidden", "left out");
  Put(temp_, "elsewhere/file", "outside");
  fs::create_symlink(Native("tree/one"), Native("tree/link"));
  fs::create_symlink(Native("elsewhere"), Native("tree/folder link"));
  mkfifo(Native("tree/fifo").c_str(), 0600);
  const timespec old[2] = {{1234567891, 0}, {1234567891, 0}};
  utimensat(AT_FDCWD, Native("tree/one").c_str(), old, 0);
  Recorder recorder;
  CZipper zipper(archive_.c_str(), root_.c_str(), false);
  zipper.SetProgressListener(&recorder);
  EXPECT_TRUE(zipper.AddFolderToZip("tree", false));
  Z_FileInfo info;
  zipper.GetFileInfo(info);
  EXPECT_EQ(7, info.fileCount);
  EXPECT_EQ(5, info.folderCount);
  EXPECT_EQ(2 * 700000u + 256 * 1024 + 2 * 1024 * 1024 + 11, info.uncompressedSize);
  EXPECT_TRUE(zipper.CloseZip());
  EXPECT_EQ(3u, recorder.skipped.size());
  EXPECT_FALSE(recorder.last.empty());

  const auto time = fs::last_write_time(Native("tree"));
  for (const char* skipped : {"tree/.hidden", "tree/fifo", "tree/folder link"}) {
    fs::remove(Native(skipped));
  }
  fs::last_write_time(Native("tree"), time);
  const std::string archive = Native("out.zip");
  EXPECT_EQ(0, RunPeer("check " + archive + " " + Native("tree")));
  EXPECT_EQ(0, RunCommand("LC_ALL=C.UTF-8 7z x " + archive + " -o" + Native("seven")));
  // It takes backslashes for what they are, and warns.
  EXPECT_EQ(1, RunCommand("LC_ALL=C.UTF-8 unzip -q " + archive + " -d " + Native("theirs")));
  EXPECT_TRUE(Unpack(archive_, "ours"));
  fs::create_directory(Native("packed"));
  fs::rename(Native("tree"), Native("packed/tree"));
  fs::remove(Native("packed/tree/link"));
  Put(temp_, "packed/tree/link", "1");
  for (const char* unpacked : {"seven", "theirs", "ours"}) {
    EXPECT_EQ(TreeIn("packed"), TreeIn(unpacked)) << unpacked;
  }
  struct stat status;
  stat(Native("ours/tree/one").c_str(), &status);
  EXPECT_EQ(1234567890, status.st_mtime);
}

TEST_F(Zipper, StoredNames) {
  Put(temp_, "in/f.txt", "f");
  Put(temp_, "in/sub.d/g", "g");
  Put(temp_, "in/other.d/back\\slash", "b");
  Put(temp_, "other", "o");
  const std::string in = Path("in");
  const auto file = [](const char* path, bool bare) {
    return [=](CZipper& zipper) { return zipper.AddFileToZip(path, bare); };
  };
  const auto placed = [](const char* path, const char* folder) {
    return [=](CZipper& zipper) { return zipper.AddFileToZip(path, folder); };
  };
  const auto folder = [](const char* path, bool bare) {
    return [=](CZipper& zipper) { return zipper.AddFolderToZip(path, bare); };
  };
  const std::string absolute = in + "\\f.txt";
  const std::string upper = "c:" + in.substr(2) + "\\f.txt";
  const std::string outside = Path("other");
  const struct {
    std::function<bool(CZipper&)> add;
    const char* names;  // null for a failure
  } cases[] = {
      {file("f.txt", false), "f.txt"},
      {file(".\\sub.d\\g", false), "sub.d\\g"},
      {file("sub.d\\g", true), "g"},
      {file("..\\other", false), nullptr},
      {file(".\\..\\other", false), nullptr},
      {file("..\\other", true), "other"},
      {file(absolute.c_str(), false), "f.txt"},
      {file(upper.c_str(), false), "f.txt"},
      {file(outside.c_str(), false), nullptr},
      {file(outside.c_str(), true), "other"},
      {file("absent", false), nullptr},
      {file("sub.d", false), nullptr},
      {file("", false), nullptr},
      {file(nullptr, false), nullptr},
      {file("other.d\\back\xEF\x81\x9Cslash", true), "back\xEF\x81\x9Cslash"},
      {placed("sub.d\\g", "x\\y"), "x\\y\\g"},
      {placed("sub.d\\g", "\\x\\"), "x\\g"},
      {placed("sub.d\\g", nullptr), "g"},
      {placed("sub.d\\g", ""), "g"},
      {placed("f.txt", "C:\\x"), nullptr},
      {placed("f.txt", "..\\x"), nullptr},
      {folder("other.d", false), "other.d\\|other.d\\back\xEF\x81\x9Cslash"},
      {folder("sub.d\\", true), "sub\\|g"},
      {folder("absent", false), "absent\\"},
      {folder("..", false), nullptr},
      {folder(root_.c_str(), false), nullptr},
      {folder(nullptr, false), nullptr},
  };
  for (const auto& each : cases) {
    const auto index = &each - cases;
    CZipper zipper(archive_.c_str(), in.c_str(), false);
    EXPECT_EQ(each.names != nullptr, each.add(zipper)) << index;
    EXPECT_TRUE(zipper.CloseZip());
    EXPECT_EQ(each.names == nullptr ? "" : each.names, Names()) << index;
  }
}

TEST_F(Zipper, PreparesPathsInPlace) {
  Derived zipper(archive_.c_str(), "C:\\root", false);
  const std::string too_long(253, 'n');
  const std::string cases[][2] = {{"a\\b", "C:\\root\\a\\b"},
                                  {"C:\\other", "C:\\other"},
                                  {too_long.substr(1), "C:\\root\\" + too_long.substr(1)},
                                  {too_long, ""}};
  for (const auto& [given, prepared] : cases) {
    char path[261] = {};
    given.copy(path, sizeof(path) - 1);
    zipper.PrepareSourcePath(static_cast<const char*>(path));
    EXPECT_EQ(prepared, path);
  }
}

TEST_F(Zipper, FoldersKeepTheirAttributes) {
  fs::create_directories(Native("top/locked"));
  chmod(Native("top/locked").c_str(), 0555);
  CZipper zipper(archive_.c_str(), nullptr, false);
  EXPECT_TRUE(zipper.AddFolderToZip("top", false) && zipper.CloseZip());
  CUnzipper unzipper(archive_.c_str());
  UZ_FileInfo info;
  EXPECT_TRUE(unzipper.GetFileInfo(0, info));
  EXPECT_EQ(0x10u, info.externalAttrib);
  EXPECT_TRUE(unzipper.GetFileInfo(1, info));
  EXPECT_EQ(0x11u, info.externalAttrib);
}

TEST_F(Zipper, LogsFilesThatGoByTheirOwnPath) {
  Put(temp_, "f", "f");
  const DebugLines lines;
  CZipper zipper(archive_.c_str(), root_.c_str(), false);
  zipper.AddFileToZip("f", false);
  zipper.AddFileToZip("f", "below");
  EXPECT_EQ(1, lines.Count(2, "CZipper::AddFileToZip(f)\n"));
  EXPECT_EQ(1u, lines.All().size());
}

TEST_F(Zipper, OpensAndCloses) {
  Put(temp_, "f", "f");
  Put(temp_, "folder/x", "x");
  CZipper closed;
  EXPECT_TRUE(closed.CloseZip());
  EXPECT_FALSE(closed.AddFileToZip("f", true) || closed.AddFileToZip("f", nullptr) ||
               closed.AddFolderToZip("folder", true));
  const std::string folder = Path("folder");
  const std::string nowhere = Path("no/such/out.zip");
  const std::string too_long = root_ + "\\" + std::string(255, 'n');
  for (const char* path :
       {static_cast<const char*>(nullptr), "", folder.c_str(), nowhere.c_str(), too_long.c_str()}) {
    EXPECT_FALSE(closed.OpenZip(path, "", false));
  }
  // With no root folder given, that of the archive counts; a copy is closed.
  CZipper zipper(archive_.c_str(), nullptr, false);
  CZipper copy(zipper);
  EXPECT_FALSE(copy.AddFileToZip("f", true));
  EXPECT_TRUE(zipper.AddFileToZip("f", false));
  EXPECT_FALSE(fs::exists(Native("out.zip")));
  EXPECT_TRUE(zipper.OpenZip(archive_.c_str(), "", false));
  EXPECT_EQ("f", Names());
  Z_FileInfo info;
  zipper.GetFileInfo(info);
  EXPECT_EQ(0, info.fileCount);
  zipper.DiscardZip();
  EXPECT_EQ("f", Names());
  // The archive never holds itself, nor what it replaces.
  EXPECT_TRUE(CZipper::ZipFolder(folder.c_str(), false));
  EXPECT_EQ("folder\\|folder\\x", Names("folder.zip"));
  EXPECT_TRUE(CZipper::ZipFile(Path("f").c_str()));
  EXPECT_EQ("f", Names("f.zip"));
  EXPECT_FALSE(CZipper::ZipFile(Path("f.zip").c_str()));
  EXPECT_EQ("f", Names("f.zip"));
  EXPECT_FALSE(CZipper::ZipFile(Path("absent").c_str()));
  EXPECT_FALSE(fs::exists(Native("absent.zip")));
  EXPECT_TRUE(zipper.OpenZip(archive_.c_str(), nullptr, false) &&
              zipper.AddFolderToZip(root_.c_str(), false) && zipper.CloseZip());
  EXPECT_EQ(std::string::npos, Names().find("out.zip"));
  EXPECT_EQ(std::string::npos, Names().find(".tmp"));
}

TEST_F(Zipper, AppendsBehindWhatIsThere) {
  Put(temp_, "f", "f");
  const std::string former(5000, 'x');
  const std::string path = Put(temp_, "out.zip", former);
  CZipper zipper(archive_.c_str(), nullptr, true);
  EXPECT_TRUE(zipper.AddFileToZip("f", false));
  zipper.DiscardZip();
  EXPECT_EQ(former, ReadWhole(path));
  for (int round = 0; round < 2; ++round) {
    EXPECT_TRUE(zipper.OpenZip(archive_.c_str(), nullptr, true));
    EXPECT_TRUE(zipper.AddFileToZip("f", false) && zipper.CloseZip());
    EXPECT_EQ("f", Names());
  }
  EXPECT_EQ(former, ReadWhole(path).substr(0, former.size()));
  EXPECT_EQ(0, RunCommand("7z t " + path + " && /usr/bin/python3 -m zipfile -t " + path));
  EXPECT_TRUE(zipper.OpenZip(Path("new.zip").c_str(), nullptr, true) && zipper.CloseZip());
  EXPECT_TRUE(fs::exists(Native("new.zip")));
}

TEST_F(Zipper, AFailureLeavesTheFormerArchive) {
  MakeSampleTree(temp_, "tree");
  Put(temp_, "former/out.zip", "former");
  const std::string archive = Path("former/out.zip");
  const Tree former = TreeIn("former");
  const struct {
    Operation operation;
    bool append;
    bool early;  // already while files are added
  } cases[] = {{Operation::kFileWrite, false, true}, {Operation::kFileWrite, false, false},
               {Operation::kFileWrite, true, false}, {Operation::kFileClose, false, false},
               {Operation::kFileClose, true, false}, {Operation::kFileRename, false, false}};
  for (const auto& each : cases) {
    CZipper zipper(archive.c_str(), root_.c_str(), each.append);
    FaultPlan plan;
    if (each.early) plan.Fail(each.operation, 1, ENOSPC);
    EXPECT_EQ(!each.early, zipper.AddFolderToZip("tree", false));
    plan.Fail(each.operation, 1, ENOSPC);
    EXPECT_FALSE(zipper.CloseZip());
    EXPECT_EQ(former, TreeIn("former"));
  }
  Recorder recorder;
  recorder.stop_at = 2;
  CZipper zipper(archive.c_str(), root_.c_str(), false);
  zipper.SetProgressListener(&recorder);
  EXPECT_FALSE(zipper.AddFolderToZip("tree", false));
  zipper.DiscardZip();
  EXPECT_EQ(former, TreeIn("former"));
}

TEST_F(Zipper, FailedAllocationsPassThrough) {
  MakeSampleTree(temp_, "tree");
  EXPECT_GT(FailEachAllocation([this] {
              CZipper zipper(archive_.c_str(), root_.c_str(), false);
              zipper.AddFileToZip("tree\\one", false);
              zipper.AddFolderToZip("tree\\deep", false);
              zipper.DiscardZip();
            }),
            20);
}

// What happens to files between the calls that pack them.
std::atomic<int> opens{0};
std::string hook_path;

TEST_F(Zipper, FilesThatVanishGrowAndShrink) {
  for (const char* name : {"tree/vanishes", "tree/other"}) Put(temp_, name, "data");
  hook_path = Native("tree/vanishes");
  CZipper zipper(archive_.c_str(), root_.c_str(), false);
  opens = 0;
  platform::SetSeamHook([](platform::SeamCall& call) {
    if (call.operation == Operation::kFileOpen && ++opens == 2) unlink(hook_path.c_str());
  });
  EXPECT_TRUE(zipper.AddFolderToZip("tree", false));
  platform::SetSeamHook(nullptr);
  const std::string big(600000, 'g');
  hook_path = Put(temp_, "big", big);
  opens = 0;
  platform::SetSeamHook([](platform::SeamCall& call) {
    if (call.operation == Operation::kFileRead) truncate(hook_path.c_str(), 700000);
  });
  EXPECT_TRUE(zipper.AddFileToZip("big", false));
  platform::SetSeamHook([](platform::SeamCall& call) {
    if (call.operation == Operation::kFileRead && ++opens == 2) truncate(hook_path.c_str(), 300000);
  });
  Recorder recorder;
  zipper.SetProgressListener(&recorder);
  EXPECT_TRUE(zipper.AddFileToZip("big", "shrunk"));
  platform::SetSeamHook(nullptr);
  EXPECT_EQ(1u, recorder.skipped.size());
  EXPECT_TRUE(zipper.CloseZip());
  EXPECT_TRUE(Unpack(archive_, "ours"));
  auto tree = TreeIn("ours");
  EXPECT_EQ("data", tree["tree/other"]);
  EXPECT_EQ(0u, tree.count("tree/vanishes"));
  EXPECT_EQ(Digest(big), tree["big"]);
  EXPECT_EQ(Digest(big.substr(0, 300000)), tree["shrunk/big"]);
}

TEST_F(Zipper, OtherCodePages) {
  Put(temp_, "\xe4\xb8\xad\xe6\x96\x87", "chinese");
  Put(temp_, "not\xff utf8", "bytes");
  CZipper zipper(archive_.c_str(), root_.c_str(), false);
  EXPECT_TRUE(zipper.AddFolderToZip("", false) && zipper.CloseZip());
  EXPECT_TRUE(Unpack(archive_, "utf8"));
  EXPECT_EQ("bytes", TreeIn("utf8")["not\xff utf8"]);
  ASSERT_EQ(1, SetAnsiCodePage(936));
  EXPECT_TRUE(zipper.OpenZip(archive_.c_str(), nullptr, false));
  EXPECT_TRUE(zipper.AddFileToZip("\xd6\xd0\xce\xc4", false) && zipper.CloseZip());
  EXPECT_EQ("\xd6\xd0\xce\xc4", Names());
  EXPECT_NE(std::string::npos, ReadWhole(Native("out.zip")).find("\xd6\xd0\xce\xc4"));
  EXPECT_TRUE(Unpack(archive_, "gbk"));
  SetAnsiCodePage(65001);
  EXPECT_EQ("chinese", TreeIn("gbk")["\xe4\xb8\xad\xe6\x96\x87"]);
}

}  // namespace
}  // namespace qvx::test
