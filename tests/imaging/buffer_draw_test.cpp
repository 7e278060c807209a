#include "qvx/buffer_draw.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "imaging/buffer_draw_rows.h"
#include "qvx/gradient_draw.h"
#include "qvx/ptr_array.h"
#include "qvx/ptr_list.h"
#include "support/failing_new.h"
#include "support/guarded_buffer.h"
#include "support/processor_turn.h"

namespace qvx::test {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Words = std::vector<std::uint32_t>;

std::uint8_t* BytesOf(Words& words) {
  return reinterpret_cast<std::uint8_t*>(words.data());
}

const std::uint8_t* BytesOf(const Words& words) {
  return reinterpret_cast<const std::uint8_t*>(words.data());
}

RECT Rect(int left, int top, int right, int bottom) {
  return {left, top, right, bottom};
}

// What another program worked out for a source and a destination pixel.
TEST(BufferDraw, BlendsSinglePixels) {
  const struct {
    std::uint32_t src;
    std::uint32_t dst;
    std::uint32_t drawn;
    std::uint32_t stretched;
  } cases[] = {
      {0x00FFFFFF, 0x80112233, 0x80112233, 0x80112233},
      {0x40102030, 0x00445566, 0x40102030, 0x40102030},
      {0x80FF0000, 0x800000FF, 0xBFAA0054, 0xC0AA0055},
      {0xFF123456, 0x40ABCDEF, 0xFF123456, 0xFF123456},
      {0x80FFFFFF, 0xFF000000, 0xFF808080, 0xFF808080},
      {0x80000000, 0xFFFFFFFF, 0xFF7F7F7F, 0xFF7F7F7F},
      {0x01FF8001, 0xFE0180FF, 0xFE0180FE, 0xFF0180FF},
      {0xFE0180FF, 0x01FF8001, 0xFE0180FE, 0xFF0280FE},
      {0x7F3C78B4, 0xC8B4783C, 0xE370787F, 0xE472787E},
      {0x01FFFFFF, 0x01000000, 0x017F7F7F, 0x027F7F7F},
      {0xC0204080, 0xFF8040C0, 0xFF37408F, 0xFF384090},
  };
  for (const auto& each : cases) {
    for (int width : {1, 9}) {
      const auto count = static_cast<std::size_t>(width);
      const Words src(count, each.src);
      Words drawn(count, each.dst);
      Words stretched = drawn;
      RECT rect = Rect(0, 0, width, 1);
      RECT one = Rect(0, 0, 1, 1);
      AlphaDrawBufferOnBuffer_ARGB(BytesOf(drawn), &rect, 0, BytesOf(src), &rect, 0);
      AlphaStretchBufferOnBuffer_ARGB(BytesOf(stretched), &rect, 0, BytesOf(src), &one, 0);
      EXPECT_EQ(drawn, Words(count, each.drawn)) << std::hex << each.src << " " << each.dst;
      EXPECT_EQ(stretched, Words(count, each.stretched)) << std::hex << each.src << " " << each.dst;
    }
  }
}

TEST(BufferDraw, CopiesFillsAndTintsWhatBothRectanglesHave) {
  const std::string src = "abcdefghijklmnop";  // 4 by 4
  std::string dst(20, '.');                    // 5 by 4
  RECT from = Rect(1, 1, 4, 4);
  RECT to = Rect(2, 0, 5, 2);
  DrawBufferOnBuffer(reinterpret_cast<std::uint8_t*>(dst.data()), &to, 5,
                     reinterpret_cast<const std::uint8_t*>(src.data()), &from, 4, 1);
  EXPECT_EQ(dst, "..fgh..jkl..........");
  // Upwards: the pointer stands at the last row.
  DrawBufferOnBuffer(reinterpret_cast<std::uint8_t*>(dst.data()) + 15, &to, -5,
                     reinterpret_cast<const std::uint8_t*>(src.data()), &from, 4, 1);
  EXPECT_EQ(dst, "..fgh..jkl..jkl..fgh");

  Words picture(6, 0x11223344);
  const Bytes mask = {0, 1, 128, 255};
  RECT row = Rect(1, 0, 4, 1);
  DrawColorOnBuffer(0xFF102030, BytesOf(picture), &row, 24);
  EXPECT_EQ(picture,
            (Words{0x11223344, 0xFF102030, 0xFF102030, 0xFF102030, 0x11223344, 0x11223344}));
  RECT all = Rect(0, 0, 4, 1);
  SetAlphaBufferColor_ARGB(0xFF405060, BytesOf(picture), &all, 24, mask.data(), &all, 4);
  EXPECT_EQ(picture,
            (Words{0x00405060, 0x00405060, 0x7F405060, 0xFE405060, 0x11223344, 0x11223344}));
}

TEST(BufferDraw, MovesRectanglesByMode) {
  const RECT big = Rect(10, 20, 110, 80);  // 100 by 60
  const RECT small = Rect(1, 2, 31, 12);   // 30 by 10
  const RECT wide = Rect(0, 0, 200, 100);
  const RECT square = Rect(0, 0, 100, 100);
  const struct {
    RECT dst, src;
    int stretch;
    unsigned int mode;
    RECT dst_after, src_after;
  } cases[] = {
      {big, small, 0, 0x00, big, small},
      {big, small, 0, 0x11, Rect(45, 45, 110, 80), small},
      {big, small, 0, 0x44, Rect(80, 70, 110, 80), small},
      {big, small, 0, 0x55, Rect(45, 45, 110, 80), small},
      {small, big, 0, 0x14, small, Rect(80, 45, 110, 80)},
      {small, big, 0, 0x41, small, Rect(45, 70, 110, 80)},
      {big, big, 1, 0x55, big, big},
      {big, small, 1, 0x44, big, small},
      {square, wide, 1, 0x01, Rect(0, 25, 100, 75), wide},
      {square, wide, 1, 0x50, Rect(0, 25, 100, 75), wide},
      {Rect(7, 9, 107, 109), wide, 1, 0x10, Rect(7, 34, 107, 84), wide},
      {big, Rect(0, 0, 7, 9), 1, 0x11, Rect(37, 20, 83, 80), Rect(0, 0, 7, 9)},
      {big, Rect(0, 0, 0, 0), 1, 0x11, Rect(60, 50, 60, 50), Rect(0, 0, 0, 0)},
  };
  int number = 0;
  for (const auto& each : cases) {
    RECT dst = each.dst;
    RECT src = each.src;
    GetRectByMode(&dst, &src, each.stretch, each.mode);
    EXPECT_EQ(std::memcmp(&dst, &each.dst_after, sizeof dst), 0)
        << number << ": " << dst.left << " " << dst.top << " " << dst.right << " " << dst.bottom;
    EXPECT_EQ(std::memcmp(&src, &each.src_after, sizeof src), 0) << number;
    ++number;
  }
}

TEST(BufferDraw, DrawsAsItIsAsked) {
  const struct {
    int pixel, stretch, alpha;
    unsigned int mode;
    int src_width;
    std::string expected;
  } cases[] = {
      {1, 0, 0, 0x04, 2, "....ab"}, {1, 0, 1, 0x01, 4, ".abcd."}, {1, 1, 0, 0x00, 2, "aaabbb"},
      {1, 1, 0, 0x01, 3, ".abc.."}, {1, 1, 0, 0x04, 6, "abcdef"}, {2, 0, 1, 0x00, 1, "ab...."},
      {1, 0, 0, 0x01, 8, "bcdefg"}, {1, 1, 1, 0x04, 8, "abcefg"},
  };
  for (const auto& each : cases) {
    const std::string src = "abcdefgh";
    std::string dst = "......";
    RECT to = Rect(0, 0, 6 / each.pixel, 1);
    RECT from = Rect(0, 0, each.src_width, 1);
    DrawBuffer(reinterpret_cast<std::uint8_t*>(dst.data()), &to, 6,
               reinterpret_cast<const std::uint8_t*>(src.data()), &from, 8, each.pixel,
               each.stretch, each.alpha, each.mode);
    EXPECT_EQ(dst, each.expected) << each.mode << " " << each.src_width;
  }
  // With four bytes alpha counts, by the formula of drawing or of stretching.
  for (int dst_width : {1, 2}) {
    const Words src = {0x7F3C78B4};
    Words dst(2, 0xC8B4783C);
    RECT to = Rect(0, 0, dst_width, 1);
    RECT from = Rect(0, 0, 1, 1);
    DrawBuffer(BytesOf(dst), &to, 8, BytesOf(src), &from, 4, 4, 1, 1, 0);
    EXPECT_EQ(dst, dst_width == 1 ? (Words{0xE370787F, 0xC8B4783C}) : Words(2, 0xE472787E));
  }
}

// A wide row loop and the plain one that it must agree with.
struct Form {
  const char* name;
  std::size_t src_bytes;  // of a pixel
  std::function<void(std::uint8_t*, const std::uint8_t*, std::size_t)> wide;
  std::function<void(std::uint8_t*, const std::uint8_t*, std::size_t)> plain;
};

std::vector<Form> Forms() {
  using imaging::FillRow, imaging::FillRowPlain, imaging::StampRow, imaging::StampRowPlain;
  using imaging::TintRow, imaging::TintRowPlain;
  std::vector<Form> forms = {
      {"exact", 4, imaging::BlendRowExact, imaging::BlendRowExactPlain},
      {"blend", 4, imaging::BlendRow, imaging::BlendRowPlain},
      {"fill", 0, [](auto* dst, auto*, auto count) { FillRow(dst, count, 0x12345678); },
       [](auto* dst, auto*, auto count) { FillRowPlain(dst, count, 0x12345678); }},
      {"tint", 1, [](auto* dst, auto* src, auto count) { TintRow(dst, src, count, 0xFB123456); },
       [](auto* dst, auto* src, auto count) { TintRowPlain(dst, src, count, 0xFB123456); }},
  };
  for (const std::uint8_t alpha : Bytes{0, 1, 100, 255}) {
    forms.push_back(
        {"stamp", 4, [=](auto* dst, auto* src, auto count) { StampRow(dst, src, count, alpha); },
         [=](auto* dst, auto* src, auto count) { StampRowPlain(dst, src, count, alpha); }});
  }
  return forms;
}

// Random bytes; or such as lie at the ends of what they count; or opaque pixels.
Bytes MakeBytes(std::mt19937& random, std::size_t size, int kind) {
  constexpr std::uint8_t kEnds[] = {0, 1, 127, 128, 254, 255};
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = kind == 1 ? kEnds[random() % 6] : static_cast<std::uint8_t>(random());
    if (kind == 2 && i % 4 == 3) bytes[i] = 255;
  }
  return bytes;
}

