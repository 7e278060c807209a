// The commands that need no server of files: usage, files, texts, processes, log and demo, and the
// packet relay.
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tool/program.h"

namespace qvx::test {
namespace {

namespace fs = std::filesystem;

using Tool = ToolTest;

TEST_F(Tool, UsageAndItsErrors) {
  for (const std::string command :
       {"serve",   "ls",     "get",    "put",  "rm",      "mkdir", "mv",  "md5",
        "size",    "demo",   "listen", "send", "hexdump", "log",   "sum", "image",
        "thermal", "number", "config", "ps",   "run",     "cpu"}) {
    const std::string help = Done(command + " --help");
    EXPECT_NE(std::string::npos, help.find("Usage: qvx " + command)) << help;
  }
  const Words wrong[] = {"",
                         "nonsense",
                         "ls",
                         {"ls", ""},
                         "ls localhost:0",
                         "ls 127.0.0.1:1",
                         "serve --folder x=/",
                         "serve --listen somewhere",
                         "get 127.0.0.1:1 /a --no-such-option",
                         "send 127.0.0.1:1 --to nobody"};
  for (const Words& words : wrong) ExpectRefused("", words);
}

TEST_F(Tool, Hexdump) {
  std::string bytes = "0123456789abcdefA";
  bytes[1] = '\0';
  bytes[2] = '\xff';
  temp_.Write("bytes", bytes);
  EXPECT_EQ(
      "00000000  30 00 ff 33 34 35 36 37 38 39 61 62 63 64 65 66  |0..3456789abcdef|\n"
      "00000010  41                                               |A|\n",
      Done("hexdump bytes"));
  EXPECT_EQ("0000000e  65 66                                            |ef|\n",
            Done("hexdump bytes --skip 14 --length 2"));
  ExpectRefused("qvx: cannot open absent: No such file or directory\n", "hexdump absent");
}

TEST_F(Tool, Sum) {
  temp_.Write("check", "123456789");
  EXPECT_EQ("25f9e794323b453885f5181f1b624d0b  check\n29b1  check\n0376e6e7  check\n",
            Done("sum check --crc32 --md5 --crc16 ccitt_false"));
  for (const char* wrong :
       {"sum check", "sum check --crc16 nonsense", "sum . --md5", "sum absent --md5"}) {
    ExpectRefused("", wrong);
  }
}

TEST_F(Tool, Number) {
  EXPECT_EQ("一亿二千三百四十五万六千七百八十九\n", Done("number 123456789 --chinese"));
  EXPECT_EQ("负十五\n", Done("number --chinese -- -15"));
  EXPECT_EQ("3W5E11264SGSF\n", Done("number 18446744073709551615 --radix36"));
  EXPECT_EQ("hexadecimal  24\nbase 36      10\nChinese      三十六\n", Done("number 36"));
  ExpectRefused("", "number 4294967296 --chinese");
  ExpectRefused("", "number 1x");
}

TEST_F(Tool, Config) {
  temp_.Write("file", "a=1\r\nba=x\nb=old\nB=old");
  fs::create_symlink("file", Path("link"));
  fs::permissions(Path("file"), fs::perms(0640));
  EXPECT_EQ("1\n", Done("config get file a"));
  ExpectRefused("qvx: no absent in file\n", "config get file absent");
  Done("config set file a 2");
  Done("config set link b OLD");
  EXPECT_EQ("a=2\r\nba=x\nb=OLD\nB=old", Read("file"));
  Done({"config", "set", "file", "c", "new = value"});
  EXPECT_EQ("a=2\r\nba=x\nb=OLD\nB=old\nc=new = value\n", Read("file"));
  EXPECT_TRUE(fs::is_symlink(Path("link")));
  EXPECT_EQ(fs::perms(0640), fs::status(Path("file")).permissions());

  Done("config set listed a 1 --separator ;");
  Done("config set listed b 2 --separator ;");
  EXPECT_EQ("2\n", Done("config get listed b --separator ;"));
  for (const char* wrong : {"get none a", "get . a", "get listed a=b",
                            "set listed a 1;2 --separator ;", "set none/x a 1", "set listed a"}) {
    ExpectRefused("", "config " + std::string(wrong));
  }
  EXPECT_EQ("a=1;b=2", Read("listed"));
  EXPECT_EQ(3, std::distance(fs::directory_iterator(folder_), {}));
}

TEST_F(Tool, ProcessesAndCommands) {
  EXPECT_EQ("[a  b][']", Done({"run", "--", "printf", "[%s]", "a  b", "'"}));
  const ProgramResult shell = Run({"run", "--shell", "--", "echo", "$((1+1));", "exit 3"});
  EXPECT_EQ(1, shell.code);
  EXPECT_EQ("2\n", shell.out);
  EXPECT_EQ("qvx: echo ended with status 3\n", shell.err);
  ExpectRefused("qvx: cannot run /no/such/program\n", "run /no/such/program");
  const std::string list = Done("ps TOOL_test");
  EXPECT_NE(std::string::npos, list.find(" " + std::to_string(getpid()) + " ")) << list;
  ExpectRefused("qvx: no process runs no such\n", {"ps", "no such"});
  EXPECT_TRUE(Done("cpu").starts_with("vendor "));
}

TEST_F(Tool, LogShowsTheLibrarysLines) {
  const std::string command = " -- " QVX_TOOL_PATH " ls 127.0.0.1:1";
  const ProgramResult result = Run("log" + command);
  EXPECT_EQ(1, result.code);
  // The program's own line may come before the log's.
  EXPECT_NE(std::string::npos, ("\n" + result.err).find("\nQVXM_LOG ")) << result.err;
  EXPECT_NE(std::string::npos, result.err.find("[E]=> AsyncConnect 127.0.0.1 failed"));
  EXPECT_EQ(std::string::npos, result.err.find_first_of("\033\r"));
  EXPECT_TRUE(result.err.ends_with("ended with status 1\n")) << result.err;

  EXPECT_NE(std::string::npos,
            Run("log --colour always" + command).err.find("\033[1;31mQVXM_LOG "));
  ExpectRefused("qvx: cannot run /no/such/program: No such file or directory\n",
                "log -- /no/such/program");
  EXPECT_EQ(0, Run("log -- /bin/true").code);
}

TEST_F(Tool, DemoComparesAndCleansUp) {
  for (const char* folder : {"tree/sub", "tree/build", "tmp"}) {
    fs::create_directories(Path(folder));
  }
  temp_.Write("tree/a", "a");
  temp_.Write("tree/sub/b", "");
  temp_.Write("tree/build/c", "c");
  const ProgramResult result = Run("demo --tree tree --size 1500000",
                                   {.folder = folder_, .environment = "TMPDIR=" + Path("tmp")});
  EXPECT_EQ(0, result.code) << result.err;
  EXPECT_NE(std::string::npos, result.out.find("the MD5 of all 3 files is equal")) << result.out;
  EXPECT_TRUE(fs::is_empty(Path("tmp")));
}

TEST_F(Tool, RelayBetweenThreeClients) {
  Program server("listen 0");
  const std::string send = "send " + server.WordAfter("* listening on ");
  Program first(send);
  const std::string first_number = first.WordAfter("* you are client ");
  Program second(send + " --to server");
  const std::string second_number = second.WordAfter("* you are client ");
  Program third(send + " --to " + second_number);
  const std::string third_number = third.WordAfter("* you are client ");

  first.Type("to others\n");
  second.WaitFor("to others");
  third.WaitFor("to others");
  second.Type("to the server\n/" + third_number + " to the third\n");
  EXPECT_EQ("client " + second_number + ": to the server", server.WaitFor("to the server"));
  third.WaitFor("to the third");
  third.Type("to the second \x1b[m\n");
  EXPECT_EQ("to the second \\x1b[m", second.WaitFor("to the second"));
  second.Type("/nobody lost\n/all to all\n");
  second.WaitFor("* not sent");
  for (Program* client : {&first, &second, &third}) client->WaitFor("to all");
  server.Type("from the server\n/" + first_number + " just you\n/1 nobody\n");
  server.WaitFor("* not sent");
  for (Program* client : {&first, &second, &third}) client->WaitFor("from the server");
  first.WaitFor("just you");

  first.EndInput();
  const ProgramResult left = first.Finish();
  EXPECT_EQ(0, left.code) << left.err;
  EXPECT_EQ("* you are client " + first_number + "\nto all\nfrom the server\njust you\n", left.out);
  server.WaitFor("* client " + first_number + " disconnected");
  server.Signal(SIGINT);
  EXPECT_EQ(0, server.Finish().code);
  const ProgramResult cut = second.Finish();
  EXPECT_EQ(1, cut.code);
  EXPECT_EQ("qvx: the server closed the connection\n", cut.err);
}

}  // namespace
}  // namespace qvx::test
