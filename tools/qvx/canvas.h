// A picture of 32-bit pixels to draw on with the library's functions, with small text.
#pragma once

#include <qvx/types.h>

#include <string>

#include "pixel_layout.h"

namespace qvx::tool {

// The place of a text's characters, in pixels.
inline constexpr int kTextWidth = 12;
inline constexpr int kTextHeight = 14;

class Canvas {
 public:
  // Filled with one colour, as 0xFFRRGGBB. Throws CommandError for a size that is too large.
  Canvas(int width, int height, unsigned int colour);

  void Fill(RECT place, unsigned int colour);
  // Draws a picture of width by height pixels, enlarged or reduced to fill the place.
  void Stretch(RECT place, const unsigned int* pixels, int width, int height);
  // Digits, signs, points and the e of exponents; others stay blank.
  void Write(POINT place, const std::string& text, unsigned int colour);

  const Picture& Content() const { return picture_; }

 private:
  int Pitch() const { return picture_.width * 4; }

  Picture picture_;
};

}  // namespace qvx::tool
