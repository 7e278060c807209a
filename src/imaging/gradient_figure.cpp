#include "imaging/gradient_figure.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace qvx::imaging {
namespace {

constexpr double kNear = 0.5;

// The columns between two neighbouring crossings and the pixels that touch them.
Run Between(double left, double right) {
  const double first = std::floor(left);
  const double last = std::ceil(right);
  const bool touches_left = left - first < kNear;
  const bool touches_right = last - right < kNear;
  return {static_cast<std::int64_t>(first) + (touches_left ? 0 : 1),
          static_cast<std::int64_t>(last) - (touches_right ? 0 : 1)};
}

// Into the first count values, which are sorted.
void Insert(double* values, int count, double value) {
  for (; count > 0 && values[count - 1] > value; --count) values[count] = values[count - 1];
  values[count] = value;
}

void Append(RowRuns& row, Run run) {
  if (run.first > run.last) return;
  if (row.count > 0 && run.first <= row.runs[0].last + 1) {
    row.runs[0].last = std::max(row.runs[0].last, run.last);
    return;
  }
  row.runs[row.count++] = run;
}

}  // namespace

const Run* RowRuns::Holding(std::int64_t x) const {
  for (int i = 0; i < count; ++i) {
    if (runs[i].Holds(x)) return &runs[i];
  }
  return nullptr;
}

std::int64_t RowRuns::FirstFrom(std::int64_t x, std::int64_t limit) const {
  for (int i = 0; i < count; ++i) {
    if (runs[i].last >= x) return std::min(std::max(runs[i].first, x), limit);
  }
  return limit;
}

std::int64_t RowRuns::LastTo(std::int64_t x, std::int64_t limit) const {
  for (int i = count - 1; i >= 0; --i) {
    if (runs[i].first <= x) return std::max(std::min(runs[i].last, x), limit);
  }
  return limit;
}

StrokeFigure::StrokeFigure(const Corner (&corners)[4]) {
  std::copy(std::begin(corners), std::end(corners), std::begin(corners_));
  const auto by_x = [](const Corner& a, const Corner& b) { return a.x < b.x; };
  const auto by_y = [](const Corner& a, const Corner& b) { return a.y < b.y; };
  const auto x = std::minmax_element(std::begin(corners_), std::end(corners_), by_x);
  const auto y = std::minmax_element(std::begin(corners_), std::end(corners_), by_y);
  min_x_ = static_cast<std::int64_t>(x.first->x);
  max_x_ = static_cast<std::int64_t>(x.second->x);
  min_y_ = static_cast<std::int64_t>(y.first->y);
  max_y_ = static_cast<std::int64_t>(y.second->y);
}

RowRuns StrokeFigure::InRow(std::int64_t y) const {
  const auto row = static_cast<double>(y);
  double crossings[4];
  int count = 0;
  for (int i = 0; i < 4; ++i) {
    const Corner& a = corners_[i];
    const Corner& b = corners_[(i + 3) % 4];
    if ((a.y > row) == (b.y > row)) continue;
    Insert(crossings, count++, (b.x - a.x) * (row - a.y) / (b.y - a.y) + a.x);
  }
  RowRuns runs;
  for (int i = 0; i < count; i += 2) Append(runs, Between(crossings[i], crossings[i + 1]));
  return runs;
}

SpanFinder::SpanFinder(const StrokeFigure& figure, std::int64_t width)
    : width_(width),
      min_x_(std::min(width - 1, figure.MinX())),
      max_x_(std::max<std::int64_t>(0, figure.MaxX())),
      span_{min_x_, max_x_} {}

bool SpanFinder::Next(const RowRuns& row) {
  const std::int64_t left = LeftEnd(row);
  if (!IsInPlane(left)) return false;
  const std::int64_t right = RightEnd(row, left);
  if (!IsInPlane(right)) return false;
  span_ = {left, right};
  return true;
}

std::int64_t SpanFinder::LeftEnd(const RowRuns& row) const {
  const Run* run = row.Holding(span_.first);
  if (run == nullptr) return row.FirstFrom(min_x_ + 1, width_);
  return span_.first <= 0 ? span_.first : std::max<std::int64_t>(run->first, 0);
}

std::int64_t SpanFinder::RightEnd(const RowRuns& row, std::int64_t left) const {
  const std::int64_t start = std::max(span_.last, left);
  const Run* run = row.Holding(start);
  if (run == nullptr) return row.LastTo(max_x_ - 1, -1);
  return start >= width_ ? start : std::min(run->last, width_);
}

}  // namespace qvx::imaging
