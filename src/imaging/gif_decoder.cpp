#include "qvx/gif_decoder.h"

#include <gif_lib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "imaging/gif_records.h"

namespace {

using qvx::imaging::GifControl;

constexpr int kDefaultDelayMs = 100;

// 256 MiB of canvas, and as much to restore from, for a claim of four bytes in the file.
constexpr std::size_t kMostPixels = std::size_t{1} << 26;

// The pixel of each index; 0, which no drawn pixel is, for those that draw nothing.
using Pixels = std::array<std::uint32_t, 256>;

std::uint32_t PixelOf(const GifColorType& colour, bool rgba_order) {
  const unsigned first = rgba_order ? colour.Red : colour.Blue;
  const unsigned third = rgba_order ? colour.Blue : colour.Red;
  return 0xFF000000u | third << 16 | unsigned{colour.Green} << 8 | first;
}

Pixels PixelsOf(const ColorMapObject* map, int transparent, bool rgba_order) {
  Pixels pixels{};
  if (map == nullptr) return pixels;
  const int count = std::min(map->ColorCount, static_cast<int>(pixels.size()));
  for (int i = 0; i < count; ++i) {
    if (i != transparent) pixels[static_cast<std::size_t>(i)] = PixelOf(map->Colors[i], rgba_order);
  }
  return pixels;
}

void DrawRow(const unsigned char* indices, int count, const Pixels& pixels, std::uint32_t* out) {
  for (int i = 0; i < count; ++i) {
    const std::uint32_t pixel = pixels[indices[i]];
    out[i] = pixel != 0 ? pixel : out[i];
  }
}

std::uint32_t* PixelAt(unsigned char* buffer, int pitch, int x, int y) {
  const std::ptrdiff_t offset = static_cast<std::ptrdiff_t>(y) * pitch + x;
  return static_cast<std::uint32_t*>(static_cast<void*>(buffer)) + offset;
}

struct Pass {
  int first;
  int step;
};
constexpr Pass kPlain[] = {{0, 1}};
constexpr Pass kInterlaced[] = {{0, 8}, {4, 8}, {2, 4}, {1, 2}};

// Calls draw for each row of the image, in the order of the stream, after its indices were read.
template <typename Draw>
void ReadRows(GifFileType* file, const Pass* begin, const Pass* end, unsigned char* row,
              const Draw& draw) {
  const GifImageDesc& image = file->Image;
  for (const Pass* pass = begin; pass != end; ++pass) {
    for (int y = pass->first; y < image.Height; y += pass->step) {
      if (DGifGetLine(file, row, image.Width) != GIF_OK) break;
      draw(y);
    }
  }
}

std::size_t CanvasSize(const GifFileType* file) {
  return static_cast<std::size_t>(file->SWidth) * static_cast<std::size_t>(file->SHeight) * 4;
}

}  // namespace

CGifDecoder::CGifDecoder()
    : gifFile(nullptr),
      gifData(nullptr),
      gifDataSize(0),
      gifDataPos(0),
      firstFramePos(0),
      hasTransparency(false),
      frameCount(0),
      curFrameIndex(0),
      frameBuffer(nullptr),
      backupBuffer(nullptr),
      lastDisposal(0),
      lastLeft(0),
      lastTop(0),
      lastWidth(0),
      lastHeight(0),
      delayTimeMS(kDefaultDelayMs) {}

CGifDecoder::~CGifDecoder() {
  Unload();
}

bool CGifDecoder::LoadFromGifData(const unsigned char* data, int size) {
  Unload();
  if (data == nullptr || size < 1) return false;
  gifData = new (std::nothrow) unsigned char[static_cast<std::size_t>(size)];
  if (gifData == nullptr) return false;
  std::memcpy(gifData, data, static_cast<std::size_t>(size));
  gifDataSize = size;
  if (!OpenStream()) {
    Unload();
    return false;
  }
  Gif_Statistics();
  AllocateCanvas();
  return true;
}

