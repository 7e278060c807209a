#include "qvx/hex_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "support/debug_lines.h"
#include "support/failing_new.h"
#include "support/fault_plan.h"
#include "support/processor_turn.h"
#include "text/hex_codec.h"
#include "text/widths.h"

namespace qvx::test {
namespace {

using namespace std::string_literals;

QVX_TWIN(BufferToHexString);
QVX_TWIN(ByteToHex);
QVX_TWIN(FormatBufferToHexString);
QVX_TWIN(ConvertLongToChar);
QVX_TWIN(HexStringToUint64);
QVX_TWIN(HexStringToUint32);
QVX_TWIN(HexStringToByte);
QVX_TWIN(HexStringToBuffer);
QVX_TWIN(HexStringToString);
QVX_TWIN(IsHexString);
QVX_TWIN(BinStringToByte);
QVX_TWIN(BinStringToUINT64);

std::string Bytes(const CBaseBuffer& buffer) {
  return {reinterpret_cast<const char*>(buffer.GetBuffer()), buffer.GetAvailSize()};
}

template <typename T>
class HexText : public testing::Test {};
TYPED_TEST_SUITE(HexText, Widths);

TYPED_TEST(HexText, WritesBytes) {
  using T = TypeParam;
  const unsigned char data[] = {0xAB, 0xCD, 0x09};
  const std::tuple<int, int, int, const char*> cases[] = {
      {2, 1, 1, "AB CD "}, {3, 0, 0, "abcd09"}, {3, 1, 0, "ABCD09"}, {0, 1, 1, ""}};
  for (const auto& [length, upper, spaced, result] : cases) {
    CBaseStringT<T> out(Widen<T>("before").c_str());
    BufferToHexString<T>(data, length, upper, spaced, &out);
    EXPECT_EQ(Content(out), Widen<T>(result));
  }
  // A string that holds the same text but for case keeps it, as Set does.
  CBaseStringT<T> out(Widen<T>("abCD").c_str());
  BufferToHexString<T>(data, 2, 1, 0, &out);
  BufferToHexString<T>(nullptr, 3, 1, 0, &out);
  BufferToHexString<T>(data, -1, 1, 0, &out);
  BufferToHexString<T>(data, 3, 1, 0, nullptr);
  EXPECT_EQ(Content(out), Widen<T>("abCD"));
  BufferToHexString<T>("\xAB\xCE", 2, 1, 0, &out);
  EXPECT_EQ(Content(out), Widen<T>("ABCE"));
  std::basic_string<T> two = Widen<T>("###");
  ByteToHex<T>(0x5E, two.data(), 0);
  ByteToHex<T>(0x5E, nullptr, 0);
  EXPECT_EQ(two, Widen<T>("5e#"));
}

TYPED_TEST(HexText, DumpsLines) {
  using T = TypeParam;
  const std::tuple<int, int, const char*> cases[] = {
      {3, 2, "01 02\r\n03"},    {4, 2, "01 02\r\n03 04"}, {3, 0, "01 02 03"},
      {3, 1, "01\r\n02\r\n03"}, {3, 99, "01 02 03"},      {0, 2, "kept"}};
  for (const auto& [length, per_line, result] : cases) {
    CBaseStringT<T> out(Widen<T>("kept").c_str());
    FormatBufferToHexString<T>("\1\2\3\4", length, per_line, 0, &out);
    EXPECT_EQ(Content(out), Widen<T>(result));
  }
}

TEST(HexBuffer, LogsADump) {
  const DebugLines lines;
  PrintHexBuffer("\xA1\xB2\xC3\xD4\xE5", 5, 4);
  PrintHexBuffer(nullptr, 5, 4);
  PrintHexBuffer("x", 0, 4);
  PrintHexBuffer("x", 1, 0);
  const auto all = lines.All();
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].second.rfind("PrintHexBuffer: addr=", 0), 0u) << all[0].second;
  EXPECT_EQ(lines.Count(2, "00000000-00000003:A1 B2 C3 D4 \r\n"), 1);
  EXPECT_EQ(lines.Count(2, "00000004-00000007:E5 \r\n"), 1);
}

TYPED_TEST(HexText, WritesNumbersInARadix) {
  using T = TypeParam;
  const std::tuple<unsigned int, int, int, const char*> cases[] = {
      {255, 4, 16, "00FF"}, {255, 1, 16, "F"}, {5, 4, 2, "0101"},
      {35, 2, 36, "0Z"},    {7, 0, 10, ""},    {4294967295u, 10, 10, "4294967295"}};
  for (const auto& [value, width, radix, result] : cases) {
    T out[16] = {};
    out[width] = T('#');
    EXPECT_EQ(ConvertLongToChar<T>(value, out, width, radix), width);
    EXPECT_EQ(std::basic_string<T>(out), Widen<T>(result));
  }
  EXPECT_EQ(ConvertLongToChar<T>(1, nullptr, 4, 10), 0);
}

