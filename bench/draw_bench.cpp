#include <benchmark/benchmark.h>
#include <libyuv.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "qvx/buffer_draw.h"
#include "qvx/gradient_draw.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr double kSixTenths = 1 / 0.6;
constexpr double kNineTenths = 1 / 0.9;
constexpr double kAsFast = 1.0;

using Picture = std::vector<std::uint8_t>;

struct Size {
  int width;
  int height;

  std::size_t Bytes() const { return std::size_t{4} * static_cast<unsigned>(width * height); }
  int Pitch() const { return 4 * width; }
  RECT Rect() const { return {0, 0, width, height}; }
  double MegaPixels() const { return width * height / 1e6; }
};

constexpr Size k720{1280, 720};
constexpr Size k1080{1920, 1080};
constexpr Size k4K{3840, 2160};

Picture RandomPicture(Size size, std::uint8_t least_alpha) {
  std::mt19937 random(73);
  Picture bytes(size.Bytes());
  for (std::size_t i = 0; i < bytes.size(); i += 4) {
    const std::uint32_t word = static_cast<std::uint32_t>(random());
    std::memcpy(&bytes[i], &word, 4);
    bytes[i + 3] = std::max(bytes[i + 3], least_alpha);
  }
  return bytes;
}

const Picture& Source() {
  static const Picture picture = RandomPicture(k1080, 0);
  return picture;
}

// Both sides draw on the same memory, so that neither has the better pages.
Picture& Target() {
  static Picture picture = RandomPicture(k4K, 255);
  return picture;
}

void BlendOurs(long long times) {
  RECT rect = k1080.Rect();
  for (long long i = 0; i < times; ++i) {
    AlphaStretchBufferOnBuffer_ARGB(Target().data(), &rect, k1080.Pitch(), Source().data(), &rect,
                                    k1080.Pitch());
    benchmark::ClobberMemory();
  }
}

void BlendPeer(long long times) {
  for (long long i = 0; i < times; ++i) {
    libyuv::ARGBBlend(Source().data(), k1080.Pitch(), Target().data(), k1080.Pitch(),
                      Target().data(), k1080.Pitch(), k1080.width, k1080.height);
    benchmark::ClobberMemory();
  }
}

Work StretchOurs(Size size) {
  return [size](long long times) {
    RECT from = k1080.Rect();
    RECT to = size.Rect();
    for (long long i = 0; i < times; ++i) {
      StretchBufferOnBuffer(Target().data(), &to, size.Pitch(), Source().data(), &from,
                            k1080.Pitch(), 4);
      benchmark::ClobberMemory();
    }
  };
}

Work StretchPeer(Size size) {
  return [size](long long times) {
    for (long long i = 0; i < times; ++i) {
      libyuv::ARGBScale(Source().data(), k1080.Pitch(), k1080.width, k1080.height, Target().data(),
                        size.Pitch(), size.width, size.height, libyuv::kFilterNone);
      benchmark::ClobberMemory();
    }
  };
}

void FillOurs(long long times) {
  RECT rect = k1080.Rect();
  for (long long i = 0; i < times; ++i) {
    DrawColorOnBuffer(0xFF204060, Target().data(), &rect, k1080.Pitch());
    benchmark::ClobberMemory();
  }
}

void FillPeer(long long times) {
  for (long long i = 0; i < times; ++i) {
    std::memset(Target().data(), 0xFF, k1080.Bytes());
    benchmark::ClobberMemory();
  }
}

// A rectangle inside of a larger picture: a memset for each row.
void FillRowsOurs(long long times) {
  RECT rect = k720.Rect();
  for (long long i = 0; i < times; ++i) {
    DrawColorOnBuffer(0xFF204060, Target().data(), &rect, k1080.Pitch());
    benchmark::ClobberMemory();
  }
}

void FillRowsPeer(long long times) {
  for (long long i = 0; i < times; ++i) {
    for (int y = 0; y < k720.height; ++y) {
      std::memset(Target().data() + y * k1080.Pitch(), 0xFF, std::size_t{4} * k720.width);
    }
    benchmark::ClobberMemory();
  }
}

void CopyOurs(long long times) {
  RECT rect = k1080.Rect();
  for (long long i = 0; i < times; ++i) {
    DrawBufferOnBuffer(Target().data(), &rect, k1080.Pitch(), Source().data(), &rect, k1080.Pitch(),
                       4);
    benchmark::ClobberMemory();
  }
}

void CopyPeer(long long times) {
  for (long long i = 0; i < times; ++i) {
    std::memcpy(Target().data(), Source().data(), k1080.Bytes());
    benchmark::ClobberMemory();
  }
}

void CopyRowsOurs(long long times) {
  RECT rect = k720.Rect();
  for (long long i = 0; i < times; ++i) {
    DrawBufferOnBuffer(Target().data(), &rect, k4K.Pitch(), Source().data(), &rect, k1080.Pitch(),
                       4);
    benchmark::ClobberMemory();
  }
}