void CGifDecoder::Unload() {
  if (gifFile != nullptr) DGifCloseFile(gifFile, nullptr);
  delete[] gifData;
  delete[] frameBuffer;
  delete[] backupBuffer;
  gifFile = nullptr;
  gifData = frameBuffer = backupBuffer = nullptr;
  gifDataSize = gifDataPos = firstFramePos = 0;
  hasTransparency = false;
  frameCount = curFrameIndex = 0;
  SetLastFrame(0, 0, 0, 0, 0);
  delayTimeMS = kDefaultDelayMs;
}

int CGifDecoder::GetGifWidth() const {
  return gifFile != nullptr ? gifFile->SWidth : 0;
}

int CGifDecoder::GetGifHeight() const {
  return gifFile != nullptr ? gifFile->SHeight : 0;
}

void CGifDecoder::ResetGifFrameIndex() {
  gifDataPos = firstFramePos;
  curFrameIndex = 0;
}

void CGifDecoder::DecNextFrame(bool rgbaOrder) {
  if (gifFile == nullptr) return;
  gifFile->UserData = this;
  if (curFrameIndex == 0) {
    ClearCanvas();
    SetLastFrame(0, 0, 0, 0, 0);
  }
  Gif_DecFromImage(rgbaOrder);
  if (frameCount > 0) curFrameIndex = (curFrameIndex + 1) % frameCount;
  if (curFrameIndex != 0) return;
  DGifCloseFile(gifFile, nullptr);
  OpenStream();
  lastDisposal = 0;
}

int CGifDecoder::ReadData(GifFileType* file, unsigned char* bytes, int count) {
  auto* decoder = static_cast<CGifDecoder*>(file->UserData);
  const int taken = std::min(count, decoder->gifDataSize - decoder->gifDataPos);
  if (taken <= 0) return 0;
  std::memcpy(bytes, decoder->gifData + decoder->gifDataPos, static_cast<std::size_t>(taken));
  decoder->gifDataPos += taken;
  return taken;
}

bool CGifDecoder::OpenStream() {
  gifDataPos = 0;
  gifFile = DGifOpen(this, &CGifDecoder::ReadData, nullptr);
  firstFramePos = gifDataPos;
  return gifFile != nullptr;
}

void CGifDecoder::AllocateCanvas() {
  const std::size_t size = CanvasSize(gifFile);
  if (size / 4 > kMostPixels) return;
  frameBuffer = new (std::nothrow) unsigned char[size]();
  backupBuffer = new (std::nothrow) unsigned char[size]();
}

void CGifDecoder::ClearCanvas() {
  const std::size_t size = CanvasSize(gifFile);
  if (frameBuffer != nullptr) std::memset(frameBuffer, 0, size);
  if (backupBuffer != nullptr) std::memset(backupBuffer, 0, size);
}

// Decodes no pixels. After damage the counting begins anew behind it, as far as records follow.
void CGifDecoder::Gif_Statistics() {
  frameCount = 0;
  hasTransparency = false;
  const int start = gifDataPos;
  GifRecordType type = UNDEFINED_RECORD_TYPE;
  while (DGifGetRecordType(gifFile, &type) == GIF_OK && type != TERMINATE_RECORD_TYPE) {
    bool is_whole = true;
    if (type == IMAGE_DESC_RECORD_TYPE) {
      is_whole = qvx::imaging::ReadGifImage(gifFile) && qvx::imaging::SkipGifPixels(gifFile);
      ++frameCount;
    } else if (type == EXTENSION_RECORD_TYPE) {
      GifControl control;
      is_whole = qvx::imaging::ReadGifExtension(gifFile, control);
      if (control.transparent >= 0) hasTransparency = true;
    }
    if (!is_whole) frameCount = 0;
  }
  if (type != TERMINATE_RECORD_TYPE) frameCount = 0;
  gifDataPos = start;
}

