#include "qvx/gradient_draw.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

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

std::string Hex(const Bytes& plane) {
  CBaseStringA text;
  BufferToHexStringA(plane.data(), static_cast<int>(plane.size()), 0, 1, &text);
  return text.GetString();
}

void AddPoints(CPtrCtrl& points, std::initializer_list<POINT> places) {
  for (const POINT place : places) {
    const std::uint64_t value =
        static_cast<std::uint32_t>(place.x) | static_cast<std::uint64_t>(place.y) << 32;
    points.AddData(reinterpret_cast<const void*>(value), -1);
  }
}

// The planes are those that another program made pixel by pixel.
TEST(GradientDraw, PaintsStrokes) {
  Bytes even(12 * 5);
  DrawGradualLine(12, 5, 2, 3, 9, 3, 2, 2, 1.0, 1.0, even.data());
  EXPECT_EQ(Hex(even),
            "00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 7f 7f 7f 7f 7f 7f 7f 7f 00 00 "
            "00 00 bf bf bf bf bf bf bf bf 00 00 "
            "00 00 ff ff ff ff ff ff ff ff 00 00 "
            "00 00 bf bf bf bf bf bf bf bf 00 00 ");

  Bytes taper(12 * 9);
  DrawGradualLine(12, 9, 2, 2, 9, 6, 1, 3, 1.0, 0.5, taper.data());
  EXPECT_EQ(Hex(taper),
            "00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 97 00 00 00 00 00 00 00 00 00 "
            "00 00 ff c0 94 75 5d 00 00 00 00 00 "
            "00 00 97 c8 d2 a9 8a 71 5c 4c 3e 00 "
            "00 00 00 81 a4 b9 ad 8f 76 62 50 00 "
            "00 00 00 00 70 89 97 9e 8a 72 00 00 "
            "00 00 00 00 00 61 73 7d 80 7f 00 00 "
            "00 00 00 00 00 00 54 60 66 67 00 00 "
            "00 00 00 00 00 00 00 47 4f 00 00 00 ");
  // Rows that reach the column behind the last are left out.
  Bytes edge(12 * 6);
  DrawGradualLine(12, 6, 7, 1, 14, 8, 2, 2, 1.0, 1.0, edge.data());
  EXPECT_EQ(Hex(edge),
            "00 00 00 00 00 00 00 00 a4 00 00 00 "
            "00 00 00 00 00 00 00 ff d1 a4 00 00 "
            "00 00 00 00 00 00 a4 d1 ff d1 a4 00 "
            "00 00 00 00 00 00 00 a4 d1 ff d1 a4 "
            "00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00 00 00 00 00 ");
}

TEST(GradientDraw, PaintsPointLists) {
  CPtrArrayCtrl corner;
  CPtrListCtrl places;
  AddPoints(corner, {{2, 2}, {10, 2}, {10, 7}});
  AddPoints(places, {{2, 3}, {7, 3}, {11, 5}});
  Bytes stroke(14 * 9);
  DrawGradualMultiLine(14, 9, &corner, 1, 2.5, 0.5, 1.0, stroke.data());
  EXPECT_EQ(Hex(stroke),
            "00 00 00 00 00 00 00 00 00 56 62 56 00 00 "
            "00 25 3f 4b 57 62 6d 78 83 8d 98 82 56 00 "
            "00 3f 7f 89 93 9c a6 b0 ba c4 cd 98 62 00 "
            "00 25 3f 4b 57 62 6d 78 83 a2 d7 a2 6d 00 "
            "00 00 00 00 00 00 00 00 78 ad e1 ad 78 00 "
            "00 00 00 00 00 00 00 00 83 b7 eb b7 83 00 "
            "00 00 00 00 00 00 00 00 8e c1 f5 c1 8e 00 "
            "00 00 00 00 00 00 00 00 99 cc ff cc 99 66 "
            "00 00 00 00 00 00 00 00 8c b6 cc b6 8c 00 ");
  Bytes discs(12 * 7);
  DrawGradualPointList(12, 7, &places, 1, 4, 1.0, 0.25, discs.data());
  EXPECT_EQ(Hex(discs),
            "00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 5f 00 00 00 00 "
            "00 00 7f 00 00 00 7b 8f 7b 00 00 3f "
            "00 7f ff 7f 00 5f 8f bf 8f 5f 4f 55 "
            "00 00 7f 00 00 00 7b 8f 7b 4f 61 6a "
            "00 00 00 00 00 00 00 5f 3f 55 6a 7f "
            "00 00 00 00 00 00 00 00 00 4f 61 6a ");
}

