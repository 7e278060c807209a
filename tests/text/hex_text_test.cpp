#include "qvx/hex_text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <string>

#include "support/debug_lines.h"
#include "support/failing_new.h"
#include "support/fault_plan.h"

namespace qvx::test {
namespace {

std::u16string Wide(const std::string& text) {
  return {text.begin(), text.end()};
}
std::string Text(const CBaseStringA& string) {
  return {string.GetString(), static_cast<std::size_t>(string.GetLength())};
}
std::u16string Text(const CBaseStringW& string) {
  return {string.GetString(), static_cast<std::size_t>(string.GetLength())};
}
std::string Bytes(const CBaseBuffer& buffer) {
  return {reinterpret_cast<const char*>(buffer.GetBuffer()), buffer.GetAvailSize()};
}

TEST(HexText, WritesBytes) {
  const unsigned char data[] = {0xAB, 0xCD, 0x09};
  struct Case {
    int length, upper, spaced;
    const char* result;
  };
  const Case cases[] = {
      {2, 1, 1, "AB CD "}, {3, 0, 0, "abcd09"}, {3, 1, 0, "ABCD09"}, {0, 1, 1, ""}};
  for (const Case& one : cases) {
    CBaseStringA narrow("before");
    CBaseStringW wide(u"before");
    BufferToHexStringA(data, one.length, one.upper, one.spaced, &narrow);
    BufferToHexStringW(data, one.length, one.upper, one.spaced, &wide);
    EXPECT_EQ(Text(narrow), one.result);
    EXPECT_EQ(Text(wide), Wide(one.result));
  }
  CBaseStringA kept("kept");
  BufferToHexStringA(nullptr, 3, 1, 0, &kept);
  BufferToHexStringA(data, -1, 1, 0, &kept);
  BufferToHexStringA(data, 3, 1, 0, nullptr);
  EXPECT_EQ(Text(kept), "kept");
  char two[3] = {'#', '#', '#'};
  ByteToHexA(0x5E, two, 0);
  EXPECT_EQ(std::string(two, 3), "5e#");
}

// A string that holds the same text but for case keeps it, as Set does.
TEST(HexText, KeepsTheCaseOfEqualText) {
  CBaseStringA string("abCD");
  BufferToHexStringA("\xAB\xCD", 2, 1, 0, &string);
  EXPECT_EQ(Text(string), "abCD");
  BufferToHexStringA("\xAB\xCE", 2, 1, 0, &string);
  EXPECT_EQ(Text(string), "ABCE");
}

TEST(HexText, DumpsLines) {
  struct Case {
    int length, per_line;
    const char* result;
  };
  const Case cases[] = {{3, 2, "01 02\r\n03"},    {4, 2, "01 02\r\n03 04"}, {3, 0, "01 02 03"},
                        {3, 1, "01\r\n02\r\n03"}, {3, 99, "01 02 03"},      {0, 2, "kept"}};
  for (const Case& one : cases) {
    CBaseStringA narrow("kept");
    CBaseStringW wide(u"kept");
    FormatBufferToHexStringA("\1\2\3\4", one.length, one.per_line, 0, &narrow);
    FormatBufferToHexStringW("\1\2\3\4", one.length, one.per_line, 0, &wide);
    EXPECT_EQ(Text(narrow), one.result);
    EXPECT_EQ(Text(wide), Wide(one.result));
  }
}

TEST(HexText, LogsADump) {
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

TEST(HexText, WritesNumbersInARadix) {
  struct Case {
    unsigned int value;
    int width, radix;
    const char* result;
  };
  const Case cases[] = {{255, 4, 16, "00FF"}, {255, 1, 16, "F"},
                        {5, 4, 2, "0101"},    {35, 2, 36, "0Z"},
                        {7, 0, 10, ""},       {4294967295u, 10, 10, "4294967295"}};
  for (const Case& one : cases) {
    char narrow[16] = "###############";
    WCHAR wide[16] = u"###############";
    EXPECT_EQ(ConvertLongToCharA(one.value, narrow, one.width, one.radix), one.width);
    EXPECT_EQ(ConvertLongToCharW(one.value, wide, one.width, one.radix), one.width);
    EXPECT_STREQ(narrow, one.result);
    EXPECT_EQ(std::u16string(wide), Wide(one.result));
  }
}

TEST(HexText, ReadsNumbers) {
  struct Case {
    const char* text;
    int length;
    std::uint64_t result;
  };
  const Case cases[] = {
      {"0x1Fz", -1, 31},   {"1FF", -1, 0x1FF}, {"", -1, 0},
      {"0x", -1, 0},       {"0x", 1, 0},       {"xyz", -1, 0},
      {"12345", 3, 0x123}, {"00x1", -1, 0},    {"fedcba98765432101", -1, 0xedcba98765432101}};
  for (const Case& one : cases) {
    const std::u16string wide = Wide(one.text);
    EXPECT_EQ(HexStringToUint64A(one.text, one.length), one.result) << one.text;
    EXPECT_EQ(HexStringToUint64W(wide.c_str(), one.length), one.result);
    EXPECT_EQ(HexStringToUint32A(one.text, one.length), static_cast<std::uint32_t>(one.result));
    EXPECT_EQ(HexStringToUint32W(wide.c_str(), one.length), static_cast<std::uint32_t>(one.result));
    EXPECT_EQ(HexStringToByteA(one.text, one.length), static_cast<std::uint8_t>(one.result));
    EXPECT_EQ(HexStringToByteW(wide.c_str(), one.length), static_cast<std::uint8_t>(one.result));
  }
}

TEST(HexText, ReadsPairs) {
  struct Case {
    const char* text;
    int length;
    std::string bytes;
  };
  const Case cases[] = {{"0x4142", -1, "AB"},
                        {"410x42", -1, std::string("A\0B", 3)},
                        {"0X0x0X41", -1, std::string("\0\0A", 3)},
                        {"4G", -1, "\4"},
                        {"G4", -1, std::string("\0", 1)},
                        {"414", -1, "A"},
                        {"414243", 5, "AB"},
                        {"", -1, ""},
                        {"0x", -1, ""},
                        {"4", -1, ""}};
  for (const Case& one : cases) {
    const std::u16string wide = Wide(one.text);
    CBaseBuffer narrow_bytes;
    CBaseBuffer wide_bytes;
    wide_bytes.SetBuffer("before", 6);
    CBaseStringA narrow_string("before");
    CBaseStringA wide_string;
    HexStringToBufferA(one.text, one.length, &narrow_bytes);
    HexStringToBufferW(wide.c_str(), one.length, &wide_bytes);
    HexStringToStringA(one.text, one.length, &narrow_string);
    HexStringToStringW(wide.c_str(), one.length, &wide_string);
    EXPECT_EQ(Bytes(narrow_bytes), one.bytes) << one.text;
    EXPECT_EQ(Bytes(wide_bytes), one.bytes) << one.text;
    EXPECT_EQ(Text(narrow_string), one.bytes) << one.text;
    EXPECT_EQ(Text(wide_string), one.bytes) << one.text;
  }
  char out[4] = "###";
  StringFromHexA("0x41", -1, out);
  EXPECT_EQ(std::string(out, 3), std::string("\0A#", 3));
  StringFromHexA("424", -1, out);
  StringFromHexA("", -1, out);
  EXPECT_EQ(std::string(out, 3), std::string("\0A#", 3));
}

TEST(HexText, PlacesBytesAsSetBufferDoes) {
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

TEST(HexText, KnowsHexText) {
  struct Case {
    const char* text;
    int length, result;
  };
  const Case cases[] = {{"", -1, 1},   {"0x", -1, 0},   {"0x1", -1, 1},
                        {"0X", 2, 0},  {"aF09", -1, 1}, {"12g", -1, 0},
                        {"12g", 2, 1}, {"xx", 0, 1},    {"1 2", -1, 0}};
  for (const Case& one : cases) {
    EXPECT_EQ(IsHexStringA(one.text, one.length), one.result) << one.text;
    EXPECT_EQ(IsHexStringW(Wide(one.text).c_str(), one.length), one.result) << one.text;
  }
  EXPECT_EQ(IsHexCharW(u'\u0161'), 0);
  EXPECT_EQ(IsHexCharA('f'), 1);
}

TEST(HexText, ReadsBinaryDigits) {
  EXPECT_EQ(BinStringToByteA("101", 3), 5);
  EXPECT_EQ(BinStringToByteW(u"110000001", 9), 0x81);
  EXPECT_EQ(BinStringToByteA("13", 2), 5);
  EXPECT_EQ(BinStringToByteA("101", -1), 0);
  EXPECT_EQ(BinStringToUINT64A(std::string(64, '1').c_str(), 64), UINT64_MAX);
  EXPECT_EQ(BinStringToUINT64W(u"101", 0), 0u);
}

TEST(HexText, MovesBitFields) {
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

}  // namespace
}  // namespace qvx::test
