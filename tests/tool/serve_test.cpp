// The file server and the client commands, as programs of their own that talk over TCP.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tool/server_fixture.h"

namespace qvx::test {
namespace {

namespace fs = std::filesystem;

std::string Pattern(std::size_t size) {
  std::string text(size, '\0');
  std::uint32_t state = 12345;
  for (char& c : text) c = static_cast<char>((state = state * 1664525u + 1013904223u) >> 24);
  return text;
}

using ToolFiles = WithServer;

TEST_F(ToolFiles, RoundTripOfOneFile) {
  const std::string content = Pattern(600000);
  temp_.Write("here/a file", content);
  Output("mkdir", {There("sub")});
  const std::string put = Output("put", {"a file", There("sub"), "--verify"});
  EXPECT_NE(std::string::npos, put.find("verified")) << put;
  EXPECT_EQ(content, ReadWhole(There("sub/a file")));
  EXPECT_EQ("a file\n", Output("ls", {There("sub")}));
  EXPECT_EQ("                 sub/\n", Output("ls", {"-l", there_}));
  EXPECT_EQ("         600000  a file\n", Output("ls", {"-l", There("sub/a file")}));
  EXPECT_EQ("600000  there/sub/a file\n", Output("size", {"there/sub/a file", "--folder", "1"}));

  Output("mv", {There("sub/a file"), There("b")});
  EXPECT_EQ(std::vector<std::string>({"b", "sub"}), Names(there_));
  Output("get", {There("b"), "c", "--verify"});
  EXPECT_EQ(content, ReadWhole(Here("c")));
  Output("rm", {There("b")});
  EXPECT_EQ(std::vector<std::string>({"sub"}), Names(there_));
}

TEST_F(ToolFiles, DigestsAndSizes) {
  temp_.Write("there/abc", "abc");
  temp_.Write("there/empty", "");
  EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72  " + There("abc") +
                "\nd41d8cd98f00b204e9800998ecf8427e  " + There("empty") + "\n",
            Output("md5", {There("abc"), There("empty")}));
  EXPECT_EQ("3  there/abc\n0  there/empty\n",
            Output("size", {"there/abc", "there/empty", "--folder", "1"}));
  ExpectRefused("no such file", "md5", {There("absent")});
  ExpectRefused("no such file", "size", {there_});
}

TEST_F(ToolFiles, RefusesWhatWouldLoseData) {
  temp_.Write("there/old", "old");
  temp_.Write("here/new", "new");
  fs::create_directory(There("folder"));
  temp_.Write("there/folder/inside", "x");
  ExpectRefused("exists already", "put", {"new", There("old")});
  ExpectRefused("exists already", "get", {There("old"), "new"});
  ExpectRefused("exists already", "mv", {There("folder/inside"), There("old")});
  ExpectRefused("exists already", "mkdir", {There("folder")});
  ExpectRefused("--recursive", "rm", {There("folder")});
  ExpectRefused("no such", "get", {There("absent")});
  ExpectRefused("no such", "put", {"absent", There("x")});
  ExpectRefused("no such", "rm", {There("absent")});
  ExpectRefused("no such", "ls", {There("absent")});
  ExpectRefused("no folder 7", "ls", {"--folder", "7"});
  ExpectRefused("too long", "get", {"/" + std::string(300, 'n')});
  EXPECT_EQ(std::vector<std::string>({"folder", "folder/inside", "old"}), Names(there_));
  EXPECT_EQ("old", ReadWhole(There("old")));
  EXPECT_EQ("new", ReadWhole(Here("new")));

  Output("put", {"new", There("old"), "--force"});
  EXPECT_EQ("new", ReadWhole(There("old")));
  temp_.Write("here/new", "changed");
  Output("get", {There("old"), "new", "--force"});
  EXPECT_EQ("new", ReadWhole(Here("new")));
  Output("rm", {"-r", There("folder")});
  EXPECT_EQ(std::vector<std::string>({"folder", "old"}), Names(there_));
  EXPECT_EQ(std::vector<std::string>({"new"}), Names(here_));
}

TEST_F(ToolFiles, FoldersBothWays) {
  const std::vector<std::string> files{"top", "sub folder/\xe6\x96\x87\xe4\xbb\xb6",
                                       "sub folder/a\\b", "sub folder/deep/not\xff utf8",
                                       "sub folder/deep/star*?:"};
  fs::create_directories(Here("tree/sub folder/deep"));
  fs::create_directory(Here("tree/empty"));
  for (const std::string& file : files) temp_.Write("here/tree/" + file, file);
  temp_.Write("here/tree/.hidden", "h");

  const std::string put = Output("put", {"tree", there_, "--verify"});
  EXPECT_NE(std::string::npos, put.find("copied 5 files in 4 folders")) << put;
  EXPECT_NE(std::string::npos, put.find("left out 1 hidden")) << put;
  Output("get", {There("tree"), "back", "--verify"});
  fs::remove(Here("tree/.hidden"));
  EXPECT_EQ(Names(Here("tree")), Names(There("tree")));
  EXPECT_EQ(Names(Here("tree")), Names(Here("back")));
  for (const std::string& file : files) EXPECT_EQ(file, ReadWhole(Here("back/" + file)));

  ExpectRefused("exists already", "get", {There("tree"), "."});
  Output("get", {There("tree"), ".", "--force"});
  EXPECT_EQ(Names(There("tree")), Names(Here("tree")));
}

TEST_F(ToolFiles, FolderCopyNamesWhatItCannotCopy) {
  const std::string deep = std::string(100, 'd') + "/" + std::string(60, 'e');
  fs::create_directories(Here("tree/" + deep));
  temp_.Write("here/tree/good", "good");
  temp_.Write("here/tree/" + deep + "/" + std::string(100, 'f'), "too long");
  ASSERT_EQ(0, mkfifo(Here("tree/pipe").c_str(), 0600));
  fs::create_symlink("absent", Here("tree/dangling"));
  const ProgramResult result = Run("put", {"tree", there_});
  EXPECT_EQ(1, result.code);
  EXPECT_NE(std::string::npos, result.out.find("copied 1 file ")) << result.out;
  for (const char* name : {"pipe: neither a file nor a folder\n", "ffff: a path is too long\n",
                           "dangling: the local file cannot be opened\n"})
    EXPECT_NE(std::string::npos, result.err.find(name)) << name << result.err;
  EXPECT_EQ("qvx: 3 entries could not be copied", result.ErrorLines().back());
  EXPECT_EQ("good", ReadWhole(There("tree/good")));
}

// Slow enough to be in the middle of the file when the signal comes.
TEST_F(ToolFiles, AnInterruptedCopyLeavesNothing) {
  const std::string content = Pattern(48u << 20);
  temp_.Write("here/big", content);
  temp_.Write("there/big", content);
  Program put(Words("put", {"big", There("copy"), "--limit", "4000000"}), {here_, "", false});
  server_.WaitFor(" write #");
  put.Signal(SIGINT);
  const ProgramResult put_result = put.Finish();
  EXPECT_EQ(1, put_result.code);
  EXPECT_EQ("qvx: interrupted\n", put_result.err);
  server_.WaitFor(" disconnected");

  Program get(Words("get", {There("big"), "copy", "--limit", "4000000"}), {here_, "", false});
  server_.WaitFor(" read #");
  get.Signal(SIGTERM);
  EXPECT_EQ("qvx: interrupted\n", get.Finish().err);
  server_.WaitFor(" disconnected");

  Program killed(Words("put", {"big", There("copy"), "--limit", "4000000"}), {here_, "", false});
  server_.WaitFor(" write #");
  killed.Signal(SIGKILL);
  EXPECT_EQ(-SIGKILL, killed.Finish().code);
  server_.WaitFor("left an upload unfinished; removed ");
  server_.WaitFor(" disconnected");
  EXPECT_EQ(std::vector<std::string>({"big"}), Names(there_));
  EXPECT_EQ(std::vector<std::string>({"big"}), Names(here_));
}

TEST_F(ToolFiles, TimeLimitEndsACopy) {
  temp_.Write("here/big", Pattern(4u << 20));
  ExpectRefused("big was not copied: ", "put",
                {"big", There("big"), "--limit", "2000000", "--timeout", "0.3"});
  EXPECT_EQ(std::vector<std::string>(), Names(there_));
}

TEST_F(ToolFiles, BarOnATerminal) {
  temp_.Write("here/big", Pattern(2u << 20));
  Program put(Words("put", {"big", There("big"), "--limit", "4000000"}), {here_, "", true});
  const ProgramResult result = put.Finish();
  EXPECT_EQ(0, result.code) << result.err;
  for (const char* part : {"\r\033[K", "[###", "%  ", "/s", " left", "copied big"})
    EXPECT_NE(std::string::npos, result.out.find(part)) << part << " in " << result.out;
  const std::string plain = Output("get", {There("big"), "again", "--limit", "4000000"});
  EXPECT_EQ(std::string::npos, plain.find('\r'));
}

TEST_F(ToolFiles, ServerTellsConnectionsAndRequests) {
  temp_.Write("there/a", "abc");
  Output("get", {There("a")});
  EXPECT_EQ(0u, server_.WaitFor(" connected").find("127.0.0.1:"));
  for (const std::string& words : {" open " + There("a") + " rb", std::string(" size #"),
                                   std::string(" close #"), std::string(" disconnected")})
    server_.WaitFor(words);
  const std::string port = address_.substr(address_.find(':') + 1);
  const ProgramResult second = RunProgram({"serve", "--port", port});
  EXPECT_EQ(1, second.code);
  EXPECT_EQ("qvx: cannot listen on " + address_ + "\n", second.err);
}

}  // namespace
}  // namespace qvx::test
