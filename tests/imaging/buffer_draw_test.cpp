#include "qvx/buffer_draw.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
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

template <typename Container>
auto* BytesOf(Container& container) {
  using Byte = std::conditional_t<std::is_const_v<Container>, const std::uint8_t, std::uint8_t>;
  return reinterpret_cast<Byte*>(container.data());
}

// What another program worked out for a source and a destination pixel. Where both are
// transparent the rules' order decides: the destination stays, but a stamp takes the source.
TEST(BufferDraw, BlendsSinglePixels) {
  const struct {
    std::uint32_t src, dst, drawn, stretched, stamped, faint;
  } cases[] = {
      {0x00FFFFFF, 0x80112233, 0x80112233, 0x80112233, 0x80112233, 0x80112233},
      {0x40102030, 0x00445566, 0x40102030, 0x40102030, 0x40102030, 0x40102030},
      {0x00102030, 0x00445566, 0x00445566, 0x00445566, 0x00102030, 0x00102030},
      {0x80FF0000, 0x800000FF, 0xBFAA0054, 0xC0AA0055, 0xC0A80057, 0x995300AC},
      {0xFF123456, 0x40ABCDEF, 0xFF123456, 0xFF123456, 0xFF133557, 0x8B3F6183},
      {0x80FFFFFF, 0xFF000000, 0xFF808080, 0xFF808080, 0xFF7F7F7F, 0xFF323232},
      {0x80000000, 0xFFFFFFFF, 0xFF7F7F7F, 0xFF7F7F7F, 0xFF808080, 0xFFCDCDCD},
      {0x01FF8001, 0xFE0180FF, 0xFE0180FE, 0xFF0180FF, 0xFE0180FF, 0xFE0180FF},
      {0xFE0180FF, 0x01FF8001, 0xFE0180FE, 0xFF0280FE, 0xFE0280FE, 0x640480FC},
      {0x7F3C78B4, 0xC8B4783C, 0xE370787F, 0xE472787E, 0xE472787E, 0xD3997857},
      {0x01FFFFFF, 0x01000000, 0x017F7F7F, 0x027F7F7F, 0x01000000, 0x01000000},
      {0xC0204080, 0xFF8040C0, 0xFF37408F, 0xFF384090, 0xFF394091, 0xFF6440AE},
  };
  for (const auto& each : cases) {
    const Words src(9, each.src);
    Words drawn(9, each.dst);
    Words stretched = drawn;
    RECT nine = {0, 0, 9, 1};
    RECT one = {0, 0, 1, 1};
    DrawBuffer(BytesOf(drawn), &nine, 0, BytesOf(src), &nine, 0, 4, 1, 1, 0);
    DrawBuffer(BytesOf(stretched), &nine, 0, BytesOf(src), &one, 0, 4, 1, 1, 0);
    EXPECT_EQ(drawn, Words(9, each.drawn)) << std::hex << each.src << " " << each.dst;
    EXPECT_EQ(stretched, Words(9, each.stretched)) << std::hex << each.src << " " << each.dst;
    for (const std::uint8_t alpha : Bytes{255, 100}) {
      std::uint32_t pixel = each.dst;
      DrawPointByPen(&pixel, 1, 1, 0, 0, &each.src, alpha, 1, 1, 1, 1, 1, 1);
      EXPECT_EQ(pixel, alpha == 255 ? each.stamped : each.faint) << std::hex << each.src;
    }
  }
}