// Every length around the vectors' sizes, at odd addresses, at the edge of the readable memory.
TEST(BufferDraw, WideRowsAreLikePlainOnes) {
  std::mt19937 random(31);
  const GuardedBuffer dst_memory(4096);
  const GuardedBuffer src_memory(4096);
  for (const Form& form : Forms()) {
    for (std::size_t count = 0; count < 140; ++count) {
      for (std::size_t round = 0; round < 8; ++round) {
        const ProcessorTurn turn(count + round);
        const std::size_t tail = round < 4 ? 0 : random() % 16;
        const std::size_t size = 4 * count + tail;
        const Bytes before = MakeBytes(random, size, static_cast<int>(round % 3));
        const Bytes src =
            MakeBytes(random, form.src_bytes * count, static_cast<int>((round + 1) % 3));
        const bool at_start = round % 2 == 0;
        std::uint8_t* dst = at_start ? dst_memory.AtStart() : dst_memory.AtEnd(size);
        std::uint8_t* in = at_start ? src_memory.AtEnd(src.size()) : src_memory.AtStart();
        std::copy(before.begin(), before.end(), dst);
        std::copy(src.begin(), src.end(), in);
        Bytes plain = before;
        form.plain(plain.data(), src.data(), count);
        form.wide(dst, in, count);
        ASSERT_TRUE(std::equal(plain.begin(), plain.end(), dst))
            << form.name << " " << count << " round " << round;
      }
    }
  }
}

