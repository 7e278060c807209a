// qvx zip, unzip, gzip and gunzip.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/temp_folder.h"
#include "tool/program.h"

namespace qvx::test {
namespace {

namespace fs = std::filesystem;

class ToolArchive : public testing::Test {
 protected:
  ToolArchive() {
    fs::create_directories(temp_.Path("tree/sub"));
    temp_.Write("tree/sub/no:te", "content");
    temp_.Write("tree/.hidden", "hidden");
    temp_.Write("other.txt", std::string(100000, 'o'));
  }

  ProgramResult Run(const std::vector<std::string>& arguments) const {
    Program::Setting setting;
    setting.folder = temp_.Path();
    return RunProgram(arguments, setting);
  }
  void ExpectDone(const std::vector<std::string>& arguments) const {
    const ProgramResult result = Run(arguments);
    EXPECT_EQ(0, result.code) << result.err;
  }
  void ExpectRefused(const std::string& reason, const std::vector<std::string>& arguments) const {
    const ProgramResult result = Run(arguments);
    EXPECT_EQ(1, result.code) << arguments[0] << reason;
    EXPECT_EQ(1u, result.ErrorLines().size()) << result.err;
    EXPECT_NE(std::string::npos, result.err.find(reason)) << result.err;
  }

  const TempFolder temp_;
};

TEST_F(ToolArchive, ZipAndUnzip) {
  ExpectDone({"zip", "a.zip", "tree", "other.txt"});
  const std::string list = Run({"unzip", "-l", "a.zip"}).out;
  EXPECT_NE(std::string::npos, list.find("  tree/sub/no:te\n")) << list;
  EXPECT_NE(std::string::npos, list.find("      100000  ")) << list;
  EXPECT_NE(std::string::npos, list.find("      100007  in 4 entries\n")) << list;
  ExpectDone({"unzip", "a.zip", "-d", "new/out"});
  EXPECT_EQ("content", ReadWhole(temp_.Path("new/out/tree/sub/no:te")));
  EXPECT_FALSE(fs::exists(temp_.Path("new/out/tree/.hidden")));
  ExpectRefused("out/tree/sub/no:te exists already", {"unzip", "a.zip", "-d", "new/out"});
  ExpectDone({"unzip", "a.zip", "-d", "new/out", "--force"});
  ExpectDone({"unzip", "a.zip", "-d", "flat", "--flat"});
  EXPECT_EQ("content", ReadWhole(temp_.Path("flat/no:te")));
  ExpectRefused("exists already", {"zip", "a.zip", "tree"});
  ExpectDone({"zip", "-f", "a.zip", "tree/."});
  ExpectDone({"unzip", "a.zip", "-d", "dot"});
  EXPECT_EQ("content", ReadWhole(temp_.Path("dot/sub/no:te")));

  temp_.Write("[a,b]", "brackets");
  ExpectDone({"zip", "c.zip", "tree", "[a,b]"});
  EXPECT_NE(std::string::npos, Run({"unzip", "-l", "c.zip"}).out.find("  [a,b]\n"));
  ExpectRefused("no such file or folder: absent", {"zip", "b.zip", "tree", "absent"});
  ExpectRefused("not expected: --wrong", {"zip", "b.zip", "tree", "--wrong"});
  ExpectRefused("cannot write no/such/b.zip", {"zip", "no/such/b.zip", "tree"});
  ExpectRefused("tree is a folder", {"zip", "tree", "other.txt"});
  ExpectRefused("no such file: absent", {"unzip", "absent"});
  ExpectRefused("other.txt is no zip archive", {"unzip", "other.txt"});
  ExpectRefused("--max-size", {"unzip", "a.zip", "-d", "x", "--max-size", "6"});
  std::string damaged = ReadWhole(temp_.Path("a.zip"));
  damaged[damaged.find("content") == std::string::npos ? 80 : damaged.find("content")] ^= 1;
  temp_.Write("damaged.zip", damaged);
  EXPECT_EQ(1, Run({"unzip", "damaged.zip", "-d", "x"}).code);
  EXPECT_FALSE(fs::exists(temp_.Path("b.zip")) || fs::exists(temp_.Path("x/sub/no:te")));
}

TEST_F(ToolArchive, GzipAndGunzip) {
  const std::string text = ReadWhole(temp_.Path("other.txt"));
  ExpectDone({"gzip", "other.txt"});
  EXPECT_LT(fs::file_size(temp_.Path("other.txt.gz")), 1000u);
  ExpectRefused("other.txt exists already", {"gunzip", "other.txt.gz"});
  ExpectDone({"gunzip", "other.txt.gz", "-o", "back"});
  EXPECT_EQ(text, ReadWhole(temp_.Path("back")));
  EXPECT_EQ(fs::last_write_time(temp_.Path("other.txt")), fs::last_write_time(temp_.Path("back")));
  ExpectDone({"gzip", "back", "-o", "other.txt.gz", "--force", "--level", "9"});
  ExpectDone({"gunzip", "--force", "other.txt.gz"});
  EXPECT_EQ(text, ReadWhole(temp_.Path("other.txt")));
  const std::string whole = ReadWhole(temp_.Path("other.txt.gz"));
  temp_.Write("cut.gz", whole.substr(0, whole.size() - 5));
  ExpectRefused("damaged or cut off", {"gunzip", "cut.gz"});
  EXPECT_FALSE(fs::exists(temp_.Path("cut")));
  ExpectRefused("no gzip file", {"gunzip", "other.txt", "-o", "x"});
  ExpectRefused("--output", {"gunzip", "other.txt"});
  ExpectRefused("no such file: absent", {"gzip", "absent"});
}

TEST_F(ToolArchive, ShowsProgressUntilItIsInterrupted) {
  temp_.Write("hole", "");
  fs::resize_file(temp_.Path("hole"), std::uintmax_t{64} << 30);
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"gzip", "hole"}, {"zip", "hole.gz", "hole"}}) {
    Program program(words, {temp_.Path(), "", true});
    EXPECT_NE(std::string::npos, program.WaitFor(" left").find("  [..")) << words[0];
    program.Signal(SIGINT);
    EXPECT_EQ(1, program.Finish().code) << words[0];
    EXPECT_FALSE(fs::exists(temp_.Path("hole.gz"))) << words[0];
  }
}

}  // namespace
}  // namespace qvx::test
