// The pixel layouts by name, their sizes, and the way from one to another through the library's
// conversions.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qvx::tool {

enum class Layout {
  kRgb888,  // blue, green, red in memory
  kRgb565,
  kRgb555,
  kArgb32,
  kYuv420,
  kYuv422,
  kYuv444,
  kYuv420Sp,
  kYuyv,
  kYuy2,
  kYvy2,
  kCount
};

const char* LayoutName(Layout layout);
// All names with blanks between them.
std::string LayoutNames();
// In any case. Throws CommandError for a name that is none.
Layout LayoutOf(const std::string& name);

struct Picture {
  Layout layout;
  int width;
  int height;
  std::vector<unsigned char> bytes;
};

// Bytes of a picture. Throws CommandError where the layout can't have this size: it pairs pixels
// and the size is odd, or the picture is too large.
std::size_t PictureSize(Layout layout, int width, int height);

// By the fewest steps.
Picture ConvertPicture(Picture picture, Layout to);

// Exchanges red and blue, or U and V, in memory. Throws CommandError for layouts whose order is
// fixed.
void ExchangeOrder(Picture& picture);

}  // namespace qvx::tool
