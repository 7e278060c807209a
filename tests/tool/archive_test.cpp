// qvx zip, unzip, gzip and gunzip.
#include <signal.h>

#include <filesystem>
#include <string>

#include "tool/program.h"

namespace qvx::test {
namespace {

namespace fs = std::filesystem;

class ToolArchive : public ToolTest {
 protected:
  ToolArchive() {
    fs::create_directories(Path("tree/sub"));
    temp_.Write("tree/sub/no:te", "content");
    temp_.Write("tree/.hidden", "hidden");
    temp_.Write("other.txt", std::string(100000, 'o'));
  }
};

TEST_F(ToolArchive, ZipAndUnzip) {
  Done("zip a.zip tree other.txt");
  const std::string list = Done("unzip -l a.zip");
  for (const char* line :
       {"  tree/sub/no:te\n", "      100000  ", "      100007  in 4 entries\n"}) {
    EXPECT_NE(std::string::npos, list.find(line)) << list;
  }
  Done("unzip a.zip -d new/out");
  EXPECT_EQ("content", Read("new/out/tree/sub/no:te"));
  EXPECT_FALSE(fs::exists(Path("new/out/tree/.hidden")));
  ExpectRefused("out/tree/sub/no:te exists already", "unzip a.zip -d new/out");
  Done("unzip a.zip -d new/out --force");
  Done("unzip a.zip -d flat --flat");
  EXPECT_EQ("content", Read("flat/no:te"));
  ExpectRefused("exists already", "zip a.zip tree");
  Done("zip -f a.zip tree/.");
  Done("unzip a.zip -d dot");
  EXPECT_EQ("content", Read("dot/sub/no:te"));

  temp_.Write("[a,b]", "brackets");
  Done("zip c.zip tree [a,b]");
  EXPECT_NE(std::string::npos, Done("unzip -l c.zip").find("  [a,b]\n"));
  ExpectRefused("no such file or folder: absent", "zip b.zip tree absent");
  ExpectRefused("not expected: --wrong", "zip b.zip tree --wrong");
  ExpectRefused("cannot write no/such/b.zip", "zip no/such/b.zip tree");
  ExpectRefused("tree is a folder", "zip tree other.txt");
  ExpectRefused("no such file: absent", "unzip absent");
  ExpectRefused("other.txt is no zip archive", "unzip other.txt");
  ExpectRefused("--max-size", "unzip a.zip -d x --max-size 6");
  std::string damaged = Read("a.zip");
  damaged[damaged.find("content") == std::string::npos ? 80 : damaged.find("content")] ^= 1;
  temp_.Write("damaged.zip", damaged);
  EXPECT_EQ(1, Run("unzip damaged.zip -d x").code);
  EXPECT_FALSE(fs::exists(Path("b.zip")) || fs::exists(Path("x/sub/no:te")));
}

TEST_F(ToolArchive, GzipAndGunzip) {
  const std::string text = Read("other.txt");
  Done("gzip other.txt");
  EXPECT_LT(fs::file_size(Path("other.txt.gz")), 1000u);
  ExpectRefused("other.txt exists already", "gunzip other.txt.gz");
  Done("gunzip other.txt.gz -o back");
  EXPECT_EQ(text, Read("back"));
  EXPECT_EQ(fs::last_write_time(Path("other.txt")), fs::last_write_time(Path("back")));
  Done("gzip back -o other.txt.gz --force --level 9");
  Done("gunzip --force other.txt.gz");
  EXPECT_EQ(text, Read("other.txt"));
  const std::string whole = Read("other.txt.gz");
  temp_.Write("cut.gz", whole.substr(0, whole.size() - 5));
  ExpectRefused("damaged or cut off", "gunzip cut.gz");
  EXPECT_FALSE(fs::exists(Path("cut")));
  ExpectRefused("no gzip file", "gunzip other.txt -o x");
  ExpectRefused("--output", "gunzip other.txt");
  ExpectRefused("no such file: absent", "gzip absent");
}

TEST_F(ToolArchive, ShowsProgressUntilItIsInterrupted) {
  temp_.Write("hole", "");
  fs::resize_file(Path("hole"), std::uintmax_t{64} << 30);
  for (const char* words : {"gzip hole", "zip hole.gz hole"}) {
    Program program(words, {.folder = folder_, .on_terminal = true});
    EXPECT_NE(std::string::npos, program.WaitFor(" left").find("  [..")) << words;
    program.Signal(SIGINT);
    EXPECT_EQ(1, program.Finish().code) << words;
    EXPECT_FALSE(fs::exists(Path("hole.gz"))) << words;
  }
}

}  // namespace
}  // namespace qvx::test
