#include "pixel_layout.h"

#include <qvx/pixel_format.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <utility>

#include "command.h"
#include "text.h"

namespace qvx::tool {
namespace {

constexpr std::size_t kLayouts = static_cast<std::size_t>(Layout::kCount);
constexpr std::size_t kMostPixels = std::size_t{1} << 29;

struct LayoutFacts {
  const char* name;
  int quarters;  // of a byte, for one pixel
  bool pairs_columns;
  bool pairs_rows;
};

constexpr std::array<LayoutFacts, kLayouts> kFacts{{
    {"RGB888", 12, false, false},
    {"RGB565", 8, false, false},
    {"RGB555", 8, false, false},
    {"ARGB32", 16, false, false},
    {"YUV420", 6, true, true},
    {"YUV422", 8, true, false},
    {"YUV444", 12, false, false},
    {"YUV420SP", 6, true, true},
    {"YUYV", 8, true, false},
    {"YUY2", 8, true, false},
    {"YVY2", 8, true, false},
}};

const LayoutFacts& FactsOf(Layout layout) {
  return kFacts[static_cast<std::size_t>(layout)];
}

constexpr int BytesPerPixel(Layout layout) {
  return kFacts[static_cast<std::size_t>(layout)].quarters / 4;
}

int RowBytes(const Picture& picture) {
  return picture.width * BytesPerPixel(picture.layout);
}

// One conversion of the library, as a step from picture to picture of the same size.
using Step = void (*)(const Picture& from, Picture& to);

// The families of the library's functions by their arguments. The order of components is always
// the common one: U before V, blue before red in memory.
template <void (*kFunction)(int, int, const void*, void*, int, int, int)>
void FromRgb(const Picture& from, Picture& to) {
  kFunction(from.width, from.height, from.bytes.data(), to.bytes.data(), 0, RowBytes(from), 1);
}

template <void (*kFunction)(int, int, const void*, int, void*, int, int)>
void ToRgb(const Picture& from, Picture& to) {
  kFunction(from.width, from.height, from.bytes.data(), 0, to.bytes.data(), RowBytes(to), 1);
}

template <void (*kFunction)(int, int, const void*, void*, int, int)>
void PackedToRgb(const Picture& from, Picture& to) {
  kFunction(from.width, from.height, from.bytes.data(), to.bytes.data(), RowBytes(to), 1);
}

// Opaque: the same row of alpha serves all.
template <void (*kFunction)(int, int, const void*, void*, int, int, const unsigned char*, int)>
void PackedToArgb(const Picture& from, Picture& to) {
  const std::vector<unsigned char> alpha(static_cast<std::size_t>(from.width), 255);
  kFunction(from.width, from.height, from.bytes.data(), to.bytes.data(), RowBytes(to), 1,
            alpha.data(), 0);
}

template <void (*kFunction)(int, int, const void*, void*, int, int, int)>
void RgbToRgb(const Picture& from, Picture& to) {
  kFunction(from.width, from.height, from.bytes.data(), to.bytes.data(), RowBytes(from),
            RowBytes(to), 0);
}

template <void (*kFunction)(int, int, const void*, int, void*), int kSwap>
void SwapFirst(const Picture& from, Picture& to) {
  kFunction(from.width, from.height, from.bytes.data(), kSwap, to.bytes.data());
}

template <void (*kFunction)(int, int, const void*, void*, int), int kSwap>
void SwapLast(const Picture& from, Picture& to) {
  kFunction(from.width, from.height, from.bytes.data(), to.bytes.data(), kSwap);
}

template <void (*kFunction)(int, int, const void*, int, void*, int)>
void SwapBoth(const Picture& from, Picture& to) {
  kFunction(from.width, from.height, from.bytes.data(), 0, to.bytes.data(), 0);
}

// Gives an opaque alpha, or drops it: the library has alpha only behind packed YUV.
void CopyColours(const Picture& from, Picture& to) {
  const auto source = static_cast<std::size_t>(BytesPerPixel(from.layout));
  const auto target = static_cast<std::size_t>(BytesPerPixel(to.layout));
  std::fill(to.bytes.begin(), to.bytes.end(), 255);
  const unsigned char* pixel = from.bytes.data();
  for (std::size_t at = 0; at < to.bytes.size(); at += target, pixel += source) {
    std::copy_n(pixel, 3, to.bytes.data() + at);
  }
}

void CopyAll(const Picture& from, Picture& to) {
  to.bytes = from.bytes;
}

struct Edge {
  Layout from;
  Layout to;
  Step step;
};

using enum Layout;

constexpr Edge kEdges[] = {
    {kRgb888, kArgb32, &CopyColours},
    {kArgb32, kRgb888, &CopyColours},
    {kYuyv, kYuy2, &CopyAll},
    {kYuy2, kYuyv, &CopyAll},
    {kRgb565, kRgb555, &RgbToRgb<&RGB565ToRGB555>},
    {kRgb555, kRgb565, &RgbToRgb<&RGB555ToRGB565>},
    {kRgb888, kRgb565, &RgbToRgb<&RGB888ToRGB565>},
    {kRgb565, kRgb888, &RgbToRgb<&RGB565ToRGB888>},
    {kRgb888, kRgb555, &RgbToRgb<&RGB888ToRGB555>},
    {kRgb555, kRgb888, &RgbToRgb<&RGB555ToRGB888>},
    {kYuv422, kYuyv, &SwapFirst<&YUVToYUYV_422, 0>},
    {kYuv422, kYuy2, &SwapFirst<&YUVToYUYV_422, 0>},
    {kYuv422, kYvy2, &SwapFirst<&YUVToYUYV_422, 1>},
    {kYuyv, kYuv422, &SwapLast<&YUYVToYUV_422, 0>},
    {kYuy2, kYuv422, &SwapLast<&YUYVToYUV_422, 0>},
    {kYvy2, kYuv422, &SwapLast<&YUYVToYUV_422, 1>},
    {kYuyv, kYuv420, &SwapLast<&YUYV422ToYUV420, 0>},
    {kYuy2, kYuv420, &SwapLast<&YUYV422ToYUV420, 0>},
    {kYvy2, kYuv420, &SwapLast<&YUYV422ToYUV420, 1>},
    {kYuv422, kYuv420, &SwapBoth<&YUV422ToYUV420>},
    {kYuv420, kYuv422, &SwapBoth<&YUV420ToYUV422>},
    {kYuv420Sp, kYuv420, &SwapLast<&YUV420SPToYUV420, 0>},
    {kYuv420, kYuv420Sp, &SwapFirst<&YUV420ToYUV420SP, 0>},
    {kYuyv, kRgb888, &PackedToRgb<&YUY2ToRGB888>},
    {kYuy2, kRgb888, &PackedToRgb<&YUY2ToRGB888>},
    {kYvy2, kRgb888, &PackedToRgb<&YVY2ToRGB888>},
    {kYuyv, kArgb32, &PackedToArgb<&YUY2ToARGB32>},
    {kYuy2, kArgb32, &PackedToArgb<&YUY2ToARGB32>},
    {kYvy2, kArgb32, &PackedToArgb<&YVY2ToARGB32>},
    {kYuv420, kRgb888, &ToRgb<&YUV420ToRGB888>},
    {kYuv420, kRgb565, &ToRgb<&YUV420ToRGB565>},
    {kYuv420, kRgb555, &ToRgb<&YUV420ToRGB555>},
    {kYuv422, kRgb888, &ToRgb<&YUV422ToRGB888>},
    {kYuv422, kRgb565, &ToRgb<&YUV422ToRGB565>},
    {kYuv422, kRgb555, &ToRgb<&YUV422ToRGB555>},
    {kYuv444, kRgb888, &ToRgb<&YUV444ToRGB888>},
    {kYuv444, kRgb565, &ToRgb<&YUV444ToRGB565>},
    {kRgb888, kYuv420, &FromRgb<&RGB888ToYUV420>},
    {kRgb565, kYuv420, &FromRgb<&RGB565ToYUV420>},
    {kRgb555, kYuv420, &FromRgb<&RGB555ToYUV420>},
    {kRgb888, kYuv422, &FromRgb<&RGB888ToYUV422>},
    {kRgb565, kYuv422, &FromRgb<&RGB565ToYUV422>},
    {kRgb555, kYuv422, &FromRgb<&RGB555ToYUV422>},
    {kRgb888, kYuv444, &FromRgb<&RGB888ToYUV444>},
    {kRgb565, kYuv444, &FromRgb<&RGB565ToYUV444>},
    {kRgb555, kYuv444, &FromRgb<&RGB555ToYUV444>},
};

// The steps of a shortest way, found from its end.
std::vector<const Edge*> FindWay(Layout from, Layout to) {
  std::array<const Edge*, kLayouts> next{};  // towards the end
  std::deque<Layout> open{to};
  while (!open.empty()) {
    const Layout reached = open.front();
    open.pop_front();
    for (const Edge& edge : kEdges) {
      const Edge*& first = next[static_cast<std::size_t>(edge.from)];
      if (edge.to != reached || edge.from == to || first != nullptr) continue;
      first = &edge;
      open.push_back(edge.from);
    }
  }
  std::vector<const Edge*> way;
  for (Layout at = from; at != to; at = way.back()->to) {
    way.push_back(next[static_cast<std::size_t>(at)]);
  }
  return way;
}

void ExchangeBytes(std::vector<unsigned char>& bytes, std::size_t step, std::size_t distance,
                   std::size_t first) {
  for (std::size_t at = first; at + distance < bytes.size(); at += step) {
    std::swap(bytes[at], bytes[at + distance]);
  }
}

// The fields of 16-bit words above and below green, which are 5 bits wide.
void ExchangeFields(std::vector<unsigned char>& bytes, unsigned high_shift) {
  for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
    const unsigned word = bytes[at] | unsigned{bytes[at + 1]} << 8;
    const unsigned green = word & ((1U << high_shift) - 32);
    const unsigned swapped = green | (word >> high_shift & 31) | (word & 31) << high_shift;
    bytes[at] = static_cast<unsigned char>(swapped & 255);
    bytes[at + 1] = static_cast<unsigned char>(swapped >> 8);
  }
}

void ExchangePlanes(Picture& picture) {
  const std::size_t luma =
      static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height);
  const auto first = picture.bytes.begin() + static_cast<std::ptrdiff_t>(luma);
  const auto second = first + (picture.bytes.end() - first) / 2;
  std::swap_ranges(first, second, second);
}

}  // namespace

