// A camera's frame to a picture: what a camera delivers as packed 4:2:2 becomes RGB and a BMP
// file, and planar 4:2:0, as an encoder takes it.
//   example_camera_frame [FILE.bmp]
#include <qvx/bitmap_file.h>
#include <qvx/pixel_format.h>
#include <qvx/platform.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <vector>

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr int kRowBytes = 3 * kWidth;
using Bytes = std::vector<unsigned char>;

struct Colour {
  unsigned char r, g, b;
};

// What the camera sees: colour bars, a ramp of grey below them, and a ball in front.
Colour SceneAt(int x, int y) {
  const double dx = x - 160.0;
  const double dy = y - 130.0;
  const double distance = std::sqrt(dx * dx + dy * dy);
  if (distance < 60) {
    const double light = 1.0 - std::sqrt((dx + 20) * (dx + 20) + (dy + 20) * (dy + 20)) / 95;
    return {static_cast<unsigned char>(255 * light), static_cast<unsigned char>(120 * light),
            static_cast<unsigned char>(40 * light)};
  }
  if (y >= 180) {
    const auto grey = static_cast<unsigned char>(x * 255 / (kWidth - 1));
    return {grey, grey, grey};
  }
  const int bar = 7 - x * 8 / kWidth;
  const auto level = [bar](int bit) {
    return static_cast<unsigned char>((bar & bit) != 0 ? 191 : 0);
  };
  return {level(2), level(4), level(1)};
}

// A frame of 4 bytes for two pixels side by side: Y0, U, Y1, V.
Bytes CameraFrame() {
  Bytes frame(2 * kWidth * kHeight);
  unsigned char* out = frame.data();
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; x += 2, out += 4) {
      const Colour left = SceneAt(x, y);
      const Colour right = SceneAt(x + 1, y);
      unsigned char u = 0;
      unsigned char v = 0;
      RGBToYUV(right.r, right.g, right.b, &out[2], &u, &v);
      RGBToYUV(left.r, left.g, left.b, &out[0], &out[1], &out[3]);
    }
  }
  return frame;
}

// The greatest difference of any component: conversions round.
int Difference(const Bytes& left, const Bytes& right) {
  int greatest = 0;
  for (std::size_t i = 0; i < left.size(); ++i) {
    greatest = std::max(greatest, std::abs(left[i] - right[i]));
  }
  return greatest;
}

}  // namespace

int main(int argc, char** argv) {
  const char* file = argc > 1 ? argv[1] : "camera_frame.bmp";
  const Bytes frame = CameraFrame();
  Bytes picture(kRowBytes * kHeight);
  YUY2ToRGB888(kWidth, kHeight, frame.data(), picture.data(), kRowBytes, 1);

  CBaseStringA path;
  NativePathToLibraryA(file, &path);
  SaveRgbBufferToBmpFile(picture.data(), kWidth, kHeight, 24, kRowBytes, nullptr, 0,
                         path.GetString());
  if (std::filesystem::file_size(file) != 54 + picture.size()) return 1;

  // The planar frame takes chroma from every second row only, so edges may differ.
  Bytes planar(kWidth * kHeight * 3 / 2);
  Bytes again(picture.size());
  YUYV422ToYUV420(kWidth, kHeight, frame.data(), planar.data(), 0);
  YUV420ToRGB888(kWidth, kHeight, planar.data(), 0, again.data(), kRowBytes, 1);
  const std::size_t bars = kRowBytes * 60;  // above the ball, where rows are alike
  const int difference = Difference(Bytes(picture.begin(), picture.begin() + bars),
                                    Bytes(again.begin(), again.begin() + bars));
  std::printf("%s: %d x %d; through 4:2:0 the colour bars differ by %d\n", file, kWidth, kHeight,
              difference);
  return difference == 0 ? 0 : 1;
}
