#include "qvx/gradient_draw.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "imaging/buffer_draw_rows.h"
#include "imaging/gradient_rows.h"
#include "qvx/buffer_draw.h"
#include "qvx/hex_text.h"
#include "qvx/ptr_array.h"
#include "qvx/ptr_list.h"
#include "support/guarded_buffer.h"
#include "support/processor_turn.h"

namespace qvx::test {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Words = std::vector<unsigned int>;

// Blanks between the digits don't count.
Bytes Hex(std::string digits) {
  std::erase(digits, ' ');
  Bytes bytes(digits.size() / 2);
  StringFromHexA(digits.data(), static_cast<int>(digits.size()),
                 reinterpret_cast<char*>(bytes.data()));
  return bytes;
}

void AddPoint(CPtrCtrl& points, int x, int y) {
  const std::uint64_t value = static_cast<std::uint32_t>(x) | static_cast<std::uint64_t>(y) << 32;
  points.AddData(reinterpret_cast<const void*>(value), -1);
}

// The planes are those that another program made pixel by pixel.
TEST(GradientDraw, PaintsStrokes) {
  Bytes even(12 * 5);
  DrawGradualLine(12, 5, 2, 3, 9, 3, 2, 2, 1.0, 1.0, even.data());
  EXPECT_EQ(even, Hex("00 00 00 00 00 00 00 00 00 00 00 00 "
                      "00 00 7f 7f 7f 7f 7f 7f 7f 7f 00 00 "
                      "00 00 bf bf bf bf bf bf bf bf 00 00 "
                      "00 00 ff ff ff ff ff ff ff ff 00 00 "
                      "00 00 bf bf bf bf bf bf bf bf 00 00 "));

  Bytes taper(12 * 9);
  DrawGradualLine(12, 9, 2, 2, 9, 6, 1, 3, 1.0, 0.5, taper.data());
  EXPECT_EQ(taper, Hex("00 00 00 00 00 00 00 00 00 00 00 00 "
                       "00 00 97 00 00 00 00 00 00 00 00 00 "
                       "00 00 ff c0 94 75 5d 00 00 00 00 00 "
                       "00 00 97 c8 d2 a9 8a 71 5c 4c 3e 00 "
                       "00 00 00 81 a4 b9 ad 8f 76 62 50 00 "
                       "00 00 00 00 70 89 97 9e 8a 72 00 00 "
                       "00 00 00 00 00 61 73 7d 80 7f 00 00 "
                       "00 00 00 00 00 00 54 60 66 67 00 00 "
                       "00 00 00 00 00 00 00 47 4f 00 00 00 "));
  // Of two strokes the stronger one shows.
  Bytes crossing(12 * 9);
  Bytes both = taper;
  for (Bytes* plane : {&crossing, &both}) {
    DrawGradualLine(12, 9, 10, 1, 2, 7, 1.5, 1.5, 0.25, 1.0, plane->data());
  }
  std::transform(taper.begin(), taper.end(), crossing.begin(), crossing.begin(),
                 [](std::uint8_t a, std::uint8_t b) { return std::max(a, b); });
  EXPECT_EQ(both, crossing);

  // Rows that reach the column behind the last are left out.
  Bytes edge(12 * 6);
  DrawGradualLine(12, 6, 7, 1, 14, 8, 2, 2, 1.0, 1.0, edge.data());
  EXPECT_EQ(edge, Hex("00 00 00 00 00 00 00 00 a4 00 00 00 "
                      "00 00 00 00 00 00 00 ff d1 a4 00 00 "
                      "00 00 00 00 00 00 a4 d1 ff d1 a4 00 "
                      "00 00 00 00 00 00 00 a4 d1 ff d1 a4 "
                      "00 00 00 00 00 00 00 00 00 00 00 00 "
                      "00 00 00 00 00 00 00 00 00 00 00 00 "));
}

TEST(GradientDraw, PaintsPointLists) {
  CPtrArrayCtrl corner;
  CPtrListCtrl places;
  for (const POINT point : {POINT{2, 2}, {10, 2}, {10, 7}}) AddPoint(corner, point.x, point.y);
  for (const POINT point : {POINT{2, 3}, {7, 3}, {11, 5}}) AddPoint(places, point.x, point.y);
  Bytes stroke(14 * 9);
  DrawGradualMultiLine(14, 9, &corner, 1, 2.5, 0.5, 1.0, stroke.data());
  EXPECT_EQ(stroke, Hex("00 00 00 00 00 00 00 00 00 56 62 56 00 00 "
                        "00 25 3f 4b 57 62 6d 78 83 8d 98 82 56 00 "
                        "00 3f 7f 89 93 9c a6 b0 ba c4 cd 98 62 00 "
                        "00 25 3f 4b 57 62 6d 78 83 a2 d7 a2 6d 00 "
                        "00 00 00 00 00 00 00 00 78 ad e1 ad 78 00 "
                        "00 00 00 00 00 00 00 00 83 b7 eb b7 83 00 "
                        "00 00 00 00 00 00 00 00 8e c1 f5 c1 8e 00 "
                        "00 00 00 00 00 00 00 00 99 cc ff cc 99 66 "
                        "00 00 00 00 00 00 00 00 8c b6 cc b6 8c 00 "));
  Bytes discs(12 * 7);
  DrawGradualPointList(12, 7, &places, 1, 4, 1.0, 0.25, discs.data());
  EXPECT_EQ(discs, Hex("00 00 00 00 00 00 00 00 00 00 00 00 "
                       "00 00 00 00 00 00 00 5f 00 00 00 00 "
                       "00 00 7f 00 00 00 7b 8f 7b 00 00 3f "
                       "00 7f ff 7f 00 5f 8f bf 8f 5f 4f 55 "
                       "00 00 7f 00 00 00 7b 8f 7b 4f 61 6a "
                       "00 00 00 00 00 00 00 5f 3f 55 6a 7f "
                       "00 00 00 00 00 00 00 00 00 4f 61 6a "));
}

// A stroke pixel by pixel: the corner test for each pixel, the walks as they are told.
class PlainStroke {
 public:
  PlainStroke(const double (&numbers)[8], int width, int height)
      : n_(numbers), width_(width), height_(height) {
    const double angle = std::atan2(n_[3] - n_[1], n_[2] - n_[0]);
    const double quarter = std::acos(-1.0) / 2;
    for (int i = 0; i < 4; ++i) {
      const int end = i < 2 ? 0 : 1;
      const double way = angle + (i == 0 || i == 3 ? quarter : -quarter);
      exact_[i][0] = n_[2 * end] + n_[4 + end] * std::cos(way);
      exact_[i][1] = n_[2 * end + 1] + n_[4 + end] * std::sin(way);
      corner_[i][0] = static_cast<int>(std::round(exact_[i][0]));
      corner_[i][1] = static_cast<int>(std::round(exact_[i][1]));
    }
  }

