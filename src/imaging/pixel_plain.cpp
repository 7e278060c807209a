// The plain forms of all rows: the rule for the wide ones, which also end with them.
#include <utility>

#include "imaging/pixel_access.h"
#include "imaging/pixel_rows.h"

namespace qvx::imaging {
namespace {

template <RgbLayout kLayout>
void PutColour(Yuv from, bool bgr, std::uint8_t* at) {
  WritePixel<kLayout>(Ordered(ToRgb(from), bgr), at);
}

template <RgbLayout kLayout>
Yuv GetYuv(const std::uint8_t* at, bool bgr) {
  return ToYuv(Colour(ReadPixel<kLayout>(at), bgr));
}

template <RgbLayout kLayout>
void PairsToRgb(YuvSource in, std::size_t pairs, bool bgr, std::uint8_t* out) {
  for (std::size_t i = 0; i < 2 * pairs; ++i) {
    PutColour<kLayout>({in.y[i], in.u[i / 2], in.v[i / 2]}, bgr, out + kPixelBytes<kLayout> * i);
  }
}

template <RgbLayout kLayout>
void PixelsToRgb(YuvSource in, std::size_t pixels, bool bgr, std::uint8_t* out) {
  for (std::size_t i = 0; i < pixels; ++i) {
    PutColour<kLayout>({in.y[i], in.u[i], in.v[i]}, bgr, out + kPixelBytes<kLayout> * i);
  }
}

// The pixel at i of packed pairs.
Rgb PackedColour(const std::uint8_t* in, std::size_t i, bool v_first) {
  const std::uint8_t* pair = in + i / 2 * 4;
  return ToRgb({pair[i % 2 * 2], pair[v_first ? 3 : 1], pair[v_first ? 1 : 3]});
}

void PackedToRgb888(const std::uint8_t* in, std::size_t pairs, bool v_first, bool bgr,
                    std::uint8_t* out) {
  for (std::size_t i = 0; i < 2 * pairs; ++i) {
    WritePixel<kRgb888>(Ordered(PackedColour(in, i, v_first), bgr), out + 3 * i);
  }
}

void PackedToArgb(const std::uint8_t* in, std::size_t pairs, bool v_first,
                  const std::uint8_t* alpha, std::uint8_t* out) {
  for (std::size_t i = 0; i < 2 * pairs; ++i) {
    WritePixel<kRgb888>(Ordered(PackedColour(in, i, v_first), true), out + 4 * i);
    out[4 * i + 3] = alpha[i];
  }
}

template <RgbLayout kLayout>
void RgbToPixels(const std::uint8_t* in, std::size_t pixels, bool bgr, YuvTarget out) {
  for (std::size_t i = 0; i < pixels; ++i) {
    const Yuv pixel = GetYuv<kLayout>(in + kPixelBytes<kLayout> * i, bgr);
    out.y[i] = pixel.y;
    out.u[i] = pixel.u;
    out.v[i] = pixel.v;
  }
}

struct ChromaSum {
  unsigned u = 0;
  unsigned v = 0;
};

// Writes the luma of two pixels and adds up their chroma.
template <RgbLayout kLayout>
void AddPair(const std::uint8_t* in, bool bgr, std::uint8_t* y, ChromaSum& sum) {
  for (std::size_t i = 0; i < 2; ++i) {
    const Yuv pixel = GetYuv<kLayout>(in + kPixelBytes<kLayout> * i, bgr);
    y[i] = pixel.y;
    sum.u += pixel.u;
    sum.v += pixel.v;
  }
}

template <RgbLayout kLayout>
void RgbToPairs(const std::uint8_t* in, std::size_t pairs, bool bgr, YuvTarget out) {
  for (std::size_t i = 0; i < pairs; ++i) {
    ChromaSum sum;
    AddPair<kLayout>(in + 2 * kPixelBytes<kLayout> * i, bgr, out.y + 2 * i, sum);
    out.u[i] = LowByte(sum.u >> 1);
    out.v[i] = LowByte(sum.v >> 1);
  }
}

template <RgbLayout kLayout>
void RgbToBlocks(const std::uint8_t* upper, const std::uint8_t* lower, std::size_t blocks, bool bgr,
                 YuvTarget out, std::uint8_t* lower_y) {
  for (std::size_t i = 0; i < blocks; ++i) {
    ChromaSum sum;
    AddPair<kLayout>(upper + 2 * kPixelBytes<kLayout> * i, bgr, out.y + 2 * i, sum);
    AddPair<kLayout>(lower + 2 * kPixelBytes<kLayout> * i, bgr, lower_y + 2 * i, sum);
    out.u[i] = LowByte(sum.u >> 2);
    out.v[i] = LowByte(sum.v >> 2);
  }
}

void SplitPacked(const std::uint8_t* in, std::size_t pairs, YuvTarget out) {
  for (std::size_t i = 0; i < pairs; ++i) {
    out.y[2 * i] = in[4 * i];
    out.u[i] = in[4 * i + 1];
    out.y[2 * i + 1] = in[4 * i + 2];
    out.v[i] = in[4 * i + 3];
  }
}

void LumaOfPacked(const std::uint8_t* in, std::size_t pairs, std::uint8_t* y) {
  for (std::size_t i = 0; i < 2 * pairs; ++i) y[i] = in[2 * i];
}

void JoinPacked(YuvSource in, std::size_t pairs, std::uint8_t* out) {
  for (std::size_t i = 0; i < pairs; ++i) {
    out[4 * i] = in.y[2 * i];
    out[4 * i + 1] = in.u[i];
    out[4 * i + 2] = in.y[2 * i + 1];
    out[4 * i + 3] = in.v[i];
  }
}

void SplitTwo(const std::uint8_t* in, std::size_t count, std::uint8_t* even, std::uint8_t* odd) {
  for (std::size_t i = 0; i < count; ++i) {
    even[i] = in[2 * i];
    odd[i] = in[2 * i + 1];
  }
}

void JoinTwo(const std::uint8_t* even, const std::uint8_t* odd, std::size_t count,
             std::uint8_t* out) {
  for (std::size_t i = 0; i < count; ++i) {
    out[2 * i] = even[i];
    out[2 * i + 1] = odd[i];
  }
}

void Average(const std::uint8_t* a, const std::uint8_t* b, std::size_t count, std::uint8_t* out) {
  for (std::size_t i = 0; i < count; ++i) out[i] = LowByte((unsigned{a[i]} + b[i]) >> 1);
}

// Components carry every bit of a field, so they serve between words too.
template <RgbLayout kFrom, RgbLayout kTo>
void RgbToRgb(const std::uint8_t* in, std::size_t pixels, bool swap, std::uint8_t* out) {
  for (std::size_t i = 0; i < pixels; ++i) {
    Components pixel = ReadPixel<kFrom>(in + kPixelBytes<kFrom> * i);
    if (swap) std::swap(pixel.first, pixel.third);
    WritePixel<kTo>(pixel, out + kPixelBytes<kTo> * i);
  }
}

}  // namespace

constinit const ColourRows kPlainColourRows = {
    {&PairsToRgb<kRgb888>, &PairsToRgb<kRgb565>, &PairsToRgb<kRgb555>},
    {&PixelsToRgb<kRgb888>, &PixelsToRgb<kRgb565>, &PixelsToRgb<kRgb555>},
    &PackedToRgb888,
    &PackedToArgb,
    {&RgbToPixels<kRgb888>, &RgbToPixels<kRgb565>, &RgbToPixels<kRgb555>},
    {&RgbToPairs<kRgb888>, &RgbToPairs<kRgb565>, &RgbToPairs<kRgb555>},
    {&RgbToBlocks<kRgb888>, &RgbToBlocks<kRgb565>, &RgbToBlocks<kRgb555>}};

constinit const RepackRows kPlainRepackRows = {
    &SplitPacked,
    &LumaOfPacked,
    &JoinPacked,
    &SplitTwo,
    &JoinTwo,
    &Average,
    {{nullptr, &RgbToRgb<kRgb888, kRgb565>, &RgbToRgb<kRgb888, kRgb555>},
     {&RgbToRgb<kRgb565, kRgb888>, nullptr, &RgbToRgb<kRgb565, kRgb555>},
     {&RgbToRgb<kRgb555, kRgb888>, &RgbToRgb<kRgb555, kRgb565>, nullptr}}};

}  // namespace qvx::imaging
