#include <string>

#include "serial/pseudo_terminal.h"
#include "tool/program.h"

namespace qvx::test {
namespace {

class ToolSerial : public ToolTest {
 protected:
  PseudoTerminal far_{"COM1"};
};

TEST_F(ToolSerial, SendsAndReceivesFiles) {
  const std::string bytes(100000, 'q');
  temp_.Write("file", bytes);
  Program send("serial send " + far_.Path() + " " + Path("file") + " --baud 12345 --mode 8n2");
  EXPECT_TRUE(bytes == far_.Receive(bytes.size()));
  const ProgramResult sent = send.Finish();
  EXPECT_EQ(0, sent.code);
  EXPECT_EQ("100000 bytes sent\n", sent.err);

  PseudoTerminal other("COM2");
  Program receive("serial recv " + other.Path() + " -o " + Path("copy") + " --bytes 100000");
  receive.WaitFor("receiving");
  EXPECT_TRUE(other.Send(bytes));
  EXPECT_TRUE(receive.Finish().out.ends_with("\n100000 bytes received\n"));
  EXPECT_TRUE(bytes == Read("copy"));
}

TEST_F(ToolSerial, IsASmallTerminal) {
  Program terminal("serial term " + far_.Path());
  terminal.Type("hello");
  EXPECT_EQ("hello", far_.Receive(5));
  EXPECT_TRUE(far_.Send("world\n"));
  terminal.WaitFor("world");
  terminal.Type("\x1Dmore");
  terminal.EndInput();
  EXPECT_EQ("\x1Dmore", far_.Receive(5));
  EXPECT_EQ(0, terminal.Finish().code);

  PseudoTerminal pulled("COM2");
  Program cut("serial term " + pulled.Path());
  cut.Type("x");
  EXPECT_EQ("x", pulled.Receive(1));
  pulled.Pull();
  const ProgramResult result = cut.Finish();
  EXPECT_EQ(1, result.code);
  EXPECT_EQ("qvx: the port " + pulled.Path() + " is gone\n", result.err);
}

TEST_F(ToolSerial, TellsWhatIsWrong) {
  Done("serial list");
  for (const char* mode : {"8X1", "9N1", "8N", "8N1.5", "4N1"}) {
    ExpectRefused("", "serial term " + far_.Path() + " --mode " + mode);
  }
  ExpectRefused("qvx: there is no port COM77 (see qvx serial list)\n", "serial send COM77");
  EXPECT_EQ(1, Run("serial recv " + far_.Path() + " --bytes 5 --seconds 0.3").code);
}

}  // namespace
}  // namespace qvx::test
