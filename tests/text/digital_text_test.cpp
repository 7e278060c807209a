#include "qvx/digital_text.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "text/widths.h"

namespace qvx::test {
namespace {

QVX_TWIN(DigtalStringToValue);
QVX_TWIN(DigtalValueToString);
QVX_TWIN(ParseDigitalArrayValue);
QVX_TWIN(ParseDigitalGroupArrayValue);
QVX_TWIN(AppendDigitalGroupArrayValue);

template <typename T>
class DigitalText : public testing::Test {};
TYPED_TEST_SUITE(DigitalText, Widths);

// The bytes of a value, at an odd address, with what lies behind them untouched.
template <typename T>
std::string Read(std::basic_string_view<T> text, int length, int type) {
  char room[12];
  std::memset(room, '#', sizeof(room));
  DigtalStringToValue<T>(text.data(), length, room + 1, type);
  const int size = type >= 0 && type < 11 ? gDigitalTypeSize[type] : 0;
  EXPECT_EQ(std::string(room + 1 + size, room + 12), std::string(11 - size, '#'));
  return {room + 1, room + 1 + size};
}

template <typename Value>
std::string BytesOf(Value value) {
  return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

TYPED_TEST(DigitalText, ReadsValues) {
  using T = TypeParam;
  struct Case {
    const char* text;
    int type;
    std::string bytes;
  };
  const std::int64_t all_ones = -1;
  const Case cases[] = {{"0x10", 4, BytesOf<std::uint16_t>(16)},
                        {"0x10", 0, BytesOf<std::uint8_t>(16)},
                        {"300", 0, BytesOf<std::uint8_t>(44)},
                        {"-1", 8, BytesOf(all_ones)},
                        {"-1", 3, BytesOf<std::int16_t>(-1)},
                        {"4294967297", 8, BytesOf<std::int64_t>(1)},
                        {"4294967295", 6, BytesOf<std::uint32_t>(4294967295u)},
                        {"0x100000000", 8, BytesOf(std::int64_t{1} << 32)},
                        {"0x100000000", 2, BytesOf<std::int32_t>(0)},
                        {"0XfFg", 5, BytesOf<std::int32_t>(255)},
                        {"0x", 5, BytesOf<std::int32_t>(0)},
                        {"0x0x12", 5, BytesOf<std::int32_t>(0x12)},
                        {"1200xAB", 1, BytesOf<std::int8_t>(0)},
                        {" 12 0x", 2, BytesOf<std::int32_t>(2)},
                        {"12x", 2, BytesOf<std::int32_t>(12)},
                        {"\t +7 ", 7, BytesOf<std::int64_t>(7)},
                        {"none", 2, BytesOf<std::int32_t>(0)},
                        {"", 2, BytesOf<std::int32_t>(0)},
                        {"", 10, BytesOf(0.0)},
                        {"-2.5e3x", 10, BytesOf(-2500.0)},
                        {"1,5", 9, BytesOf(1.0f)},
                        {"1e999", 10, BytesOf(std::numeric_limits<double>::infinity())},
                        {"1", 11, ""},
                        {"1", -1, ""}};
  for (const Case& one : cases) {
    const std::basic_string<T> text = Widen<T>(one.text);
    EXPECT_EQ(Read<T>(text, -1, one.type), one.bytes) << one.text << " type " << one.type;
    const std::basic_string<T> longer = text + Widen<T>("9");
    EXPECT_EQ(Read<T>(longer, static_cast<int>(text.size()), one.type), one.bytes) << one.text;
  }
}

TYPED_TEST(DigitalText, WritesValues) {
  using T = TypeParam;
  struct Case {
    int type;
    std::string bytes;
    const char *format, *text;
  };
  const Case cases[] = {{0, BytesOf<std::uint8_t>(200), "%d", "200"},
                        {1, BytesOf<std::int8_t>(-56), "%d", "-56"},
                        {3, BytesOf<std::int16_t>(-2), "%d", "-2"},
                        {4, BytesOf<std::uint16_t>(65535), "%d", "65535"},
                        {6, BytesOf<std::uint32_t>(4294967295u), "%u", "4294967295"},
                        {5, BytesOf<std::int32_t>(-7), "<%4d>", "<  -7>"},
                        {8, BytesOf(std::int64_t{1} << 40), "%lld", "1099511627776"},
                        {9, BytesOf(1.5f), "%.2f", "1.50"},
                        {10, BytesOf(-0.25), "%g", "-0.25"},
                        {11, "x", "%d", ""},
                        {99, "x", "%d", ""}};
  for (const Case& one : cases) {
    CBaseStringT<T> out(Widen<T>("=").c_str());
    DigtalValueToString<T>(&out, Widen<T>(one.format).c_str(), one.type, one.bytes.data());
    EXPECT_EQ(Content(out), Widen<T>(std::string("=") + one.text)) << one.type;
  }
}

TYPED_TEST(DigitalText, ParsesArrays) {
  using T = TypeParam;
  struct Case {
    const char* text;
    int most, skip;
    std::vector<int> values;
  };
  const Case cases[] = {{"1,2,3", 0, 0, {1, 2, 3}}, {"1,2,3", 2, 0, {1, 2}},
                        {"1,,3", 0, 1, {1, 3}},     {"1,,3", 0, 0, {1, 0, 3}},
                        {"1;0x2,", 0, 0, {1, 2}},   {"", 0, 0, {}}};
  for (const Case& one : cases) {
    std::vector<int> values(5, 77);
    const std::basic_string<T> text = Widen<T>(one.text);
    const std::basic_string<T> set = Widen<T>(",;");
    const int count = ParseDigitalArrayValue<T>(text.c_str(), -1, 2, values.data(), one.most,
                                                set.c_str(), -1, one.skip);
    EXPECT_EQ(ParseDigitalArrayValue<T>(text.c_str(), static_cast<int>(text.size()), 2, nullptr,
                                        one.most, set.c_str(), 2, one.skip),
              count);
    ASSERT_EQ(count, static_cast<int>(one.values.size())) << one.text;
    EXPECT_EQ(values[one.values.size()], 77);
    values.resize(one.values.size());
    EXPECT_EQ(values, one.values) << one.text;
  }
  EXPECT_EQ(ParseDigitalArrayValue<T>(nullptr, 5, 2, nullptr, 0, nullptr, 0, 0), 0);
  char untouched = '#';
  EXPECT_EQ(ParseDigitalArrayValue<T>(Widen<T>("1 2").c_str(), -1, 11, &untouched, 0,
                                      Widen<T>(" ").c_str(), 1, 0),
            2);
  EXPECT_EQ(untouched, '#');
}

TYPED_TEST(DigitalText, ParsesAndWritesGroups) {
  using T = TypeParam;
  const auto parse = [](const char* text, int groups, int per_group, auto& values) {
    return ParseDigitalGroupArrayValue<T>(Widen<T>(text).c_str(), -1, 2, values.data(), groups,
                                          per_group, Widen<T>(";").c_str(), 1, 1,
                                          Widen<T>(",").c_str(), 1, 0);
  };
  std::array<int, 6> values{9, 9, 9, 9, 9, 9};
  EXPECT_EQ(parse("1,2;3,4", 0, 2, values), 2);
  EXPECT_EQ(values, (std::array<int, 6>{1, 2, 3, 4, 9, 9}));
  EXPECT_EQ(parse(";5;;6,7,8,9;", 0, 3, values), 2);
  EXPECT_EQ(values, (std::array<int, 6>{5, 2, 3, 6, 7, 8}));
  EXPECT_EQ(parse("1;2;3", 2, 0, values), 2);
  EXPECT_EQ(values[0], 5);

  std::array<int, 8> numbers{};
  std::iota(numbers.begin(), numbers.end(), 1);
  const auto write = [&](int groups, int per_group, int stride) {
    CBaseStringT<T> out(Widen<T>(":").c_str());
    AppendDigitalGroupArrayValue<T>(&out, Widen<T>("%d").c_str(), 2, numbers.data(), groups,
                                    per_group, stride, Widen<T>(";").c_str(),
                                    Widen<T>(",").c_str());
    return Content(out);
  };
  EXPECT_EQ(write(2, 2, 2), Widen<T>(":1,2;3,4"));
  EXPECT_EQ(write(3, 1, 3), Widen<T>(":1;4;7"));
  EXPECT_EQ(write(0, 2, 2), Widen<T>(":"));
  EXPECT_EQ(write(2, 0, 2), Widen<T>(":;"));
}

// Every type, there and back through text; whole numbers also in hexadecimal digits.
TEST(DigitalTextArray, RoundTrips) {
  std::mt19937_64 random(83);
  const auto round_trip = [](int type, const char* format, const std::vector<char>& values) {
    CBaseStringA text;
    AppendDigitalArrayValueA(&text, format, type, values.data(), 500, " |");
    std::vector<char> back(values.size());
    EXPECT_EQ(ParseDigitalArrayValueA(text.GetString(), -1, type, back.data(), 0, "| ", 2, 1), 500);
    EXPECT_EQ(back, values) << "type " << type << " " << format;
  };
  for (int type = 0; type < 9; ++type) {
    std::vector<char> values(static_cast<std::size_t>(gDigitalTypeSize[type]) * 500);
    for (char& byte : values) byte = static_cast<char>(random());
    const bool is64 = type == 7 || type == 8;
    round_trip(type, is64 ? "0x%llx" : "0x%X", values);
    if (!is64) round_trip(type, "%d", values);
  }
  std::vector<char> values(8 * 500);
  for (std::size_t i = 0; i < 500; ++i) {
    const double value = std::ldexp(static_cast<double>(random()), static_cast<int>(i) - 250);
    std::memcpy(&values[i * 8], &value, 8);
  }
  round_trip(10, "%.17g", values);
}

}  // namespace
}  // namespace qvx::test