struct Point {
  double x, y;
};

double Distance(Point from, Point a, Point b) {
  const double area = from.x * (b.y - a.y) + from.y * (a.x - b.x) + (a.y * b.x - a.x * b.y);
  return std::fabs(area) / std::hypot(a.x - b.x, a.y - b.y);
}

// A stroke pixel by pixel: the corner test for each pixel, the walks as they are told.
struct PlainStroke {
  Point ends[2];
  double widths[2];
  double strengths[2];
  int plane_width;
  Point exact[4] = {};
  Point corners[4] = {};

  void FindCorners() {
    const double angle = std::atan2(ends[1].y - ends[0].y, ends[1].x - ends[0].x);
    const double quarter = std::acos(-1.0) / 2;
    for (int i = 0; i < 4; ++i) {
      const int end = i / 2;
      const double way = angle + (i == 0 || i == 3 ? quarter : -quarter);
      exact[i] = {ends[end].x + widths[end] * std::cos(way),
                  ends[end].y + widths[end] * std::sin(way)};
      corners[i] = {std::round(exact[i].x), std::round(exact[i].y)};
    }
  }

  void Paint(Bytes& plane) {
    FindCorners();
    const auto [low, high] = std::minmax({corners[0].x, corners[1].x, corners[2].x, corners[3].x});
    const int min_x = std::min(plane_width - 1, static_cast<int>(low));
    const int max_x = std::max(0, static_cast<int>(high));
    int left = min_x;
    int right = max_x;
    for (int y = 0; y < static_cast<int>(plane.size()) / plane_width; ++y) {
      const int first = Edge(left, -1, min_x, y);
      if (first < 0 || first >= plane_width) continue;
      const int last = Edge(std::max(right, first), 1, max_x, y);
      if (last < 0 || last >= plane_width) continue;
      left = first;
      right = last;
      for (int x = first; x <= last; ++x) {
        const int place = y * plane_width + x;
        auto& pixel = plane[static_cast<std::size_t>(place)];
        pixel = std::max(pixel, Value({static_cast<double>(x), static_cast<double>(y)}));
      }
    }
  }

  bool Inside(int x, int y) const {
    bool inside = false;
    for (int i = 0; i < 4; ++i) {
      const Point& a = corners[i];
      const Point& b = corners[(i + 3) % 4];
      if ((a.y > y) == (b.y > y)) continue;
      const double edge = (b.x - a.x) * (y - a.y) / (b.y - a.y) + a.x;
      if (std::fabs(x - edge) < 0.5) return true;
      if (x < edge) inside = !inside;
    }
    return inside;
  }

  // Outwards by step from a place inside; else inwards from beside the outermost corner.
  int Edge(int place, int step, int outermost, int y) const {
    if (Inside(place, y)) {
      const int end = step < 0 ? std::min(place, 0) : std::max(place, plane_width);
      while (place != end && Inside(place + step, y)) place += step;
      return place;
    }
    const int end = step < 0 ? plane_width + 1 : -2;
    for (place = outermost - step; place != end && !Inside(place, y);) place -= step;
    return place;
  }