  void Paint(Bytes& plane) const {
    int min_x = width_ - 1, max_x = 0, min_y = height_ - 1, max_y = 0;
    for (const auto& corner : corner_) {
      min_x = std::min(min_x, corner[0]);
      max_x = std::max(max_x, corner[0]);
      min_y = std::min(min_y, corner[1]);
      max_y = std::max(max_y, corner[1]);
    }
    int left = min_x, right = max_x;
    for (int y = std::max(min_y, 0); y <= max_y && y < height_; ++y) {
      const int first = Left(left, min_x, y);
      if (first < 0 || first >= width_) continue;
      const int last = Right(std::max(right, first), max_x, y);
      if (last < 0 || last >= width_) continue;
      left = first;
      right = last;
      for (int x = first; x <= last; ++x) {
        const int place = y * width_ + x;
        auto& pixel = plane[static_cast<std::size_t>(place)];
        pixel = std::max(pixel, Value(x, y));
      }
    }
  }

 private:
  bool Inside(int x, int y) const {
    bool inside = false;
    for (int i = 0; i < 4; ++i) {
      const auto& a = corner_[i];
      const auto& b = corner_[(i + 3) % 4];
      if ((a[1] > y) == (b[1] > y)) continue;
      const double edge = static_cast<double>(b[0] - a[0]) * (y - a[1]) / (b[1] - a[1]) + a[0];
      if (std::fabs(x - edge) < 0.5) return true;
      if (x < edge) inside = !inside;
    }
    return inside;
  }

  int Left(int left, int min_x, int y) const {
    if (Inside(left, y)) {
      while (left > 0 && Inside(left - 1, y)) --left;
      return left;
    }
    for (left = min_x + 1; left <= width_ && !Inside(left, y);) ++left;
    return left;
  }

  int Right(int right, int max_x, int y) const {
    if (Inside(right, y)) {
      while (right < width_ && Inside(right + 1, y)) ++right;
      return right;
    }
    for (right = max_x - 1; right >= -1 && !Inside(right, y);) --right;
    return right;
  }

  static double Distance(double x, double y, double x1, double y1, double x2, double y2) {
    return std::fabs(x * (y2 - y1) + y * (x1 - x2) + (y1 * x2 - x1 * y2)) /
           std::sqrt((x1 - x2) * (x1 - x2) + (y1 - y2) * (y1 - y2));
  }