void ExpectSameBlend(const Words& src, const Words& dst) {
  for (const Form& form : Forms()) {
    if (form.src_bytes != 4) continue;
    Words wide = dst;
    Words plain = dst;
    form.wide(BytesOf(wide), BytesOf(src), src.size());
    form.plain(BytesOf(plain), BytesOf(src), src.size());
    ASSERT_EQ(wide, plain) << form.name;
  }
}

// Each alpha and colour on each colour of an opaque pixel; each alpha on each other alpha.
TEST(BufferDraw, WideBlendsAreLikePlainOnesForAllValues) {
  std::mt19937 random(13);
  Words src(256);
  Words dst(256);
  for (std::uint32_t alpha = 0; alpha < 256; ++alpha) {
    for (std::uint32_t colour = 0; colour < 256; colour += 3) {
      const std::uint32_t three = colour | (colour + 1) % 256 << 8 | (colour + 2) % 256 << 16;
      std::fill(src.begin(), src.end(), alpha << 24 | three);
      for (std::uint32_t i = 0; i < 256; ++i) dst[i] = 0xFF000000 | i * 0x10101;
      Words plain = dst;
      imaging::BlendRow(BytesOf(dst), BytesOf(src), 256);
      imaging::BlendRowPlain(BytesOf(plain), BytesOf(src), 256);
      ASSERT_EQ(dst, plain) << alpha << " " << colour;
    }
    for (int round = 0; round < 4; ++round) {
      for (std::uint32_t i = 0; i < 256; ++i) {
        src[i] = alpha << 24 | (static_cast<std::uint32_t>(random()) & 0xFFFFFF);
        dst[i] = i << 24 | (static_cast<std::uint32_t>(random()) & 0xFFFFFF);
      }
      ASSERT_NO_FATAL_FAILURE(ExpectSameBlend(src, dst)) << alpha;
    }
  }
}

