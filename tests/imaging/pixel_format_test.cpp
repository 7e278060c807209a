#include "qvx/pixel_format.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

#include "support/guarded_buffer.h"
#include "support/processor_turn.h"

namespace qvx::test {
namespace {

enum class Layout {
  kRgb888,
  kRgb565,
  kRgb555,
  kArgb32,
  kYuv420,
  kYuv422,
  kYuv444,
  kYuyv,
  kYvy2,
  kSemiPlanar
};

bool IsRgb(Layout layout) {
  return layout <= Layout::kArgb32;
}

using Colour = std::array<std::uint8_t, 3>;  // R, G, B or Y, U, V

// A picture as a plain set of samples, written from the description of the layouts alone.
struct Picture {
  // flag: bgrOrder with the meaning of conversions from and to YUV, or uvSwap.
  Layout layout;
  std::size_t width, height;
  bool flag;
  std::ptrdiff_t stride = 0;     // of RGB layouts
  std::uint8_t* data = nullptr;  // the first row

  std::size_t PixelBytes() const {
    if (layout == Layout::kRgb888) return 3;
    return layout == Layout::kArgb32 ? 4 : 2;
  }

  // How many columns and rows share a chroma sample.
  std::size_t Columns() const { return IsRgb(layout) || layout == Layout::kYuv444 ? 1 : 2; }
  std::size_t Rows() const {
    return layout == Layout::kYuv420 || layout == Layout::kSemiPlanar ? 2 : 1;
  }

  bool IsPacked() const { return layout == Layout::kYuyv || layout == Layout::kYvy2; }

  std::size_t Bytes() const {
    const std::size_t area = width * height;
    if (IsRgb(layout)) {
      const auto rows = static_cast<std::size_t>(std::abs(stride)) * (height - (height > 0));
      return area == 0 ? 0 : rows + width * PixelBytes();
    }
    if (IsPacked()) return 4 * (width / 2) * height;
    return area + 2 * (area / (Columns() * Rows()));
  }

  // The sample of luma (0), U (1) or V (2) that serves a pixel.
  std::uint8_t& Sample(std::size_t x, std::size_t y, std::size_t channel) const {
    const std::size_t area = width * height;
    const std::size_t second = channel == (flag ? 1 : 2);
    if (IsPacked()) {
      const std::size_t place = channel == (layout == Layout::kYuyv ? 1 : 2) ? 1 : 3;
      return data[(y * (width / 2) + x / 2) * 4 + (channel == 0 ? x % 2 * 2 : place)];
    }
    if (channel == 0) return data[y * width + x];
    const std::size_t plane = area + second * (area / (Columns() * Rows()));
    return data[plane + y / Rows() * (width / Columns()) + x / Columns()];
  }

  std::uint8_t* Pixel(std::size_t x, std::size_t y) const {
    return data + static_cast<std::ptrdiff_t>(y) * stride + x * PixelBytes();
  }

  std::uint8_t* LowestAddress() const {
    return stride >= 0 || height == 0 ? data : Pixel(0, height - 1);
  }

  // Of the component in the lowest bits (0) to that in the highest (2).
  unsigned ComponentBits(std::size_t i) const {
    if (PixelBytes() != 2) return 8;
    return layout == Layout::kRgb565 && i == 1 ? 6 : 5;
  }

  Colour Get(std::size_t x, std::size_t y) const {
    unsigned word = 0;
    for (std::size_t i = 0; i < PixelBytes(); ++i) word |= unsigned{Pixel(x, y)[i]} << (8 * i);
    Colour colour{};
    for (std::size_t i = 0; i < 3; ++i) {
      colour[i] = static_cast<std::uint8_t>(word << (8 - ComponentBits(i)));
      word >>= ComponentBits(i);
    }
    return flag ? Colour{colour[2], colour[1], colour[0]} : colour;
  }

  void Put(std::size_t x, std::size_t y, Colour colour, std::uint8_t alpha) const {
    if (flag || layout == Layout::kArgb32) colour = {colour[2], colour[1], colour[0]};
    unsigned word = layout == Layout::kArgb32 ? alpha : 0;
    for (std::size_t i = 3; i-- > 0;) {
      word = word << ComponentBits(i) | unsigned{colour[i]} >> (8 - ComponentBits(i));
    }
    for (std::size_t i = 0; i < PixelBytes(); ++i) {
      Pixel(x, y)[i] = static_cast<std::uint8_t>(word >> (8 * i));
    }
  }
};

// A call of one of the functions.
struct Call {
  int width, height;
  const Picture& src;
  const Picture& dst;
  const std::uint8_t* alpha;  // in rows of the picture's width

