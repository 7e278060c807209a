// The loops over one row (or two) that all conversions of pictures are made of, in a plain form,
// which is the rule, and in wide forms with the same results, one of which is chosen for the
// processor. No loop touches a byte outside the pixels that it is given.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvx::imaging {

// The first field of a word is the low one.
enum RgbLayout : std::size_t { kRgb888, kRgb565, kRgb555, kRgbLayouts };

struct YuvSource {
  const std::uint8_t* y;
  const std::uint8_t* u;
  const std::uint8_t* v;
};

struct YuvTarget {
  std::uint8_t* y;
  std::uint8_t* u;
  std::uint8_t* v;
};

// bgr tells that blue is the first component in memory or the low field, else red is.
struct ColourRows {
  // Each chroma sample serves two pixels (pairs) or one.
  void (*pairs_to_rgb[kRgbLayouts])(YuvSource, std::size_t pairs, bool bgr, std::uint8_t* out);
  void (*pixels_to_rgb[kRgbLayouts])(YuvSource, std::size_t pixels, bool bgr, std::uint8_t* out);

  // Y0, C0, Y1, C1; C0 is V with v_first.
  void (*packed_to_rgb888)(const std::uint8_t* in, std::size_t pairs, bool v_first, bool bgr,
                           std::uint8_t* out);
  void (*packed_to_argb)(const std::uint8_t* in, std::size_t pairs, bool v_first,
                         const std::uint8_t* alpha, std::uint8_t* out);

  void (*rgb_to_pixels[kRgbLayouts])(const std::uint8_t* in, std::size_t pixels, bool bgr,
                                     YuvTarget out);
  void (*rgb_to_pairs[kRgbLayouts])(const std::uint8_t* in, std::size_t pairs, bool bgr,
                                    YuvTarget out);
  // Two rows, one row of chroma; the lower row's luma goes to lower_y.
  void (*rgb_to_blocks[kRgbLayouts])(const std::uint8_t* upper, const std::uint8_t* lower,
                                     std::size_t blocks, bool bgr, YuvTarget out,
                                     std::uint8_t* lower_y);
};

struct RepackRows {
  void (*split_packed)(const std::uint8_t* in, std::size_t pairs, YuvTarget out);
  void (*luma_of_packed)(const std::uint8_t* in, std::size_t pairs, std::uint8_t* y);
  void (*join_packed)(YuvSource in, std::size_t pairs, std::uint8_t* out);
  void (*split_two)(const std::uint8_t* in, std::size_t count, std::uint8_t* even,
                    std::uint8_t* odd);
  void (*join_two)(const std::uint8_t* even, const std::uint8_t* odd, std::size_t count,
                   std::uint8_t* out);
  // (a + b) / 2, cut to an integer.
  void (*average)(const std::uint8_t* a, const std::uint8_t* b, std::size_t count,
                  std::uint8_t* out);

  // [from][to]; null for a layout to itself. With swap the first and the third component change
  // places. Between words, out may be in.
  void (*rgb[kRgbLayouts][kRgbLayouts])(const std::uint8_t* in, std::size_t pixels, bool swap,
                                        std::uint8_t* out);
};

extern const ColourRows kPlainColourRows;
extern const RepackRows kPlainRepackRows;

// The fastest forms for this processor.
const ColourRows& BestColourRows();
const RepackRows& BestRepackRows();

// The fastest that need no vectors of more than 256 bits.
const ColourRows& ColourRowsUpTo256();

}  // namespace qvx::imaging