void CopyRowsPeer(long long times) {
  for (long long i = 0; i < times; ++i) {
    for (int y = 0; y < k720.height; ++y) {
      std::memcpy(Target().data() + y * k4K.Pitch(), Source().data() + y * k1080.Pitch(),
                  std::size_t{4} * k720.width);
    }
    benchmark::ClobberMemory();
  }
}

void BlendMixed(long long times) {
  static const Picture under = RandomPicture(k1080, 1);
  static Picture target(k1080.Bytes());
  RECT rect = k1080.Rect();
  for (long long i = 0; i < times; ++i) {
    std::memcpy(target.data(), under.data(), under.size());
    AlphaStretchBufferOnBuffer_ARGB(target.data(), &rect, k1080.Pitch(), Source().data(), &rect,
                                    k1080.Pitch());
    benchmark::ClobberMemory();
  }
}

void BlendExact(long long times) {
  RECT rect = k1080.Rect();
  for (long long i = 0; i < times; ++i) {
    AlphaDrawBufferOnBuffer_ARGB(Target().data(), &rect, k1080.Pitch(), Source().data(), &rect,
                                 k1080.Pitch());
    benchmark::ClobberMemory();
  }
}

void Tint(long long times) {
  RECT rect = k1080.Rect();
  for (long long i = 0; i < times; ++i) {
    SetAlphaBufferColor_ARGB(0xFF204060, Target().data(), &rect, k1080.Pitch(), Source().data(),
                             &rect, k1080.width);
    benchmark::ClobberMemory();
  }
}

constexpr int kStrokeLength = 1000;
constexpr int kStrokeWidth = 20;
constexpr int kPen = 64;

void Strokes(long long times) {
  static Picture plane(k1080.Bytes() / 4);
  for (long long i = 0; i < times; ++i) {
    DrawGradualLine(k1080.width, k1080.height, 100.0, 500.0, 100.0 + kStrokeLength, 500.0,
                    kStrokeWidth / 2.0, kStrokeWidth / 2.0, 1.0, 0.5, plane.data());
    benchmark::ClobberMemory();
  }
}

void Stamps(long long times) {
  static const Picture pen = RandomPicture({kPen, kPen}, 1);
  static std::vector<unsigned int> picture(k1080.Bytes() / 4, 0x80336699);
  for (long long i = 0; i < times; ++i) {
    DrawPointByPen(picture.data(), k1080.width, k1080.height, 100 + static_cast<int>(i % 1000), 500,
                   reinterpret_cast<const unsigned int*>(pen.data()), 200, kPen, kPen, 1, 1, 1, 1);
    benchmark::ClobberMemory();
  }
}

// Of 1,000 pixels.
Work Lines(int pen) {
  return [pen](long long times) {
    const std::vector<std::uint8_t> pixels(static_cast<std::size_t>(4 * pen), 0xAA);
    for (long long i = 0; i < times; ++i) {
      const int slope = static_cast<int>(i % 1000);
      DrawLineOnBuffer(Target().data(), {10, 10}, {1010, 10 + slope}, k1080.width, k1080.height,
                       k1080.Pitch(), 4, pen, pixels.data(), nullptr);
      benchmark::ClobberMemory();
    }
  };
}

const bool kAdded =
    AddPair({"draw_blend_opaque", kSixTenths, BlendOurs, BlendPeer}) &&
    AddPair({"draw_stretch_720", kAsFast, StretchOurs(k720), StretchPeer(k720)}) &&
    AddPair({"draw_stretch_4k", kAsFast, StretchOurs(k4K), StretchPeer(k4K)}) &&
    AddPair({"draw_color", kNineTenths, FillOurs, FillPeer}) &&
    AddPair({"draw_color_rows", kNineTenths, FillRowsOurs, FillRowsPeer}) &&
    AddPair({"draw_buffer", kNineTenths, CopyOurs, CopyPeer}) &&
    AddPair({"draw_buffer_rows", kNineTenths, CopyRowsOurs, CopyRowsPeer}) &&
    AddRate({"draw_blend_mixed", "Mpixel", k1080.MegaPixels(), BlendMixed}) &&
    AddRate({"draw_blend_exact", "Mpixel", k1080.MegaPixels(), BlendExact}) &&
    AddRate({"draw_tint", "Mpixel", k1080.MegaPixels(), Tint}) &&
    AddRate({"draw_gradual_line", "Mpixel", kStrokeLength* kStrokeWidth / 1e6, Strokes}) &&
    AddRate({"draw_point_by_pen", "Mpixel", kPen* kPen / 1e6, Stamps}) &&
    AddRate({"draw_line_pen_1", "line", 1, Lines(1)}) &&
    AddRate({"draw_line_pen_8", "line", 1, Lines(8)});

}  // namespace
}  // namespace qvx::bench