// The source place of each target place, step by step.
std::vector<int> Places(int source, int target) {
  std::vector<int> places;
  const bool shrink = target < source;
  const bool enlarge = target > source;
  int error = shrink ? 2 * target - source : 3 * source - 2 * target;
  for (int place = 0, i = 0; i < target; ++i) {
    places.push_back(place);
    if (shrink) {
      for (; error < 0; error += 2 * target) ++place;
      error += 2 * (target - source);
      ++place;
    } else if (enlarge && error < 0) {
      error += 2 * source;
    } else {
      error += 2 * (source - target);
      ++place;
    }
  }
  return places;
}

TEST(BufferDraw, StretchesToTheNearestPixel) {
  const std::string src = "abcdefghij";
  const struct {
    int from;
    std::string expected;
  } cases[] = {{10, "abdfh"}, {10, "abcdefghij"}, {3, "aaabbbbccc"}, {1, "aaaaa"},
               {10, "a"},     {7, "abdef"},       {2, "aabbb"}};
  for (const auto& each : cases) {
    std::string dst(each.expected.size(), '.');
    RECT from = Rect(0, 0, each.from, 1);
    RECT to = Rect(0, 0, static_cast<int>(dst.size()), 1);
    StretchBufferOnBuffer(reinterpret_cast<std::uint8_t*>(dst.data()), &to, 0,
                          reinterpret_cast<const std::uint8_t*>(src.data()), &from, 0, 1);
    EXPECT_EQ(dst, each.expected) << each.from;
  }
}

struct Image {
  int width, height, pitch;

  Image(int w, int h, int pixel, int gap, bool upwards)
      : width(w), height(h), pitch((w * pixel + gap) * (upwards ? -1 : 1)) {}
  std::size_t Size() const {
    return static_cast<std::size_t>(std::abs(pitch)) * static_cast<std::size_t>(height);
  }
  std::ptrdiff_t First() const { return pitch < 0 ? std::ptrdiff_t{-pitch} * (height - 1) : 0; }
};

