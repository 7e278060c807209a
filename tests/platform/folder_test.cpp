#include "platform/folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "platform/path.h"
#include "support/fault_plan.h"
#include "support/temp_folder.h"

namespace qvx::platform {
namespace {

namespace fs = std::filesystem;
using test::FaultPlan;
using test::ReadWhole;
using test::TempFolder;

using Names = std::vector<std::string>;
using Skipped = std::map<std::string, SkipReason>;

Names Below(const std::string& folder) {
  Names paths;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    paths.push_back(entry.path().lexically_relative(folder).string());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

// A folder with one entry of each kind, and one outside of it that must survive.
class Tree : public testing::Test {
 protected:
  void SetUp() override {
    MakeFolders(outside_ + "/deep");
    folder_.Write("outside/kept", "outside");
    folder_.Write("outside/deep/kept", "outside");
    MakeFolders(tree_ + "/sub/deeper");
    folder_.Write("tree/f.txt", "top");
    folder_.Write("tree/.hidden", "hidden");
    folder_.Write("tree/sub/deeper/\u4E2D :*\\\xFF.log", "deep");
    Link("../outside", "tree/to_folder");
    Link("../outside/kept", "tree/to_file");
    Link("nowhere", "tree/sub/dangling");
  }

  void Link(const std::string& target, const std::string& name) {
    ASSERT_EQ(symlink(target.c_str(), folder_.Path(name).c_str()), 0);
  }

  void ExpectOutsideWhole() {
    EXPECT_EQ(Below(outside_), (Names{"deep", "deep/kept", "kept"}));
    EXPECT_EQ(ReadWhole(outside_ + "/kept"), "outside");
  }

  // Replaces a folder of the tree by a link that leads out of it.
  void Swap(const std::string& name) {
    fs::rename(folder_.Path(name), folder_.Path("away"));
    Link(outside_, name);
  }

  TreeActions Recording() {
    TreeActions actions;
    actions.skipped = [this](const std::string& below, SkipReason reason) {
      skipped_[below] = reason;
    };
    return actions;
  }

  // Copies the tree and makes the target, where it isn't there.
  void Copy(const std::string& target) {
    const auto make = [&target] { MakeFolders(target); };
    CopyFolderContent(tree_, target, make, Recording());
  }

  TempFolder folder_;
  const std::string tree_ = folder_.Path("tree");
  const std::string outside_ = folder_.Path("outside");
  Skipped skipped_;
};

TEST_F(Tree, ReadingFollowsLinksOnlyWhereTold) {
  FolderReader reader;
  EXPECT_FALSE(reader.Open(tree_ + "/to_folder/", false));
  ASSERT_TRUE(reader.Open(tree_ + "/to_folder", true));
  EXPECT_EQ(fcntl(reader.Descriptor(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  ASSERT_EQ(mkfifo((tree_ + "/fifo").c_str(), 0600), 0);
  EXPECT_FALSE(reader.Open(tree_ + "/fifo", true));
}

TEST(Pattern, Wildcards) {
  const struct {
    const char16_t* name;
    const char16_t* pattern;
    bool fits;
  } cases[] = {
      {u"a", u"*.*", true},       {u"a.b", u"*.*", true},         {u"", u"*", true},
      {u"abc", u"a*c", true},     {u"abc", u"a?c", true},         {u"ac", u"a?c", false},
      {u"abcbc", u"a*bc", true},  {u"abcb", u"a*bc", false},      {u"A", u"a", false},
      {u"a.txt", u"*.tx", false}, {u"a.txt", u"*.t*", true},      {u"ab", u"??", true},
      {u"ab", u"???", false},     {u"ab", u"ab**", true},         {u"aaaaab", u"*a*a*b", true},
      {u"a", u"", false},         {u"\u4E2Dx", u"\u4E2D?", true}, {u"a\uF02A", u"a\uF02A", true},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(MatchesPattern(each.name, each.pattern), each.fits) << "case " << &each - cases;
  }
}

TEST_F(Tree, RemovalOfATopFolderThatIsALinkDoesNothing) {
  Link("outside", "link");
  for (const char* name : {"link", "link/", "link//"}) {
    RemoveFolderContent(folder_.Path(name), true, true, {});
  }
  ExpectOutsideWhole();
  EXPECT_TRUE(fs::is_symlink(folder_.Path("link")));
}

// The filter runs while folders are read, so it can change the tree at a known moment.
TEST_F(Tree, RemovalStaysInsideWhenAFolderBecomesALinkBeforeItIsEntered) {
  TreeActions actions = Recording();
  bool swapped = false;
  actions.filter = [&](const std::string&) {
    if (!std::exchange(swapped, true)) Swap("tree/sub");
    return true;
  };
  RemoveFolderContent(tree_, true, true, actions);
  ASSERT_TRUE(swapped);
  ExpectOutsideWhole();
}

TEST_F(Tree, RemovalStaysInsideWhenAFolderBecomesALinkAfterItWasEntered) {
  TreeActions actions = Recording();
  actions.filter = [&](const std::string& name) {
    if (name.find(".log") != std::string::npos) Swap("tree/sub");
    return true;
  };
  RemoveFolderContent(tree_, true, true, actions);
  ASSERT_TRUE(fs::exists(folder_.Path("away")));
  ExpectOutsideWhole();
  EXPECT_EQ(skipped_, (Skipped{{"sub", SkipReason::kFailed}}));
}

// Far more levels than a path has characters.
void MakeDeepTree(const std::string& folder, int levels) {
  int at = open(folder.c_str(), O_PATH);
  for (int i = 0; i < levels; ++i) {
    ASSERT_EQ(mkdirat(at, "a_long_folder_name", 0700), 0);
    const int next = openat(at, "a_long_folder_name", O_PATH);
    close(at);
    at = next;
  }
  const int file = openat(at, "file", O_CREAT | O_WRONLY, 0600);
  close(file);
  close(at);
}

TEST_F(Tree, RemovalReachesWhatNoPathReachesAndTakesLinksAsLinks) {
  ASSERT_EQ(mkfifo((tree_ + "/sub/fifo").c_str(), 0600), 0);
  MakeDeepTree(tree_, 400);
  RemoveFolderContent(tree_, true, true, Recording());
  EXPECT_EQ(Below(tree_), (Names{"sub", "sub/fifo"}));
  EXPECT_EQ(skipped_, (Skipped{{"sub/fifo", SkipReason::kSpecial}}));
  ExpectOutsideWhole();
}

TEST_F(Tree, CopyTakesFilesAndLinks) {
  const std::string target = folder_.Path("copy");
  ASSERT_EQ(mkfifo((tree_ + "/fifo").c_str(), 0600), 0);
  ASSERT_EQ(chmod((tree_ + "/f.txt").c_str(), 0500), 0);
  Copy(target);
  Names expected = Below(tree_);
  expected.erase(std::find(expected.begin(), expected.end(), "fifo"));
  EXPECT_EQ(Below(target), expected);
  EXPECT_EQ(ReadWhole(target + "/sub/deeper/\u4E2D :*\\\xFF.log"), "deep");
  EXPECT_EQ(fs::status(target + "/f.txt").permissions(), fs::perms(0500));
  EXPECT_EQ(ReadWhole(target + "/to_file"), "outside");
  EXPECT_FALSE(fs::is_symlink(target + "/to_file"));
  EXPECT_EQ(fs::read_symlink(target + "/to_folder"), "../outside");
  EXPECT_EQ(fs::read_symlink(target + "/sub/dangling"), "nowhere");
  EXPECT_EQ(skipped_, (Skipped{{"fifo", SkipReason::kSpecial}}));
}

TEST_F(Tree, CopyOverwritesAndNeverWritesThroughALink) {
  const std::string target = folder_.Path("copy");
  MakeFolders(target + "/f.txt");           // a folder where a file should be
  folder_.Write("copy/.hidden", "old");     // a file of the same name
  Link("../outside", "copy/sub");           // a link where a folder should be
  Link("../outside/kept", "copy/to_file");  // a link where a file should be
  Copy(target);
  EXPECT_EQ(ReadWhole(target + "/.hidden"), "hidden");
  EXPECT_FALSE(fs::is_symlink(target + "/to_file"));
  ExpectOutsideWhole();
  EXPECT_EQ(skipped_, (Skipped{{"f.txt", SkipReason::kFailed}, {"sub", SkipReason::kFailed}}));
  EXPECT_EQ(Below(target).size(), 5u);  // no temporary was left
}

TEST_F(Tree, CopyIntoItselfEnds) {
  const std::string target = tree_ + "/sub/copy";
  for (int i = 0; i < 2; ++i) {
    Copy(target);
    EXPECT_EQ(ReadWhole(target + "/f.txt"), "top");
    EXPECT_TRUE(fs::exists(target + "/sub/deeper"));
    EXPECT_FALSE(fs::exists(target + "/sub/copy"));
  }
  const Names before = Below(tree_);
  Copy(tree_);
  EXPECT_EQ(Below(tree_), before);
  EXPECT_TRUE(skipped_.empty());
}

TEST_F(Tree, CopyTellsWhatItCouldNotReadOrWrite) {
  const std::string target = folder_.Path("copy");
  FaultPlan plan;
  plan.Fail(Operation::kFileWrite, 1, ENOSPC).Fail(Operation::kFileRename, 2, EIO);
  Copy(target);
  EXPECT_EQ(skipped_.size(), 2u);
  EXPECT_EQ(Below(target).size(), Below(tree_).size() - 2);
}

}  // namespace
}  // namespace qvx::platform
