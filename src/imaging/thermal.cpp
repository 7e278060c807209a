#include "qvx/thermal.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "imaging/thermal_index.h"
#include "qvx/colour_model.h"

namespace qvx::imaging {
namespace {

constexpr unsigned int kEntries = 256;
constexpr double kPerEntry = 0.00390625;  // 1 / 256

// A piece of values whose bins stay in the nearest cache until they are looked up.
constexpr std::size_t kPiece = 4096;

struct Hsv {
  double hue;
  double saturation;
  double value;
};

unsigned int OpaquePixel(const Hsv& colour) {
  unsigned char r;
  unsigned char g;
  unsigned char b;
  HSVToRGB(colour.hue, colour.saturation, colour.value, &r, &g, &b);
  return 0xFF000000U | unsigned{r} << 16 | unsigned{g} << 8 | b;
}

Hsv FromReference(unsigned int color) {
  Hsv result;
  RGBToHSV(color & 0xFF, color >> 8 & 0xFF, color >> 16 & 0xFF, &result.hue, &result.saturation,
           &result.value);
  return result;
}

void LookUp(const std::uint8_t* bins, std::size_t count, const unsigned int* table,
            unsigned int* pixels) {
  for (std::size_t i = 0; i < count; ++i) pixels[i] = table[bins[i]];
}

void MapPiece(const double* data, std::size_t count, BinScale scale, const unsigned int* table,
              unsigned int* pixels, std::uint8_t* bins) {
  FindBins(data, count, scale, bins);
  if (pixels != nullptr) LookUp(bins, count, table, pixels);
}

void FillFirstBin(std::size_t count, const unsigned int* table, unsigned int* pixels,
                  std::uint8_t* bins) {
  if (pixels != nullptr) std::fill_n(pixels, count, table[0]);
  if (bins != nullptr) std::memset(bins, 0, count);
}

}  // namespace
}  // namespace qvx::imaging

namespace imaging = qvx::imaging;

extern const unsigned int gCommonColorTable[5][10] = {
    {0x00F0FAFF, 0x00ADDEFF, 0x00D7EBFA, 0x00F0FFFA, 0x00FAFAFF, 0x00F5F5F5, 0x00EEF5FF, 0x00CDFFFF,
     0x00C9E6FC, 0x00FFFFFF},
    {0x0057CFE3, 0x001299FF, 0x0000D7FF, 0x0069A5DA, 0x000080FF, 0x002191ED, 0x00B3DEF5, 0x008CE6F0,
     0x0060A4F4, 0x0000FFFF},
    {0x0000FC7C, 0x00D4FF7F, 0x00D0E040, 0x0000FF7F, 0x0040913D, 0x0057C900, 0x00228B22, 0x00C9FCBD,
     0x007FFF00, 0x0000FF00},
    {0x004763FF, 0x00CBC0FF, 0x007280FA, 0x000D17E3, 0x00507FFF, 0x002222B2, 0x000045FF, 0x00DDA0DD,
     0x00407DFF, 0x000000FF},
    {0x00EBCE87, 0x00E16941, 0x00CD5A6A, 0x00FF901E, 0x00C9A133, 0x00ED9564, 0x00DEC4B0, 0x00FFF8F0,
     0x00800000, 0x00FF0000},
};

void InitHotImageColorTable(unsigned int* table) {
  if (table == nullptr) return;
  table[0] = imaging::OpaquePixel({247.5, 0.564655172413793, 0.9098039215686274});
  for (unsigned int i = 1; i < imaging::kEntries; ++i) {
    const double hue = (30600.0 - 120.0 * i) * 0.00392156862745098;
    table[i] = imaging::OpaquePixel({hue, 1.0, 1.0});
  }
}

void InitHotImageColorTable2(unsigned int* table, unsigned int color1, unsigned int color2) {
  if (table == nullptr) return;
  const imaging::Hsv from = imaging::FromReference(color1);
  const imaging::Hsv to = imaging::FromReference(color2);
  const double hue_step = (to.hue - from.hue) * imaging::kPerEntry;
  const double saturation = (from.saturation + to.saturation) * 0.5;
  const double value = (from.value + to.value) * 0.5;
  for (unsigned int i = 0; i < imaging::kEntries; ++i) {
    table[i] = imaging::OpaquePixel({i * hue_step + from.hue, saturation, value});
  }
}

void ImageDataToHotImage(const double* data, int count, double minValue, double maxValue,
                         const unsigned int* table, unsigned int* pixels, unsigned char* indices) {
  if (count < 1 || data == nullptr || (pixels == nullptr && indices == nullptr)) return;
  if (pixels != nullptr && table == nullptr) return;
  const auto size = static_cast<std::size_t>(count);
  if (maxValue == minValue) return imaging::FillFirstBin(size, table, pixels, indices);
  const imaging::BinScale scale{minValue, 1.0 / ((maxValue - minValue) * imaging::kPerEntry)};
  std::uint8_t own[imaging::kPiece];
  for (std::size_t done = 0; done < size; done += imaging::kPiece) {
    imaging::MapPiece(data + done, std::min(imaging::kPiece, size - done), scale, table,
                      pixels == nullptr ? nullptr : pixels + done,
                      indices == nullptr ? own : indices + done);
  }
}
