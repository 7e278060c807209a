// The commands that make pictures: image and thermal.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/temp_folder.h"
#include "tool/program.h"

namespace qvx::test {
namespace {

std::string Repeat(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

struct FlatPicture {
  const char* layout;
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

// A BMP file as another program reads it: a raw PPM.
std::string ReadBmp(const std::string& path) {
  const std::string command = "bmptopnm -quiet " + path + " | ppmtoppm";
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), &pclose);
  std::string bytes;
  std::array<char, 4096> block;
  while (const std::size_t count = std::fread(block.data(), 1, block.size(), pipe.get())) {
    bytes.append(block.data(), count);
  }
  return bytes;
}

void ExpectFailures(const std::vector<std::pair<std::vector<std::string>, std::string>>& cases) {
  for (const auto& [arguments, message] : cases) {
    const ProgramResult result = RunProgram(arguments);
    EXPECT_EQ(1, result.code) << message;
    EXPECT_NE(std::string::npos, result.err.find(message)) << result.err;
    EXPECT_EQ(1u, result.ErrorLines().size()) << result.err;
  }
}

TEST(ToolImage, EveryLayoutToEveryOther) {
  const TempFolder temp;
  const std::string out = temp.Path("out");
  for (const FlatPicture& from : RedPictures()) {
    const std::string file = temp.Write("in", from.bytes);
    for (const FlatPicture& to : RedPictures()) {
      const ProgramResult result = RunProgram(
          {"image", file, "--size", "4x2", "--from", from.layout, "--to", to.layout, "-o", out});
      ASSERT_EQ(0, result.code) << result.err;
      ASSERT_EQ(ReadWhole(out), to.bytes) << from.layout << " to " << to.layout;
    }
  }
  for (const FlatPicture& to : RedPictures()) {
    const std::string file = temp.Write("in", RedPictures()[8].bytes);
    const std::string bmp = temp.Path("out.BMP");
    const ProgramResult result = RunProgram(
        {"image", file, "--size", "4x2", "--from", "yuyv", "--to", to.layout, "-o", bmp});
    const bool is_rgb = std::string(to.layout).find("RGB") != std::string::npos;
    EXPECT_EQ(is_rgb ? 0 : 1, result.code) << to.layout;
    const char* red = std::string(to.layout).find('5') != std::string::npos ? "\xFF" : "\xF8";
    const std::string pixel = red + std::string(2, '\0');
    if (!is_rgb) continue;
    EXPECT_EQ(ReadBmp(bmp), "P6\n4 2\n255\n" + Repeat(pixel, 8)) << to.layout;
  }
}

TEST(ToolImage, OrdersFramesAndMistakes) {
  const TempFolder temp;
  const std::string file = temp.Write("in", "12345678xXy");
  const std::string two = temp.Write("two", "12345678xXyYABCDEFGHpPqQ");
  const std::string out = temp.Path("out");
  const auto convert = [&](std::vector<std::string> more) {
    more.insert(more.begin(), {"image", two, "--size", "4x2", "-o", out});
    EXPECT_EQ(0, RunProgram(more).code);
    return ReadWhole(out);
  };
  const std::string from = "--from=YUV420";
  EXPECT_EQ(convert({from, "--to=YUV420", "--swap-in"}), "12345678yYxX");
  EXPECT_EQ(convert({from, "--to=YUV420", "--frame=1", "--swap-out"}), "ABCDEFGHqQpP");
  EXPECT_EQ(convert({from, "--to=YUV420SP", "--frame=1"}), "ABCDEFGHpqPQ");
  EXPECT_EQ(convert({"--from=YUV420SP", "--to=YUV420SP", "--swap-in"}), "12345678XxYy");
  EXPECT_EQ(convert({"--from=YUV444", "--to=YUV444", "--swap-out"}), "12345678EFGHpPqQxXyYABCD");
  ExpectFailures({
      {{"image", file, "--size", "4x2", "--from", "YUV420", "-o", out},
       "a frame of 4x2 YUV420 has"},
      {{"image", two, "--size", "4x2", "--from", "YUV420", "-o", out, "--frame", "2"}, "2 frames"},
      {{"image", two, "--size", "4x3", "--from", "YUV420", "-o", out}, "needs an even height"},
      {{"image", two, "--size", "3x4", "--from", "YUY2", "-o", out}, "needs an even width"},
      {{"image", two, "--size", "4", "--from", "YUY2", "-o", out}, "must be like 1920x1080"},
      {{"image", two, "--size", "0x2", "--from", "YUY2", "-o", out}, "must be like 1920x1080"},
      {{"image", two, "--size", "50000x50000", "--from", "YUY2", "-o", out}, "too large"},
      {{"image", two, "--size", "4x2", "--from", "I420", "-o", out}, "no such layout: I420"},
      {{"image", two, "--size", "4x2", "--from", "YUV420", "--swap-out", "-o", out + ".bmp"},
       "one order only"},
      {{"image", two, "--size", "2x3", "--from", "ARGB32", "--swap-in", "-o", out}, "one order"},
      {{"image", two, "--size", "4x2", "--from", "YUV420", "-o", temp.Path("no/x")},
       "cannot write"},
      {{"image", two, "--size", "4x2", "--from", "YUV420", "-o", temp.Path("no/x.bmp")},
       "cannot write"},
      {{"image", temp.Path("no"), "--size", "4x2", "--from", "YUV420", "-o", out}, "cannot read"},
  });
}

// A pixel of a raw PPM as six hexadecimal digits.
std::string PixelOf(const std::string& ppm, std::size_t width, std::size_t x, std::size_t y) {
  const std::size_t header = ppm.find("\n255\n") + 5;
  std::string digits;
  for (std::size_t i = 0; i < 3; ++i) {
    const unsigned byte = static_cast<unsigned char>(ppm.at(header + 3 * (y * width + x) + i));
    std::array<char, 3> text;
    std::snprintf(text.data(), text.size(), "%02X", byte);
    digits += text.data();
  }
  return digits;
}

TEST(ToolThermal, DrawsATableWithItsScale) {
  const TempFolder temp;
  const std::string out = temp.Path("out.bmp");
  // One table in the forms that programs write it in.
  for (const char* text : {"0,128\n256,\n", "# head\r\n0;128,0\r\n\r\n256;nan\r\n",
                           "0\t128\n256\t\n", " 0   1.28e2 \n+256 nan"}) {
    const std::string file = temp.Write("in.csv", text);
    const ProgramResult result =
        RunProgram({"thermal", file, "-o", out, "--range", "0,256", "--zoom", "10"});
    ASSERT_EQ(0, result.code) << result.err;
    EXPECT_EQ("2 x 2 values\n", result.out);
    const std::string ppm = ReadBmp(out);
    ASSERT_TRUE(ppm.starts_with("P6\n138 288\n")) << ppm.substr(0, 20);
    const auto pixel = [&](std::size_t x, std::size_t y) { return PixelOf(ppm, 138, x, y); };
    EXPECT_EQ("FFFFFF", pixel(15, 15));
    EXPECT_EQ("7565E8", pixel(16, 16));
    EXPECT_EQ("FFFE00", pixel(26, 25));
    EXPECT_EQ("FF0000", pixel(16, 26));
    EXPECT_EQ("7565E8", pixel(35, 35));
    EXPECT_EQ("FF0000", pixel(60, 16));
    EXPECT_EQ("7565E8", pixel(60, 271));
    EXPECT_EQ("202020", pixel(77, 16));
    EXPECT_EQ("202020", pixel(90, 9)) << "the upper dots of 256";
  }
}

TEST(ToolThermal, ChoosesRangeAndColours) {
  const TempFolder temp;
  const std::string out = temp.Path("out.bmp");
  const std::string file = temp.Write("in.csv", "-4,-2,0\n");
  const auto colours = [&](std::vector<std::string> more) {
    more.insert(more.begin(), {"thermal", file, "-o", out, "--zoom", "1"});
    const ProgramResult result = RunProgram(more);
    EXPECT_EQ(0, result.code) << result.err;
    const std::string ppm = ReadBmp(out);
    const auto width = static_cast<std::size_t>(std::stoi(ppm.substr(3)));
    return PixelOf(ppm, width, 16, 16) + " " + PixelOf(ppm, width, 18, 16);
  };
  EXPECT_EQ(colours({}), "01FF00 FF0000");
  EXPECT_EQ(colours({"--range", "-4,0"}), "7565E8 FF0000");
  EXPECT_EQ(colours({"--range", "0,-4"}), "FF0000 7565E8");
  EXPECT_EQ(colours({"--colours", "#0000FF,FF0000"}), "0000FF FF0300");
  ExpectFailures({
      {{"thermal", temp.Write("a", "1,2\n3\n"), "-o", out}, "a:2: 1 values where the first row"},
      {{"thermal", temp.Write("b", "1,2\n3,x\n"), "-o", out}, "b:2: 'x' is no number"},
      {{"thermal", temp.Write("c", "\n#\n"), "-o", out}, "holds no numbers"},
      {{"thermal", temp.Write("d", "nan"), "-o", out}, "tell --range"},
      {{"thermal", file, "-o", out, "--range", "1,1"}, "two different numbers"},
      {{"thermal", file, "-o", out, "--range", "1"}, "needs two values"},
      {{"thermal", file, "-o", out, "--colours", "FF,FF0000"}, "'FF' is no colour"},
      {{"thermal", file, "-o", temp.Path("no/out.bmp")}, "cannot write"},
  });
}

}  // namespace
}  // namespace qvx::test
