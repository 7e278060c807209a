// The commands that work on text: config and number.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/temp_folder.h"
#include "tool/program.h"

namespace qvx::test {
namespace {

TEST(TextCommands, Number) {
  struct Case {
    std::vector<std::string> arguments;
    int code;
    const char* out;
  };
  const Case cases[] = {
      {{"number", "123456789", "--chinese"}, 0, "一亿二千三百四十五万六千七百八十九\n"},
      {{"number", "--chinese", "--", "-15"}, 0, "负十五\n"},
      {{"number", "18446744073709551615", "--radix36"}, 0, "3W5E11264SGSF\n"},
      {{"number", "36"}, 0, "hexadecimal  24\nbase 36      10\nChinese      三十六\n"},
      {{"number", "4294967296", "--chinese"}, 1, ""},
      {{"number", "1x"}, 1, ""},
      {{"number", "--help"}, 0, nullptr}};
  for (const Case& one : cases) {
    const ProgramResult result = RunProgram(one.arguments);
    EXPECT_EQ(result.code, one.code) << result.err;
    EXPECT_TRUE(one.out == nullptr || result.out == one.out) << result.out;
    EXPECT_EQ(result.ErrorLines().size(), static_cast<std::size_t>(one.code));
  }
}

TEST(TextCommands, Config) {
  const TempFolder temp;
  const std::string file = temp.Write("config", "a=1\r\nba=x\nb=old\nB=old");
  std::filesystem::create_symlink(file, temp.Path("link"));
  std::filesystem::permissions(file, std::filesystem::perms(0640));
  const auto run = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "config");
    return RunProgram(arguments);
  };
  EXPECT_EQ(run({"get", file, "a"}).out, "1\n");
  EXPECT_EQ(run({"get", file, "absent"}).err, "qvx: no absent in " + file + "\n");
  EXPECT_EQ(run({"set", file, "a", "2"}).code, 0);
  EXPECT_EQ(run({"set", temp.Path("link"), "b", "OLD"}).code, 0);
  EXPECT_EQ(ReadWhole(file), "a=2\r\nba=x\nb=OLD\nB=old");
  EXPECT_EQ(run({"set", file, "c", "new = value"}).code, 0);
  EXPECT_EQ(ReadWhole(file), "a=2\r\nba=x\nb=OLD\nB=old\nc=new = value\n");
  EXPECT_TRUE(std::filesystem::is_symlink(temp.Path("link")));
  EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0640));

  const std::string listed = temp.Path("listed");
  EXPECT_EQ(run({"set", listed, "a", "1", "--separator", ";"}).code, 0);
  EXPECT_EQ(run({"set", listed, "b", "2", "--separator", ";"}).code, 0);
  EXPECT_EQ(ReadWhole(listed), "a=1;b=2");
  EXPECT_EQ(run({"get", listed, "b", "--separator", ";"}).out, "2\n");
  const std::vector<std::vector<std::string>> wrong{{"get", temp.Path("none"), "a"},
                                                    {"get", temp.Path(), "a"},
                                                    {"get", listed, "a=b"},
                                                    {"set", listed, "a", "1;2", "--separator", ";"},
                                                    {"set", temp.Path("none/x"), "a", "1"},
                                                    {"set", listed, "a"}};
  for (const std::vector<std::string>& arguments : wrong) {
    const ProgramResult result = run(arguments);
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.ErrorLines().size(), 1u) << result.err;
  }
  EXPECT_EQ(ReadWhole(listed), "a=1;b=2");
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(temp.Path())) {
    files += entry.path().empty() ? 0 : 1;
  }
  EXPECT_EQ(files, 3);
}

}  // namespace
}  // namespace qvx::test
