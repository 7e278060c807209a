#include "half_blocks.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace qvx::tool {
namespace {

constexpr const char* kUpperHalf = "\u2580";
constexpr const char* kLowerHalf = "\u2584";

struct Colour {
  unsigned char red, green, blue, alpha;
  bool operator==(const Colour& other) const = default;
  bool IsDrawn() const { return alpha != 0; }
};

// How much of the picture one pixel of the terminal stands for, along both axes.
double Scale(const PixelView& picture, int columns, int rows) {
  const double across = static_cast<double>(picture.width) / std::max(columns, 1);
  const double down = static_cast<double>(picture.height) / (2.0 * std::max(rows, 1));
  return std::max({across, down, 1.0});
}

int Scaled(int length, double scale) {
  return std::max(static_cast<int>(length / scale), 1);
}

// Nothing is drawn below the picture's last row.
Colour At(const PixelView& picture, double scale, int x, int y, int height) {
  if (y >= height) return {};
  const auto along = [&](int at, int length) {
    return std::min(static_cast<int>((at + 0.5) * scale), length - 1);
  };
  const std::size_t pixel =
      static_cast<std::size_t>(along(y, picture.height)) * static_cast<std::size_t>(picture.width) +
      static_cast<std::size_t>(along(x, picture.width));
  Colour colour;
  std::memcpy(&colour, picture.pixels + 4 * pixel, sizeof colour);
  return colour;
}

void SetColour(std::string& out, const char* layer, const Colour& colour) {
  out += "\033[";
  out += layer;
  if (colour.IsDrawn()) {
    out += "8;2;" + std::to_string(colour.red) + ";" + std::to_string(colour.green) + ";" +
           std::to_string(colour.blue) + "m";
  } else {
    out += "9m";
  }
}

// Writes characters and changes colours only where they change.
class Line {
 public:
  explicit Line(std::string& out) : out_(out) {}

  void Put(const Colour& top, const Colour& bottom) {
    if (!top.IsDrawn() && !bottom.IsDrawn()) {
      Use(fore_, {});
      out_ += ' ';
    } else if (top.IsDrawn()) {
      Use(top, bottom);
      out_ += kUpperHalf;
    } else {
      Use(bottom, {});
      out_ += kLowerHalf;
    }
  }

 private:
  void Use(const Colour& fore, const Colour& back) {
    if (!(fore == fore_)) SetColour(out_, "3", fore_ = fore);
    if (!(back == back_)) SetColour(out_, "4", back_ = back);
  }

  std::string& out_;
  Colour fore_{};
  Colour back_{};
};

}  // namespace

std::string HalfBlocks(const PixelView& picture, int columns, int rows) {
  std::string out;
  if (picture.width <= 0 || picture.height <= 0) return out;
  const double scale = Scale(picture, columns, rows);
  const int width = Scaled(picture.width, scale);
  const int height = Scaled(picture.height, scale);
  for (int y = 0; y < height; y += 2) {
    Line line(out);
    for (int x = 0; x < width; ++x) {
      line.Put(At(picture, scale, x, y, height), At(picture, scale, x, y + 1, height));
    }
    out += "\033[0m\n";
  }
  return out;
}

}  // namespace qvx::tool