  std::uint8_t Value(int x, int y) const {
    const double length = std::hypot(n_[0] - n_[2], n_[1] - n_[3]);
    const double d = Distance(x, y, n_[0], n_[1], n_[2], n_[3]);
    const double t =
        Distance(x, y, exact_[0][0], exact_[0][1], exact_[1][0], exact_[1][1]) / length;
    const double w = n_[4] + t * (n_[5] - n_[4]);
    const double s = n_[6] + t * (n_[7] - n_[6]);
    if (std::isnan(w) || d - w >= 0.5) return 0;
    const double v = std::min(((w - d) / w * s + s) * 0.5, std::max(n_[6], n_[7]));
    return static_cast<std::uint8_t>(std::clamp(v * 255.0, 0.0, 255.0));
  }

  const double (&n_)[8];
  int width_;
  int height_;
  double exact_[4][2];
  int corner_[4][2];
};

TEST(GradientDraw, StrokesAreLikePlainOnes) {
  std::mt19937 random(71);
  const auto quarters = [&random](int least, int most) {
    return least + static_cast<int>(random() % static_cast<unsigned>(4 * (most - least))) * 0.25;
  };
  for (int round = 0; round < 3000; ++round) {
    const int width = 1 + static_cast<int>(random() % 70);
    const int height = 1 + static_cast<int>(random() % 40);
    const int out = round % 3 == 0 ? 30 : 1;
    const double n[8] = {quarters(-out, width + out),
                         quarters(-out, height + out),
                         quarters(-out, width + out),
                         quarters(-out, height + out),
                         quarters(0, 9),
                         quarters(round % 5 == 0 ? -3 : 0, 9),
                         quarters(0, 2),
                         quarters(round % 7 == 0 ? -2 : 0, 2)};
    Bytes plain(static_cast<std::size_t>(width * height));
    const GuardedBuffer memory(plain.size());
    std::uint8_t* plane = memory.AtEnd(plain.size());
    PlainStroke(n, width, height).Paint(plain);
    DrawGradualLine(width, height, n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7], plane);
    for (std::size_t i = 0; i < plain.size(); ++i) {
      // A sum that is put together in another order may fall to the other side of a whole number.
      ASSERT_LE(std::abs(plain[i] - plane[i]), 1) << round << " at " << i;
    }
  }
}

// The row loops at all lengths and addresses, with numbers of every kind.
TEST(GradientDraw, WideRowsAreLikePlainOnes) {
  std::mt19937 random(73);
  const double kOdd[] = {0.0, -1.0, 1e12, std::numeric_limits<double>::infinity(),
                         std::numeric_limits<double>::quiet_NaN()};
  const auto number = [&random, &kOdd] {
    if (random() % 24 == 0) return kOdd[random() % 5];
    return static_cast<double>(random() % 4096) / 64 - 8;
  };
  const GuardedBuffer memory(4096);
  for (unsigned round = 0; round < 6000; ++round) {
    const ProcessorTurn turn(round / 6);
    const std::size_t count = random() % 68;
    const std::size_t tail = round % 2 == 0 ? 0 : random() % 9;
    Bytes plain(count + tail);
    for (std::uint8_t& byte : plain) byte = static_cast<std::uint8_t>(random() % 128);
    std::uint8_t* wide = round % 3 == 0 ? memory.AtStart() : memory.AtEnd(plain.size());
    std::copy(plain.begin(), plain.end(), wide);
    const std::int64_t x = static_cast<std::int64_t>(random() % 40);
    const imaging::StrokeRow stroke = {{number(), number(), number()},
                                       {number(), number(), number()},
                                       number(),
                                       number(),
                                       number(),
                                       number(),
                                       number(),
                                       number()};
    const imaging::DiscRow disc = {number(), number(), number(), number()};
    imaging::PaintStroke(stroke, x, count, wide);
    imaging::PaintStrokePlain(stroke, x, count, plain.data());
    ASSERT_TRUE(std::equal(plain.begin(), plain.end(), wide)) << "stroke " << round;
    imaging::PaintJoint(disc, x, count, wide);
    imaging::PaintJointPlain(disc, x, count, plain.data());
    ASSERT_TRUE(std::equal(plain.begin(), plain.end(), wide)) << "joint " << round;
    imaging::PaintDot(disc, x, count, wide);
    imaging::PaintDotPlain(disc, x, count, plain.data());
    ASSERT_TRUE(std::equal(plain.begin(), plain.end(), wide)) << "dot " << round;
  }
}

