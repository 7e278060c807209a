// Plays whatever comes as a GIF, more than a round of it where it is short. Each pixel is either
// drawn and opaque or wholly 0, and the frame to come is one that was counted.
#include <qvx/gif_decoder.h>

#include <cstdint>
#include <cstdlib>

namespace {

constexpr std::size_t kMostPixels = 1 << 16;
constexpr int kMostFrames = 40;

void Require(bool holds) {
  if (!holds) std::abort();
}

std::size_t ClaimedPixels(const std::uint8_t* data, std::size_t size) {
  if (size < 10) return 0;
  return (data[6] | std::size_t{data[7]} << 8) * (data[8] | std::size_t{data[9]} << 8);
}

void RequireSoundPixels(const CGifDecoder& decoder, std::size_t count) {
  const unsigned char* bytes = decoder.GetGifFrameBuffer();
  Require(bytes != nullptr);
  for (std::size_t i = 0; i < count; ++i, bytes += 4) {
    Require(bytes[3] == 255 || (bytes[0] | bytes[1] | bytes[2] | bytes[3]) == 0);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::size_t pixels = ClaimedPixels(data, size);
  if (pixels > kMostPixels) return 0;
  CGifDecoder decoder;
  if (!decoder.LoadFromGifData(data, static_cast<int>(size))) return 0;
  for (int i = 0; i < kMostFrames && decoder.IsLoad(); ++i) {
    decoder.DecNextFrame(i % 2 == 0);
    RequireSoundPixels(decoder, pixels);
    Require(decoder.GetCurFrameIndex() == 0 ||
            decoder.GetCurFrameIndex() < decoder.GetFrameCount());
    if (i == decoder.GetFrameCount() + 2) decoder.ResetGifFrameIndex();
  }
  return 0;
}
