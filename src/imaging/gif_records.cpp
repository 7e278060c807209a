#include "imaging/gif_records.h"

namespace qvx::imaging {
namespace {

constexpr unsigned char kControlLength = 4;

// bytes: flags, delay in 1/100 s with the low byte first, transparent index.
void TakeControl(const unsigned char* bytes, GifControl& control) {
  control.disposal = (bytes[0] >> 2) & 7;
  control.delay_ms = (bytes[2] * 256 + bytes[1]) * 10;
  control.transparent = (bytes[0] & 1) != 0 ? bytes[3] : -1;
}

}  // namespace

bool ReadGifExtension(GifFileType* file, GifControl& control) {
  int label = 0;
  GifByteType* block = nullptr;
  if (DGifGetExtension(file, &label, &block) != GIF_OK) return false;
  if (label == GRAPHICS_EXT_FUNC_CODE) {
    if (block == nullptr || block[0] != kControlLength) return true;
    TakeControl(block + 1, control);
  }
  while (block != nullptr) {
    if (DGifGetExtensionNext(file, &block) != GIF_OK) return false;
  }
  return true;
}

bool ReadGifImage(GifFileType* file) {
  if (DGifGetImageDesc(file) != GIF_OK) return false;
  GifFreeSavedImages(file);
  file->ImageCount = 0;
  return true;
}

bool FindGifImage(GifFileType* file, GifControl& control) {
  GifRecordType type = UNDEFINED_RECORD_TYPE;
  while (DGifGetRecordType(file, &type) == GIF_OK) {
    if (type == IMAGE_DESC_RECORD_TYPE) return ReadGifImage(file);
    if (type == EXTENSION_RECORD_TYPE && !ReadGifExtension(file, control)) return false;
  }
  return false;
}

bool SkipGifPixels(GifFileType* file) {
  int code_size = 0;
  GifByteType* block = nullptr;
  if (DGifGetCode(file, &code_size, &block) != GIF_OK) return false;
  while (block != nullptr) {
    if (DGifGetCodeNext(file, &block) != GIF_OK) return false;
  }
  return true;
}

}  // namespace qvx::imaging
