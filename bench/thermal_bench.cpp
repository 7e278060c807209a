#include <benchmark/benchmark.h>

#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <vector>

#include "qvx/colour_model.h"
#include "qvx/thermal.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kPixels = kWidth * kHeight;
constexpr double kLeast = 15.0;
constexpr double kMost = 45.0;

// Temperatures, as of a scene with noise.
const std::vector<double>& Data() {
  static const std::vector<double> data = [] {
    std::mt19937 random(75);
    std::normal_distribution<double> noise(0.0, 0.5);
    std::vector<double> values(kPixels);
    for (int i = 0; i < kPixels; ++i) {
      values[static_cast<std::size_t>(i)] = 14.0 + (i % kWidth) * 32.0 / kWidth + noise(random);
    }
    return values;
  }();
  return data;
}

void ThermalOurs(long long times) {
  static std::vector<unsigned int> pixels(kPixels);
  unsigned int table[256];
  InitHotImageColorTable(table);
  for (long long i = 0; i < times; ++i) {
    ImageDataToHotImage(Data().data(), kPixels, kLeast, kMost, table, pixels.data(), nullptr);
    benchmark::DoNotOptimize(pixels.data());
  }
}

// Into matrices that are kept, on one core, with a table of the user's own.
void ThermalPeer(long long times) {
  cv::setNumThreads(1);
  const cv::Mat data(kHeight, kWidth, CV_64F, const_cast<double*>(Data().data()));
  static cv::Mat bins;
  static cv::Mat picture;
  cv::Mat table(256, 1, CV_8UC3);
  for (int i = 0; i < 256; ++i) {
    const auto level = static_cast<unsigned char>(i);
    table.at<cv::Vec3b>(i) = cv::Vec3b(0, static_cast<unsigned char>(255 - i), level);
  }
  const double scale = 256 / (kMost - kLeast);
  for (long long i = 0; i < times; ++i) {
    data.convertTo(bins, CV_8U, scale, -kLeast * scale);
    cv::applyColorMap(bins, picture, table);
    benchmark::DoNotOptimize(picture.data);
  }
}

constexpr int kColours = 4096;

std::vector<unsigned char> Colours() {
  std::mt19937 random(72);
  std::vector<unsigned char> bytes(3 * kColours);
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
  return bytes;
}

const std::vector<unsigned char>& RandomColours() {
  static const std::vector<unsigned char> colours = Colours();
  return colours;
}

using ToModel = void (*)(const unsigned char* colour, double* model);
using FromModel = void (*)(const double* model, unsigned char* colour);

void ToHsv(const unsigned char* c, double* m) {
  RGBToHSV(c[0], c[1], c[2], &m[0], &m[1], &m[2]);
}
void FromHsv(const double* m, unsigned char* c) {
  HSVToRGB(m[0], m[1], m[2], &c[0], &c[1], &c[2]);
}
void ToHls(const unsigned char* c, double* m) {
  RGBToHLS(&m[0], &m[1], &m[2], c[0], c[1], c[2]);
}
void FromHls(const double* m, unsigned char* c) {
  HLSToRGB(&c[0], &c[1], &c[2], m[0], m[1], m[2]);
}

template <ToModel Convert>
void ModelOf(long long times) {
  double model[3];
  for (long long i = 0; i < times; ++i) {
    for (std::size_t at = 0; at < RandomColours().size(); at += 3) {
      Convert(RandomColours().data() + at, model);
      benchmark::DoNotOptimize(model);
    }
  }
}

template <ToModel Prepare, FromModel Convert>
void ColourOf(long long times) {
  std::vector<double> models(3 * kColours);
  for (std::size_t at = 0; at < models.size(); at += 3) {
    Prepare(RandomColours().data() + at, models.data() + at);
  }
  unsigned char colour[3];
  for (long long i = 0; i < times; ++i) {
    for (std::size_t at = 0; at < models.size(); at += 3) {
      Convert(models.data() + at, colour);
      benchmark::DoNotOptimize(colour);
    }
  }
}

constexpr double kMega = kColours / 1e6;

const bool kAdded = AddPair({"thermal 1920x1080", 1 / 1.2, &ThermalOurs, &ThermalPeer}) &&
                    AddRate({"colour RGB to HSV", "Mpixel", kMega, &ModelOf<&ToHsv>}) &&
                    AddRate({"colour HSV to RGB", "Mpixel", kMega, &ColourOf<&ToHsv, &FromHsv>}) &&
                    AddRate({"colour RGB to HLS", "Mpixel", kMega, &ModelOf<&ToHls>}) &&
                    AddRate({"colour HLS to RGB", "Mpixel", kMega, &ColourOf<&ToHls, &FromHls>});

}  // namespace
}  // namespace qvx::bench
