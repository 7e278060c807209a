#include "text/hex_codec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "support/processor_turn.h"
#include "text/widths.h"

namespace qvx::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

template <typename T>
class HexCodec : public testing::Test {};
TYPED_TEST_SUITE(HexCodec, Widths);

Bytes RandomBytes(std::mt19937& random, std::size_t size) {
  Bytes bytes(size);
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
  return bytes;
}

// Every length around the vectors' sizes, at odd addresses, with what lies behind untouched.
TYPED_TEST(HexCodec, EncodesAsThePlainFormDoes) {
  using T = TypeParam;
  std::mt19937 random(82);
  for (std::size_t size = 0; size < 300; ++size) {
    const ProcessorTurn turn(size);
    const Bytes bytes = RandomBytes(random, size + 1);
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
TYPED_TEST(HexCodec, DecodesAsThePlainFormDoes) {
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
      Bytes plain(pairs + 8, 0xEE);
      Bytes wide = plain;
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

TYPED_TEST(HexCodec, KnowsEveryCharacter) {
  using T = TypeParam;
  const std::u16string digits = u"0123456789abcdefABCDEF";
  const int end = sizeof(T) == 1 ? 256 : 65536;
  for (int i = 0; i < end; ++i) {
    const std::size_t place = digits.find(static_cast<char16_t>(i));
    const int digit = place == digits.npos ? -1 : static_cast<int>(place < 16 ? place : place - 6);
    ASSERT_EQ(text::HexDigit(static_cast<T>(i)), digit) << i;
    const std::basic_string<T> text(256, static_cast<T>(i));
    Bytes bytes(128);
    text::DecodeHex(text.data(), bytes.size(), bytes.data());
    ASSERT_EQ(bytes, Bytes(128, static_cast<std::uint8_t>(std::max(digit, 0) * 17))) << i;
  }
}

}  // namespace
}  // namespace qvx::test
