#include "qvx/unzipper.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <set>

#include "archive/archive_support.h"
#include "qvx/zipper.h"
#include "support/fault_plan.h"

namespace qvx::test {
namespace {

// Reaches what derived classes may use.
struct Opened : CUnzipper {
  using CUnzipper::CreateFilePath;
  using CUnzipper::CreateFolder;
  using CUnzipper::CUnzipper;
  using CUnzipper::SetFileModTime;
};

const std::string kDataOfIt = Repeated("data of it\n", 99);

class Unzipper : public ArchiveTest {
 protected:
  // A copy of an archive of this kind, which was made once for all tests.
  std::string Make(const std::string& kind) const {
    static const TempFolder all;
    static const int made = RunPeer("make " + all.Path());
    EXPECT_EQ(0, made);
    fs::copy_file(all.Path(kind + ".zip"), Native(kind + ".zip"));
    return Path(kind + ".zip");
  }
};

TEST_F(Unzipper, WhatOtherProgramsPack) {
  MakeSampleTree(temp_, "tree");
  const Tree tree = TreeIn("tree");
  const char* commands[] = {
      "zip -qr ../a.zip .",
      "zip -q0r ../a.zip .",
      "zip -qr - . | cat > ../a.zip",
      "zip -qrX9 ../a.zip . && cp ../a.zip ../b.zip && zip -A ../a.zip",
      "7z a -tzip ../a.zip .",
      "7z a -tzip -mx=0 -mcu=on ../a.zip .",
      "/usr/bin/python3 -m zipfile -c ../a.zip .",
  };
  for (const char* command : commands) {
    fs::remove(Native("a.zip"));
    fs::remove_all(Native("out"));
    ASSERT_EQ(0, RunCommand("export LC_ALL=C.UTF-8; cd " + Native("tree") + " && " + command))
        << command;
    EXPECT_TRUE(Unpack(Path("a.zip"), "out")) << command;
    EXPECT_EQ(tree, TreeIn("out")) << command;
  }
}

TEST_F(Unzipper, EveryFormOfEntries) {
  ASSERT_TRUE(Unpack(Make("good"), "out"));
  ASSERT_EQ(
      0, RunCommand("LC_ALL=C.UTF-8 unzip -q " + Native("good.zip") + " -d " + Native("theirs")));
  EXPECT_EQ(9u, TreeIn("out").size());
  EXPECT_EQ(TreeIn("theirs"), TreeIn("out"));
  struct stat status;
  stat(Native("out/stored").c_str(), &status);
  char local[20];
  std::strftime(local, sizeof(local), "%F %T", std::localtime(&status.st_mtime));
  EXPECT_STREQ("2021-06-07 08:09:10", local);
  CUnzipper unzipper(Path("good.zip").c_str());
  UZ_FileInfo info;
  EXPECT_TRUE(unzipper.GotoFile("COMMENTED") && unzipper.GetFileInfo(info));
  EXPECT_STREQ("\u00fcber", info.comment);
  EXPECT_EQ(9u, info.uncompressedSize);
  EXPECT_EQ(0x52C74125u, info.dosDate);
  EXPECT_FALSE(info.isFolder);
  EXPECT_TRUE(unzipper.GotoFile("no attributes/") && unzipper.GetFileInfo(info));
  EXPECT_STREQ("no attributes\\", info.fileName);
  EXPECT_TRUE(info.isFolder);

  EXPECT_TRUE(Unpack(Make("cp437"), "old") && Unpack(Make("unicode_path"), "old") &&
              Unpack(Make("behind"), "old"));
  EXPECT_EQ((Tree{{"\xc3\xbc\xc2\xa2.txt", kDataOfIt},
                  {"next", kDataOfIt},
                  {"\xce\xa9mega", "text"},
                  {"file", kDataOfIt}}),
            TreeIn("old"));
}

TEST_F(Unzipper, MovesAmongEntries) {
  CUnzipper unzipper(Make("nested").c_str());
  UZ_FileInfo info;
  const auto name = [&] { return unzipper.GetFileInfo(info) ? info.fileName : "none"; };
  EXPECT_EQ(5, unzipper.GetFileCount());
  EXPECT_STREQ("top.TXT", name());
  EXPECT_TRUE(unzipper.GetFileInfo(3, info));
  EXPECT_STREQ("a\\c.d\\e", info.fileName);
  EXPECT_FALSE(unzipper.GetFileInfo(5, info) || unzipper.GotoFile(-1));
  std::string texts;
  for (bool more = unzipper.GotoFirstFile("txt"); more; more = unzipper.GotoNextFile("txt")) {
    texts += std::string(name()) + "|";
  }
  EXPECT_EQ("top.TXT|a\\b.txt|b.txt|", texts);
  EXPECT_FALSE(unzipper.GotoFirstFile("d") || unzipper.GotoNextFile(nullptr));
  EXPECT_STREQ("b.txt", name());
  EXPECT_TRUE(unzipper.GotoFile("A/B.txt", false));
  EXPECT_STREQ("a\\b.txt", name());
  EXPECT_FALSE(unzipper.GotoFile("a\\b.txt", false) || unzipper.GotoFile("e", false) ||
               unzipper.GotoFile(nullptr, true));
  EXPECT_TRUE(unzipper.GotoFile("E", true));
  EXPECT_STREQ("a\\c.d\\e", name());
  EXPECT_FALSE(unzipper.GotoFile("x", true));
  EXPECT_TRUE(unzipper.CloseZip());
  EXPECT_FALSE(unzipper.CloseZip() || unzipper.GotoFile("b.txt") || unzipper.GotoFirstFile() ||
               unzipper.GetFileInfo(info) || unzipper.UnzipFile(0) || unzipper.Unzip());
  EXPECT_EQ(0, unzipper.GetFileCount());
  EXPECT_TRUE(unzipper.OpenZip(Make("none").c_str()));
  EXPECT_EQ(0, unzipper.GetFileCount());
  EXPECT_FALSE(unzipper.GetFileInfo(0, info) || unzipper.Unzip());
  EXPECT_TRUE(fs::is_directory(Native("none")));
}

TEST_F(Unzipper, OutputFolders) {
  const std::string archive = Make("nested");
  Opened unzipper(archive.c_str());
  EXPECT_TRUE(unzipper.UnzipFile(1));
  EXPECT_TRUE(fs::is_regular_file(Native("nested/a/b.txt")));
  EXPECT_TRUE(unzipper.UnzipFile(2, Path("flat").c_str(), true));
  EXPECT_TRUE(unzipper.UnzipTo(Path("flat").c_str(), true));
  EXPECT_EQ((Tree{{"top.TXT", kDataOfIt}, {"b.txt", kDataOfIt}, {"e", kDataOfIt}}), TreeIn("flat"));
  EXPECT_FALSE(unzipper.SetOutputFolder(archive.c_str()) || unzipper.SetOutputFolder(nullptr) ||
               unzipper.SetOutputFolder(std::string(300, 'n').c_str()));
  EXPECT_TRUE(unzipper.SetOutputFolder(Path("made/for/it").c_str()));
  EXPECT_TRUE(unzipper.Unzip());
  EXPECT_TRUE(fs::is_regular_file(Native("made/for/it/a/c.d/e")));
  EXPECT_FALSE(unzipper.UnzipTo(nullptr) || unzipper.UnzipTo(archive.c_str()));

  EXPECT_TRUE(Opened::CreateFolder("no separator") && !fs::exists("no separator"));
  EXPECT_TRUE(Opened::CreateFolder(Path("x/y/").c_str()));
  EXPECT_TRUE(Opened::CreateFilePath(Path("z/file").c_str()));
  EXPECT_TRUE(fs::is_directory(Native("x/y")) && fs::is_directory(Native("z")));
  EXPECT_FALSE(fs::exists(Native("z/file")));
  EXPECT_FALSE(Opened::CreateFolder("") || Opened::CreateFolder(nullptr) ||
               Opened::CreateFilePath("file") || Opened::CreateFolder((archive + "\\x").c_str()));
  EXPECT_TRUE(Opened::SetFileModTime(archive.c_str(), 0x52C74125));
  EXPECT_FALSE(Opened::SetFileModTime(archive.c_str(), 0x52E04125));  // month 7, day 0
  EXPECT_FALSE(Opened::SetFileModTime(Path("absent").c_str(), 0x52C74125));
}

TEST_F(Unzipper, StaysBelowItsFolder) {
  fs::create_directories(Native("top/out"));
  for (int i = 0; i < 8; ++i) {
    EXPECT_FALSE(Unpack(Make("name_" + std::to_string(i)), "top/out")) << i;
    EXPECT_EQ((Tree{{"out", "/"}, {"out/fine", kDataOfIt}}), TreeIn("top")) << i;
  }
  EXPECT_FALSE(fs::exists("/tmp/qvx_up") || fs::exists("/up"));
  EXPECT_FALSE(Unpack(Make("link"), "top/links"));
  EXPECT_EQ((Tree{{"link", ".."}}), TreeIn("top/links"));
  // A link is never followed: not as a folder on the way, and as a file it is replaced.
  const std::string archive = Make("nested");
  Put(temp_, "elsewhere/kept", "kept");
  fs::create_directory(Native("linked"));
  fs::create_directory_symlink(Native("elsewhere"), Native("linked/a"));
  fs::create_symlink(Native("elsewhere/kept"), Native("linked/top.TXT"));
  EXPECT_FALSE(Unpack(archive, "linked"));
  EXPECT_EQ((Tree{{"kept", "kept"}}), TreeIn("elsewhere"));
  EXPECT_EQ((Tree{{"a", "->"}, {"top.TXT", kDataOfIt}}), TreeIn("linked"));
  // The folder itself may be a link; what is in the way of a folder or file stays.
  EXPECT_TRUE(Unpack(archive, "linked/a"));
  EXPECT_EQ(7u, TreeIn("elsewhere").size());
  fs::create_directories(Native("blocked/top.TXT"));
  EXPECT_FALSE(Unpack(archive, "blocked"));
  Put(temp_, "file/a", "a file");
  EXPECT_FALSE(Unpack(archive, "file"));
  EXPECT_EQ("a file", TreeIn("file")["a"]);
  fs::create_directory(Native("fifo"));
  ASSERT_EQ(0, mkfifo(Native("fifo/top.TXT").c_str(), 0600));
  EXPECT_FALSE(Unpack(archive, "fifo"));
}

TEST_F(Unzipper, RefusesWhatLies) {
  for (const char* kind :
       {"overlap", "inside", "crc", "larger", "smaller", "packed_larger", "packed_smaller",
        "local_name", "local_crc", "encrypted", "method", "far", "count", "parts", "place"}) {
    fs::remove_all(Native("out"));
    EXPECT_FALSE(Unpack(Make(kind), "out")) << kind;
    const Tree tree = TreeOf(fs::exists(Native("out")) ? Native("out") : temp_.Path());
    for (const auto& [name, content] : tree) {
      EXPECT_TRUE(fs::path(name).extension() == ".zip" || content == kDataOfIt) << kind << name;
    }
  }
  CUnzipper unzipper(Make("bomb").c_str());
  EXPECT_EQ(16ull << 30, unzipper.GetSizeLimit());
  EXPECT_EQ(4u << 20, unzipper.GetTotalSize());
  unzipper.SetSizeLimit((4u << 20) - 1);
  EXPECT_FALSE(unzipper.Unzip());
  EXPECT_TRUE(TreeIn("bomb").empty());
  EXPECT_TRUE(unzipper.UnzipFile(0));
  unzipper.SetSizeLimit(4u << 20);
  EXPECT_TRUE(unzipper.Unzip());
  unzipper.SetSizeLimit(1);
  EXPECT_FALSE(unzipper.UnzipFile(0));
}

// What unpacks from a damaged archive is either right or absent.
class DamagedArchive : public Unzipper {
 protected:
  void SetUp() override {
    Put(temp_, "t/long", kDataOfIt);
    Put(temp_, "t/f/short", "short");
    Put(temp_, "t/empty", "");
    CZipper zipper(Path("whole.zip").c_str(), nullptr, false);
    ASSERT_TRUE(zipper.AddFolderToZip("t", false) && zipper.CloseZip());
    whole_ = ReadWhole(Native("whole.zip"));
    tree_ = TreeIn("t");
  }
  bool UnpackDamaged(const std::string& bytes) const {
    fs::remove_all(Native("out"));
    Put(temp_, "damaged.zip", bytes);
    return Unpack(Path("damaged.zip"), "out");
  }

