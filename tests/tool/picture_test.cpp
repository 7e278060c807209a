// The commands that make pictures: image, thermal and gif.
#include <signal.h>

#include <string>
#include <utility>

#include "tool/program.h"

namespace qvx::test {
namespace {

using namespace std::string_literals;

std::string Repeat(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

struct FlatPicture {
  std::string layout;
  std::string bytes;  // 4 x 2 pixels
};

// A red that comes out of every conversion as it went in: 248, 0, 0 is Y 80, U 91, V 237.
const std::string kY = Repeat("\x50", 8);
const FlatPicture kReds[] = {{"RGB888", Repeat("\0\0\xF8"s, 8)},
                             {"RGB565", Repeat("\0\xF8"s, 8)},
                             {"RGB555", Repeat("\0\x7C"s, 8)},
                             {"ARGB32", Repeat("\0\0\xF8\xFF"s, 8)},
                             {"YUV420", kY + Repeat("\x5B", 2) + Repeat("\xED", 2)},
                             {"YUV422", kY + Repeat("\x5B", 4) + Repeat("\xED", 4)},
                             {"YUV444", kY + Repeat("\x5B", 8) + Repeat("\xED", 8)},
                             {"YUV420SP", kY + Repeat("\x5B\xED", 2)},
                             {"YUYV", Repeat("\x50\x5B\x50\xED", 4)},
                             {"YUY2", Repeat("\x50\x5B\x50\xED", 4)},
                             {"YVY2", Repeat("\x50\xED\x50\x5B", 4)}};

class ToolPicture : public ToolTest {
 protected:
  // The BMP file that was made, as another program reads it: a raw PPM.
  std::string ReadBmp() const {
    return Done({"run", "--shell", "--", "bmptopnm -quiet out.BMP | ppmtoppm"});
  }
};

// A pixel of a raw PPM as 0xRRGGBB.
unsigned PixelOf(const std::string& ppm, std::size_t x, std::size_t y) {
  const auto width = static_cast<std::size_t>(std::stoi(ppm.substr(3)));
  const std::size_t start = ppm.find("\n255\n") + 5 + 3 * (y * width + x);
  unsigned pixel = 0;
  for (std::size_t i = 0; i < 3; ++i) pixel = pixel << 8 | (ppm.at(start + i) & 0xFFu);
  return pixel;
}

TEST_F(ToolPicture, EveryLayoutToEveryOther) {
  for (const FlatPicture& from : kReds) {
    temp_.Write("in", from.bytes);
    for (const FlatPicture& to : kReds) {
      Done("image in --size 4x2 -o out --from " + from.layout + " --to " + to.layout);
      ASSERT_EQ(Read("out"), to.bytes) << from.layout << " to " << to.layout;
    }
  }
  for (const FlatPicture& to : kReds) {  // from YVY2, which is still there
    const ProgramResult result =
        Run("image in --size 4x2 -o out.BMP --from yvy2 --to " + to.layout);
    const bool is_rgb = to.layout.find("RGB") != std::string::npos;
    EXPECT_EQ(is_rgb ? 0 : 1, result.code) << to.layout;
    if (!is_rgb) continue;
    const bool is_narrow = to.layout.find('5') != std::string::npos;
    EXPECT_EQ(ReadBmp(), "P6\n4 2\n255\n" + Repeat(is_narrow ? "\xFF\0\0"s : "\xF8\0\0"s, 8))
        << to.layout;
  }
}

TEST_F(ToolPicture, OrdersFramesAndMistakes) {
  temp_.Write("odd", "12345678xXy");
  temp_.Write("two", "12345678xXyYABCDEFGHpPqQ");
  const auto convert = [&](const std::string& more) {
    Done("image two -o out --size 4x2 " + more);
    return Read("out");
  };
  EXPECT_EQ(convert("--from YUV420 --to YUV420 --swap-in"), "12345678yYxX");
  EXPECT_EQ(convert("--from YUV420 --to YUV420 --frame 1 --swap-out"), "ABCDEFGHqQpP");
  EXPECT_EQ(convert("--from YUV420 --to YUV420SP --frame 1"), "ABCDEFGHpqPQ");
  EXPECT_EQ(convert("--from YUV420SP --to YUV420SP --swap-in"), "12345678XxYy");
  EXPECT_EQ(convert("--from YUV444 --to YUV444 --swap-out"), "12345678EFGHpPqQxXyYABCD");
  const std::string refused[][2] = {
      {"odd -o out --size 4x2 --from YUV420", "a frame of 4x2 YUV420 has"},
      {"two -o out --size 4x2 --from YUV420 --frame 2", "2 frames"},
      {"two -o out --size 4x3 --from YUV420", "needs an even height"},
      {"two -o out --size 3x4 --from YUY2", "needs an even width"},
      {"two -o out --size 4 --from YUY2", "must be like 1920x1080"},
      {"two -o out --size 0x2 --from YUY2", "must be like 1920x1080"},
      {"two -o out --size 50000x50000 --from YUY2", "too large"},
      {"two -o out --size 4x2 --from I420", "no such layout: I420"},
      {"two -o out.bmp --size 4x2 --from YUV420 --swap-out", "one order only"},
      {"two -o out --size 2x3 --from ARGB32 --swap-in", "one order"},
      {"two -o no/x --size 4x2 --from YUV420", "cannot write"},
      {"two -o no/x.bmp --size 4x2 --from YUV420", "cannot write"},
      {"no -o out --size 4x2 --from YUV420", "cannot read"}};
  for (const auto& [words, reason] : refused) ExpectRefused(reason, "image " + words);
}

TEST_F(ToolPicture, ThermalDrawsATableWithItsScale) {
  const struct {
    std::size_t x, y;
    unsigned colour;
  } pixels[] = {{15, 15, 0xFFFFFF},  {16, 16, 0x7565E8}, {26, 25, 0xFFFE00},
                {16, 26, 0xFF0000},  {35, 35, 0x7565E8}, {60, 16, 0xFF0000},
                {60, 271, 0x7565E8}, {77, 16, 0x202020}, {90, 9, 0x202020}};  // dots of 256 at last
  // One table in the forms that programs write it in.
  for (const char* text : {"0,128\n256,\n", "# head\r\n0;128,0\r\n\r\n256;nan\r\n",
                           "0\t128\n256\t\n", " 0   1.28e2 \n+256 nan"}) {
    temp_.Write("in.csv", text);
    EXPECT_EQ("2 x 2 values\n", Done("thermal in.csv -o out.BMP --range 0,256 --zoom 10"));
    const std::string ppm = ReadBmp();
    ASSERT_TRUE(ppm.starts_with("P6\n138 288\n")) << ppm.substr(0, 20);
    for (const auto& [x, y, colour] : pixels)
      EXPECT_EQ(colour, PixelOf(ppm, x, y)) << x << " " << y;
  }
}

TEST_F(ToolPicture, ThermalChoosesRangeAndColours) {
  temp_.Write("in", "-4,-2,0\n");
  using Pair = std::pair<unsigned, unsigned>;
  const auto colours = [&](const std::string& more) {
    Done("thermal in -o out.BMP --zoom 1 " + more);
    const std::string ppm = ReadBmp();
    return Pair(PixelOf(ppm, 16, 16), PixelOf(ppm, 18, 16));
  };
  EXPECT_EQ(colours(""), Pair(0x01FF00, 0xFF0000));
  EXPECT_EQ(colours("--range -4,0"), Pair(0x7565E8, 0xFF0000));
  EXPECT_EQ(colours("--range 0,-4"), Pair(0xFF0000, 0x7565E8));
  EXPECT_EQ(colours("--colours #0000FF,FF0000"), Pair(0x0000FF, 0xFF0300));
  temp_.Write("a", "1,2\n3\n");
  temp_.Write("b", "1,2\n3,x\n");
  temp_.Write("c", "\n#\n");
  temp_.Write("d", "nan");
  const std::string refused[][2] = {{"a -o out", "a:2: 1 values where the first row"},
                                    {"b -o out", "b:2: 'x' is no number"},
                                    {"c -o out", "holds no numbers"},
                                    {"d -o out", "tell --range"},
                                    {"in -o out --range 1,1", "two different numbers"},
                                    {"in -o out --range 1", "needs two values"},
                                    {"in -o out --colours FF,FF0000", "'FF' is no colour"},
                                    {"in -o no/out", "cannot write"}};
  for (const auto& [words, reason] : refused) ExpectRefused(reason, "thermal " + words);
}

// Two frames of two by two pixels: red, then a green one over the right lower corner.
const std::string kGif =
    "GIF89a\2\0\2\0\x81\1\0\xFF\0\0\0\xFF\0\0\0\xFF\0\0\0"
    "!\xF9\4\4\7\0\0\0,\0\0\0\0\2\0\2\0\0\2\2\x84\x51\0"
    "!\xF9\4\4\0\0\0\0,\1\0\1\0\1\0\1\0\0\2\2\x4C\1\0;"s;

TEST_F(ToolPicture, GifDescribesWritesAndPlays) {
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

TEST_F(ToolPicture, GifTellsWhatIsWrong) {
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