TEST(BufferDraw, CopiesFillsAndTintsWhatBothRectanglesHave) {
  const std::string src = "abcdefghijklmnop";  // 4 by 4
  std::string dst(20, '.');                    // 5 by 4
  RECT from = {1, 1, 4, 4};
  RECT to = {2, 0, 5, 2};
  DrawBufferOnBuffer(BytesOf(dst), &to, 5, BytesOf(src), &from, 4, 1);
  EXPECT_EQ(dst, "..fgh..jkl..........");
  // Upwards: the pointer stands at the last row.
  DrawBufferOnBuffer(BytesOf(dst) + 15, &to, -5, BytesOf(src), &from, 4, 1);
  EXPECT_EQ(dst, "..fgh..jkl..jkl..fgh");

  Words picture(6, 0x11223344);
  const Bytes mask = {0, 1, 128, 255};
  RECT row = {1, 0, 4, 1};
  DrawColorOnBuffer(0xFF102030, BytesOf(picture), &row, 24);
  EXPECT_EQ(picture,
            (Words{0x11223344, 0xFF102030, 0xFF102030, 0xFF102030, 0x11223344, 0x11223344}));
  RECT all = {0, 0, 4, 1};
  SetAlphaBufferColor_ARGB(0xFF405060, BytesOf(picture), &all, 24, mask.data(), &all, 4);
  EXPECT_EQ(picture,
            (Words{0x00405060, 0x00405060, 0x7F405060, 0xFE405060, 0x11223344, 0x11223344}));
}

TEST(BufferDraw, MovesRectanglesByMode) {
  const RECT big = {10, 20, 110, 80};  // 100 by 60
  const RECT small = {1, 2, 31, 12};   // 30 by 10
  const RECT wide = {0, 0, 200, 100};
  const RECT square = {0, 0, 100, 100};
  const struct {
    RECT dst, src;
    int stretch;
    unsigned int mode;
    RECT dst_after, src_after;
  } cases[] = {
      {big, small, 0, 0x00, big, small},
      {big, small, 0, 0x11, {45, 45, 110, 80}, small},
      {big, small, 0, 0x44, {80, 70, 110, 80}, small},
      {big, small, 0, 0x55, {45, 45, 110, 80}, small},
      {small, big, 0, 0x14, small, {80, 45, 110, 80}},
      {small, big, 0, 0x41, small, {45, 70, 110, 80}},
      {big, big, 1, 0x55, big, big},
      {big, small, 1, 0x44, big, small},
      {square, wide, 1, 0x01, {0, 25, 100, 75}, wide},
      {square, wide, 1, 0x50, {0, 25, 100, 75}, wide},
      {{7, 9, 107, 109}, wide, 1, 0x10, {7, 34, 107, 84}, wide},
      {big, {0, 0, 7, 9}, 1, 0x11, {37, 20, 83, 80}, {0, 0, 7, 9}},
      {big, {0, 0, 0, 0}, 1, 0x11, {60, 50, 60, 50}, {0, 0, 0, 0}},
  };
  for (const auto& each : cases) {
    RECT dst = each.dst;
    RECT src = each.src;
    GetRectByMode(&dst, &src, each.stretch, each.mode);
    EXPECT_EQ(std::memcmp(&dst, &each.dst_after, sizeof dst), 0) << &each - cases;
    EXPECT_EQ(std::memcmp(&src, &each.src_after, sizeof src), 0) << &each - cases;
  }
}