  std::string whole_;
  Tree tree_;
};

TEST_F(DamagedArchive, CutOrChangedAtEveryByte) {
  std::set<std::string> contents{"/", ""};
  for (const auto& [name, content] : tree_) contents.insert(content);
  for (std::size_t at = 0; at < whole_.size(); ++at) {
    EXPECT_FALSE(UnpackDamaged(whole_.substr(0, at))) << at;
    std::string bytes = whole_;
    bytes[at] = static_cast<char>(bytes[at] ^ (1 << at % 8));
    UnpackDamaged(bytes);
    if (!fs::exists(Native("out"))) continue;
    for (const auto& [name, content] : TreeIn("out")) {
      EXPECT_EQ(1u, contents.count(content)) << at << name;
    }
  }
  EXPECT_TRUE(UnpackDamaged(whole_));
  EXPECT_TRUE(UnpackDamaged(whole_ + "something behind it"));
}

TEST_F(DamagedArchive, FailuresOfTheDiskAndOfMemory) {
  const std::string archive = Path("whole.zip");
  const struct {
    platform::Operation operation;
    int error;
  } cases[] = {{platform::Operation::kFileRead, EIO},
               {platform::Operation::kFileWrite, ENOSPC},
               {platform::Operation::kFileClose, EIO},
               {platform::Operation::kFileRename, EACCES},
               {platform::Operation::kFileOpen, EMFILE}};
  for (const auto& each : cases) {
    bool failed = true;
    for (int first = 1; failed; ++first) {
      fs::remove_all(Native("out"));
      FaultPlan plan;
      plan.Fail(each.operation, first, each.error);
      failed = !Unpack(archive, "out");
    }
    EXPECT_EQ(tree_, TreeIn("out/t"));
  }
  FaultPlan plan;
  plan.Shorten(platform::Operation::kFileRead, 1, 7, 1000);
  plan.Shorten(platform::Operation::kFileWrite, 1, 3, 1000);
  EXPECT_TRUE(Unpack(archive, "short"));
  EXPECT_EQ(tree_, TreeIn("short/t"));
  EXPECT_GT(FailEachAllocation([&] {
              fs::remove_all(Native("out"));
              Unpack(archive, "out");
            }),
            20);
}

TEST_F(DamagedArchive, AListenerStopsIt) {
  Recorder listener;
  listener.stop_at = 1;
  CUnzipper unzipper(Path("whole.zip").c_str());
  unzipper.SetProgressListener(&listener);
  EXPECT_FALSE(unzipper.UnzipTo(Path("out").c_str(), true));
  EXPECT_TRUE(TreeIn("out").empty());
}

}  // namespace
}  // namespace qvx::test