  std::uint8_t Value(Point at) const {
    const double d = Distance(at, ends[0], ends[1]);
    const double t =
        Distance(at, exact[0], exact[1]) / std::hypot(ends[0].x - ends[1].x, ends[0].y - ends[1].y);
    const double w = widths[0] + t * (widths[1] - widths[0]);
    const double s = strengths[0] + t * (strengths[1] - strengths[0]);
    if (std::isnan(w) || d - w >= 0.5) return 0;
    const double v = std::min(((w - d) / w * s + s) * 0.5, std::max(strengths[0], strengths[1]));
    return static_cast<std::uint8_t>(std::clamp(v * 255.0, 0.0, 255.0));
  }
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
    const auto point = [&]() -> Point {
      const double x = quarters(-out, width + out);
      return {x, quarters(-out, height + out)};
    };
    PlainStroke stroke{{point(), point()},
                       {quarters(0, 9), quarters(round % 5 == 0 ? -3 : 0, 9)},
                       {quarters(0, 2), quarters(round % 7 == 0 ? -2 : 0, 2)},
                       width};
    // Of what was there and the stroke, the stronger shows.
    Bytes plain(static_cast<std::size_t>(width * height), round % 4 == 0 ? 100 : 0);
    const GuardedBuffer memory(plain.size());
    std::uint8_t* plane = memory.AtEnd(plain.size());
    std::copy(plain.begin(), plain.end(), plane);
    stroke.Paint(plain);
    const auto& [a, b] = stroke.ends;
    DrawGradualLine(width, height, a.x, a.y, b.x, b.y, stroke.widths[0], stroke.widths[1],
                    stroke.strengths[0], stroke.strengths[1], plane);
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
    std::array<double, 12> numbers;
    std::generate(numbers.begin(), numbers.end(), number);
    const auto stroke = std::bit_cast<imaging::StrokeRow>(numbers);
    const imaging::DiscRow disc = {number(), number(), number(), number()};
    const auto paint = [&](const auto& row, auto* paint_wide, auto* paint_plain) {
      paint_wide(row, x, count, wide);
      paint_plain(row, x, count, plain.data());
      return std::equal(plain.begin(), plain.end(), wide);
    };
    ASSERT_TRUE(paint(stroke, imaging::PaintStroke, imaging::PaintStrokePlain)) << round;
    ASSERT_TRUE(paint(disc, imaging::PaintJoint, imaging::PaintJointPlain)) << round;
    ASSERT_TRUE(paint(disc, imaging::PaintDot, imaging::PaintDotPlain)) << round;
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
      AddPoints(points, {centre});
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
  AddPoints(one, {{3, 3}});
  CPtrArrayCtrl same;
  AddPoints(same, {{3, 3}, {3, 3}, {3, 3}});
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

// Every place about the picture, every choice of sides; no word of the pen or the picture beyond
// their ends. A transparent picture takes the pen's words as they are.
TEST(GradientDraw, StampsTheChosenPartOfAPen) {
  constexpr int kWidth = 11;
  constexpr int kHeight = 7;
  std::mt19937 random(79);
  const auto below = [&random](int end) {
    return static_cast<int>(random() % static_cast<unsigned>(end));
  };
  for (int round = 0; round < 4000; ++round) {
    const int size = 1 + below(13);
    const int inner = below(size + 2);
    const POINT centre{below(23) - 6, below(19) - 6};
    const int sides = below(16);
    const GuardedBuffer pen_memory(676);
    const GuardedBuffer picture_memory(4 * kWidth * kHeight);
    auto* pen = reinterpret_cast<unsigned int*>(
        pen_memory.AtEnd(4 * static_cast<std::size_t>(size * size)));
    auto* picture = reinterpret_cast<unsigned int*>(picture_memory.AtEnd(4 * kWidth * kHeight));
    std::iota(pen, pen + size * size, 1U);
    DrawPointByPen(picture, kWidth, kHeight, centre.x, centre.y, pen, 200, size, inner, sides & 1,
                   sides & 2, sides & 4, sides & 8);
    // The pen's place over a pixel in one direction, or -1 beside the chosen part.
    const auto over = [&](int place, int middle, int full_begin, int full_end) {
      const bool is_chosen = (full_begin != 0 || place >= middle - inner / 2) &&
                             (full_end != 0 || place < middle + (inner + 1) / 2);
      const int at = place - middle + size / 2;
      return is_chosen && at < size ? at : -1;
    };
    for (int i = 0; i < kWidth * kHeight; ++i) {
      const int column = over(i % kWidth, centre.x, sides & 1, sides & 2);
      const int row = over(i / kWidth, centre.y, sides & 4, sides & 8);
      const bool is_beside = column < 0 || row < 0;
      ASSERT_EQ(picture[i], is_beside ? 0 : pen[row * size + column]) << round << " at " << i;
    }
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