void StretchPlainly(std::uint8_t* dst, const Image& to, const std::uint8_t* src, const Image& from,
                    int pixel, bool blend) {
  const std::vector<int> rows = Places(from.height, to.height);
  const std::vector<int> columns = Places(from.width, to.width);
  for (int y = 0; y < to.height; ++y) {
    for (int x = 0; x < to.width; ++x) {
      const auto row = static_cast<std::size_t>(y);
      const auto column = static_cast<std::size_t>(x);
      std::uint8_t* out = dst + y * to.pitch + x * pixel;
      const std::uint8_t* in = src + rows[row] * from.pitch + columns[column] * pixel;
      if (blend) {
        imaging::BlendRowPlain(out, in, 1);
      } else {
        std::memmove(out, in, static_cast<std::size_t>(pixel));
      }
    }
  }
}

void Stretch(std::uint8_t* dst, const Image& to, const std::uint8_t* src, const Image& from,
             int pixel, bool blend) {
  RECT to_rect = Rect(0, 0, to.width, to.height);
  RECT from_rect = Rect(0, 0, from.width, from.height);
  if (blend) {
    AlphaStretchBufferOnBuffer_ARGB(dst, &to_rect, to.pitch, src, &from_rect, from.pitch);
  } else {
    StretchBufferOnBuffer(dst, &to_rect, to.pitch, src, &from_rect, from.pitch, pixel);
  }
}

void ExpectPlainStretch(std::mt19937& random, const Image& from, const Image& to, int pixel,
                        bool blend) {
  const Bytes src = MakeBytes(random, from.Size(), 0);
  const Bytes before = MakeBytes(random, to.Size(), static_cast<int>(random() % 3));
  const GuardedBuffer src_memory(src.size());
  const GuardedBuffer dst_memory(before.size());
  std::uint8_t* in = src_memory.AtEnd(src.size());
  std::uint8_t* out = dst_memory.AtEnd(before.size());
  std::copy(src.begin(), src.end(), in);
  std::copy(before.begin(), before.end(), out);
  Bytes plain = before;
  StretchPlainly(plain.data() + to.First(), to, src.data() + from.First(), from, pixel, blend);
  Stretch(out + to.First(), to, in + from.First(), from, pixel, blend);
  ASSERT_TRUE(std::equal(plain.begin(), plain.end(), out))
      << from.width << "x" << from.height << " to " << to.width << "x" << to.height << " of "
      << pixel << (blend ? " blended" : "");
}

TEST(BufferDraw, StretchesLikeThePlainSteps) {
  std::mt19937 random(53);
  const auto below = [&random](int end) {
    return static_cast<int>(random() % static_cast<unsigned int>(end));
  };
  constexpr int kPixels[] = {1, 2, 3, 4, 4, 4, 5, 16};
  for (unsigned round = 0; round < 1500; ++round) {
    const ProcessorTurn turn(round / 4);
    const bool blend = round % 4 == 0;
    const int pixel = blend ? 4 : kPixels[below(8)];
    const int gap = round % 2 == 0 ? 4 * below(5) : below(9);
    // The last row of the memory is whole, so no gap where it must not be read.
    const Image from(1 + below(90), 1 + below(7), pixel, 0, below(2) == 0);
    int width = 1 + below(180);
    if (round % 7 == 0) width = 2 * from.width;
    if (round % 11 == 0) width = from.width;
    const Image to(width, 1 + below(12), pixel, gap, below(2) == 0);
    ASSERT_NO_FATAL_FAILURE(ExpectPlainStretch(random, from, to, pixel, blend)) << round;
  }
  for (int width : {1, 9000, 19000, 30000}) {
    const Image from(width, 1, 4, 0, false);
    const Image to(19000, 2, 4, 0, false);
    ASSERT_NO_FATAL_FAILURE(ExpectPlainStretch(random, from, to, 4, width == 9000));
  }
}