// Aligned, cut, fitted, and stretched to the nearest pixel.
TEST(BufferDraw, DrawsAsItIsAsked) {
  const struct {
    int pixel, stretch, alpha;
    unsigned int mode;
    int src_width;
    std::string expected;
  } cases[] = {
      {1, 0, 0, 0x04, 2, "....ab"},     {1, 0, 1, 0x01, 4, ".abcd."}, {1, 0, 0, 0x01, 8, "bcdefg"},
      {2, 0, 1, 0x00, 1, "ab...."},     {1, 1, 0, 0x01, 3, ".abc.."}, {1, 1, 0, 0x04, 6, "abcdef"},
      {1, 1, 0, 0x00, 2, "aaabbb"},     {1, 1, 1, 0x04, 8, "abcefg"}, {1, 1, 0, 0x00, 10, "abdfh"},
      {1, 1, 0, 0x00, 3, "aaabbbbccc"}, {1, 1, 0, 0x00, 1, "aaaaa"},  {1, 1, 0, 0x00, 10, "a"},
      {1, 1, 0, 0x00, 7, "abdef"},      {1, 1, 0, 0x00, 2, "aabbb"},
  };
  for (const auto& each : cases) {
    const std::string src = "abcdefghij";
    std::string dst(each.expected.size(), '.');
    RECT to = {0, 0, static_cast<int>(dst.size()) / each.pixel, 1};
    RECT from = {0, 0, each.src_width, 1};
    DrawBuffer(BytesOf(dst), &to, 0, BytesOf(src), &from, 0, each.pixel, each.stretch, each.alpha,
               each.mode);
    EXPECT_EQ(dst, each.expected) << each.mode << " " << each.src_width;
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
void Fill(std::mt19937& random, std::uint8_t* bytes, std::size_t size, std::size_t kind) {
  constexpr std::uint8_t kEnds[] = {0, 1, 127, 128, 254, 255};
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = kind == 1 ? kEnds[random() % 6] : static_cast<std::uint8_t>(random());
    if (kind == 2 && i % 4 == 3) bytes[i] = 255;
  }
}

// The row of count pixels lies in size bytes at dst.
void ExpectPlainRow(const Form& form, std::uint8_t* dst, std::size_t size, const std::uint8_t* src,
                    std::size_t count) {
  Bytes plain(dst, dst + size);
  form.plain(plain.data(), src, count);
  form.wide(dst, src, count);
  ASSERT_TRUE(std::equal(plain.begin(), plain.end(), dst)) << form.name << " " << count;
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
        const std::size_t size = 4 * count + (round < 4 ? 0 : random() % 16);
        const std::size_t src_size = form.src_bytes * count;
        const bool at_start = round % 2 == 0;
        std::uint8_t* dst = at_start ? dst_memory.AtStart() : dst_memory.AtEnd(size);
        std::uint8_t* src = at_start ? src_memory.AtEnd(src_size) : src_memory.AtStart();
        Fill(random, dst, size, round % 3);
        Fill(random, src, src_size, (round + 1) % 3);
        ASSERT_NO_FATAL_FAILURE(ExpectPlainRow(form, dst, size, src, count)) << round;
      }
    }
  }
}

// Each alpha and colour on each colour of an opaque pixel; each alpha on each other alpha.
TEST(BufferDraw, WideBlendsAreLikePlainOnesForAllValues) {
  std::mt19937 random(13);
  const auto colour = [&random] { return static_cast<std::uint32_t>(random()) & 0xFFFFFF; };
  const std::vector<Form> forms = Forms();
  Words src(256);
  Words dst(256);
  for (std::uint32_t alpha = 0; alpha < 256; ++alpha) {
    for (std::uint32_t first = 0; first < 256; first += 3) {
      const std::uint32_t three = first | (first + 1) % 256 << 8 | (first + 2) % 256 << 16;
      std::fill(src.begin(), src.end(), alpha << 24 | three);
      for (std::uint32_t i = 0; i < 256; ++i) dst[i] = 0xFF000000 | i * 0x10101;
      ASSERT_NO_FATAL_FAILURE(ExpectPlainRow(forms[1], BytesOf(dst), 1024, BytesOf(src), 256));
    }
    for (const Form& form : forms) {
      if (form.src_bytes != 4) continue;
      for (int round = 0; round < 4; ++round) {
        for (std::uint32_t i = 0; i < 256; ++i) {
          src[i] = alpha << 24 | colour();
          dst[i] = i << 24 | colour();
        }
        ASSERT_NO_FATAL_FAILURE(ExpectPlainRow(form, BytesOf(dst), 1024, BytesOf(src), 256));
      }
    }
  }
}

// The source place of a target place.
int PlaceOf(int place, int source, int target) {
  if (source <= target) return source * (2 * place + 1) / (2 * target);
  return place == 0 ? 0 : (source * (2 * place - 1) + 2 * target - 1) / (2 * target);
}

struct Image {
  int width, height, pitch;