TYPED_TEST(HexText, ReadsNumbers) {
  using T = TypeParam;
  const std::tuple<const char*, int, std::uint64_t> cases[] = {
      {"0x1Fz", -1, 31},   {"1FF", -1, 0x1FF}, {"", -1, 0},
      {"0x", -1, 0},       {"0x", 1, 0},       {"xyz", -1, 0},
      {"12345", 3, 0x123}, {"00x1", -1, 0},    {"fedcba98765432101", -1, 0xedcba98765432101}};
  for (const auto& [narrow, length, result] : cases) {
    const std::basic_string<T> text = Widen<T>(narrow);
    EXPECT_EQ(HexStringToUint64<T>(text.c_str(), length), result) << narrow;
    EXPECT_EQ(HexStringToUint32<T>(text.c_str(), length), static_cast<std::uint32_t>(result));
    EXPECT_EQ(HexStringToByte<T>(text.c_str(), length), static_cast<std::uint8_t>(result));
  }
  EXPECT_EQ(BinStringToByte<T>(Widen<T>("110000001").c_str(), 9), 0x81);
  EXPECT_EQ(BinStringToByte<T>(Widen<T>("13").c_str(), 2), 5);
  EXPECT_EQ(BinStringToByte<T>(Widen<T>("101").c_str(), -1), 0);
  EXPECT_EQ(BinStringToUINT64<T>(std::basic_string<T>(64, T('1')).c_str(), 64), UINT64_MAX);
}

TYPED_TEST(HexText, ReadsPairs) {
  using T = TypeParam;
  const std::tuple<const char*, int, std::string> cases[] = {
      {"0x4142", -1, "AB"}, {"410x42", -1, "A\0B"s}, {"0X0x0X41", -1, "\0\0A"s},
      {"4G", -1, "\4"},     {"G4", -1, "\0"s},       {"414", -1, "A"},
      {"414243", 5, "AB"},  {"0x", -1, ""},          {"4", -1, ""}};
  for (const auto& [narrow, length, result] : cases) {
    const std::basic_string<T> text = Widen<T>(narrow);
    CBaseBuffer bytes;
    bytes.SetBuffer("before", 6);
    CBaseStringA string("before");
    HexStringToBuffer<T>(text.c_str(), length, &bytes);
    HexStringToString<T>(text.c_str(), length, &string);
    EXPECT_EQ(Bytes(bytes), result) << narrow;
    EXPECT_EQ(Content(string), result) << narrow;
  }
  // Set's rule looks behind a NUL too.
  CBaseStringA string("\0a"s.c_str(), 2);
  HexStringToString<T>(Widen<T>("0062").c_str(), -1, &string);
  EXPECT_EQ(Content(string), "\0b"s);
  HexStringToString<T>(Widen<T>("0042").c_str(), -1, &string);
  EXPECT_EQ(Content(string), "\0b"s);
  char out[4] = "###";
  StringFromHexA("4142", -2, out);
  StringFromHexA("0x41", -1, out);
  StringFromHexA("424", -1, out);
  StringFromHexA("", -1, out);
  EXPECT_EQ(std::string(out, 3), std::string("\0A#", 3));
}

TEST(HexBuffer, PlacesBytesAsSetBufferDoes) {
  CBaseBuffer buffer;
  buffer.SetBuffer("41424344", 8);
  HexStringToBufferA(reinterpret_cast<const char*>(buffer.GetBuffer()) + 2, 6, &buffer);
  EXPECT_EQ(Bytes(buffer), "BCD");
  EXPECT_EQ(buffer.GetBufSize(), 8u);
  char foreign[4] = "###";
  buffer.BindBuffer(foreign, 3);
  HexStringToBufferA("4142", -1, &buffer);
  EXPECT_STREQ(foreign, "AB#");
  HexStringToBufferA("4142434445", -1, &buffer);
  EXPECT_STREQ(foreign, "AB#");
  EXPECT_EQ(Bytes(buffer), "ABCDE");
  EXPECT_EQ(buffer.GetBufSize(), 5u);
  EXPECT_EQ(buffer.IsBindBuffer(), 0);
  const std::string longer(100, '4');
  FaultPlan plan;
  plan.Fail(platform::Operation::kAllocate, 1, ENOMEM);
  EXPECT_THROW(HexStringToBufferA(longer.c_str(), -1, &buffer), std::bad_alloc);
  EXPECT_EQ(Bytes(buffer), "ABCDE");
}

TYPED_TEST(HexText, KnowsHexText) {
  using T = TypeParam;
  const std::tuple<const char*, int, int> cases[] = {
      {"", -1, 1},    {"0x", -1, 0}, {"0x1", -1, 1}, {"0X", 2, 0},  {"aF09", -1, 1},
      {"12g", -1, 0}, {"12g", 2, 1}, {"xx", 0, 1},   {"1 2", -1, 0}};
  for (const auto& [text, length, result] : cases) {
    EXPECT_EQ(IsHexString<T>(Widen<T>(text).c_str(), length), result) << text;
  }
  EXPECT_EQ(IsHexCharW(u'\u0161'), 0);
  EXPECT_EQ(IsHexCharA('f'), 1);
}

