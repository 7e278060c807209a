#include "canvas.h"

#include <qvx/buffer_draw.h>

#include <array>

namespace qvx::tool {
namespace {

constexpr int kDot = 2;  // pixels of a dot of the letters, each way
constexpr int kColumns = 5;

// Letters of 5 by 7 dots, a row in each number with the left dot in the highest of 5 bits.
struct Letter {
  char character;
  std::array<unsigned char, 7> rows;
};

constexpr Letter kLetters[] = {
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}},
    {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x06, 0x08, 0x10, 0x1F}},
    {'3', {0x0E, 0x11, 0x01, 0x06, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}},
    {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}},
    {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}},
    {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    {'.', {0x00, 0x00, 0x00, 0x00, 0x00, 0x0C, 0x0C}},
    {'-', {0x00, 0x00, 0x00, 0x1F, 0x00, 0x00, 0x00}},
    {'+', {0x00, 0x04, 0x04, 0x1F, 0x04, 0x04, 0x00}},
    {'e', {0x00, 0x00, 0x0E, 0x11, 0x1F, 0x10, 0x0E}},
};

const Letter* FindLetter(char character) {
  for (const Letter& letter : kLetters) {
    if (letter.character == character) return &letter;
  }
  return nullptr;
}

}  // namespace

Canvas::Canvas(int width, int height, unsigned int colour)
    : picture_{Layout::kArgb32, width, height, {}} {
  picture_.bytes.resize(PictureSize(Layout::kArgb32, width, height));
  Fill({0, 0, width, height}, colour);
}

void Canvas::Fill(RECT place, unsigned int colour) {
  DrawColorOnBuffer(colour, picture_.bytes.data(), &place, Pitch());
}

void Canvas::Stretch(RECT place, const unsigned int* pixels, int width, int height) {
  RECT source{0, 0, width, height};
  StretchBufferOnBuffer(picture_.bytes.data(), &place, Pitch(),
                        reinterpret_cast<const unsigned char*>(pixels), &source, width * 4, 4);
}

void Canvas::Write(POINT place, const std::string& text, unsigned int colour) {
  for (const char character : text) {
    const Letter* letter = FindLetter(character);
    for (int dot = 0; letter != nullptr && dot < 7 * kColumns; ++dot) {
      const int column = dot % kColumns;
      const int row = dot / kColumns;
      if ((letter->rows[static_cast<std::size_t>(row)] >> (kColumns - 1 - column) & 1) == 0)
        continue;
      const int x = place.x + column * kDot;
      const int y = place.y + row * kDot;
      Fill({x, y, x + kDot, y + kDot}, colour);
    }
    place.x += kTextWidth;
  }
}

}  // namespace qvx::tool
