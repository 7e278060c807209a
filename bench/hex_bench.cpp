#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "qvx/hex_text.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr int kSize = 64 * 1024;
constexpr double kThreeTimes = 1.0 / 3;

const std::vector<std::uint8_t>& Bytes() {
  static const std::vector<std::uint8_t> bytes = [] {
    std::vector<std::uint8_t> all(kSize);
    for (int i = 0; i < kSize; ++i)
      all[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(i * 37 >> 3);
    return all;
  }();
  return bytes;
}

// The peers: a loop over a table into a block that is there already.
void PlainToText(const std::vector<std::uint8_t>& bytes, std::string& text) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  char* out = text.data();
  for (std::uint8_t byte : bytes) {
    *out++ = kDigits[byte >> 4];
    *out++ = kDigits[byte & 15];
  }
}

std::array<std::uint8_t, 256> DigitValues() {
  std::array<std::uint8_t, 256> values{};
  for (std::uint8_t i = 0; i < 10; ++i) values['0' + i] = i;
  for (std::uint8_t i = 0; i < 6; ++i) {
    values['a' + i] = values['A' + i] = static_cast<std::uint8_t>(10 + i);
  }
  return values;
}

void PlainToBytes(const std::string& text, std::vector<std::uint8_t>& bytes) {
  static const std::array<std::uint8_t, 256> kValues = DigitValues();
  const auto* digits = reinterpret_cast<const std::uint8_t*>(text.data());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(kValues[digits[2 * i]] << 4 | kValues[digits[2 * i + 1]]);
  }
}

std::string Text() {
  std::string text(2 * kSize, '\0');
  PlainToText(Bytes(), text);
  return text;
}

void ToTextOurs(long long times) {
  for (long long i = 0; i < times; ++i) {
    CBaseStringA text;
    BufferToHexStringA(Bytes().data(), kSize, 1, 0, &text);
    benchmark::DoNotOptimize(text.GetString());
    benchmark::ClobberMemory();
  }
}

// As ours, into the string of the turn before, which holds the same text.
void ToSameTextOurs(long long times) {
  CBaseStringA text;
  for (long long i = 0; i < times; ++i) {
    BufferToHexStringA(Bytes().data(), kSize, 1, 0, &text);
    benchmark::DoNotOptimize(text.GetString());
    benchmark::ClobberMemory();
  }
}

void ToTextPeer(long long times) {
  std::string text(2 * kSize, '\0');
  for (long long i = 0; i < times; ++i) {
    PlainToText(Bytes(), text);
    benchmark::DoNotOptimize(text.data());
    benchmark::ClobberMemory();
  }
}

void ToBytesOurs(long long times) {
  const std::string text = Text();
  CBaseBuffer bytes;
  for (long long i = 0; i < times; ++i) {
    HexStringToBufferA(text.data(), 2 * kSize, &bytes);
    benchmark::DoNotOptimize(bytes.GetBuffer());
    benchmark::ClobberMemory();
  }
}

void ToBytesPeer(long long times) {
  const std::string text = Text();
  std::vector<std::uint8_t> bytes(kSize);
  for (long long i = 0; i < times; ++i) {
    PlainToBytes(text, bytes);
    benchmark::DoNotOptimize(bytes.data());
    benchmark::ClobberMemory();
  }
}

const bool kAdded = AddPair({"hex to text", kThreeTimes, &ToTextOurs, &ToTextPeer}) &&
                    AddPair({"hex to equal text", kThreeTimes, &ToSameTextOurs, &ToTextPeer}) &&
                    AddPair({"hex to bytes", kThreeTimes, &ToBytesOurs, &ToBytesPeer});

}  // namespace
}  // namespace qvx::bench
