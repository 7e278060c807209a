// A field of temperatures to a false-colour picture, with the table's colours along its edge.
//   example_heat_map [FILE.bmp]
#include <qvx/bitmap_file.h>
#include <qvx/platform.h>
#include <qvx/thermal.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <vector>

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr int kScaleWidth = 20;

// Degrees on a board with two warm parts and a cold inlet.
double TemperatureAt(int x, int y) {
  const auto spot = [x, y](double at_x, double at_y, double size) {
    const double dx = (x - at_x) / size;
    const double dy = (y - at_y) / size;
    return std::exp(-(dx * dx + dy * dy));
  };
  return 28 + 0.02 * x + 42 * spot(95, 90, 45) + 25 * spot(225, 150, 60) - 16 * spot(20, 225, 70);
}

std::vector<double> Measure() {
  std::vector<double> values;
  values.reserve(kWidth * kHeight);
  for (int i = 0; i < kWidth * kHeight; ++i) {
    values.push_back(TemperatureAt(i % kWidth, i / kWidth));
  }
  return values;
}

// Colours from the warm end at the top to the cold one, over the right edge of the picture.
void DrawScale(std::vector<unsigned int>& pixels, const std::array<unsigned int, 256>& table) {
  for (int y = 0; y < kHeight; ++y) {
    const auto entry = static_cast<std::size_t>(255 - y * 255 / (kHeight - 1));
    const auto end = pixels.begin() + (y + 1) * kWidth;
    std::fill(end - kScaleWidth - 2, end - kScaleWidth, 0xFF000000);
    std::fill(end - kScaleWidth, end, table[entry]);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const char* file = argc > 1 ? argv[1] : "heat_map.bmp";
  const std::vector<double> values = Measure();
  const auto [coldest, warmest] = std::minmax_element(values.begin(), values.end());

  // From blue to red, through green and yellow.
  std::array<unsigned int, 256> table;
  InitHotImageColorTable2(table.data(), 0xFF0000, 0x0000FF);
  std::vector<unsigned int> pixels(values.size());
  std::vector<unsigned char> bins(values.size());
  ImageDataToHotImage(values.data(), kWidth * kHeight, *coldest, *warmest, table.data(),
                      pixels.data(), bins.data());
  DrawScale(pixels, table);

  CBaseStringA path;
  NativePathToLibraryA(file, &path);
  SaveRgbBufferToBmpFile(reinterpret_cast<const unsigned char*>(pixels.data()), kWidth, kHeight, 32,
                         4 * kWidth, nullptr, 0, path.GetString());
  std::printf("%s: %.1f to %.1f degrees\n", file, *coldest, *warmest);
  const bool warm_is_last = bins[static_cast<std::size_t>(warmest - values.begin())] == 255;
  return warm_is_last && std::filesystem::file_size(file) == 54 + 4 * pixels.size() ? 0 : 1;
}
