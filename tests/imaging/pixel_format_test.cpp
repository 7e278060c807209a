#include "qvx/pixel_format.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>
#include <type_traits>
#include <variant>
#include <vector>

#include "imaging/picture.h"
#include "support/guarded_buffer.h"
#include "support/processor_turn.h"

namespace qvx::test {
namespace {

using RgbToYuvCall = void(int, int, const void*, void*, int, int, int);  // also RGB to RGB
using YuvToRgbCall = void(int, int, const void*, int, void*, int, int);
using PackedToRgbCall = void(int, int, const void*, void*, int, int);
using PackedToArgbCall = void(int, int, const void*, void*, int, int, const unsigned char*, int);
using JoinCall = void(int, int, const void*, int, void*);
using SplitCall = void(int, int, const void*, void*, int);
using PlanarCall = void(int, int, const void*, int, void*, int);

struct Conversion {
  const char* name;
  Layout from, to;
  std::variant<RgbToYuvCall*, YuvToRgbCall*, PackedToRgbCall*, PackedToArgbCall*, JoinCall*,
               SplitCall*, PlanarCall*>
      function;

  void operator()(int width, int height, const Picture& src, const Picture& dst,
                  const std::uint8_t* alpha, int alpha_stride) const {
    const int src_stride = static_cast<int>(src.stride);
    const int dst_stride = static_cast<int>(dst.stride);
    const auto call = [&](auto* convert) {
      using Call = std::remove_pointer_t<decltype(convert)>;
      if constexpr (std::is_same_v<Call, RgbToYuvCall>) {
        // Between RGB layouts the same order of bytes on both sides is said the other way round.
        const int swap = src.flag == dst.flag ? 0 : 1;
        IsRgb(to) ? convert(width, height, src.data, dst.data, src_stride, dst_stride, swap)
                  : convert(width, height, src.data, dst.data, dst.flag, src_stride, src.flag);
      } else if constexpr (std::is_same_v<Call, YuvToRgbCall>) {
        convert(width, height, src.data, src.flag, dst.data, dst_stride, dst.flag);
      } else if constexpr (std::is_same_v<Call, PackedToRgbCall>) {
        convert(width, height, src.data, dst.data, dst_stride, dst.flag);
      } else if constexpr (std::is_same_v<Call, PackedToArgbCall>) {
        convert(width, height, src.data, dst.data, dst_stride, dst.flag, alpha, alpha_stride);
      } else if constexpr (std::is_same_v<Call, JoinCall>) {
        convert(width, height, src.data, src.flag, dst.data);
      } else if constexpr (std::is_same_v<Call, SplitCall>) {
        convert(width, height, src.data, dst.data, dst.flag);
      } else {
        convert(width, height, src.data, src.flag, dst.data, dst.flag);
      }
    };
    std::visit(call, function);
  }
};

#define QVX_TEST_CASE(FUNCTION, FROM, TO) \
  { #FUNCTION, Layout::FROM, Layout::TO, &(FUNCTION) }

const std::vector<Conversion>& Conversions() {
  static const std::vector<Conversion> all = {
      QVX_TEST_CASE(RGB888ToYUV420, kRgb888, kYuv420),
      QVX_TEST_CASE(RGB565ToYUV420, kRgb565, kYuv420),
      QVX_TEST_CASE(RGB555ToYUV420, kRgb555, kYuv420),
      QVX_TEST_CASE(RGB888ToYUV422, kRgb888, kYuv422),
      QVX_TEST_CASE(RGB565ToYUV422, kRgb565, kYuv422),
      QVX_TEST_CASE(RGB555ToYUV422, kRgb555, kYuv422),
      QVX_TEST_CASE(RGB888ToYUV444, kRgb888, kYuv444),
      QVX_TEST_CASE(RGB565ToYUV444, kRgb565, kYuv444),
      QVX_TEST_CASE(RGB555ToYUV444, kRgb555, kYuv444),
      QVX_TEST_CASE(YUV420ToRGB888, kYuv420, kRgb888),
      QVX_TEST_CASE(YUV420ToRGB565, kYuv420, kRgb565),
      QVX_TEST_CASE(YUV420ToRGB555, kYuv420, kRgb555),
      QVX_TEST_CASE(YUV422ToRGB888, kYuv422, kRgb888),
      QVX_TEST_CASE(YUV422ToRGB565, kYuv422, kRgb565),
      QVX_TEST_CASE(YUV422ToRGB555, kYuv422, kRgb555),
      QVX_TEST_CASE(YUV444ToRGB888, kYuv444, kRgb888),
      QVX_TEST_CASE(YUV444ToRGB565, kYuv444, kRgb565),
      QVX_TEST_CASE(YUY2ToRGB888, kYuyv, kRgb888),
      QVX_TEST_CASE(YVY2ToRGB888, kYvy2, kRgb888),
      QVX_TEST_CASE(YUY2ToARGB32, kYuyv, kArgb32),
      QVX_TEST_CASE(YVY2ToARGB32, kYvy2, kArgb32),
      QVX_TEST_CASE(YUVToYUYV_422, kYuv422, kYuyv),
      QVX_TEST_CASE(YUYVToYUV_422, kYuyv, kYuv422),
      QVX_TEST_CASE(YUYV422ToYUV420, kYuyv, kYuv420),
      QVX_TEST_CASE(YUV422ToYUV420, kYuv422, kYuv420),
      QVX_TEST_CASE(YUV420ToYUV422, kYuv420, kYuv422),
      QVX_TEST_CASE(YUV420SPToYUV420, kSemiPlanar, kYuv420),
      QVX_TEST_CASE(YUV420ToYUV420SP, kYuv420, kSemiPlanar),
      QVX_TEST_CASE(RGB888ToRGB565, kRgb888, kRgb565),
      QVX_TEST_CASE(RGB888ToRGB555, kRgb888, kRgb555),
      QVX_TEST_CASE(RGB565ToRGB888, kRgb565, kRgb888),
      QVX_TEST_CASE(RGB555ToRGB888, kRgb555, kRgb888),
      QVX_TEST_CASE(RGB565ToRGB555, kRgb565, kRgb555),
      QVX_TEST_CASE(RGB555ToRGB565, kRgb555, kRgb565),
  };
  return all;
}

const Formulas& Rules() {
  static const Formulas formulas;
  return formulas;
}

// How many columns and rows share a chroma sample.
std::size_t Columns(Layout layout) {
  return IsRgb(layout) || layout == Layout::kYuv444 ? 1 : 2;
}

std::size_t Rows(Layout layout) {
  return layout == Layout::kYuv420 ? 2 : 1;
}

void ExpectRgb(const Picture& src, const Picture& dst, const std::uint8_t* alpha,
               std::size_t alpha_stride) {
  const std::size_t rows = src.height - src.height % Rows(src.layout);
  const std::size_t columns = src.width - src.width % Columns(src.layout);
  for (std::size_t y = 0; y < rows; ++y) {
    for (std::size_t x = 0; x < columns; ++x) {
      const Colour colour =
          IsRgb(src.layout)
              ? src.Get(x, y)
              : Rules().ToRgb({src.Sample(x, y, 0), src.Sample(x, y, 1), src.Sample(x, y, 2)});
      dst.Put(x, y, colour, alpha[y * alpha_stride + x]);
    }
  }
}

void ExpectYuvOfRgb(const Picture& src, const Picture& dst) {
  const std::size_t rows = Rows(dst.layout);
  const std::size_t columns = Columns(dst.layout);
  for (std::size_t y = 0; y + rows <= src.height; y += rows) {
    for (std::size_t x = 0; x + columns <= src.width; x += columns) {
      std::size_t sums[3] = {};
      for (std::size_t i = 0; i < rows * columns; ++i) {
        const Colour yuv = Rules().ToYuv(src.Get(x + i % columns, y + i / columns));
        dst.Sample(x + i % columns, y + i / columns, 0) = yuv[0];
        for (std::size_t channel = 1; channel < 3; ++channel) sums[channel] += yuv[channel];
      }
      for (std::size_t channel = 1; channel < 3; ++channel) {
        dst.Sample(x, y, channel) = static_cast<std::uint8_t>(sums[channel] / (rows * columns));
      }
    }
  }
}

// The pairs of a semi-planar picture go by number, without rows.
void ExpectPairs(const Picture& src, const Picture& dst) {
  const bool split = src.layout == Layout::kSemiPlanar;
  const std::size_t area = src.width * src.height;
  std::copy_n(src.data, area, dst.data);
  const bool swap = split ? dst.flag : src.flag;
  for (std::size_t i = 0; i < area / 4; ++i) {
    for (std::size_t k = 0; k < 2; ++k) {
      const std::size_t pair = area + 2 * i + k;
      const std::size_t plane = area + (k == swap ? 0 : area / 4) + i;
      dst.data[split ? plane : pair] = src.data[split ? pair : plane];
    }
  }
}

void ExpectYuvOfYuv(const Picture& src, const Picture& dst) {
  const bool planar = src.layout != Layout::kYuyv && dst.layout != Layout::kYuyv;
  const bool mean = src.layout == Layout::kYuv422 && dst.layout == Layout::kYuv420;
  const std::size_t rows = std::max(Rows(src.layout), Rows(dst.layout));
  if (planar) std::copy_n(src.data, src.width * src.height, dst.data);
  for (std::size_t y = 0; y < src.height / rows * rows; ++y) {
    for (std::size_t x = 0; x < src.width / 2 * 2; ++x) {
      dst.Sample(x, y, 0) = src.Sample(x, y, 0);
      if (y % Rows(dst.layout) != 0) continue;
      for (std::size_t channel = 1; channel < 3; ++channel) {
        const int sum = src.Sample(x, y, channel) + src.Sample(x, mean ? y + 1 : y, channel);
        dst.Sample(x, y, channel) = static_cast<std::uint8_t>(sum / 2);
      }
    }
  }
}

void Expect(const Picture& src, const Picture& dst, const std::uint8_t* alpha,
            std::size_t alpha_stride) {
  if (IsRgb(dst.layout)) return ExpectRgb(src, dst, alpha, alpha_stride);
  if (IsRgb(src.layout)) return ExpectYuvOfRgb(src, dst);
  const bool pairs = src.layout == Layout::kSemiPlanar || dst.layout == Layout::kSemiPlanar;
  return pairs ? ExpectPairs(src, dst) : ExpectYuvOfYuv(src, dst);
}

class PixelFormat : public testing::Test {
 protected:
  static constexpr std::size_t kCapacity = 1 << 18;

  // Half of the data are extremes, which the sums reach their limits with.
  void Fill(std::uint8_t* data, std::size_t size) {
    static constexpr std::uint8_t kExtremes[] = {0, 1, 15, 16, 127, 128, 254, 255};
    const bool extreme = random_() % 2 == 0;
    for (std::size_t i = 0; i < size; ++i) {
      const auto drawn = random_();
      data[i] = extreme ? kExtremes[drawn % 8] : static_cast<std::uint8_t>(drawn);
    }
  }

  // Lays a picture against one of the two guards. Every third goes bottom up, and rows have gaps
  // of up to 8 bytes.
  void Place(Picture& picture, const GuardedBuffer& buffer) {
    if (IsRgb(picture.layout)) {
      picture.stride =
          static_cast<std::ptrdiff_t>(picture.width * picture.PixelBytes() + random_() % 9);
    }
    const std::size_t size = picture.Bytes();
    picture.data = random_() % 2 == 0 ? buffer.AtStart() : buffer.AtEnd(size);
    if (random_() % 3 != 0 || picture.height == 0) return;
    picture.data += picture.stride * static_cast<std::ptrdiff_t>(picture.height - 1);
    picture.stride = -picture.stride;
  }

  // Lowest address.
  static std::uint8_t* Lowest(const Picture& picture) {
    if (picture.stride >= 0 || picture.height == 0) return picture.data;
    return picture.data + picture.stride * static_cast<std::ptrdiff_t>(picture.height - 1);
  }

  int Signed(std::size_t size, bool any_sign) {
    const int value = static_cast<int>(size);
    return any_sign && random_() % 4 == 0 ? -value : value;
  }

  testing::AssertionResult Agrees(const Conversion& conversion, std::size_t width,
                                  std::size_t height, unsigned flags) {
    Picture src{conversion.from, width, height, (flags & 1) != 0};
    Picture dst{conversion.to, width, height, (flags & 2) != 0};
    Place(src, from_);
    Place(dst, to_);
    Fill(Lowest(src), src.Bytes());
    Fill(Lowest(dst), dst.Bytes());
    std::uint8_t* alpha = alpha_.AtEnd(width * height);
    Fill(alpha, width * height);
    std::vector<std::uint8_t> expected(Lowest(dst), Lowest(dst) + dst.Bytes());
    Picture copy = dst;
    copy.data = expected.data() + (dst.data - Lowest(dst));
    Expect(src, copy, alpha, width);
    const bool pairs =
        conversion.from == Layout::kSemiPlanar || conversion.to == Layout::kSemiPlanar;
    const bool any_sign = !pairs && !(IsRgb(conversion.from) && IsRgb(conversion.to));
    conversion(Signed(width, any_sign), Signed(height, any_sign), src, dst, alpha,
               static_cast<int>(width));
    if (std::equal(expected.begin(), expected.end(), Lowest(dst))) {
      return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << conversion.name << " " << width << "x" << height
                                       << " flags " << flags << " stride " << dst.stride;
  }

  std::mt19937 random_{9};
  GuardedBuffer from_{kCapacity};
  GuardedBuffer to_{kCapacity};
  GuardedBuffer alpha_{kCapacity};
};

TEST_F(PixelFormat, ConvertsEverySize) {
  for (const Conversion& conversion : Conversions()) {
    for (std::size_t width = 0; width <= 67; ++width) {
      for (unsigned round = 0; round < 24; ++round) {
        const ProcessorTurn turn(round);
        ASSERT_TRUE(Agrees(conversion, width, random_() % 6, round % 4));
      }
    }
    for (unsigned round = 0; round < ProcessorTurn::kTurns; ++round) {
      const ProcessorTurn turn(round);
      ASSERT_TRUE(Agrees(conversion, 251, 67, round));
    }
  }
}

TEST_F(PixelFormat, LeavesAloneWhatItCannotUse) {
  std::vector<std::uint8_t> bytes(64, 7);
  const std::vector<std::uint8_t> before = bytes;
  const std::uint8_t* alpha = bytes.data();
  for (const Conversion& conversion : Conversions()) {
    Picture src{conversion.from, 2, 2, false, 8, bytes.data()};
    Picture dst{conversion.to, 2, 2, false, 8, nullptr};
    conversion(2, 2, src, dst, alpha, 2);
    dst.data = bytes.data();
    src.data = nullptr;
    conversion(2, 2, src, dst, alpha, 2);
    std::vector<std::uint8_t> other(64, 1);
    src.data = other.data();
    conversion(0, 2, src, dst, alpha, 2);
    conversion(2, 0, src, dst, alpha, 2);
    const bool rgb = IsRgb(conversion.from) && IsRgb(conversion.to);
    const bool pairs =
        conversion.from == Layout::kSemiPlanar || conversion.to == Layout::kSemiPlanar;
    if (!rgb) conversion(INT_MIN, INT_MIN, src, dst, alpha, 2);
    if (rgb || pairs) conversion(-2, 2, src, dst, alpha, 2);
    if (rgb) conversion(2, -2, src, dst, alpha, 2);
    ASSERT_EQ(bytes, before) << conversion.name;
  }
  Picture src{Layout::kSemiPlanar, 2, 2, false, 0, from_.AtStart()};
  YUV420SPToYUV420(-2, -2, src.data, bytes.data(), 0);
  EXPECT_EQ(bytes[5], 0);  // two signs make a positive product
  EXPECT_EQ(bytes[6], 7);
}

TEST_F(PixelFormat, ConvertsWordsInPlace) {
  std::vector<std::uint8_t> words(2 * 67);
  Fill(words.data(), words.size());
  for (const auto convert : {&RGB565ToRGB555, &RGB555ToRGB565}) {
    std::vector<std::uint8_t> expected(words.size());
    convert(67, 1, words.data(), expected.data(), 134, 134, 1);
    convert(67, 1, words.data(), words.data(), 134, 134, 1);
    EXPECT_EQ(words, expected);
  }
}

// Known colours: white, black, red and grey.
TEST(PixelFormatBytes, AreThoseOfKnownColours) {
  using Bytes = std::vector<std::uint8_t>;
  const Bytes bgr = {255, 255, 255, 0, 0, 0, 0, 0, 255, 128, 128, 128};
  Bytes yuv(12);
  RGB888ToYUV444(4, 1, bgr.data(), yuv.data(), 0, 12, 1);
  EXPECT_EQ(yuv, (Bytes{236, 16, 82, 127, 128, 128, 90, 128, 128, 128, 240, 128}));
  Bytes rgb(12);
  YUV444ToRGB888(4, 1, yuv.data(), 0, rgb.data(), 12, 0);
  EXPECT_EQ(rgb, (Bytes{255, 255, 255, 0, 0, 0, 255, 1, 0, 129, 129, 129}));
  Bytes half(8);
  RGB888ToYUV422(4, 1, bgr.data(), half.data(), 1, 12, 1);
  EXPECT_EQ(half, (Bytes{236, 16, 82, 127, 128, 184, 128, 109}));
  Bytes quarter(6);
  RGB888ToYUV420(2, 2, bgr.data(), quarter.data(), 0, 6, 1);
  EXPECT_EQ(quarter, (Bytes{236, 16, 82, 127, 118, 156}));
  const Bytes packed = {82, 90, 235, 240};
  const Bytes alpha = {1, 2};
  Bytes argb(8);
  YUY2ToARGB32(2, 1, packed.data(), argb.data(), 8, 0, alpha.data(), 2);
  EXPECT_EQ(argb, (Bytes{0, 1, 255, 1, 178, 179, 255, 2}));
  Bytes words(8);
  RGB888ToRGB565(4, 1, bgr.data(), words.data(), 12, 8, 0);
  EXPECT_EQ(words, (Bytes{0xFF, 0xFF, 0, 0, 0, 0xF8, 0x10, 0x84}));
  RGB888ToRGB555(4, 1, bgr.data(), words.data(), 12, 8, 1);
  EXPECT_EQ(words, (Bytes{0xFF, 0x7F, 0, 0, 0x1F, 0, 0x10, 0x42}));
  RGB565ToRGB888(1, 1, Bytes{0xFF, 0xFF}.data(), rgb.data(), 2, 3, 0);
  EXPECT_EQ(Bytes(rgb.begin(), rgb.begin() + 3), (Bytes{248, 252, 248}));
}

class LargePixelFormat : public testing::Test {};

// All colours, by the functions for one pixel and by pictures.
TEST_F(LargePixelFormat, EveryColour) {
  constexpr int kSide = 4096;
  constexpr std::size_t kArea = std::size_t{kSide} * kSide;
  InitLookupTable();
  std::vector<std::uint8_t> planes(3 * kArea);
  std::vector<std::uint8_t> pixels(3 * kArea);
  std::vector<std::uint8_t> result(3 * kArea);
  for (std::size_t i = 0; i < kArea; ++i) {
    for (std::size_t channel = 0; channel < 3; ++channel) {
      const auto part = static_cast<std::uint8_t>(i >> (8 * channel));
      planes[channel * kArea + i] = pixels[3 * i + channel] = part;
    }
  }
  RGB888ToYUV444(kSide, kSide, pixels.data(), result.data(), 0, 3 * kSide, 0);
  for (std::size_t i = 0; i < kArea; ++i) {
    const std::uint8_t* p = &pixels[3 * i];
    const Colour expected = Rules().ToYuv({p[0], p[1], p[2]});
    Colour one{};
    RGBToYUV(p[0], p[1], p[2], &one[0], &one[1], &one[2]);
    const Colour wide{result[i], result[kArea + i], result[2 * kArea + i]};
    ASSERT_TRUE(one == expected && wide == expected) << std::hex << i;
  }
  YUV444ToRGB888(kSide, kSide, planes.data(), 0, result.data(), 3 * kSide, 0);
  for (std::size_t i = 0; i < kArea; ++i) {
    const std::uint8_t* p = &pixels[3 * i];
    const Colour expected = Rules().ToRgb({p[0], p[1], p[2]});
    Colour one{};
    YUVToRGB(p[0], p[1], p[2], &one[0], &one[1], &one[2]);
    const Colour wide{result[3 * i], result[3 * i + 1], result[3 * i + 2]};
    ASSERT_TRUE(one == expected && wide == expected) << std::hex << i;
  }
}

// Planes beyond what 32 bits count, without their memory: nothing but the last samples is ever
// written, and all rows go to one.
TEST_F(LargePixelFormat, OffsetsBeyond32Bits) {
  constexpr std::size_t kSide = 50000;
  Picture src{Layout::kYuv420, kSide, kSide, false};
  const GuardedBuffer planes(src.Bytes());
  src.data = planes.AtEnd(src.Bytes());
  const Colour last = {200, 90, 130};
  for (std::size_t i = 0; i < 3; ++i) src.Sample(kSide - 1, kSide - 1, i) = last[i];
  const GuardedBuffer row(3 * kSide);
  std::uint8_t* out = row.AtEnd(3 * kSide);
  YUV420ToRGB888(kSide, kSide, src.data, 0, out, 0, 0);
  const Colour expected = Rules().ToRgb(last);
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), out + 3 * kSide - 3));
  EXPECT_EQ(out[1], Rules().ToRgb({0, 0, 0})[1]);
}

}  // namespace
}  // namespace qvx::test
