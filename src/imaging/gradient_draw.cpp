#include "qvx/gradient_draw.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "imaging/gradient_figure.h"
#include "imaging/gradient_rows.h"

using qvx::imaging::Corner;
using qvx::imaging::DiscRow;
using qvx::imaging::RowDistance;
using qvx::imaging::StrokeRow;

namespace {

// Beyond this nothing is painted; it keeps all products far from where numbers end.
constexpr double kFarthest = 1e12;

struct Plane {
  std::int64_t width;
  std::int64_t height;
  std::uint8_t* pixels;

  bool IsEmpty() const { return pixels == nullptr || width < 1 || height < 1; }
  std::uint8_t* At(std::int64_t x, std::int64_t y) const { return pixels + (y * width + x); }
};

// One end of a stroke, or a disc.
struct Spot {
  double x;
  double y;
  double width;  // half of it, or the radius
  double strength;
};

using PaintDisc = void (*)(const DiscRow&, std::int64_t, std::size_t, std::uint8_t*);

bool IsUsable(const Spot& spot) {
  return std::fabs(spot.x) <= kFarthest && std::fabs(spot.y) <= kFarthest &&
         std::fabs(spot.width) <= kFarthest && std::isfinite(spot.strength);
}

double Length(double x, double y) {
  return std::sqrt(x * x + y * y);
}

// The line through two points, as it is for the pixels of row y.
RowDistance DistanceFrom(Corner a, Corner b, std::int64_t y) {
  const double turn = a.y * b.x - a.x * b.y;
  return {b.y - a.y, static_cast<double>(y) * (a.x - b.x) + turn, Length(a.x - b.x, a.y - b.y)};
}

Corner Beside(const Spot& spot, double angle) {
  return {spot.x + spot.width * std::cos(angle), spot.y + spot.width * std::sin(angle)};
}

Corner Rounded(Corner corner) {
  return {std::round(corner.x), std::round(corner.y)};
}

void DrawLine(const Plane& plane, const Spot& from, const Spot& to) {
  if (!IsUsable(from) || !IsUsable(to)) return;
  const double angle = std::atan2(to.y - from.y, to.x - from.x);
  constexpr double kQuarter = std::numbers::pi / 2;
  const Corner corners[] = {Beside(from, angle + kQuarter), Beside(from, angle - kQuarter),
                            Beside(to, angle - kQuarter), Beside(to, angle + kQuarter)};
  const qvx::imaging::StrokeFigure figure(
      {Rounded(corners[0]), Rounded(corners[1]), Rounded(corners[2]), Rounded(corners[3])});
  qvx::imaging::SpanFinder finder(figure, plane.width);
  StrokeRow row{};
  row.length = Length(from.x - to.x, from.y - to.y);
  row.width = from.width;
  row.width_change = to.width - from.width;
  row.strength = from.strength;
  row.strength_change = to.strength - from.strength;
  row.top_strength = std::max(from.strength, to.strength);
  const std::int64_t last = std::min(figure.MaxY(), plane.height - 1);
  for (std::int64_t y = std::max<std::int64_t>(figure.MinY(), 0); y <= last; ++y) {
    if (!finder.Next(figure.InRow(y))) continue;
    row.axis = DistanceFrom({from.x, from.y}, {to.x, to.y}, y);
    row.start = DistanceFrom(corners[0], corners[1], y);
    const qvx::imaging::Run& span = finder.Span();
    if (span.first > span.last) continue;
    qvx::imaging::PaintStroke(row, span.first, static_cast<std::size_t>(span.last - span.first + 1),
                              plane.At(span.first, y));
  }
}

// The part of centre - radius to centre + radius that lies in 0 to size - 1; the end is exclusive.
struct Extent {
  Extent(double centre, double radius, std::int64_t size)
      : begin(Limited(std::round(centre - radius), size)),
        end(Limited(std::round(centre + radius) + 1, size)) {}

