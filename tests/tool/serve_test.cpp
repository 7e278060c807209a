// The file server and the client commands, as programs of their own that talk over TCP.
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/packet_bytes.h"
#include "tool/program.h"

namespace qvx::test {
namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

// With a `qvx serve` of each test's own; the commands run in the folder here.
class ToolFiles : public ToolTest {
 protected:
  ToolFiles() {
    fs::create_directory(there_);
    folder_ = Path("here");
    fs::create_directory(folder_);
  }

  ~ToolFiles() override {
    server_.Signal(SIGTERM);
    const ProgramResult result = server_.Finish();
    EXPECT_EQ(0, result.code) << result.err;
    EXPECT_NE(std::string::npos, result.out.find("stopped\n"));
  }

  // COMMAND SERVER ARGUMENT...
  Words At(const std::string& command, std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {command, address_});
    return arguments;
  }

  std::string There(const std::string& name) const { return there_ + "/" + name; }

  // Names below a folder, hidden ones too.
  static Names Below(const std::string& folder) {
    Names names;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      names.push_back(entry.path().lexically_relative(folder).string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  const std::string there_ = Path("there");
  Program server_{"serve --port 0 -v --folder 1=" + temp_.Path()};
  const std::string address_ = server_.WordAfter("serving on ");
};

TEST_F(ToolFiles, RoundTripOfOneFile) {
  const std::string content = Pattern(600000);
  temp_.Write("here/a file", content);
  Done(At("mkdir", {There("sub")}));
  const std::string put = Done(At("put", {"a file", There("sub"), "--verify"}));
  EXPECT_NE(std::string::npos, put.find("verified")) << put;
  EXPECT_EQ(content, Read("there/sub/a file"));
  EXPECT_EQ("a file\n", Done(At("ls", {There("sub")})));
  EXPECT_EQ("                 sub/\n", Done(At("ls", {"-l", there_})));
  EXPECT_EQ("         600000  a file\n", Done(At("ls", {"-l", There("sub/a file")})));
  temp_.Write("there/abc", "abc");
  temp_.Write("there/empty", "");
  EXPECT_EQ("600000  there/sub/a file\n0  there/empty\n",
            Done(At("size", {"there/sub/a file", "there/empty", "--folder", "1"})));
  EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72  " + There("abc") +
                "\nd41d8cd98f00b204e9800998ecf8427e  " + There("empty") + "\n",
            Done(At("md5", {There("abc"), There("empty")})));
  Done(At("rm", {There("abc"), There("empty")}));

  Done(At("mv", {There("sub/a file"), There("b")}));
  EXPECT_EQ(Names({"b", "sub"}), Below(there_));
  Done(At("get", {There("b"), "c", "--verify"}));
  EXPECT_EQ(content, Read("here/c"));
  Done(At("rm", {There("b")}));
  EXPECT_EQ(Names({"sub"}), Below(there_));
}

TEST_F(ToolFiles, RefusesWhatWouldLoseData) {
  temp_.Write("there/old", "old");
  temp_.Write("here/new", "new");
  fs::create_directory(There("folder"));
  temp_.Write("there/folder/inside", "x");
  ExpectRefused("exists already", At("put", {"new", There("old")}));
  ExpectRefused("exists already", At("get", {There("old"), "new"}));
  ExpectRefused("exists already", At("mv", {There("folder/inside"), There("old")}));
  ExpectRefused("exists already", At("mkdir", {There("folder")}));
  ExpectRefused("--recursive", At("rm", {There("folder")}));
  ExpectRefused("no such", At("get", {There("absent")}));
  ExpectRefused("no such", At("put", {"absent", There("x")}));
  ExpectRefused("no such", At("rm", {There("absent")}));
  ExpectRefused("no such", At("ls", {There("absent")}));
  ExpectRefused("no such file", At("md5", {There("absent")}));
  ExpectRefused("no such file", At("size", {there_}));
  ExpectRefused("no folder 7", At("ls", {"--folder", "7"}));
  ExpectRefused("too long", At("get", {"/" + std::string(300, 'n')}));
  EXPECT_EQ(Names({"folder", "folder/inside", "old"}), Below(there_));
  EXPECT_EQ("old", Read("there/old"));
  EXPECT_EQ("new", Read("here/new"));

  Done(At("put", {"new", There("old"), "--force"}));
  EXPECT_EQ("new", Read("there/old"));
  temp_.Write("here/new", "changed");
  Done(At("get", {There("old"), "new", "--force"}));
  EXPECT_EQ("new", Read("here/new"));
  Done(At("rm", {"-r", There("folder")}));
  EXPECT_EQ(Names({"folder", "old"}), Below(there_));
  EXPECT_EQ(Names({"new"}), Below(folder_));
}

TEST_F(ToolFiles, FoldersBothWays) {
  const Names files{"top", "sub folder/\xe6\x96\x87\xe4\xbb\xb6", "sub folder/a\\b",
                    "sub folder/deep/not\xff utf8", "sub folder/deep/star*?:"};
  fs::create_directories(Path("here/tree/sub folder/deep"));
  fs::create_directory(Path("here/tree/empty"));
  for (const std::string& file : files) temp_.Write("here/tree/" + file, file);
  temp_.Write("here/tree/.hidden", "h");

  const std::string put = Done(At("put", {"tree", there_, "--verify"}));
  EXPECT_NE(std::string::npos, put.find("copied 5 files in 4 folders")) << put;
  EXPECT_NE(std::string::npos, put.find("left out 1 hidden")) << put;
  Done(At("get", {There("tree"), "back", "--verify"}));
  fs::remove(Path("here/tree/.hidden"));
  const Names names = Below(Path("here/tree"));
  EXPECT_EQ(names, Below(There("tree")));
  EXPECT_EQ(names, Below(Path("here/back")));
  for (const std::string& file : files) EXPECT_EQ(file, Read("here/back/" + file));

  ExpectRefused("exists already", At("get", {There("tree"), "."}));
  Done(At("get", {There("tree"), ".", "--force"}));
  EXPECT_EQ(names, Below(Path("here/tree")));
}

TEST_F(ToolFiles, FolderCopyNamesWhatItCannotCopy) {
  const std::string deep = "here/tree/" + std::string(100, 'd') + "/" + std::string(60, 'e');
  fs::create_directories(Path(deep));
  temp_.Write("here/tree/good", "good");
  temp_.Write(deep + "/" + std::string(100, 'f'), "too long");
  ASSERT_EQ(0, mkfifo(Path("here/tree/pipe").c_str(), 0600));
  fs::create_symlink("absent", Path("here/tree/dangling"));
  const ProgramResult result = Run(At("put", {"tree", there_}));
  EXPECT_EQ(1, result.code);
  EXPECT_NE(std::string::npos, result.out.find("copied 1 file ")) << result.out;
  for (const char* name : {"pipe: neither a file nor a folder\n", "ffff: a path is too long\n",
                           "dangling: the local file cannot be opened\n"}) {
    EXPECT_NE(std::string::npos, result.err.find(name)) << name << result.err;
  }
  EXPECT_TRUE(result.err.ends_with("\nqvx: 3 entries could not be copied\n")) << result.err;
  EXPECT_EQ("good", Read("there/tree/good"));
}

// Slow enough to be in the middle of the file when the signal comes.
TEST_F(ToolFiles, AnInterruptedCopyLeavesNothing) {
  const std::string content = Pattern(48u << 20);
  temp_.Write("here/big", content);
  temp_.Write("there/big", content);
  const struct {
    Words words;
    const char* request;
    int signal, code;
    const char* err;
  } cases[] = {
      {At("put", {"big", There("copy"), "--limit", "4000000"}), " write #", SIGINT, 1,
       "qvx: interrupted\n"},
      {At("get", {There("big"), "copy", "--limit", "4000000"}), " read #", SIGTERM, 1,
       "qvx: interrupted\n"},
      {At("put", {"big", There("copy"), "--limit", "4000000"}), " write #", SIGKILL, -SIGKILL, ""}};
  for (const auto& [words, request, signal, code, err] : cases) {
    Program copy(words, {.folder = folder_});
    server_.WaitFor(request);
    copy.Signal(signal);
    const ProgramResult result = copy.Finish();
    EXPECT_EQ(code, result.code);
    EXPECT_EQ(err, result.err);
    if (signal == SIGKILL) server_.WaitFor("left an upload unfinished; removed ");
    server_.WaitFor(" disconnected");
  }
  EXPECT_EQ(Names({"big"}), Below(there_));
  EXPECT_EQ(Names({"big"}), Below(folder_));
}

TEST_F(ToolFiles, TimeLimitEndsACopy) {
  temp_.Write("here/big", Pattern(4u << 20));
  ExpectRefused("big was not copied: ",
                At("put", {"big", There("big"), "--limit", "2000000", "--timeout", "0.3"}));
  EXPECT_EQ(Names(), Below(there_));
}

TEST_F(ToolFiles, BarOnATerminal) {
  temp_.Write("here/big", Pattern(2u << 20));
  const ProgramResult result = Run(At("put", {"big", There("big"), "--limit", "4000000"}),
                                   {.folder = folder_, .on_terminal = true});
  EXPECT_EQ(0, result.code) << result.err;
  for (const char* part : {"\r\033[K", "[###", "%  ", "/s", " left", "copied big"}) {
    EXPECT_NE(std::string::npos, result.out.find(part)) << part << " in " << result.out;
  }
  const std::string plain = Done(At("get", {There("big"), "again", "--limit", "4000000"}));
  EXPECT_EQ(std::string::npos, plain.find('\r'));
}

TEST_F(ToolFiles, ServerTellsConnectionsAndRequests) {
  temp_.Write("there/a", "abc");
  Done(At("get", {There("a")}));
  EXPECT_TRUE(server_.WaitFor(" connected").starts_with("127.0.0.1:"));
  for (const std::string& words : {" open " + There("a") + " rb", std::string(" size #"),
                                   std::string(" close #"), std::string(" disconnected")}) {
    server_.WaitFor(words);
  }
  const std::string port = address_.substr(address_.find(':') + 1);
  ExpectRefused("qvx: cannot listen on " + address_ + "\n", "serve --port " + port);
}

}  // namespace
}  // namespace qvx::test
