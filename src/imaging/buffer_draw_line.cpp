#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "qvx/buffer_draw.h"

namespace {

// A line with its ends moved so that the pen stays inside.
struct Line {
  POINT from;
  POINT to;
  int pen;
};

// One step of the pen: where it stands now and how it came there, -1, 0 or 1 each way.
struct Step {
  POINT at;
  int move_x;
  int move_y;
};

int Sign(std::int64_t value) {
  return value < 0 ? -1 : value > 0 ? 1 : 0;
}

// Bresenham. Calls step(step, steep) after each move.
template <typename Visit>
void Walk(const Line& line, Visit visit) {
  const std::int64_t dx = std::int64_t{line.to.x} - line.from.x;
  const std::int64_t dy = std::int64_t{line.to.y} - line.from.y;
  const bool steep = std::abs(dx) < std::abs(dy);
  const std::int64_t major = std::max(std::abs(dx), std::abs(dy));
  const std::int64_t minor = std::min(std::abs(dx), std::abs(dy));
  std::int64_t error = 2 * minor - major;
  Step step{line.from, 0, 0};
  for (std::int64_t i = 0; i < major; ++i) {
    const bool both = error >= 0;
    error += 2 * minor - (both ? 2 * major : 0);
    step.move_x = both || !steep ? Sign(dx) : 0;
    step.move_y = both || steep ? Sign(dy) : 0;
    step.at.x += step.move_x;
    step.at.y += step.move_y;
    visit(step, steep);
  }
}

// The pixels of the buffer and of the pen.
class Brush {
 public:
  Brush(std::uint8_t* dst, int pitch, int pixel_bytes, int size, const std::uint8_t* pixels)
      : dst_(dst), pitch_(pitch), pixel_bytes_(pixel_bytes), size_(size), pixels_(pixels) {}

  void Draw(const Line& line) const {
    if (size_ == 1 && DrawThin(line)) return;
    for (int row = 0; row < size_; ++row) DrawRow(line.from, row);
    Walk(line, [this](const Step& step, bool) { DrawEdges(step); });
  }

 private:
  bool DrawThin(const Line& line) const {
    switch (pixel_bytes_) {
      case 1:
        DrawThinPixels<1>(line);
        return true;
      case 2:
        DrawThinPixels<2>(line);
        return true;
      case 4:
        DrawThinPixels<4>(line);
        return true;
      default:
        return false;
    }
  }

  // What the last step newly covers.
  void DrawEdges(const Step& step) const {
    if (step.move_x != 0) DrawColumn(step.at, step.move_x > 0 ? size_ - 1 : 0);
    if (step.move_y != 0) DrawRow(step.at, step.move_y > 0 ? size_ - 1 : 0);
  }

  std::uint8_t* Pixel(std::int64_t x, std::int64_t y) const {
    return dst_ + (y * pitch_ + x * pixel_bytes_);
  }

  void DrawRow(POINT at, int row) const {
    std::memcpy(Pixel(at.x, std::int64_t{at.y} + row), pixels_,
                static_cast<std::size_t>(size_) * static_cast<std::size_t>(pixel_bytes_));
  }

  // One pixel a step, with a pen of one pixel.
  template <std::size_t kBytes>
  void DrawThinPixels(const Line& line) const {
    CopyColumn<kBytes>(line.from, 0, pixels_);
    Walk(line, [this](const Step& step, bool) {
      std::memcpy(Pixel(step.at.x, step.at.y), pixels_, kBytes);
    });
  }

  void DrawColumn(POINT at, int column) const {
    const std::int64_t offset = std::int64_t{column} * pixel_bytes_;
    switch (pixel_bytes_) {
      case 1:
        return CopyColumn<1>(at, column, pixels_ + offset);
      case 2:
        return CopyColumn<2>(at, column, pixels_ + offset);
      case 3:
        return CopyColumn<3>(at, column, pixels_ + offset);
      case 4:
        return CopyColumn<4>(at, column, pixels_ + offset);
      default:
        for (int row = 0; row < size_; ++row) {
          std::memcpy(Pixel(std::int64_t{at.x} + column, std::int64_t{at.y} + row),
                      pixels_ + offset, static_cast<std::size_t>(pixel_bytes_));
        }
    }
  }

  template <std::size_t kBytes>
  void CopyColumn(POINT at, int column, const std::uint8_t* pixel) const {
    std::uint8_t* const first = Pixel(std::int64_t{at.x} + column, at.y);
    for (std::int64_t row = 0; row < size_; ++row) {
      std::memcpy(first + row * pitch_, pixel, kBytes);
    }
  }

  std::uint8_t* dst_;
  std::int64_t pitch_;
  int pixel_bytes_;
  int size_;
  const std::uint8_t* pixels_;
};

// Hands points to a container; takes them back if one does not fit.
class PointSink {
 public:
  explicit PointSink(CPtrCtrl& points) : points_(points) {}

  void Add(std::int64_t x, std::int64_t y) {
    const std::uint64_t value = static_cast<std::uint32_t>(x) | static_cast<std::uint64_t>(y) << 32;
    if (added_ > 0 && value == last_) return;
    points_.AddData(reinterpret_cast<const void*>(static_cast<std::uintptr_t>(value)), -1);
    last_ = value;
    ++added_;
  }

  void AddStep(const Step& step, bool steep, int pen) {
    const POINT at = step.at;
    if (!steep && step.move_y != 0) Add(at.x, at.y);
    if (step.move_x != 0) {
      for (std::int64_t i = 0; i < pen; ++i) Add(at.x, at.y + i);
    }
    if (steep) Add(at.x, at.y);
  }

  void TakeBack() {
    if (added_ > 0) points_.DeleteAt(points_.GetCount() - added_, added_);
  }

 private:
  CPtrCtrl& points_;
  std::uint64_t last_ = 0;
  int added_ = 0;
};

void ListPoints(const Line& line, CPtrCtrl& points) {
  PointSink sink(points);
  try {
    sink.Add(line.from.x, line.from.y);
    Walk(line, [&](const Step& step, bool steep) { sink.AddStep(step, steep, line.pen); });
  } catch (...) {
    sink.TakeBack();
    throw;
  }
}

POINT Inside(POINT point, int width, int height, int pen) {
  return {std::clamp(point.x, 0, width - pen), std::clamp(point.y, 0, height - pen)};
}

}  // namespace

extern "C" {

void DrawLineOnBuffer(unsigned char* dst, POINT from, POINT to, int width, int height, int pitch,
                      int bytesPerPixel, int penSize, const unsigned char* penPixels,
                      CPtrCtrl* points) {
  const int pen = std::max(penSize, 1);
  if (pen > width || pen > height) return;
  const Line line{Inside(from, width, height, pen), Inside(to, width, height, pen), pen};
  if (points != nullptr) ListPoints(line, *points);
  if (dst == nullptr || penPixels == nullptr || bytesPerPixel < 1) return;
  Brush(dst, pitch, bytesPerPixel, pen, penPixels).Draw(line);
}

}  // extern "C"
