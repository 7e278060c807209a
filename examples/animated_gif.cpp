// An animated GIF, frame by frame: how large it is, how long each frame stays, and the composed
// pictures. Plays FILE, or a ball of its own drawing (-); writes bitmap files where DIR is given:
//   example_animated_gif [FILE|- [DIR]]
#include <qvx/bitmap_file.h>
#include <qvx/gif_decoder.h>
#include <qvx/platform.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace {

constexpr int kWidth = 160;
constexpr int kHeight = 120;
constexpr int kBall = 40;
constexpr int kFrames = 8;

void Put16(std::string& out, int value) {
  out += static_cast<char>(value);
  out += static_cast<char>(value >> 8);
}

// Pixels below 128 as codes of 8 bits each: the code 128 starts the dictionary anew before codes
// would get longer.
std::string Codes(const std::string& pixels) {
  std::string codes;
  for (std::size_t i = 0; i < pixels.size(); i += 126) codes += '\x80' + pixels.substr(i, 126);
  return codes + '\x81';
}

// A frame with its control: disposal 1 keeps it, 3 goes back to what was kept. Index 0 is clear.
void PutFrame(std::string& out, int disposal, int left, int top, int width,
              const std::string& pixels) {
  out += std::string("!\xF9\4", 3) + static_cast<char>(disposal << 2 | 1);
  Put16(out, 8);  // hundredths of a second
  out += std::string("\0\0,", 3);
  for (int value : {left, top, width, static_cast<int>(pixels.size()) / width}) Put16(out, value);
  out += std::string("\0\7", 2);
  const std::string codes = Codes(pixels);
  for (std::size_t i = 0; i < codes.size(); i += 255) {
    const std::string block = codes.substr(i, 255);
    out += static_cast<char>(block.size()) + block;
  }
  out += '\0';
}

std::string Background() {
  std::string pixels;
  for (int i = 0; i < kWidth * kHeight; ++i) {
    pixels += static_cast<char>(1 + 62 * (i / kWidth) / kHeight);
  }
  return pixels;
}

std::string Ball() {
  std::string pixels;
  for (int i = 0; i < kBall * kBall; ++i) {
    const int row = i / kBall;
    const int column = i % kBall;
    const double x = (column - 19.5) / 20;
    const double y = (row - 19.5) / 20;
    const double light = 1 - std::hypot(x + 0.3, y + 0.3) / 1.5;
    pixels += static_cast<char>(std::hypot(x, y) > 1 ? 0 : 64 + light * 63);
  }
  return pixels;
}

// 128 colours: a sky from dark to bright, and an orange from dark to bright.
std::string Drawing() {
  std::string out = "GIF89a";
  Put16(out, kWidth);
  Put16(out, kHeight);
  out += std::string("\xE6\0\0", 3);
  for (int i = 0; i < 64; ++i) out += {char(20 + i), char(40 + 2 * i), char(90 + 2 * i)};
  for (int i = 0; i < 64; ++i) out += {char(64 + 3 * i), char(20 + 3 * i), char(i)};
  PutFrame(out, 1, 0, 0, kWidth, Background());
  for (int i = 0; i + 1 < kFrames; ++i) {
    const int top = static_cast<int>(76 - 70 * std::sin(i * 0.52));
    PutFrame(out, 3, 6 + 18 * i, top, kBall, Ball());
  }
  return out + ";";
}

std::string Bytes(const std::string& path) {
  if (path == "-") return Drawing();
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The canvas has its first row at the top, and holds B, G, R and alpha.
void Save(const CGifDecoder& decoder, const std::string& native) {
  CBaseStringA path;
  NativePathToLibraryA(native.c_str(), &path);
  SaveRgbBufferToBmpFileV5(decoder.GetGifFrameBuffer(), decoder.GetGifWidth(),
                           -decoder.GetGifHeight(), 32, decoder.GetGifWidth() * 4, 0xFF0000, 0xFF00,
                           0xFF, 0xFF000000, nullptr, 0, path.GetString());
}

}  // namespace

int main(int argc, char** argv) {
  const std::string bytes = Bytes(argc > 1 ? argv[1] : "-");
  CGifDecoder decoder;
  if (!decoder.LoadFromGifData(reinterpret_cast<const unsigned char*>(bytes.data()),
                               static_cast<int>(bytes.size())) ||
      decoder.GetGifFrameBuffer() == nullptr) {
    std::fprintf(stderr, "this is no GIF that can be shown\n");
    return 1;
  }
  std::printf("%d x %d, %d frames\n", decoder.GetGifWidth(), decoder.GetGifHeight(),
              decoder.GetFrameCount());
  for (int i = 0; i < decoder.GetFrameCount(); ++i) {
    decoder.DecNextFrame(false);
    const unsigned char* middle =
        decoder.GetGifFrameBuffer() +
        4 * (decoder.GetGifHeight() / 2 * decoder.GetGifWidth() + decoder.GetGifWidth() / 2);
    std::printf("frame %d: %d ms, the middle is #%02x%02x%02x\n", i, decoder.GetDelayTimeMS(),
                middle[2], middle[1], middle[0]);
    if (argc > 2) Save(decoder, std::string(argv[2]) + "/frame_" + std::to_string(i) + ".bmp");
  }
  return argc > 1 || decoder.GetFrameCount() == kFrames ? 0 : 1;
}
