#include <benchmark/benchmark.h>
#include <gif_lib.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "qvx/gif_decoder.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr int kSide = 500;
constexpr int kFrames = 60;
constexpr int kTransparent = 255;

int Append(GifFileType* file, const GifByteType* bytes, int count) {
  static_cast<std::string*>(file->UserData)
      ->append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count));
  return count;
}

struct Source {
  const std::string* bytes;
  std::size_t at;
};

int Take(GifFileType* file, GifByteType* bytes, int count) {
  auto* source = static_cast<Source*>(file->UserData);
  const std::size_t taken =
      std::min(static_cast<std::size_t>(count), source->bytes->size() - source->at);
  std::memcpy(bytes, source->bytes->data() + source->at, taken);
  source->at += taken;
  return static_cast<int>(taken);
}

// Waves that move over the screen, with a grain as pictures have; the later frames are
// transparent where the waves are low.
GifByteType Index(int frame, int x, int y) {
  const double wave = std::sin(x * 0.031 + frame * 0.2) + std::sin(y * 0.023 - frame * 0.1);
  const int grain = (x * 7 + y * 13 + frame) % 5;
  if (frame > 0 && wave < -0.5) return kTransparent;
  return static_cast<GifByteType>(120 + wave * 55 + grain);
}

void PutFrame(GifFileType* file, int frame) {
  const unsigned char control[] = {1 << 2 | 1, 4, 0, kTransparent};
  EGifPutExtension(file, GRAPHICS_EXT_FUNC_CODE, sizeof control, control);
  EGifPutImageDesc(file, 0, 0, kSide, kSide, false, nullptr);
  std::vector<GifByteType> row(kSide);
  for (int y = 0; y < kSide; ++y) {
    for (int x = 0; x < kSide; ++x) row[static_cast<std::size_t>(x)] = Index(frame, x, y);
    EGifPutLine(file, row.data(), kSide);
  }
}

const std::string& TheGif() {
  static const std::string bytes = [] {
    std::string out;
    std::vector<GifColorType> colours(256);
    for (std::size_t i = 0; i < colours.size(); ++i) {
      const auto level = static_cast<GifByteType>(i);
      colours[i] = {level, static_cast<GifByteType>(255 - level),
                    static_cast<GifByteType>(level / 2)};
    }
    ColorMapObject* map = GifMakeMapObject(256, colours.data());
    GifFileType* file = EGifOpen(&out, &Append, nullptr);
    EGifSetGifVersion(file, true);
    EGifPutScreenDesc(file, kSide, kSide, 8, 0, map);
    for (int i = 0; i < kFrames; ++i) PutFrame(file, i);
    EGifCloseFile(file, nullptr);
    GifFreeMapObject(map);
    return out;
  }();
  return bytes;
}

void PlayOurs(long long times) {
  for (long long i = 0; i < times; ++i) {
    CGifDecoder decoder;
    decoder.LoadFromGifData(reinterpret_cast<const unsigned char*>(TheGif().data()),
                            static_cast<int>(TheGif().size()));
    for (int k = 0; k < decoder.GetFrameCount(); ++k) {
      decoder.DecNextFrame(false);
      benchmark::DoNotOptimize(decoder.GetGifFrameBuffer());
      benchmark::ClobberMemory();
    }
  }
}

void Compose(const GifFileType& file, int index, std::vector<std::uint32_t>& canvas) {
  GraphicsControlBlock control;
  DGifSavedExtensionToGCB(const_cast<GifFileType*>(&file), index, &control);
  const SavedImage& image = file.SavedImages[index];
  const ColorMapObject* map =
      image.ImageDesc.ColorMap != nullptr ? image.ImageDesc.ColorMap : file.SColorMap;
  const GifByteType* pixel = image.RasterBits;
  for (int y = 0; y < image.ImageDesc.Height; ++y) {
    std::uint32_t* out = &canvas[static_cast<std::size_t>((image.ImageDesc.Top + y) * file.SWidth +
                                                          image.ImageDesc.Left)];
    for (int x = 0; x < image.ImageDesc.Width; ++x, ++pixel) {
      if (*pixel == control.TransparentColor) continue;
      const GifColorType colour = map->Colors[*pixel];
      out[x] = 0xFF000000u |
               static_cast<std::uint32_t>(colour.Red << 16 | colour.Green << 8 | colour.Blue);
    }
  }
}

void PlayPeer(long long times) {
  for (long long i = 0; i < times; ++i) {
    Source source{&TheGif(), 0};
    GifFileType* file = DGifOpen(&source, &Take, nullptr);
    DGifSlurp(file);
    std::vector<std::uint32_t> canvas(std::size_t{kSide} * kSide);
    for (int k = 0; k < file->ImageCount; ++k) {
      Compose(*file, k, canvas);
      benchmark::DoNotOptimize(canvas.data());
      benchmark::ClobberMemory();
    }
    DGifCloseFile(file, nullptr);
  }
}

// Only the pixel indices, without a canvas: what giflib's decompression alone takes.
void DecompressOnly(long long times) {
  for (long long i = 0; i < times; ++i) {
    Source source{&TheGif(), 0};
    GifFileType* file = DGifOpen(&source, &Take, nullptr);
    DGifSlurp(file);
    benchmark::DoNotOptimize(file->SavedImages);
    DGifCloseFile(file, nullptr);
  }
}

const bool kAdded =
    AddPair({"gif 500 x 500 x 60, giflib and a plain compose", 1 / 0.95, &PlayOurs, &PlayPeer}) &&
    AddRate(
        {"gif decompression by giflib alone", "Mpixel", kSide* kSide* kFrames, &DecompressOnly});

}  // namespace
}  // namespace qvx::bench