  std::size_t Size() const {
    return static_cast<std::size_t>(std::abs(pitch)) * static_cast<std::size_t>(height);
  }
  std::ptrdiff_t First() const { return pitch < 0 ? pitch * (1 - height) : 0; }
};

struct Stretch {
  Image from, to;
  int pixel;
  bool blend;

  void Draw(std::uint8_t* dst, const std::uint8_t* src) const {
    RECT to_rect = {0, 0, to.width, to.height};
    RECT from_rect = {0, 0, from.width, from.height};
    if (blend) {
      AlphaStretchBufferOnBuffer_ARGB(dst, &to_rect, to.pitch, src, &from_rect, from.pitch);
    } else {
      StretchBufferOnBuffer(dst, &to_rect, to.pitch, src, &from_rect, from.pitch, pixel);
    }
  }

  void DrawPlainly(std::uint8_t* dst, const std::uint8_t* src) const {
    for (int y = 0; y < to.height; ++y) {
      const std::uint8_t* row = src + PlaceOf(y, from.height, to.height) * from.pitch;
      for (int x = 0; x < to.width; ++x) {
        std::uint8_t* out = dst + y * to.pitch + x * pixel;
        const std::uint8_t* in = row + PlaceOf(x, from.width, to.width) * pixel;
        if (blend) {
          imaging::BlendRowPlain(out, in, 1);
        } else {
          std::memmove(out, in, static_cast<std::size_t>(pixel));
        }
      }
    }
  }
};

void ExpectPlainStretch(std::mt19937& random, const Stretch& stretch) {
  const Image& from = stretch.from;
  const Image& to = stretch.to;
  const GuardedBuffer src_memory(from.Size());
  const GuardedBuffer dst_memory(to.Size());
  std::uint8_t* src = src_memory.AtEnd(from.Size());
  std::uint8_t* dst = dst_memory.AtEnd(to.Size());
  Fill(random, src, from.Size(), 0);
  Fill(random, dst, to.Size(), random() % 3);
  Bytes plain(dst, dst + to.Size());
  stretch.DrawPlainly(plain.data() + to.First(), src + from.First());
  stretch.Draw(dst + to.First(), src + from.First());
  ASSERT_TRUE(std::equal(plain.begin(), plain.end(), dst))
      << from.width << "x" << from.height << " to " << to.width << "x" << to.height << " of "
      << stretch.pixel << (stretch.blend ? " blended" : "");
}

TEST(BufferDraw, StretchesLikeThePlainSteps) {
  std::mt19937 random(53);
  const auto below = [&random](unsigned end) { return static_cast<int>(random() % end); };
  constexpr int kPixels[] = {1, 2, 3, 4, 4, 4, 5, 16};
  for (unsigned round = 0; round < 1500; ++round) {
    const ProcessorTurn turn(round / 4);
    const bool blend = round % 4 == 0;
    const int pixel = blend ? 4 : kPixels[below(8)];
    const int gap = round % 2 == 0 ? 4 * below(5) : below(9);
    // The last row of the memory is whole, so no gap where it must not be read.
    Image from{1 + below(90), 1 + below(7), 0};
    from.pitch = from.width * pixel * (below(2) == 0 ? -1 : 1);
    Image to{1 + below(180), 1 + below(12), 0};
    if (round % 7 == 0) to.width = 2 * from.width;
    if (round % 11 == 0) to.width = from.width;
    to.pitch = (to.width * pixel + gap) * (below(2) == 0 ? -1 : 1);
    ASSERT_NO_FATAL_FAILURE(ExpectPlainStretch(random, {from, to, pixel, blend})) << round;
  }
  for (int width : {1, 9000, 19000, 30000}) {
    const Stretch wide{{width, 1, 4 * width}, {19000, 2, 4 * 19000}, 4, width == 9000};
    ASSERT_NO_FATAL_FAILURE(ExpectPlainStretch(random, wide));
  }
}

