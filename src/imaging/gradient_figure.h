// The four-cornered figure of a stroke on the pixel grid, and its span in each row.
#pragma once

#include <cstdint>

namespace qvx::imaging {

struct Corner {
  double x;
  double y;
};

// Columns, both ends inclusive.
struct Run {
  std::int64_t first;
  std::int64_t last;

  bool Holds(std::int64_t x) const { return first <= x && x <= last; }
};

// The columns of one row that lie inside, from left to right with gaps between.
struct RowRuns {
  Run runs[2];
  int count = 0;

  const Run* Holding(std::int64_t x) const;
  // The nearest column inside that is x or more, or x or less; the limit if there is none.
  std::int64_t FirstFrom(std::int64_t x, std::int64_t limit) const;
  std::int64_t LastTo(std::int64_t x, std::int64_t limit) const;
};

class StrokeFigure {
 public:
  // The corners have whole coordinates.
  explicit StrokeFigure(const Corner (&corners)[4]);

  // A pixel is inside if it is less than half a pixel from an edge, or if the edges to the
  // right of it are odd in number.
  RowRuns InRow(std::int64_t y) const;

  std::int64_t MinX() const { return min_x_; }
  std::int64_t MaxX() const { return max_x_; }
  std::int64_t MinY() const { return min_y_; }
  std::int64_t MaxY() const { return max_y_; }

 private:
  Corner corners_[4];
  std::int64_t min_x_;
  std::int64_t max_x_;
  std::int64_t min_y_;
  std::int64_t max_y_;
};

// Finds the span of one row after the other, each from the span before it.
class SpanFinder {
 public:
  SpanFinder(const StrokeFigure& figure, std::int64_t width);

  // False if the row is left out: it has nothing inside, or an end outside of the plane.
  bool Next(const RowRuns& row);
  const Run& Span() const { return span_; }

 private:
  std::int64_t LeftEnd(const RowRuns& row) const;
  std::int64_t RightEnd(const RowRuns& row, std::int64_t left) const;
  bool IsInPlane(std::int64_t x) const { return x >= 0 && x < width_; }

  std::int64_t width_;
  std::int64_t min_x_;
  std::int64_t max_x_;
  Run span_;
};

}  // namespace qvx::imaging