// Discs anywhere about a plane, by the plain formulas of a single pixel.
TEST(GradientDraw, DiscsAreCutAtThePlane) {
  constexpr int kWidth = 21;
  constexpr int kHeight = 10;
  for (const POINT centre : {POINT{5, 5}, {0, 0}, {20, 9}, {-3, 4}, {24, 12}, {10, -6}, {90, 5}}) {
    for (const double radius : {0.25, 1.0, 4.5, 7.0, 60.0}) {
      const GuardedBuffer memory(kWidth * kHeight);
      std::uint8_t* plane = memory.AtEnd(kWidth * kHeight);
      CPtrArrayCtrl points;
      AddPoint(points, centre.x, centre.y);
      DrawGradualPointList(kWidth, kHeight, &points, radius, 99, 0.75, 99, plane);
      for (int i = 0; i < kWidth * kHeight; ++i) {
        const double d = std::hypot(centre.x - i % kWidth, centre.y - i / kWidth);
        const double value = d > radius ? 0 : ((radius - d) / radius * 0.75 + 0.75) * 127.5;
        ASSERT_NEAR(plane[i], std::floor(value), 1) << radius << " " << i;
      }
    }
  }
}

TEST(GradientDraw, WhatCannotBePaintedTouchesNothing) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double none = std::numeric_limits<double>::quiet_NaN();
  Bytes plane(64, 7);
  const Bytes before = plane;
  CPtrArrayCtrl one;
  AddPoint(one, 3, 3);
  CPtrArrayCtrl same;
  for (int i = 0; i < 3; ++i) AddPoint(same, 3, 3);
  CPtrArrayCtrl empty;
  DrawGradualMultiLine(8, 8, &one, 2, 2, 1, 1, plane.data());
  DrawGradualMultiLine(8, 8, &same, 2, 2, 1, 1, plane.data());
  DrawGradualMultiLine(8, 8, nullptr, 2, 2, 1, 1, plane.data());
  DrawGradualMultiLine(8, 8, &same, 2, 2, 1, 1, nullptr);
  DrawGradualPointList(8, 8, &empty, 2, 2, 1, 1, plane.data());
  DrawGradualPointList(8, 8, &one, 0, 0, 1, 1, plane.data());
  DrawGradualPointList(0, 8, &one, 3, 3, 1, 1, plane.data());
  DrawGradualPointList(8, -8, &one, 3, 3, 1, 1, plane.data());
  DrawGradualPointList(8, 8, &one, none, 3, 1, 1, plane.data());
  DrawGradualLine(8, 8, 1, 1, 6, 6, 0, 3, 1, 1, plane.data());
  DrawGradualLine(8, 8, 4, 4, 4, 4, 3, 3, 1, 1, plane.data());
  DrawGradualLine(8, 8, 1, 1, 6, 6, 2, 2, none, 1, plane.data());
  DrawGradualLine(8, 8, 1, 1, 6, 6, 2, 2, 1, 1, nullptr);
  for (const double far : {infinity, -infinity, none, 1e300}) {
    DrawGradualLine(8, 8, far, 1, 6, 6, 2, 2, 1, 1, plane.data());
    DrawGradualLine(8, 8, 1, 1, 6, far, 2, 2, 1, 1, plane.data());
    DrawGradualLine(8, 8, 1, 1, 6, 6, far, 2, 1, 1, plane.data());
  }
  EXPECT_EQ(plane, before);
  // Far ends within reach end soon, and the rows that don't leave the plane are there.
  DrawGradualLine(8, 8, 4, -1e9, 4, 1e9, 2, 2, 1, 1, plane.data());
  for (int y = 0; y < 8; ++y) {
    EXPECT_EQ(plane[static_cast<std::size_t>(8 * y + 4)], 255);
    EXPECT_EQ(plane[static_cast<std::size_t>(8 * y + 1)], 7);
  }
}