// One memory for both: every drawing goes on pixel by pixel, the copy row by row.
TEST(BufferDraw, OverlappingRectanglesAreDoneInOrder) {
  constexpr int kWidth = 20;
  constexpr int kPitch = 4 * kWidth;
  constexpr int kHeight = 6;
  RECT rect = {0, 0, kWidth, kHeight};
  using Draw = std::function<void(std::uint8_t*, const std::uint8_t*)>;
  std::vector<std::pair<Draw, Draw>> cases = {
      {[&](auto* dst, auto* src) {
         AlphaDrawBufferOnBuffer_ARGB(dst, &rect, kPitch, src, &rect, kPitch);
       },
       [](auto* dst, auto* src) { imaging::BlendRowExactPlain(dst, src, kHeight * kWidth); }},
      {[&](auto* dst, auto* src) {
         SetAlphaBufferColor_ARGB(0x80123456, dst, &rect, kPitch, src, &rect, kWidth);
       },
       [](auto* dst, auto* src) { imaging::TintRowPlain(dst, src, kHeight * kWidth, 0x80123456); }},
      {[&](auto* dst, auto* src) { DrawBufferOnBuffer(dst, &rect, kPitch, src, &rect, kPitch, 4); },
       [](auto* dst, auto* src) {
         for (int at = 0; at < kHeight * kPitch; at += kPitch) {
           std::memmove(dst + at, src + at, kPitch);
         }
       }},
  };
  for (int width : {10, kWidth}) {
    for (bool blend : {false, true}) {
      const Stretch stretch{{kWidth, kHeight, kPitch}, {width, kHeight, kPitch}, 4, blend};
      cases.emplace_back([=](auto* dst, auto* src) { stretch.Draw(dst, src); },
                         [=](auto* dst, auto* src) { stretch.DrawPlainly(dst, src); });
    }
  }
  std::mt19937 random(59);
  for (int shift : {-84, -80, -36, -4, -1, 0, 1, 4, 8, 36, 80, 84}) {
    for (const auto& [draw, draw_plainly] : cases) {
      Bytes bytes(kHeight * kPitch + 200);
      Fill(random, bytes.data(), bytes.size(), 0);
      Bytes plain = bytes;
      draw(bytes.data() + 100 + shift, bytes.data() + 100);
      draw_plainly(plain.data() + 100 + shift, plain.data() + 100);
      EXPECT_EQ(bytes, plain) << shift;
    }
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
  RECT one = {0, 0, 1, 1};
  RECT last = {kSide - 1, kSide - 1, kSide, kSide};
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
  RECT good = {0, 0, 2, 2};
  for (RECT rect :
       {RECT{0, 0, 0, 2}, {0, 0, 2, 0}, {2, 2, 0, 0}, {INT_MAX, INT_MAX, INT_MIN, INT_MIN}}) {
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

struct Line {
  POINT from, to;
  int width, height, pen;  // of the canvas, and the pen's size
};

// Draws on a canvas of points with a pen of '#'.
std::string DrawnLine(const Line& line, int pixel, CPtrCtrl* points) {
  const auto row = static_cast<std::size_t>(line.width) * static_cast<std::size_t>(pixel);
  const std::size_t size = row * static_cast<std::size_t>(line.height);
  const GuardedBuffer memory(size);
  std::uint8_t* dst = memory.AtEnd(size);
  std::memset(dst, '.', size);
  const std::string pen(static_cast<std::size_t>(std::max(line.pen, 1) * pixel), '#');
  DrawLineOnBuffer(dst, line.from, line.to, line.width, line.height, line.width * pixel, pixel,
                   line.pen, BytesOf(pen), points);
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
    Line line;
    std::string picture, points;
  } cases[] = {
      {{{0, 0}, {9, 4}, 10, 5, 1},
       "##........|..##......|....##....|......##..|........##",
       "0,0 1,0 2,1 3,1 4,2 5,2 6,3 7,3 8,4 9,4 "},
      {{{7, 6}, {2, 0}, 8, 7, 2},
       "..##....|..###...|...###..|....##..|....###.|.....###|......##",
       "6,5 5,4 5,5 5,4 4,3 4,4 4,3 4,2 3,1 3,2 3,1 2,0 2,1 2,0 "},
      {{{8, 3}, {0, 3}, 9, 4, -1},
       ".........|.........|.........|#########",
       "8,3 7,3 6,3 5,3 4,3 3,3 2,3 1,3 0,3 "},
      {{{-5, 2}, {50, -9}, 7, 6, 3},
       "...####|.######|#######|#####..|###....|.......",
       "0,2 1,1 1,2 1,3 2,1 2,2 2,3 3,0 3,1 3,2 4,0 4,1 4,2 "},
      {{{1, 1}, {1, 1}, 3, 3, 2}, "...|.##|.##", "1,1 "},
      {{{0, 0}, {3, 3}, 4, 3, 4}, "....|....|....", ""},
      {{{INT_MIN, INT_MAX}, {INT_MAX, INT_MAX}, 3, 2, 1}, "...|###", "0,1 1,1 2,1 "},
  };
  for (const auto& [line, picture, expected] : cases) {
    for (int pixel = 1; pixel <= 5; ++pixel) {
      CPtrArrayCtrl points;
      EXPECT_EQ(DrawnLine(line, pixel, &points), picture) << pixel;
      EXPECT_EQ(TextOf(points), expected);
    }
    CPtrListCtrl points;
    DrawLineOnBuffer(nullptr, line.from, line.to, line.width, line.height, 0, 1, line.pen, nullptr,
                     &points);
    EXPECT_EQ(TextOf(points), expected);
  }
  const std::string pen = "abc";
  std::string row = "........";
  DrawLineOnBuffer(BytesOf(row), {1, 0}, {4, 0}, 8, 1, 8, 1, 1, BytesOf(pen), nullptr);
  EXPECT_EQ(row, ".aaaa...");
}

// The squares of the pen at all places of a line of single points cover the thick line.
TEST(BufferDraw, ThickLinesAreTheSquaresOfThinOnes) {
  std::mt19937 random(61);
  const auto below = [&random](unsigned end) { return static_cast<int>(random() % end); };
  for (int round = 0; round < 300; ++round) {
    const int pen = 1 + below(5);
    const Line thick{{below(40) - 5, below(40) - 5},
                     {below(40) - 5, below(40) - 5},
                     pen + below(30),
                     pen + below(30),
                     pen};
    const Line thin{thick.from, thick.to, thick.width - pen + 1, thick.height - pen + 1, 1};
    const std::string points = DrawnLine(thin, 1, nullptr);
    const Line nothing{thick.from, thick.to, thick.width, thick.height, 99};  // too large a pen
    std::string expected = DrawnLine(nothing, 1, nullptr);
    for (std::size_t i = points.find('#'); i < points.size(); i = points.find('#', i + 1)) {
      const auto from_width = static_cast<std::size_t>(thin.width) + 1;
      const auto to_width = static_cast<std::size_t>(thick.width) + 1;
      const auto side = static_cast<std::size_t>(pen);
      for (std::size_t row = i / from_width; row < i / from_width + side; ++row) {
        expected.replace(row * to_width + i % from_width, side, side, '#');
      }
    }
    ASSERT_EQ(DrawnLine(thick, 1, nullptr), expected) << round;
  }
}

TEST(BufferDraw, ALineWhosePointsFindNoRoomLeavesAllAsItWas) {
  for (int failure = 1; failure < 4; ++failure) {
    CPtrListCtrl points;
    points.AddData(nullptr, -1);
    std::string picture(64, '.');
    const std::string pen = "##";
    const FailingAllocations failing(failure);
    EXPECT_THROW(
        DrawLineOnBuffer(BytesOf(picture), {0, 0}, {7, 3}, 8, 8, 8, 1, 2, BytesOf(pen), &points),
        std::bad_alloc);
    EXPECT_EQ(points.GetCount(), 1);
    EXPECT_EQ(picture, std::string(64, '.'));
  }
}

}  // namespace
}  // namespace qvx::test