// One memory for both: every drawing goes on pixel by pixel, the copy row by row.
TEST(BufferDraw, OverlappingRectanglesAreDoneInOrder) {
  std::mt19937 random(59);
  constexpr int kWidth = 20;
  const Image whole(kWidth, 6, 4, 0, false);
  for (int shift : {-84, -80, -36, -4, -1, 0, 1, 4, 8, 36, 80, 84}) {
    const Bytes before = MakeBytes(random, whole.Size() + 200, 0);
    const auto both = [&](const std::function<void(std::uint8_t*, const std::uint8_t*)>& first,
                          const std::function<void(std::uint8_t*, const std::uint8_t*)>& second) {
      Bytes a = before;
      Bytes b = before;
      first(a.data() + 100 + shift, a.data() + 100);
      second(b.data() + 100 + shift, b.data() + 100);
      EXPECT_EQ(a, b) << shift;
    };
    for (int width : {10, kWidth}) {
      const Image to(width, 6, 4, 4 * (kWidth - width), false);
      for (bool blend : {false, true}) {
        both([&](auto* dst, auto* src) { Stretch(dst, to, src, whole, 4, blend); },
             [&](auto* dst, auto* src) { StretchPlainly(dst, to, src, whole, 4, blend); });
      }
    }
    RECT rect = Rect(0, 0, kWidth, 6);
    both(
        [&](auto* dst, auto* src) {
          AlphaDrawBufferOnBuffer_ARGB(dst, &rect, whole.pitch, src, &rect, whole.pitch);
        },
        [&](auto* dst, auto* src) { imaging::BlendRowExactPlain(dst, src, 6 * kWidth); });
    both(
        [&](auto* dst, auto* src) {
          SetAlphaBufferColor_ARGB(0x80123456, dst, &rect, whole.pitch, src, &rect, kWidth);
        },
        [&](auto* dst, auto* src) { imaging::TintRowPlain(dst, src, 6 * kWidth, 0x80123456); });
    both(
        [&](auto* dst, auto* src) {
          DrawBufferOnBuffer(dst, &rect, whole.pitch, src, &rect, whole.pitch, 4);
        },
        [&](auto* dst, auto* src) {
          for (int y = 0; y < 6; ++y) std::memmove(dst + 80 * y, src + 80 * y, 80);
        });
  }
}

// Offsets beyond what 32 bits count, without their memory: only the last pixel is ever touched.
TEST(LargeBufferDraw, ReachesTheLastPixelOf50000By50000) {
  constexpr int kSide = 50000;
  constexpr int kPitch = 4 * kSide;
  constexpr std::size_t kSize = std::size_t{kPitch} * kSide;
  const GuardedBuffer memory(kSize);
  std::uint8_t* dst = memory.AtEnd(kSize);
  const Words pixel = {0xFF123456};
  const std::uint8_t* src = BytesOf(pixel);
  RECT one = Rect(0, 0, 1, 1);
  RECT last = Rect(kSide - 1, kSide - 1, kSide, kSide);
  const POINT end{kSide, kSide};
  const std::function<void()> draws[] = {
      [&] { DrawColorOnBuffer(pixel[0], dst, &last, kPitch); },
      [&] { DrawBufferOnBuffer(dst, &last, kPitch, src, &one, 4, 4); },
      [&] { AlphaDrawBufferOnBuffer_ARGB(dst, &last, kPitch, src, &one, 4); },
      [&] { AlphaStretchBufferOnBuffer_ARGB(dst, &last, kPitch, src, &one, 4); },
      [&] { DrawLineOnBuffer(dst, end, end, kSide, kSide, kPitch, 4, 1, src, nullptr); },
      [&] {
        DrawPointByPen(reinterpret_cast<unsigned int*>(dst), kSide, kSide, kSide - 1, kSide - 1,
                       pixel.data(), 255, 1, 1, 1, 1, 1, 1);
      },
  };
  for (const auto& draw : draws) {
    std::memset(dst + kSize - 4, 0, 4);
    draw();
    EXPECT_EQ(std::memcmp(dst + kSize - 4, src, 4), 0) << &draw - draws;
  }
}