  static std::int64_t Limited(double value, std::int64_t size) {
    return static_cast<std::int64_t>(std::clamp(value, 0.0, static_cast<double>(size)));
  }

  std::int64_t begin;
  std::int64_t end;
};

void DrawDisc(const Plane& plane, const Spot& spot, PaintDisc paint) {
  if (!IsUsable(spot)) return;
  const Extent columns(spot.x, spot.width, plane.width);
  const Extent rows(spot.y, spot.width, plane.height);
  if (columns.begin >= columns.end) return;
  const auto count = static_cast<std::size_t>(columns.end - columns.begin);
  for (std::int64_t y = rows.begin; y < rows.end; ++y) {
    const double up = spot.y - static_cast<double>(y);
    paint({spot.x, up * up, spot.width, spot.strength}, columns.begin, count,
          plane.At(columns.begin, y));
  }
}

Corner PointAt(CPtrCtrl& points, int index) {
  const auto value = reinterpret_cast<std::uintptr_t>(points.GetAt(index));
  return {static_cast<double>(static_cast<std::int32_t>(value & 0xFFFFFFFFU)),
          static_cast<double>(static_cast<std::int32_t>(value >> 32))};
}

double SegmentLength(Corner from, Corner to) {
  return Length(to.x - from.x, to.y - from.y);
}

double TotalLength(CPtrCtrl& points) {
  double total = 0;
  Corner from = PointAt(points, 0);
  const int count = points.GetCount();
  for (int i = 1; i < count; ++i) {
    const Corner to = PointAt(points, i);
    total += SegmentLength(from, to);
    from = to;
  }
  return total;
}

}  // namespace

extern "C" {

void DrawGradualLine(int width, int height, double x1, double y1, double x2, double y2,
                     double halfWidth1, double halfWidth2, double strength1, double strength2,
                     unsigned char* plane) {
  const Plane target{width, height, plane};
  if (target.IsEmpty()) return;
  DrawLine(target, {x1, y1, halfWidth1, strength1}, {x2, y2, halfWidth2, strength2});
}

void DrawGradualMultiLine(int width, int height, CPtrCtrl* points, double halfWidth1,
                          double halfWidth2, double strength1, double strength2,
                          unsigned char* plane) {
  const Plane target{width, height, plane};
  if (target.IsEmpty() || points == nullptr || points->GetCount() < 2) return;
  const double total = TotalLength(*points);
  if (total == 0) return;
  const double width_step = (halfWidth2 - halfWidth1) / total;
  const double strength_step = (strength2 - strength1) / total;
  const Corner first = PointAt(*points, 0);
  Spot from{first.x, first.y, halfWidth1, strength1};
  DrawDisc(target, from, &qvx::imaging::PaintJoint);
  const int count = points->GetCount();
  for (int i = 1; i < count; ++i) {
    const Corner end = PointAt(*points, i);
    const double length = SegmentLength({from.x, from.y}, end);
    const Spot to{end.x, end.y, length * width_step + from.width,
                  length * strength_step + from.strength};
    DrawLine(target, from, to);
    DrawDisc(target, to, &qvx::imaging::PaintJoint);
    from = to;
  }
}

void DrawGradualPointList(int width, int height, CPtrCtrl* points, double radius1, double radius2,
                          double strength1, double strength2, unsigned char* plane) {
  const Plane target{width, height, plane};
  if (target.IsEmpty() || points == nullptr || points->IsEmpty()) return;
  const int count = points->GetCount();
  const double radius_step = (radius2 - radius1) / count;
  const double strength_step = (strength2 - strength1) / count;
  Spot spot{0, 0, radius1, strength1};
  for (int i = 0; i < count; ++i) {
    const Corner point = PointAt(*points, i);
    spot.x = point.x;
    spot.y = point.y;
    DrawDisc(target, spot, &qvx::imaging::PaintDot);
    spot.width += radius_step;
    spot.strength += strength_step;
  }
}

}  // extern "C"