  int SrcStride() const { return static_cast<int>(src.stride); }
  int DstStride() const { return static_cast<int>(dst.stride); }
};

void Make(const Call& c, void (*convert)(int, int, const void*, void*, int, int, int)) {
  // Between RGB layouts the same order of bytes on both sides is said the other way round.
  if (IsRgb(c.dst.layout)) {
    const int swap = c.src.flag == c.dst.flag ? 0 : 1;
    convert(c.width, c.height, c.src.data, c.dst.data, c.SrcStride(), c.DstStride(), swap);
  } else {
    convert(c.width, c.height, c.src.data, c.dst.data, c.dst.flag, c.SrcStride(), c.src.flag);
  }
}

void Make(const Call& c, void (*convert)(int, int, const void*, int, void*, int, int)) {
  convert(c.width, c.height, c.src.data, c.src.flag, c.dst.data, c.DstStride(), c.dst.flag);
}

void Make(const Call& c, void (*convert)(int, int, const void*, void*, int, int)) {
  convert(c.width, c.height, c.src.data, c.dst.data, c.DstStride(), c.dst.flag);
}

void Make(const Call& c,
          void (*convert)(int, int, const void*, void*, int, int, const unsigned char*, int)) {
  convert(c.width, c.height, c.src.data, c.dst.data, c.DstStride(), c.dst.flag, c.alpha,
          static_cast<int>(c.dst.width));
}

void Make(const Call& c, void (*convert)(int, int, const void*, int, void*)) {
  convert(c.width, c.height, c.src.data, c.src.flag, c.dst.data);
}

void Make(const Call& c, void (*convert)(int, int, const void*, void*, int)) {
  convert(c.width, c.height, c.src.data, c.dst.data, c.dst.flag);
}

void Make(const Call& c, void (*convert)(int, int, const void*, int, void*, int)) {
  convert(c.width, c.height, c.src.data, c.src.flag, c.dst.data, c.dst.flag);
}

struct Conversion {
  const char* name;
  Layout from, to;
  void (*make)(const Call& call);

