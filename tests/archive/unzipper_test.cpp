#include "qvx/unzipper.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <numeric>
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

class Unzipper : public testing::Test {
 protected:
  // A copy of an archive of this kind, which was made once for all tests.
  std::string Make(const std::string& kind) const {
    static const TempFolder all;
    static const int made = RunPeer("make " + all.Path());
    EXPECT_EQ(0, made);
    fs::copy_file(all.Path(kind + ".zip"), temp_.Path(kind + ".zip"));
    return Lib(temp_.Path(kind + ".zip"));
  }
  bool Unpack(const std::string& archive, const std::string& folder, bool flat = false) const {
    return CUnzipper::Unzip(archive.c_str(), Lib(temp_.Path(folder)).c_str(), flat);
  }

  const TempFolder temp_;
};

TEST_F(Unzipper, WhatOtherProgramsPack) {
  MakeSampleTree(temp_, "tree");
  const Tree tree = TreeOf(temp_.Path("tree"));
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
    fs::remove(temp_.Path("a.zip"));
    fs::remove_all(temp_.Path("out"));
    ASSERT_EQ(0, RunCommand("export LC_ALL=C.UTF-8; cd " + temp_.Path("tree") + " && " + command))
        << command;
    EXPECT_TRUE(Unpack(Lib(temp_.Path("a.zip")), "out")) << command;
    EXPECT_EQ(tree, TreeOf(temp_.Path("out"))) << command;
  }
}

TEST_F(Unzipper, EveryFormOfEntries) {
  ASSERT_TRUE(Unpack(Make("good"), "out"));
  std::string bytes(256, '\0');
  std::iota(bytes.begin(), bytes.end(), '\0');
  const Tree wanted{{"a", "/"},
                    {"a/descriptor.txt", Digest(std::string(70000, 'x'))},
                    {"stored", bytes},
                    {"empty", ""},
                    {"zip64", Digest(Repeated("large", 999))},
                    {"no attributes", "/"},
                    {"\xe4\xb8\xad\xe6\x96\x87", "/"},
                    {"\xe4\xb8\xad\xe6\x96\x87/\xd0\x96.txt", "utf8"},
                    {"commented", "commented"}};
  EXPECT_EQ(wanted, TreeOf(temp_.Path("out")));
  struct stat status;
  stat(temp_.Path("out/stored").c_str(), &status);
  char local[20];
  std::strftime(local, sizeof(local), "%F %T", std::localtime(&status.st_mtime));
  EXPECT_STREQ("2021-06-07 08:09:10", local);
  CUnzipper unzipper(Lib(temp_.Path("good.zip")).c_str());
  UZ_FileInfo info;
  EXPECT_TRUE(unzipper.GotoFile("COMMENTED") && unzipper.GetFileInfo(info));
  EXPECT_STREQ(
      "\xc3\xbc"
      "ber",
      info.comment);
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
            TreeOf(temp_.Path("old")));
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
  EXPECT_TRUE(fs::is_directory(temp_.Path("none")));
}

