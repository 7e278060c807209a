// The commands that make pictures: image and thermal.
#include <string>
#include <utility>
#include <vector>

#include "tool/program.h"

namespace qvx::test {
namespace {

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
std::vector<FlatPicture> RedPictures() {
  const std::string y(8, '\x50');
  const auto u = [](std::size_t count) { return std::string(count, '\x5B'); };
  const auto v = [](std::size_t count) { return std::string(count, '\xED'); };
  const std::string none(1, '\0');
  return {
      {"RGB888", Repeat(none + none + "\xF8", 8)},
      {"RGB565", Repeat(none + "\xF8", 8)},
      {"RGB555", Repeat(none + "\x7C", 8)},
      {"ARGB32", Repeat(none + none + "\xF8\xFF", 8)},
      {"YUV420", y + u(2) + v(2)},
      {"YUV422", y + u(4) + v(4)},
      {"YUV444", y + u(8) + v(8)},
      {"YUV420SP", y + Repeat("\x5B\xED", 2)},
      {"YUYV", Repeat("\x50\x5B\x50\xED", 4)},
      {"YUY2", Repeat("\x50\x5B\x50\xED", 4)},
      {"YVY2", Repeat("\x50\xED\x50\x5B", 4)},
  };
}

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
  for (const FlatPicture& from : RedPictures()) {
    temp_.Write("in", from.bytes);
    for (const FlatPicture& to : RedPictures()) {
      Done("image in --size 4x2 -o out --from " + from.layout + " --to " + to.layout);
      ASSERT_EQ(Read("out"), to.bytes) << from.layout << " to " << to.layout;
    }
  }
  for (const FlatPicture& to : RedPictures()) {  // from YVY2, which is still there
    const ProgramResult result =
        Run("image in --size 4x2 -o out.BMP --from yvy2 --to " + to.layout);
    const bool is_rgb = to.layout.find("RGB") != std::string::npos;
    EXPECT_EQ(is_rgb ? 0 : 1, result.code) << to.layout;
    if (!is_rgb) continue;
    const std::string red = to.layout.find('5') != std::string::npos ? "\xFF" : "\xF8";
    EXPECT_EQ(ReadBmp(), "P6\n4 2\n255\n" + Repeat(red + std::string(2, '\0'), 8)) << to.layout;
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
  const std::string cases[][2] = {
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
  for (const auto& [words, reason] : cases) ExpectRefused(reason, "image " + words);
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
  const std::string cases[][2] = {{"a -o out", "a:2: 1 values where the first row"},
                                  {"b -o out", "b:2: 'x' is no number"},
                                  {"c -o out", "holds no numbers"},
                                  {"d -o out", "tell --range"},
                                  {"in -o out --range 1,1", "two different numbers"},
                                  {"in -o out --range 1", "needs two values"},
                                  {"in -o out --colours FF,FF0000", "'FF' is no colour"},
                                  {"in -o no/out", "cannot write"}};
  for (const auto& [words, reason] : cases) ExpectRefused(reason, "thermal " + words);
}

}  // namespace
}  // namespace qvx::test