TEST(BufferDraw, NothingToDrawTouchesNothing) {
  const Words src(4, 0xFFFFFFFF);
  RECT good = Rect(0, 0, 2, 2);
  const RECT bad[] = {Rect(0, 0, 0, 2), Rect(0, 0, 2, 0), Rect(2, 2, 0, 0),
                      Rect(INT_MAX, INT_MAX, INT_MIN, INT_MIN)};
  for (RECT rect : bad) {
    for (RECT* to : {&rect, &good}) {
      RECT* from = to == &rect ? &good : &rect;
      DrawBufferOnBuffer(nullptr, to, 8, BytesOf(src), from, 8, 4);
      Words dst(4, 0x11111111);
      DrawBufferOnBuffer(BytesOf(dst), to, 8, BytesOf(src), from, 8, 4);
      AlphaDrawBufferOnBuffer_ARGB(BytesOf(dst), to, 8, BytesOf(src), from, 8);
      StretchBufferOnBuffer(BytesOf(dst), to, 8, BytesOf(src), from, 8, 4);
      AlphaStretchBufferOnBuffer_ARGB(BytesOf(dst), to, 8, BytesOf(src), from, 8);
      SetAlphaBufferColor_ARGB(0, BytesOf(dst), to, 8, BytesOf(src), from, 8);
      DrawColorOnBuffer(0, BytesOf(dst), &rect, 8);
      DrawBufferOnBuffer(BytesOf(dst), &good, 8, nullptr, &good, 8, 4);
      DrawBufferOnBuffer(BytesOf(dst), &good, 8, BytesOf(src), &good, 8, 0);
      StretchBufferOnBuffer(BytesOf(dst), &good, 8, BytesOf(src), nullptr, 8, -4);
      DrawBuffer(BytesOf(dst), nullptr, 8, BytesOf(src), &good, 8, 4, 1, 1, 0x11);
      EXPECT_EQ(dst, Words(4, 0x11111111));
    }
  }
}

// Draws on a canvas of points with a pen of '#'.
std::string DrawnLine(POINT from, POINT to, int width, int height, int pen, int pixel,
                      CPtrCtrl* points) {
  const auto row = static_cast<std::size_t>(width) * static_cast<std::size_t>(pixel);
  const std::size_t size = row * static_cast<std::size_t>(height);
  const GuardedBuffer memory(size);
  std::uint8_t* dst = memory.AtEnd(size);
  std::memset(dst, '.', size);
  const Bytes pixels(static_cast<std::size_t>(std::max(pen, 1) * pixel), '#');
  DrawLineOnBuffer(dst, from, to, width, height, width * pixel, pixel, pen, pixels.data(), points);
  std::string picture;
  for (std::size_t i = 0; i < size; ++i) {
    if (i % static_cast<std::size_t>(pixel) == 0) picture += static_cast<char>(dst[i]);
    EXPECT_EQ(dst[i], static_cast<std::uint8_t>(picture.back()));
    if (i % row == row - 1 && i + 1 < size) picture += '|';
  }
  return picture;
}

std::string TextOf(CPtrCtrl& points) {
  std::string text;
  for (int i = 0; i < points.GetCount(); ++i) {
    const auto value = reinterpret_cast<std::uintptr_t>(points.GetAt(i));
    text += std::to_string(static_cast<std::int32_t>(value)) + "," +
            std::to_string(static_cast<std::int32_t>(value >> 32)) + " ";
  }
  return text;
}