TEST_F(Unzipper, OutputFolders) {
  const std::string archive = Make("nested");
  Opened unzipper(archive.c_str());
  EXPECT_TRUE(unzipper.UnzipFile(1));
  EXPECT_TRUE(fs::is_regular_file(temp_.Path("nested/a/b.txt")));
  EXPECT_TRUE(unzipper.UnzipFile(2, Lib(temp_.Path("flat")).c_str(), true));
  EXPECT_TRUE(unzipper.UnzipTo(Lib(temp_.Path("flat")).c_str(), true));
  EXPECT_EQ((Tree{{"top.TXT", kDataOfIt}, {"b.txt", kDataOfIt}, {"e", kDataOfIt}}),
            TreeOf(temp_.Path("flat")));
  EXPECT_FALSE(unzipper.SetOutputFolder(archive.c_str()) || unzipper.SetOutputFolder(nullptr) ||
               unzipper.SetOutputFolder(std::string(300, 'n').c_str()));
  EXPECT_TRUE(unzipper.SetOutputFolder(Lib(temp_.Path("made/for/it")).c_str()));
  EXPECT_TRUE(unzipper.Unzip());
  EXPECT_TRUE(fs::is_regular_file(temp_.Path("made/for/it/a/c.d/e")));
  EXPECT_FALSE(unzipper.UnzipTo(nullptr) || unzipper.UnzipTo(archive.c_str()));

  EXPECT_TRUE(Opened::CreateFolder("no separator") && !fs::exists("no separator"));
  EXPECT_TRUE(Opened::CreateFolder(Lib(temp_.Path("x/y/")).c_str()));
  EXPECT_TRUE(Opened::CreateFilePath(Lib(temp_.Path("z/file")).c_str()));
  EXPECT_TRUE(fs::is_directory(temp_.Path("x/y")) && fs::is_directory(temp_.Path("z")));
  EXPECT_FALSE(fs::exists(temp_.Path("z/file")));
  EXPECT_FALSE(Opened::CreateFolder("") || Opened::CreateFolder(nullptr) ||
               Opened::CreateFilePath("file") || Opened::CreateFolder((archive + "\\x").c_str()));
  EXPECT_TRUE(Opened::SetFileModTime(archive.c_str(), 0x52C74125));
  EXPECT_FALSE(Opened::SetFileModTime(archive.c_str(), 0x52E04125));  // month 7, day 0
  EXPECT_FALSE(Opened::SetFileModTime(Lib(temp_.Path("absent")).c_str(), 0x52C74125));
}

TEST_F(Unzipper, StaysBelowItsFolder) {
  fs::create_directories(temp_.Path("top/out"));
  for (int i = 0; i < 8; ++i) {
    EXPECT_FALSE(Unpack(Make("name_" + std::to_string(i)), "top/out")) << i;
    EXPECT_EQ((Tree{{"out", "/"}, {"out/fine", kDataOfIt}}), TreeOf(temp_.Path("top"))) << i;
  }
  EXPECT_FALSE(fs::exists("/tmp/qvx_up") || fs::exists("/up"));
  EXPECT_FALSE(Unpack(Make("link"), "top/links"));
  EXPECT_EQ((Tree{{"link", ".."}}), TreeOf(temp_.Path("top/links")));
  // A link is never followed: not as a folder on the way, and as a file it is replaced.
  const std::string archive = Make("nested");
  Put(temp_, "elsewhere/kept", "kept");
  fs::create_directory(temp_.Path("linked"));
  fs::create_directory_symlink(temp_.Path("elsewhere"), temp_.Path("linked/a"));
  fs::create_symlink(temp_.Path("elsewhere/kept"), temp_.Path("linked/top.TXT"));
  EXPECT_FALSE(Unpack(archive, "linked"));
  EXPECT_EQ((Tree{{"kept", "kept"}}), TreeOf(temp_.Path("elsewhere")));
  EXPECT_EQ((Tree{{"a", "->"}, {"top.TXT", kDataOfIt}}), TreeOf(temp_.Path("linked")));
  // The folder itself may be a link; what is in the way of a folder or file stays.
  EXPECT_TRUE(Unpack(archive, "linked/a"));
  EXPECT_EQ(7u, TreeOf(temp_.Path("elsewhere")).size());
  fs::create_directories(temp_.Path("blocked/top.TXT"));
  EXPECT_FALSE(Unpack(archive, "blocked"));
  Put(temp_, "file/a", "a file");
  EXPECT_FALSE(Unpack(archive, "file"));
  EXPECT_EQ("a file", TreeOf(temp_.Path("file"))["a"]);
  fs::create_directory(temp_.Path("fifo"));
  ASSERT_EQ(0, mkfifo(temp_.Path("fifo/top.TXT").c_str(), 0600));
  EXPECT_FALSE(Unpack(archive, "fifo"));
}

