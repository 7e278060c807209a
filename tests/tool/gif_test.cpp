#include <signal.h>

#include <string>

#include "tool/program.h"

namespace qvx::test {
namespace {

using namespace std::string_literals;
using ToolGif = ToolTest;

// Two frames of two by two pixels: red, then a green one over the right lower corner.
const std::string kGif =
    "GIF89a\2\0\2\0\x81\1\0\xFF\0\0\0\xFF\0\0\0\xFF\0\0\0"
    "!\xF9\4\4\7\0\0\0,\0\0\0\0\2\0\2\0\0\2\2\x84\x51\0"
    "!\xF9\4\4\0\0\0\0,\1\0\1\0\1\0\1\0\0\2\2\x4C\1\0;"s;

TEST_F(ToolGif, DescribesWritesAndPlays) {
  temp_.Write("two.gif", kGif);
  EXPECT_EQ(
      "two.gif: 2 x 2, 2 frames\n"
      "     0      70 ms  frames/two_0000.bmp\n"
      "     1       0 ms  frames/two_0001.bmp\n"
      " total      70 ms\n",
      Done("gif two.gif -o frames"));
  EXPECT_EQ("\0\0\xFF\xFF"s, Read("frames/two_0000.bmp").substr(138 + 4, 4));
  // The lowest row comes first.
  EXPECT_EQ("\0\xFF\0\xFF"s, Read("frames/two_0001.bmp").substr(138 + 4, 4));

  const std::string red = "\033[38;2;255;0;0m";
  const std::string full = "\033[?25l" + red + "\033[48;2;255;0;0m\u2580\u2580\033[0m\n\033[1A" +
                           red + "\033[48;2;255;0;0m\u2580\033[48;2;0;255;0m\u2580\033[0m\n";
  EXPECT_EQ(full + "\033[?25h", Done("gif two.gif --play"));

  Program endless("gif two.gif --play", {.folder = folder_, .on_terminal = true});
  endless.WaitFor("0;255;0");
  endless.WaitFor("0;255;0");
  endless.Signal(SIGINT);
  EXPECT_EQ(0, endless.Finish().code);
}

TEST_F(ToolGif, TellsWhatIsWrong) {
  temp_.Write("two.gif", kGif);
  temp_.Write("text", "GIF? no");
  temp_.Write("cut.gif", kGif.substr(0, kGif.size() - 1));
  temp_.Write("large.gif", std::string(kGif).replace(6, 4, "\xFF\xFF\xFF\xFF"));
  ExpectRefused("qvx: cannot open none", "gif none");
  ExpectRefused("qvx: text is no GIF", "gif text");
  ExpectRefused("qvx: large.gif is too large", "gif large.gif");
  const ProgramResult cut = Run("gif cut.gif");
  EXPECT_EQ(1, cut.code);
  EXPECT_TRUE(cut.err.starts_with("qvx: cut.gif is damaged")) << cut.err;
  EXPECT_EQ(1, Run("gif two.gif -o text").code);
}

}  // namespace
}  // namespace qvx::test