  bool OfPairs() const { return from == Layout::kSemiPlanar || to == Layout::kSemiPlanar; }
  bool IsBetweenRgb() const { return IsRgb(from) && IsRgb(to); }
};

#define QVX_TEST_CASE(FUNCTION, FROM, TO)                                                  \
  {                                                                                        \
#FUNCTION, Layout::FROM, Layout::TO, [](const Call& call) { Make(call, &(FUNCTION)); } \
  }

const Conversion kConversions[] = {
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

Colour Product(const double (&matrix)[3][3], const std::array<int, 3>& values,
               const std::array<int, 3>& zero) {
  Colour result{};
  for (std::size_t row = 0; row < 3; ++row) {
    int sum = zero[row];
    for (std::size_t i = 0; i < 3; ++i) {
      sum += static_cast<int>(std::round(matrix[row][i] * values[i]));
    }
    result[row] = static_cast<std::uint8_t>(std::clamp(sum, 0, 255));
  }
  return result;
}

Colour ToYuv(Colour rgb) {
  constexpr double kMatrix[3][3] = {
      {0.257, 0.504, 0.098}, {-0.148, -0.291, 0.439}, {0.439, -0.368, -0.071}};
  return Product(kMatrix, {rgb[0], rgb[1], rgb[2]}, {16, 128, 128});
}

Colour ToRgb(Colour yuv) {
  constexpr double kMatrix[3][3] = {{1.164, 0, 1.596}, {1.164, -0.392, -0.813}, {1.164, 2.017, 0}};
  return Product(kMatrix, {yuv[0] - 16, yuv[1] - 128, yuv[2] - 128}, {0, 0, 0});
}

Colour YuvAt(const Picture& src, std::size_t x, std::size_t y) {
  if (IsRgb(src.layout)) return ToYuv(src.Get(x, y));
  return {src.Sample(x, y, 0), src.Sample(x, y, 1), src.Sample(x, y, 2)};
}

void ExpectRgb(const Picture& src, const Picture& dst, const std::uint8_t* alpha) {
  const std::size_t rows = src.height - src.height % src.Rows();
  const std::size_t columns = src.width - src.width % src.Columns();
  for (std::size_t y = 0; y < rows; ++y) {
    for (std::size_t x = 0; x < columns; ++x) {
      const Colour colour = IsRgb(src.layout) ? src.Get(x, y) : ToRgb(YuvAt(src, x, y));
      dst.Put(x, y, colour, alpha[y * dst.width + x]);
    }
  }
}

// Chroma is the mean of the pixels that share it; of packed pixels, that of their first row.
void ExpectYuv(const Picture& src, const Picture& dst) {
  const bool packed = src.IsPacked() || dst.IsPacked();
  if (!packed && !IsRgb(src.layout)) std::copy_n(src.data, src.width * src.height, dst.data);
  const std::size_t rows = dst.Rows();
  const std::size_t columns = dst.Columns();
  const std::size_t height = src.height - src.height % std::max(rows, src.Rows());
  for (std::size_t y = 0; y < height; y += rows) {
    for (std::size_t x = 0; x + columns <= src.width; x += columns) {
      std::size_t sums[3] = {};
      for (std::size_t i = 0; i < rows * columns; ++i) {
        const std::size_t row = y + i / columns;
        const Colour yuv = YuvAt(src, x + i % columns, row);
        const Colour chroma = YuvAt(src, x + i % columns, packed ? y : row);
        dst.Sample(x + i % columns, row, 0) = yuv[0];
        for (std::size_t channel = 1; channel < 3; ++channel) sums[channel] += chroma[channel];
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
    picture.data = picture.Pixel(0, picture.height - 1);
    picture.stride = -picture.stride;
  }

  void Check(const Conversion& conversion, std::size_t width, std::size_t height, unsigned flags) {
    Picture src{conversion.from, width, height, (flags & 1) != 0};
    Picture dst{conversion.to, width, height, (flags & 2) != 0};
    Place(src, from_);
    Place(dst, to_);
    Fill(src.LowestAddress(), src.Bytes());
    Fill(dst.LowestAddress(), dst.Bytes());
    std::uint8_t* alpha = alpha_.AtEnd(width * height);
    Fill(alpha, width * height);
    std::vector<std::uint8_t> expected(dst.LowestAddress(), dst.LowestAddress() + dst.Bytes());
    Picture copy = dst;
    copy.data = expected.data() + (dst.data - dst.LowestAddress());
    if (IsRgb(dst.layout)) {
      ExpectRgb(src, copy, alpha);
    } else {
      conversion.OfPairs() ? ExpectPairs(src, copy) : ExpectYuv(src, copy);
    }
    const bool any_sign = !conversion.OfPairs() && !conversion.IsBetweenRgb();
    const int width_sign = any_sign && random_() % 4 == 0 ? -1 : 1;
    const int height_sign = any_sign && random_() % 4 == 0 ? -1 : 1;
    conversion.make({width_sign * static_cast<int>(width), height_sign * static_cast<int>(height),
                     src, dst, alpha});
    ASSERT_TRUE(std::equal(expected.begin(), expected.end(), dst.LowestAddress()))
        << conversion.name << " " << width << "x" << height << " flags " << flags << " stride "
        << dst.stride;
  }

  std::mt19937 random_{9};
  GuardedBuffer from_{kCapacity};
  GuardedBuffer to_{kCapacity};
  GuardedBuffer alpha_{kCapacity};
};

TEST_F(PixelFormat, ConvertsEverySize) {
  for (const Conversion& conversion : kConversions) {
    for (std::size_t width = 0; width <= 67; ++width) {
      for (unsigned round = 0; round < 24; ++round) {
        const ProcessorTurn turn(round);
        ASSERT_NO_FATAL_FAILURE(Check(conversion, width, random_() % 6, round % 4));
      }
    }
    for (unsigned round = 0; round < ProcessorTurn::kTurns; ++round) {
      const ProcessorTurn turn(round);
      ASSERT_NO_FATAL_FAILURE(Check(conversion, 251, 67, round));
    }
  }
}

TEST_F(PixelFormat, LeavesAloneWhatItCannotUse) {
  std::vector<std::uint8_t> bytes(64, 7);
  const std::vector<std::uint8_t> before = bytes;
  for (const Conversion& conversion : kConversions) {
    Picture src{conversion.from, 2, 2, false, 8, bytes.data()};
    Picture dst{conversion.to, 2, 2, false, 8, nullptr};
    const auto make = [&](int width, int height) {
      conversion.make({width, height, src, dst, before.data()});
    };
    make(2, 2);
    dst.data = bytes.data();
    src.data = nullptr;
    make(2, 2);
    std::vector<std::uint8_t> other(64, 1);
    src.data = other.data();
    make(0, 2);
    make(2, 0);
    const bool rgb = conversion.IsBetweenRgb();
    if (!rgb) make(INT_MIN, INT_MIN);
    if (rgb || conversion.OfPairs()) make(-2, 2);
    if (rgb) make(2, -2);
    ASSERT_EQ(bytes, before) << conversion.name;
  }
  Picture src{Layout::kSemiPlanar, 2, 2, false, 0, from_.AtStart()};
  YUV420SPToYUV420(-2, -2, src.data, bytes.data(), 0);
  EXPECT_EQ(bytes[5], 0);  // two signs make a positive product
  EXPECT_EQ(bytes[6], 7);
  RGBToYUV(1, 2, 3, &bytes[6], &bytes[6], nullptr);
  YUVToRGB(1, 2, 3, nullptr, &bytes[6], &bytes[6]);
  YUY2ToARGB32(2, 1, src.data, &bytes[6], 0, 0, nullptr, 0);
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

// All colours, by the functions for one pixel and by pictures.
TEST(LargePixelFormat, EveryColour) {
  constexpr int kSide = 4096;
  constexpr std::size_t kArea = std::size_t{kSide} * kSide;
  InitLookupTable();
  std::vector<std::uint8_t> planes(3 * kArea);
  std::vector<std::uint8_t> pixels(3 * kArea);
  std::vector<std::uint8_t> yuv(3 * kArea);
  std::vector<std::uint8_t> rgb(3 * kArea);
  for (std::size_t i = 0; i < kArea; ++i) {
    for (std::size_t channel = 0; channel < 3; ++channel) {
      const auto part = static_cast<std::uint8_t>(i >> (8 * channel));
      planes[channel * kArea + i] = pixels[3 * i + channel] = part;
    }
  }
  RGB888ToYUV444(kSide, kSide, pixels.data(), yuv.data(), 0, 3 * kSide, 0);
  YUV444ToRGB888(kSide, kSide, planes.data(), 0, rgb.data(), 3 * kSide, 0);
  for (std::size_t i = 0; i < kArea; ++i) {
    const Colour given{pixels[3 * i], pixels[3 * i + 1], pixels[3 * i + 2]};
    Colour one{};
    RGBToYUV(given[0], given[1], given[2], &one[0], &one[1], &one[2]);
    ASSERT_EQ(one, ToYuv(given));
    ASSERT_EQ(one, (Colour{yuv[i], yuv[kArea + i], yuv[2 * kArea + i]}));
    YUVToRGB(given[0], given[1], given[2], &one[0], &one[1], &one[2]);
    ASSERT_EQ(one, ToRgb(given));
    ASSERT_EQ(one, (Colour{rgb[3 * i], rgb[3 * i + 1], rgb[3 * i + 2]}));
  }
}

// Planes beyond what 32 bits count, without their memory: nothing but the last samples is ever
// written, and all rows go to one.
TEST(LargePixelFormat, OffsetsBeyond32Bits) {
  constexpr std::size_t kSide = 50000;
  Picture src{Layout::kYuv420, kSide, kSide, false};
  const GuardedBuffer planes(src.Bytes());
  src.data = planes.AtEnd(src.Bytes());
  const Colour last = {200, 90, 130};
  for (std::size_t i = 0; i < 3; ++i) src.Sample(kSide - 1, kSide - 1, i) = last[i];
  const GuardedBuffer row(3 * kSide);
  std::uint8_t* out = row.AtEnd(3 * kSide);
  YUV420ToRGB888(kSide, kSide, src.data, 0, out, 0, 0);
  const Colour expected = ToRgb(last);
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), out + 3 * kSide - 3));
  EXPECT_EQ(out[1], ToRgb({0, 0, 0})[1]);
}

}  // namespace
}  // namespace qvx::test