TEST_F(Unzipper, RefusesWhatLies) {
  for (const char* kind :
       {"overlap", "inside", "crc", "larger", "smaller", "packed_larger", "packed_smaller",
        "local_name", "local_crc", "encrypted", "method", "far", "count", "parts", "place"}) {
    fs::remove_all(temp_.Path("out"));
    EXPECT_FALSE(Unpack(Make(kind), "out")) << kind;
    const Tree tree = TreeOf(fs::exists(temp_.Path("out")) ? temp_.Path("out") : temp_.Path());
    for (const auto& [name, content] : tree) {
      EXPECT_TRUE(fs::path(name).extension() == ".zip" || content == kDataOfIt) << kind << name;
    }
  }
  CUnzipper unzipper(Make("bomb").c_str());
  EXPECT_EQ(16ull << 30, unzipper.GetSizeLimit());
  EXPECT_EQ(4u << 20, unzipper.GetTotalSize());
  unzipper.SetSizeLimit((4u << 20) - 1);
  EXPECT_FALSE(unzipper.Unzip());
  EXPECT_TRUE(TreeOf(temp_.Path("bomb")).empty());
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
    CZipper zipper(Lib(temp_.Path("whole.zip")).c_str(), nullptr, false);
    ASSERT_TRUE(zipper.AddFolderToZip("t", false) && zipper.CloseZip());
    whole_ = ReadWhole(temp_.Path("whole.zip"));
    tree_ = TreeOf(temp_.Path("t"));
  }
  bool UnpackDamaged(const std::string& bytes) const {
    fs::remove_all(temp_.Path("out"));
    Put(temp_, "damaged.zip", bytes);
    return Unpack(Lib(temp_.Path("damaged.zip")), "out");
  }

  std::string whole_;
  Tree tree_;
};

TEST_F(DamagedArchive, CutAtEveryByte) {
  for (std::size_t size = 0; size < whole_.size(); ++size) {
    EXPECT_FALSE(UnpackDamaged(whole_.substr(0, size))) << size;
  }
  EXPECT_TRUE(UnpackDamaged(whole_));
  EXPECT_TRUE(UnpackDamaged(whole_ + "something behind it"));
}

TEST_F(DamagedArchive, ChangedAtEveryByte) {
  std::set<std::string> contents{"/", ""};
  for (const auto& [name, content] : tree_) contents.insert(content);
  for (std::size_t at = 0; at < whole_.size(); ++at) {
    std::string bytes = whole_;
    bytes[at] = static_cast<char>(bytes[at] ^ (1 << at % 8));
    UnpackDamaged(bytes);
    if (!fs::exists(temp_.Path("out"))) continue;
    for (const auto& [name, content] : TreeOf(temp_.Path("out"))) {
      EXPECT_EQ(1u, contents.count(content)) << at << name;
    }
  }
}

TEST_F(DamagedArchive, FailuresOfTheDiskAndOfMemory) {
  const std::string archive = Lib(temp_.Path("whole.zip"));
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
      fs::remove_all(temp_.Path("out"));
      FaultPlan plan;
      plan.Fail(each.operation, first, each.error);
      failed = !Unpack(archive, "out");
    }
    EXPECT_EQ(tree_, TreeOf(temp_.Path("out/t")));
  }
  FaultPlan plan;
  plan.Shorten(platform::Operation::kFileRead, 1, 7, 1000);
  plan.Shorten(platform::Operation::kFileWrite, 1, 3, 1000);
  EXPECT_TRUE(Unpack(archive, "short"));
  EXPECT_EQ(tree_, TreeOf(temp_.Path("short/t")));
  EXPECT_GT(FailEachAllocation([&] {
              fs::remove_all(temp_.Path("out"));
              Unpack(archive, "out");
            }),
            20);
}

TEST_F(DamagedArchive, AListenerStopsIt) {
  Recorder listener;
  listener.stop_at = 1;
  CUnzipper unzipper(Lib(temp_.Path("whole.zip")).c_str());
  unzipper.SetProgressListener(&listener);
  EXPECT_FALSE(unzipper.UnzipTo(Lib(temp_.Path("out")).c_str(), true));
  EXPECT_TRUE(TreeOf(temp_.Path("out")).empty());
}

}  // namespace
}  // namespace qvx::test
