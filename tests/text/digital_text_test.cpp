#include "qvx/digital_text.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
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

template <typename Value>
std::string BytesOf(Value value) {
  return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

// Reads to an odd address; what lies behind the value's bytes stays as it is.
template <typename T>
void ExpectRead(const std::string& text, int type, std::string bytes) {
  bytes.resize(11, '#');
  const int length = static_cast<int>(text.size());
  for (const bool counted : {false, true}) {
    const std::basic_string<T> given = Widen<T>(counted ? text + "9" : text);
    std::string room(12, '#');
    DigtalStringToValue<T>(given.c_str(), counted ? length : -1, &room[1], type);
    EXPECT_EQ(room.substr(1), bytes) << text << " type " << type;
  }
}

TYPED_TEST(DigitalText, ReadsValues) {
  using T = TypeParam;
  const struct {
    const char* text;
    int type;
    std::int64_t value;
  } cases[] = {{"300", 0, 44},      {"-1", 8, -1},     {"0XfFg", 5, 255}, {"0x", 5, 0},
               {"0x0x12", 5, 0x12}, {"1200xAB", 1, 0}, {" 12 0x", 2, 2},  {"12x", 2, 12},
               {"\t +7 ", 7, 7},    {"none", 2, 0},    {"", 2, 0},        {"4294967297", 8, 1}};
  for (const auto& [text, type, value] : cases) {
    const auto size = static_cast<std::size_t>(gDigitalTypeSize[type]);
    ExpectRead<T>(text, type, BytesOf(value).substr(0, size));
  }
  ExpectRead<T>("", 10, BytesOf(0.0));
  ExpectRead<T>("-2.5e3x", 10, BytesOf(-2500.0));
  ExpectRead<T>("1,5", 9, BytesOf(1.0f));
  ExpectRead<T>("1e999", 10, BytesOf(std::numeric_limits<double>::infinity()));
  ExpectRead<T>("1", 11, "");
  ExpectRead<T>("1", -1, "");
}

// Of what lies above a value's bytes nothing is read.
TYPED_TEST(DigitalText, WritesValues) {
  using T = TypeParam;
  const auto expect = [](int type, auto memory, const char* format, const std::string& text) {
    CBaseStringT<T> out(Widen<T>("=").c_str());
    DigtalValueToString<T>(&out, Widen<T>(format).c_str(), type, &memory);
    EXPECT_EQ(Content(out), Widen<T>("=" + text)) << type;
  };
  expect(0, 0x7CC8, "%d", "200");
  expect(1, 0x7CC8, "%d", "-56");
  expect(3, 0x7CFFFE, "%d", "-2");
  expect(4, 0x7CFFFF, "%d", "65535");
  expect(6, 0x7CFFFFFFFF, "%u", "4294967295");
  expect(5, 0x7CFFFFFFF9, "<%4d>", "<  -7>");
  expect(8, std::int64_t{1} << 40, "%lld", "1099511627776");
  expect(9, 1.5f, "%.2f", "1.50");
  expect(10, -0.25, "%g", "-0.25");
  expect(11, 1, "%d", "");
  expect(99, 1, "%d", "");
}

TYPED_TEST(DigitalText, ParsesArrays) {
  using T = TypeParam;
  const auto parse = [](const std::basic_string<T>& text, int length, int type, void* values,
                        int most, int skip) {
    return ParseDigitalArrayValue<T>(text.c_str(), length, type, values, most,
                                     Widen<T>(",;").c_str(), length < 0 ? -1 : 2, skip);
  };
  const struct {
    const char* text;
    int most, skip;
    std::vector<int> values;
  } cases[] = {{"1,2,3", 0, 0, {1, 2, 3}}, {"1,2,3", 2, 0, {1, 2}},  {"1,,3", 0, 1, {1, 3}},
               {"1,,3", 0, 0, {1, 0, 3}},  {"1;0x2,", 0, 0, {1, 2}}, {"", 0, 0, {}}};
  for (const auto& [one, most, skip, expected] : cases) {
    const std::basic_string<T> text = Widen<T>(one);
    std::vector<int> values(5, 77);
    const int count = parse(text, -1, 2, values.data(), most, skip);
    EXPECT_EQ(parse(text, static_cast<int>(text.size()), 2, nullptr, most, skip), count);
    ASSERT_EQ(count, static_cast<int>(expected.size())) << one;
    EXPECT_EQ(values[expected.size()], 77);
    values.resize(expected.size());
    EXPECT_EQ(values, expected) << one;
  }
  EXPECT_EQ(ParseDigitalArrayValue<T>(nullptr, 5, 2, nullptr, 0, nullptr, 0, 0), 0);
  char untouched = '#';
  EXPECT_EQ(parse(Widen<T>("1,2"), -1, 11, &untouched, 0, 0), 2);
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
