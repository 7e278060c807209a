// The commands that need no file server: usage, hexdump, log, demo, and the packet relay.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/temp_folder.h"
#include "tool/program.h"

namespace qvx::test {
namespace {

TEST(Tool, UsageAndItsErrors) {
  for (const char* command :
       {"serve", "ls", "get", "put", "rm", "mkdir", "mv", "md5", "size", "demo", "listen", "send",
        "hexdump", "log", "sum", "image", "thermal", "number", "config"}) {
    const ProgramResult help = RunProgram({command, "--help"});
    EXPECT_EQ(0, help.code) << command;
    EXPECT_NE(std::string::npos, help.out.find("Usage: qvx " + std::string(command))) << help.out;
  }
  const std::vector<std::vector<std::string>> wrong{
      {},
      {"nonsense"},
      {"ls"},
      {"ls", ""},
      {"ls", "localhost:0"},
      {"ls", "127.0.0.1:1"},
      {"serve", "--folder", "x=/"},
      {"serve", "--listen", "somewhere"},
      {"get", "127.0.0.1:1", "/a", "--no-such-option"},
      {"send", "127.0.0.1:1", "--to", "nobody"}};
  for (const std::vector<std::string>& arguments : wrong) {
    const ProgramResult result = RunProgram(arguments);
    EXPECT_EQ(1, result.code);
    EXPECT_EQ(1u, result.ErrorLines().size()) << result.err;
    EXPECT_EQ(0u, result.err.find("qvx: ")) << result.err;
  }
}

TEST(Tool, Hexdump) {
  const TempFolder temp;
  std::string bytes = "0123456789abcdefA";
  bytes[1] = '\0';
  bytes[2] = '\xff';
  const std::string path = temp.Write("bytes", bytes);
  EXPECT_EQ(
      "00000000  30 00 ff 33 34 35 36 37 38 39 61 62 63 64 65 66  |0..3456789abcdef|\n"
      "00000010  41                                               |A|\n",
      RunProgram({"hexdump", path}).out);
  EXPECT_EQ("0000000e  65 66                                            |ef|\n",
            RunProgram({"hexdump", path, "--skip", "14", "--length", "2"}).out);
  const ProgramResult absent = RunProgram({"hexdump", temp.Path("absent")});
  EXPECT_EQ(1, absent.code);
  EXPECT_EQ("qvx: cannot open " + temp.Path("absent") + ": No such file or directory\n",
            absent.err);
}

TEST(Tool, Sum) {
  const TempFolder temp;
  const std::string path = temp.Write("check", "123456789");
  const std::string md5 = "25f9e794323b453885f5181f1b624d0b  " + path + "\n";
  EXPECT_EQ(md5 + "29b1  " + path + "\n" + "0376e6e7  " + path + "\n",
            RunProgram({"sum", path, "--crc32", "--md5", "--crc16", "ccitt_false"}).out);
  const std::vector<std::vector<std::string>> wrong{{"sum", path},
                                                    {"sum", path, "--crc16", "nonsense"},
                                                    {"sum", temp.Path(), "--md5"},
                                                    {"sum", temp.Path("absent"), "--md5"}};
  for (const std::vector<std::string>& arguments : wrong) {
    const ProgramResult result = RunProgram(arguments);
    EXPECT_EQ(1, result.code);
    EXPECT_EQ("", result.out);
    EXPECT_EQ(1u, result.ErrorLines().size()) << result.err;
  }
}

TEST(Tool, LogShowsTheLibrarysLines) {
  const std::vector<std::string> command{QVX_TOOL_PATH, "ls", "127.0.0.1:1"};
  std::vector<std::string> plain{"log", "--"};
  plain.insert(plain.end(), command.begin(), command.end());
  const ProgramResult result = RunProgram(plain);
  EXPECT_EQ(1, result.code);
  // The program's own line may come before the log's.
  EXPECT_NE(std::string::npos, ("\n" + result.err).find("\nQVXM_LOG ")) << result.err;
  EXPECT_NE(std::string::npos, result.err.find("[E]=> AsyncConnect 127.0.0.1 failed"));
  EXPECT_EQ(std::string::npos, result.err.find('\033'));
  EXPECT_EQ(std::string::npos, result.err.find('\r'));
  EXPECT_NE(std::string::npos, result.ErrorLines().back().find("ended with status 1"));

  std::vector<std::string> coloured{"log", "--colour", "always", "--"};
  coloured.insert(coloured.end(), command.begin(), command.end());
  EXPECT_NE(std::string::npos, RunProgram(coloured).err.find("\033[1;31mQVXM_LOG "));
  EXPECT_EQ("qvx: cannot run /no/such/program: No such file or directory\n",
            RunProgram({"log", "--", "/no/such/program"}).err);
  EXPECT_EQ(0, RunProgram({"log", "--", "/bin/true"}).code);
}

TEST(Tool, DemoComparesAndCleansUp) {
  const TempFolder temp;
  std::filesystem::create_directories(temp.Path("tree/sub"));
  std::filesystem::create_directories(temp.Path("tree/build"));
  std::filesystem::create_directory(temp.Path("tmp"));
  temp.Write("tree/a", "a");
  temp.Write("tree/sub/b", "");
  temp.Write("tree/build/c", "c");
  const ProgramResult result =
      RunProgram({"demo", "--tree", temp.Path("tree"), "--size", "1500000"},
                 {"", "TMPDIR=" + temp.Path("tmp"), false});
  EXPECT_EQ(0, result.code) << result.err;
  EXPECT_NE(std::string::npos, result.out.find("the MD5 of all 3 files is equal")) << result.out;
  EXPECT_TRUE(std::filesystem::is_empty(temp.Path("tmp")));
}

std::string NumberOf(Program& client) {
  const std::string line = client.WaitFor("* you are client ");
  return line.substr(line.rfind(' ') + 1);
}

TEST(Tool, RelayBetweenThreeClients) {
  Program server({"listen", "0"});
  const std::string line = server.WaitFor("* listening on ");
  const std::string address = line.substr(line.rfind(' ') + 1);
  Program first({"send", address});
  const std::string first_number = NumberOf(first);
  Program second({"send", address, "--to", "server"});
  const std::string second_number = NumberOf(second);
  Program third({"send", address, "--to", second_number});
  const std::string third_number = NumberOf(third);

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
