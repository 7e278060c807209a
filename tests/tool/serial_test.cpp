#include <asm/termbits.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <string>

#include "platform/clock.h"
#include "serial/pseudo_terminal.h"
#include "support/temp_folder.h"
#include "tool/program.h"

namespace qvx::test {
namespace {

// Until the program has opened its side with this rate.
void AwaitRate(const PseudoTerminal& far, unsigned int rate) {
  termios2 terminal{};
  while (ioctl(far.Far(), TCGETS2, &terminal) == 0 && terminal.c_ospeed != rate) {
    platform::SleepMilliseconds(5);
  }
}

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
  Program receive({"serial", "recv", far.Path(), "-o", temp.Path("copy"), "--bytes", "100000",
                   "--baud", "54321"});
  AwaitRate(far, 54321);
  EXPECT_TRUE(far.Send(bytes));
  EXPECT_EQ(0, receive.Finish().code);
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

  Program cut({"serial", "term", far.Path(), "--baud", "4321"});
  AwaitRate(far, 4321);
  far.Pull();
  const ProgramResult result = cut.Finish();
  EXPECT_EQ(1, result.code);
  EXPECT_EQ("qvx: the port " + far.Path() + " is gone\n", result.err);
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