void CGifDecoder::Gif_DecFromImage(bool rgbaOrder) {
  const std::size_t width = static_cast<std::size_t>(gifFile->SWidth);
  const std::unique_ptr<unsigned char[]> row(new (std::nothrow) unsigned char[width]);
  if (!row) return;
  GifControl control;
  const bool is_image = qvx::imaging::FindGifImage(gifFile, control);
  if (control.delay_ms >= 0) delayTimeMS = control.delay_ms;
  if (!is_image) {
    SetLastFrame(control.disposal, 0, 0, 0, 0);
    return;
  }
  const GifImageDesc& image = gifFile->Image;
  if (IsOnScreen(image.Left, image.Top, image.Width, image.Height)) {
    DisposeLastFrame(rgbaOrder);
    DrawFrame(control.transparent, rgbaOrder, row.get());
    if (control.disposal == DISPOSE_DO_NOT) {
      Gif_DecCopyBuf(frameBuffer, gifFile->SWidth, image.Left, image.Top, backupBuffer,
                     gifFile->SWidth, image.Left, image.Top, image.Width, image.Height);
    }
  }
  SetLastFrame(control.disposal, image.Left, image.Top, image.Width, image.Height);
}

void CGifDecoder::DrawFrame(int transparentIndex, bool rgbaOrder, unsigned char* row) {
  const GifImageDesc& image = gifFile->Image;
  if (frameBuffer == nullptr || image.Width == 0 || image.Height == 0) {
    qvx::imaging::SkipGifPixels(gifFile);
    return;
  }
  const ColorMapObject* map = image.ColorMap != nullptr ? image.ColorMap : gifFile->SColorMap;
  const Pixels pixels = PixelsOf(map, transparentIndex, rgbaOrder);
  const auto draw = [&](int y) {
    DrawRow(row, image.Width, pixels,
            PixelAt(frameBuffer, gifFile->SWidth, image.Left, image.Top + y));
  };
  if (image.Interlace) {
    ReadRows(gifFile, std::begin(kInterlaced), std::end(kInterlaced), row, draw);
  } else {
    ReadRows(gifFile, std::begin(kPlain), std::end(kPlain), row, draw);
  }
}

void CGifDecoder::DisposeLastFrame(bool rgbaOrder) {
  if (!IsOnScreen(lastLeft, lastTop, lastWidth, lastHeight)) return;
  if (lastDisposal == DISPOSE_PREVIOUS) {
    Gif_DecCopyBuf(backupBuffer, gifFile->SWidth, lastLeft, lastTop, frameBuffer, gifFile->SWidth,
                   lastLeft, lastTop, lastWidth, lastHeight);
  } else if (lastDisposal == DISPOSE_BACKGROUND) {
    Gif_DecSetColor(lastLeft, lastTop, lastWidth, lastHeight, BackgroundPixel(rgbaOrder));
  }
}

int CGifDecoder::BackgroundPixel(bool rgbaOrder) const {
  const ColorMapObject* map = gifFile->SColorMap;
  const int index = gifFile->SBackGroundColor;
  if (hasTransparency || map == nullptr || index < 0 || index >= map->ColorCount) return 0;
  return static_cast<int>(PixelOf(map->Colors[index], rgbaOrder));
}

void CGifDecoder::SetLastFrame(int disposal, int left, int top, int width, int height) {
  lastDisposal = disposal;
  lastLeft = left;
  lastTop = top;
  lastWidth = width;
  lastHeight = height;
}

bool CGifDecoder::IsOnScreen(int left, int top, int width, int height) const {
  return left + width <= gifFile->SWidth && top + height <= gifFile->SHeight;
}

// Both pitches are in pixels.
void CGifDecoder::Gif_DecCopyBuf(unsigned char* src, int srcPitch, int srcX, int srcY,
                                 unsigned char* dst, int dstPitch, int dstX, int dstY, int width,
                                 int height) {
  if (src == nullptr || dst == nullptr) return;
  for (int y = 0; y < height; ++y) {
    std::copy_n(PixelAt(src, srcPitch, srcX, srcY + y), width,
                PixelAt(dst, dstPitch, dstX, dstY + y));
  }
}

void CGifDecoder::Gif_DecSetColor(int x, int y, int width, int height, int color) {
  if (gifFile == nullptr || frameBuffer == nullptr || !IsOnScreen(x, y, width, height)) return;
  for (int i = 0; i < height; ++i) {
    std::fill_n(PixelAt(frameBuffer, gifFile->SWidth, x, y + i), width,
                static_cast<std::uint32_t>(color));
  }
}