TEST(BufferDraw, DrawsLinesWithTheirPoints) {
  const struct {
    POINT from, to;
    int width, height, pen;
    std::string picture, points;
  } cases[] = {
      {{0, 0},
       {9, 4},
       10,
       5,
       1,
       "##........|..##......|....##....|......##..|........##",
       "0,0 1,0 2,1 3,1 4,2 5,2 6,3 7,3 8,4 9,4 "},
      {{7, 6},
       {2, 0},
       8,
       7,
       2,
       "..##....|..###...|...###..|....##..|....###.|.....###|......##",
       "6,5 5,4 5,5 5,4 4,3 4,4 4,3 4,2 3,1 3,2 3,1 2,0 2,1 2,0 "},
      {{8, 3},
       {0, 3},
       9,
       4,
       -1,
       ".........|.........|.........|#########",
       "8,3 7,3 6,3 5,3 4,3 3,3 2,3 1,3 0,3 "},
      {{-5, 2},
       {50, -9},
       7,
       6,
       3,
       "...####|.######|#######|#####..|###....|.......",
       "0,2 1,1 1,2 1,3 2,1 2,2 2,3 3,0 3,1 3,2 4,0 4,1 4,2 "},
      {{1, 1}, {1, 1}, 3, 3, 2, "...|.##|.##", "1,1 "},
      {{0, 0}, {3, 3}, 4, 3, 4, "....|....|....", ""},
      {{INT_MIN, INT_MAX}, {INT_MAX, INT_MAX}, 3, 2, 1, "...|###", "0,1 1,1 2,1 "},
  };
  for (const auto& each : cases) {
    for (int pixel = 1; pixel <= 5; ++pixel) {
      CPtrArrayCtrl points;
      EXPECT_EQ(DrawnLine(each.from, each.to, each.width, each.height, each.pen, pixel, &points),
                each.picture)
          << pixel;
      EXPECT_EQ(TextOf(points), each.points);
    }
    CPtrListCtrl points;
    DrawLineOnBuffer(nullptr, each.from, each.to, each.width, each.height, 0, 1, each.pen, nullptr,
                     &points);
    EXPECT_EQ(TextOf(points), each.points);
  }
  std::string row = "........";
  DrawLineOnBuffer(reinterpret_cast<std::uint8_t*>(row.data()), {1, 0}, {4, 0}, 8, 1, 8, 1, 1,
                   reinterpret_cast<const std::uint8_t*>("abc"), nullptr);
  EXPECT_EQ(row, ".aaaa...");
}

// The squares of the pen at all places of a line of single points cover the thick line.
TEST(BufferDraw, ThickLinesAreTheSquaresOfThinOnes) {
  std::mt19937 random(61);
  for (int round = 0; round < 300; ++round) {
    const int pen = 1 + static_cast<int>(random() % 5);
    const int width = pen + static_cast<int>(random() % 30);
    const int height = pen + static_cast<int>(random() % 30);
    const auto end = [&]() -> POINT {
      return {static_cast<int>(random() % 40) - 5, static_cast<int>(random() % 40) - 5};
    };
    const POINT from = end();
    const POINT to = end();
    const std::string thin = DrawnLine(from, to, width - pen + 1, height - pen + 1, 1, 1, nullptr);
    std::string thick(static_cast<std::size_t>(width + 1) * static_cast<std::size_t>(height), '.');
    for (int i = 0; i < static_cast<int>(thin.size()); ++i) {
      if (thin[static_cast<std::size_t>(i)] != '#') continue;
      const int x = i % (width - pen + 2);
      const int y = i / (width - pen + 2);
      for (int row = y; row < y + pen; ++row) {
        const int place = row * (width + 1) + x;
        thick.replace(static_cast<std::size_t>(place), static_cast<std::size_t>(pen),
                      static_cast<std::size_t>(pen), '#');
      }
    }
    for (int y = 1; y < height; ++y) thick[static_cast<std::size_t>(y * (width + 1) - 1)] = '|';
    thick.pop_back();
    ASSERT_EQ(DrawnLine(from, to, width, height, pen, 1, nullptr), thick) << round;
  }
}

TEST(BufferDraw, ALineWhosePointsFindNoRoomLeavesAllAsItWas) {
  for (int failure = 1; failure < 4; ++failure) {
    CPtrListCtrl points;
    points.AddData(nullptr, -1);
    std::string picture(64, '.');
    const FailingAllocations failing(failure);
    EXPECT_THROW(
        DrawLineOnBuffer(reinterpret_cast<std::uint8_t*>(picture.data()), {0, 0}, {7, 3}, 8, 8, 8,
                         1, 2, reinterpret_cast<const std::uint8_t*>("##"), &points),
        std::bad_alloc);
    EXPECT_EQ(points.GetCount(), 1);
    EXPECT_EQ(picture, std::string(64, '.'));
  }
}

}  // namespace
}  // namespace qvx::test
