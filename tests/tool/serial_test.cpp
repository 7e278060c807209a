#include <gtest/gtest.h>

#include <string>

#include "serial/pseudo_terminal.h"
#include "support/temp_folder.h"
#include "tool/program.h"

namespace qvx::test {
namespace {

TEST(Serial, SendsAndReceivesFiles) {
  const TempFolder temp;
  const std::string bytes(100000, 'q');
  const std::string file = temp.Write("file", bytes);
  {
    PseudoTerminal far("COM1");
    Program send({"serial", "send", far.Path(), file, "--baud", "12345", "--mode", "8n2"});
    EXPECT_TRUE(bytes == far.Receive(bytes.size()));
    const ProgramResult result = send.Finish();
    EXPECT_EQ(0, result.code);
    EXPECT_EQ("100000 bytes sent\n", result.err);
  }
  PseudoTerminal far("COM1");
  Program receive({"serial", "recv", far.Path(), "-o", temp.Path("copy"), "--bytes", "100000"});
  receive.WaitFor("receiving");
  EXPECT_TRUE(far.Send(bytes));
  EXPECT_EQ("100000 bytes received\n", receive.Finish().out.substr(15 + far.Path().size() + 1));
  EXPECT_TRUE(bytes == ReadWhole(temp.Path("copy")));
}

TEST(Serial, IsASmallTerminal) {
  PseudoTerminal far("COM1");
  Program terminal({"serial", "term", far.Path()});
  terminal.Type("hello");
  EXPECT_EQ("hello", far.Receive(5));
  EXPECT_TRUE(far.Send("world\n"));
  terminal.WaitFor("world");
  terminal.Type("\x1Dmore");
  terminal.EndInput();
  EXPECT_EQ("\x1Dmore", far.Receive(5));
  EXPECT_EQ(0, terminal.Finish().code);

  PseudoTerminal pulled("COM2");
  Program cut({"serial", "term", pulled.Path()});
  cut.Type("x");
  EXPECT_EQ("x", pulled.Receive(1));
  pulled.Pull();
  const ProgramResult result = cut.Finish();
  EXPECT_EQ(1, result.code);
  EXPECT_EQ("qvx: the port " + pulled.Path() + " is gone\n", result.err);
}

TEST(Serial, TellsWhatIsWrong) {
  EXPECT_EQ(0, RunProgram({"serial", "list"}).code);
  PseudoTerminal far("COM1");
  for (const char* mode : {"8X1", "9N1", "8N", "8N1.5", "4N1"}) {
    EXPECT_EQ(1, RunProgram({"serial", "term", far.Path(), "--mode", mode}).code) << mode;
  }
  EXPECT_EQ("qvx: there is no port COM77 (see qvx serial list)\n",
            RunProgram({"serial", "send", "COM77"}).err);
  EXPECT_EQ(1, RunProgram({"serial", "recv", far.Path(), "--bytes", "5", "--seconds", "0.3"}).code);
}

}  // namespace
}  // namespace qvx::test