TEST(GradientDraw, StampsSinglePixels) {
  const struct {
    unsigned int pen, picture, full, weak;
  } cases[] = {
      {0x00FFFFFF, 0x80112233, 0x80112233, 0x80112233},
      {0x40102030, 0x00445566, 0x40102030, 0x40102030},
      {0x00102030, 0x00445566, 0x00102030, 0x00102030},
      {0x80FF0000, 0x800000FF, 0xC0A80057, 0x995300AC},
      {0xFF123456, 0x40ABCDEF, 0xFF133557, 0x8B3F6183},
      {0x80FFFFFF, 0xFF000000, 0xFF7F7F7F, 0xFF323232},
      {0x80000000, 0xFFFFFFFF, 0xFF808080, 0xFFCDCDCD},
      {0xFE0180FF, 0x01FF8001, 0xFE0280FE, 0x640480FC},
      {0x01FFFFFF, 0x01000000, 0x01000000, 0x01000000},
      {0xC0204080, 0xFF8040C0, 0xFF394091, 0xFF6440AE},
  };
  for (const auto& each : cases) {
    unsigned int full = each.picture;
    unsigned int weak = full;
    DrawPointByPen(&full, 1, 1, 0, 0, &each.pen, 255, 1, 1, 1, 1, 1, 1);
    DrawPointByPen(&weak, 1, 1, 0, 0, &each.pen, 100, 1, 1, 1, 1, 1, 1);
    EXPECT_EQ(full, each.full) << std::hex << each.pen << " " << each.picture;
    EXPECT_EQ(weak, each.weak) << std::hex << each.pen << " " << each.picture;
  }
}

// Every place about the picture, every choice of sides: pixel by pixel the same, and no word of
// the pen or the picture beyond their ends.
TEST(GradientDraw, StampsTheChosenPartOfAPen) {
  constexpr int kWidth = 11;
  constexpr int kHeight = 7;
  std::mt19937 random(79);
  for (int round = 0; round < 4000; ++round) {
    const int size = 1 + static_cast<int>(random() % 13);
    const int inner = static_cast<int>(random() % static_cast<unsigned>(size + 2));
    const int x = static_cast<int>(random() % 23) - 6;
    const int y = static_cast<int>(random() % 19) - 6;
    const int sides = static_cast<int>(random() % 16);
    const GuardedBuffer pen_memory(676);
    const GuardedBuffer picture_memory(4 * kWidth * kHeight);
    const int pen_bytes = 4 * size * size;
    auto* pen =
        reinterpret_cast<unsigned int*>(pen_memory.AtEnd(static_cast<std::size_t>(pen_bytes)));
    auto* picture = reinterpret_cast<unsigned int*>(picture_memory.AtEnd(4 * kWidth * kHeight));
    for (int i = 0; i < size * size; ++i) pen[i] = static_cast<unsigned int>(random());
    Words plain(kWidth * kHeight);
    for (unsigned int& word : plain) word = static_cast<unsigned int>(random());
    std::copy(plain.begin(), plain.end(), picture);
    DrawPointByPen(picture, kWidth, kHeight, x, y, pen, 200, size, inner, sides & 1, sides & 2,
                   sides & 4, sides & 8);
    const int left = x - ((sides & 1) != 0 ? size : std::min(inner, size)) / 2;
    const int top = y - ((sides & 4) != 0 ? size : std::min(inner, size)) / 2;
    const int right = (sides & 2) != 0 ? x - size / 2 + size : x + (inner + 1) / 2;
    const int bottom = (sides & 8) != 0 ? y - size / 2 + size : y + (inner + 1) / 2;
    for (int i = 0; i < size * size; ++i) {
      const int column = x - size / 2 + i % size;
      const int row = y - size / 2 + i / size;
      if (column < std::max(left, 0) || column >= std::min(right, kWidth)) continue;
      if (row < std::max(top, 0) || row >= std::min(bottom, kHeight)) continue;
      const int place = row * kWidth + column;
      imaging::StampRowPlain(
          reinterpret_cast<std::uint8_t*>(&plain[static_cast<std::size_t>(place)]),
          reinterpret_cast<const std::uint8_t*>(pen + i), 1, 200);
    }
    ASSERT_TRUE(std::equal(plain.begin(), plain.end(), picture)) << round;
  }
  Words untouched(4, 5);
  const unsigned int pen = 0xFFFFFFFF;
  DrawPointByPen(untouched.data(), 2, 2, INT_MAX, INT_MIN, &pen, 255, 1, 1, 1, 1, 1, 1);
  DrawPointByPen(untouched.data(), 2, 2, 0, 0, &pen, 255, 0, INT_MAX, 0, 0, 0, 0);
  DrawPointByPen(untouched.data(), -2, 2, 0, 0, &pen, 255, 1, 1, 1, 1, 1, 1);
  DrawPointByPen(nullptr, 2, 2, 0, 0, &pen, 255, 1, 1, 1, 1, 1, 1);
  DrawPointByPen(untouched.data(), 2, 2, 0, 0, nullptr, 255, 1, 1, 1, 1, 1, 1);
  EXPECT_EQ(untouched, Words(4, 5));
}

}  // namespace
}  // namespace qvx::test
