// The values of soft strokes along one row of an intensity plane. Each wide form gives the bytes
// of its plain form. All keep the larger of what is there and what is new; a value that is not a
// number counts as 0.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvx::imaging {

// The distance of a row's pixels from a line: |x * slope + offset| / length.
struct RowDistance {
  double slope;
  double offset;
  double length;
};

struct StrokeRow {
  RowDistance axis;
  RowDistance start;  // the stroke's starting edge
  double length;      // of the stroke
  double width;       // half-width and strength at the start, and what the end has more
  double width_change;
  double strength;
  double strength_change;
  double top_strength;
};

// Paint count pixels from column x on; out is the first one's place.
void PaintStroke(const StrokeRow& row, std::int64_t x, std::size_t count, std::uint8_t* out);
void PaintStrokePlain(const StrokeRow& row, std::int64_t x, std::size_t count, std::uint8_t* out);

struct DiscRow {
  double centre_x;
  double square_y;  // of the row's distance from the centre
  double radius;
  double strength;
};

// The disc that ends strokes: it reaches half a pixel beyond its radius.
void PaintJoint(const DiscRow& row, std::int64_t x, std::size_t count, std::uint8_t* out);
void PaintJointPlain(const DiscRow& row, std::int64_t x, std::size_t count, std::uint8_t* out);

// The disc of a single point: it ends at its radius.
void PaintDot(const DiscRow& row, std::int64_t x, std::size_t count, std::uint8_t* out);
void PaintDotPlain(const DiscRow& row, std::int64_t x, std::size_t count, std::uint8_t* out);

}  // namespace qvx::imaging