const char* LayoutName(Layout layout) {
  return FactsOf(layout).name;
}

std::string LayoutNames() {
  std::string names;
  for (const LayoutFacts& facts : kFacts) names.append(names.empty() ? "" : " ").append(facts.name);
  return names;
}

Layout LayoutOf(const std::string& name) {
  for (std::size_t i = 0; i < kLayouts; ++i) {
    if (strcasecmp(name.c_str(), kFacts[i].name) == 0) return static_cast<Layout>(i);
  }
  throw CommandError("no such layout: " + name + " (there are " + LayoutNames() + ")");
}

std::size_t PictureSize(Layout layout, int width, int height) {
  const LayoutFacts& facts = FactsOf(layout);
  const auto columns = static_cast<std::size_t>(width);
  const auto rows = static_cast<std::size_t>(height);
  if (columns > kMostPixels / rows) throw CommandError("a picture of this size is too large");
  if (facts.pairs_columns && width % 2 != 0) {
    throw CommandError(std::string(facts.name) + " needs an even width");
  }
  if (facts.pairs_rows && height % 2 != 0) {
    throw CommandError(std::string(facts.name) + " needs an even height");
  }
  return columns * rows * static_cast<std::size_t>(facts.quarters) / 4;
}

Picture ConvertPicture(Picture picture, Layout to) {
  for (const Edge* edge : FindWay(picture.layout, to)) {
    Picture next{edge->to, picture.width, picture.height, {}};
    next.bytes.resize(PictureSize(edge->to, picture.width, picture.height));
    edge->step(picture, next);
    picture = std::move(next);
  }
  return picture;
}

void ExchangeOrder(Picture& picture) {
  switch (picture.layout) {
    case kRgb888:
      return ExchangeBytes(picture.bytes, 3, 2, 0);
    case kRgb565:
      return ExchangeFields(picture.bytes, 11);
    case kRgb555:
      return ExchangeFields(picture.bytes, 10);
    case kYuv420Sp:
      return ExchangeBytes(
          picture.bytes, 2, 1,
          static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height));
    case kYuv420:
    case kYuv422:
    case kYuv444:
      return ExchangePlanes(picture);
    default:
      throw CommandError(std::string(LayoutName(picture.layout)) + " has one order only");
  }
}

}  // namespace qvx::tool