TEST(HexBuffer, MovesBitFields) {
  unsigned char buffer[3] = {0, 0, 0};
  SetBufferValueByBit(buffer, 2, 4, 11, 0xAB);
  EXPECT_EQ(buffer[0], 0xB0);
  EXPECT_EQ(buffer[1], 0x0A);
  EXPECT_EQ(GetBufferValueByBit(buffer, 2, 4, 11), 0xABu);
  SetBufferValueByBit(buffer, 2, 5, 6, 0);
  EXPECT_EQ(buffer[0], 0x90);
  SetBufferValueByBit(buffer, 2, 12, 30, 0xFFFFFFFF);
  EXPECT_EQ(buffer[1], 0xFA);
  EXPECT_EQ(buffer[2], 0);
  EXPECT_EQ(GetBufferValueByBit(buffer, 2, 12, 43), 0xFu);
  SetBufferValueByBit(buffer, 2, 5, 4, 1);
  SetBufferValueByBit(buffer, 2, -4, -1, 0xF);
  EXPECT_EQ(GetBufferValueByBit(buffer, 2, 5, 4), 0u);
  EXPECT_EQ(GetBufferValueByBit(buffer, 2, 0x7FFFFFF0, 0x7FFFFFFF), 0u);
  EXPECT_EQ(buffer[0], 0x90);
}

// Every length around the vectors' sizes, at odd addresses, with what lies behind untouched.
TYPED_TEST(HexText, EncodesAsThePlainFormDoes) {
  using T = TypeParam;
  std::mt19937 random(82);
  for (std::size_t size = 0; size < 300; ++size) {
    const ProcessorTurn turn(size);
    std::vector<std::uint8_t> bytes(size + 1);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    for (int style = 0; style < 4; ++style) {
      const text::HexStyle how{(style & 1) != 0, (style & 2) != 0};
      std::vector<T> plain(size * how.Width() + 8, T('#'));
      std::vector<T> wide = plain;
      text::EncodeHexPlain(bytes.data() + 1, size, how, plain.data() + 1);
      text::EncodeHex(bytes.data() + 1, size, how, wide.data() + 1);
      ASSERT_EQ(wide, plain) << size << " style " << style;
    }
  }
}

// Clean digits with one odd character at every place, and texts full of them.
TYPED_TEST(HexText, DecodesAsThePlainFormDoes) {
  using T = TypeParam;
  std::mt19937 random(28);
  std::basic_string<T> odd = Widen<T>("gGxX/:@` -~");
  odd += {T(0), T(0xFF), T(0x130 + '1')};
  const char* digits = "0123456789abcdefABCDEF";
  for (std::size_t pairs = 0; pairs < 300; ++pairs) {
    std::basic_string<T> text(2 * pairs + 1, T('0'));
    for (T& c : text) c = static_cast<T>(digits[random() % 22]);
    for (unsigned round = 0; round < 6; ++round) {
      const ProcessorTurn turn(pairs + round);
      std::vector<std::uint8_t> plain(pairs + 8, 0xEE);
      std::vector<std::uint8_t> wide = plain;
      text::DecodeHexPlain(text.data() + 1, pairs, plain.data());
      text::DecodeHex(text.data() + 1, pairs, wide.data());
      ASSERT_EQ(wide, plain) << pairs << " round " << round;
      const std::size_t changes = round < 4 ? 1 : text.size() / 3;
      for (std::size_t i = 0; i < changes; ++i) {
        text[random() % text.size()] = odd[random() % odd.size()];
      }
    }
  }
}

TYPED_TEST(HexText, KnowsEveryCharacter) {
  using T = TypeParam;
  const std::u16string digits = u"0123456789abcdefABCDEF";
  const int end = sizeof(T) == 1 ? 256 : 65536;
  for (int i = 0; i < end; ++i) {
    const std::size_t place = digits.find(static_cast<char16_t>(i));
    const int digit = place == digits.npos ? -1 : static_cast<int>(place < 16 ? place : place - 6);
    ASSERT_EQ(text::HexDigit(static_cast<T>(i)), digit) << i;
    const std::basic_string<T> text(256, static_cast<T>(i));
    std::vector<std::uint8_t> bytes(128);
    const std::vector<std::uint8_t> expected(128,
                                             static_cast<std::uint8_t>(std::max(digit, 0) * 17));
    text::DecodeHex(text.data(), bytes.size(), bytes.data());
    ASSERT_EQ(bytes, expected) << i;
  }
}

}  // namespace
}  // namespace qvx::test
