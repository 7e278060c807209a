// Numbers to base 36 and in Chinese words.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "qvx/string_split.h"
#include "text/text_length.h"

namespace {

constexpr std::uint64_t kRadix = 36;

template <typename T>
void AppendRadix36(std::uint64_t value, CBaseStringT<T>* out) {
  if (out == nullptr) return;
  constexpr std::size_t kMostDigits = 13;
  T digits[kMostDigits];
  int count = 0;
  do {
    const auto digit = static_cast<int>(value % kRadix);
    digits[count++] = static_cast<T>(digit < 10 ? '0' + digit : 'A' + digit - 10);
    value /= kRadix;
  } while (value != 0);
  out->Append(digits, count);
  out->Revert();
}

template <typename T>
std::uint64_t Radix36Digit(T character) {
  if (character >= T('0') && character <= T('9'))
    return static_cast<std::uint64_t>(character - '0');
  if (character >= T('A') && character <= T('Z')) {
    return static_cast<std::uint64_t>(character - 'A') + 10;
  }
  if (character >= T('a') && character <= T('z')) {
    return static_cast<std::uint64_t>(character - 'a') + 10;
  }
  return 0;
}

template <typename T>
std::uint64_t ReadRadix36(const T* text, int length) {
  if (text == nullptr) return 0;
  const std::size_t size = qvx::text::Length(text, length);
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < size; ++i) value = value * kRadix + Radix36Digit(text[i]);
  return value;
}

// The words: ten digits, the units, and what stands before a negative number.
enum Word { kZero, kOne, kTen = 10, kHundred, kThousand, kTenThousand, kHundredMillion, kMinus };
constexpr std::size_t kWords = 16;

constexpr std::array<std::u16string_view, kWords> kWide = {
    u"\u96f6", u"\u4e00", u"\u4e8c", u"\u4e09", u"\u56db", u"\u4e94", u"\u516d", u"\u4e03",
    u"\u516b", u"\u4e5d", u"\u5341", u"\u767e", u"\u5343", u"\u4e07", u"\u4ebf", u"\u8d1f"};
constexpr std::array<std::string_view, kWords> kNarrow = {
    "\xC1\xE3", "\xD2\xBB", "\xB6\xFE", "\xC8\xFD", "\xCB\xC4", "\xCE\xE5", "\xC1\xF9", "\xC6\xDF",
    "\xB0\xCB", "\xBE\xC5", "\xCA\xAE", "\xB0\xD9", "\xC7\xA7", "\xCD\xF2", "\xD2\xDA", "\xB8\xBA"};

const std::u16string_view& Spell(int word, WCHAR) {
  return kWide[static_cast<std::size_t>(word)];
}
const std::string_view& Spell(int word, char) {
  return kNarrow[static_cast<std::size_t>(word)];
}

// A decimal place, with the unit that is spoken behind its digit, if there is one. The last place
// of a group counts the group's own unit.
struct Place {
  std::int64_t weight;
  int unit;
};

constexpr Place kPlaces[] = {{1000000000, kTen},  {100000000, kZero}, {10000000, kThousand},
                             {1000000, kHundred}, {100000, kTen},     {10000, kZero},
                             {1000, kThousand},   {100, kHundred},    {10, kTen},
                             {1, kZero}};

// Writes the words of one number, as many as there is room for.
template <typename T>
class NumberWriter {
 public:
  NumberWriter(T* out, std::size_t room) : out_(out), end_(out + room) {}

  void Write(std::int64_t value) {
    if (value < 0) Put(kMinus);
    const std::int64_t left = value < 0 ? -value : value;
    int higher = 0;
    for (const Place& place : kPlaces) {
      const auto digit = static_cast<int>(left / place.weight % 10);
      WriteDigit(place, digit, higher);
      WriteGroup(place, left);
      higher = digit;
    }
    if (!written_) Put(kZero);
    *out_ = T();
  }

 private:
  static constexpr bool kIsWide = sizeof(T) > 1;

  void WriteDigit(const Place& place, int digit, int higher) {
    if (digit == 0) return;
    const bool fills = kIsWide && place.weight <= 1000000 && higher == 0 && written_;
    if (fills) Put(kZero);
    if (!LeavesOne(place, digit)) Put(digit);
    if (place.unit != kZero) Put(place.unit);
    written_ = true;
  }

  // Ten at the head of the hundred millions or of the lowest places is said without a one.
  bool LeavesOne(const Place& place, int digit) const {
    if (digit != kOne || place.unit != kTen || place.weight == 100000) return false;
    return !kIsWide || !written_;
  }

  void WriteGroup(const Place& place, std::int64_t value) {
    if (place.weight == 100000000 && value >= place.weight) Put(kHundredMillion);
    if (place.weight == 10000 && value / place.weight % 10000 != 0) Put(kTenThousand);
  }

  void Put(int word) {
    const auto& text = Spell(word, T());
    if (text.size() > static_cast<std::size_t>(end_ - out_)) {
      end_ = out_;
      return;
    }
    out_ += text.copy(out_, text.size());
  }

  T* out_;
  T* end_;
  bool written_ = false;
};

template <typename T>
int WriteChinese(int value, T* out, int outCount) {
  if (out == nullptr || outCount < 1) return 0;
  NumberWriter<T>(out, static_cast<std::size_t>(outCount) - 1).Write(value);
  return 1;
}

}  // namespace

void ConvertNumberToRadix36StringA(std::uint64_t value, CBaseStringA* out) {
  AppendRadix36(value, out);
}

void ConvertNumberToRadix36StringW(std::uint64_t value, CBaseStringW* out) {
  AppendRadix36(value, out);
}

std::uint64_t ConvertRadix36StringToNumberA(const char* text, int length) {
  return ReadRadix36(text, length);
}

std::uint64_t ConvertRadix36StringToNumberW(const WCHAR* text, int length) {
  return ReadRadix36(text, length);
}

int ConvertNumberToChineseNumberA(int value, char* out, int outCount) {
  return WriteChinese(value, out, outCount);
}

int ConvertNumberToChineseNumberW(int value, WCHAR* out, int outCount) {
  return WriteChinese(value, out, outCount);
}
