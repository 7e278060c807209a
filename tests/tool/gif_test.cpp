#include <gtest/gtest.h>

#include <string>

#include "support/temp_folder.h"
#include "tool/program.h"

namespace qvx::test {
namespace {

using namespace std::string_literals;

// Two frames of two by two pixels: red, then a green one over the right lower corner.
const std::string kGif =
    "GIF89a\2\0\2\0\x81\1\0\xFF\0\0\0\xFF\0\0\0\xFF\0\0\0"
    "!\xF9\4\4\7\0\0\0,\0\0\0\0\2\0\2\0\0\2\2\x84\x51\0"
    "!\xF9\4\4\0\0\0\0,\1\0\1\0\1\0\1\0\0\2\2\x4C\1\0;"s;

TEST(Gif, DescribesWritesAndPlays) {
  const TempFolder temp;
  const std::string file = temp.Write("two.gif", kGif);
  const std::string first = temp.Path("frames/two_0000.bmp");
  const std::string second = temp.Path("frames/two_0001.bmp");
  const std::string lines =
      file + ": 2 x 2, 2 frames\n     0      70 ms%\n     1       0 ms%\n"s + " total      70 ms\n";
  std::string expected = lines;
  for (const std::string& path : {first, second}) {
    expected.replace(expected.find('%'), 1, "  " + path);
  }
  EXPECT_EQ(expected, RunProgram({"gif", file, "-o", temp.Path("frames")}).out);
  EXPECT_EQ("\0\0\xFF\xFF"s, ReadWhole(first).substr(138 + 4, 4));
  EXPECT_EQ("\0\xFF\0\xFF"s, ReadWhole(second).substr(138 + 4, 4));  // the lowest row comes first

  const std::string red = "\033[38;2;255;0;0m";
  const std::string full = "\033[?25l" + red + "\033[48;2;255;0;0m\u2580\u2580\033[0m\n\033[1A" +
                           red + "\033[48;2;255;0;0m\u2580\033[48;2;0;255;0m\u2580\033[0m\n";
  EXPECT_EQ(full + "\033[?25h", RunProgram({"gif", file, "--play"}).out);

  Program endless({"gif", file, "--play"}, {"", "", true});
  endless.WaitFor("0;255;0");
  endless.WaitFor("0;255;0");
  endless.Signal(2);
  EXPECT_EQ(0, endless.Finish().code);
}

TEST(Gif, TellsWhatIsWrong) {
  const TempFolder temp;
  const std::string text = temp.Write("text", "GIF? no");
  const std::string cut = temp.Write("cut.gif", kGif.substr(0, kGif.size() - 1));
  std::string wide = kGif;
  wide.replace(6, 4, "\xFF\xFF\xFF\xFF");
  const std::string large = temp.Write("large.gif", wide);
  const std::string cases[][2] = {{temp.Path("none"), "cannot open " + temp.Path("none")},
                                  {text, text + " is no GIF"},
                                  {cut, cut + " is damaged"},
                                  {large, large + " is too large"}};
  for (const auto& [file, error] : cases) {
    const ProgramResult result = RunProgram({"gif", file});
    EXPECT_EQ(1, result.code);
    EXPECT_EQ(0u, result.err.find("qvx: " + error)) << result.err;
  }
  EXPECT_EQ(1, RunProgram({"gif", temp.Write("two.gif", kGif), "-o", text}).code);
}

}  // namespace
}  // namespace qvx::test
