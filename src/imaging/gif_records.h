// Steps through the records of a GIF stream: images and extensions.
#pragma once

#include <gif_lib.h>

namespace qvx::imaging {

// What graphic control extensions say of the image behind them.
struct GifControl {
  int disposal = 0;
  int transparent = -1;  // index of the colour, -1 for none
  int delay_ms = -1;     // -1 where none was given
};

// Reads the extension that a record type has announced, up to its end, and takes into control
// what it says if it is a graphic control extension. False if the stream fails inside; control
// may have been set by then.
bool ReadGifExtension(GifFileType* file, GifControl& control);

// Reads the description of the image that a record type has announced. Keeps nothing of it but
// what file->Image holds: giflib's own list of images would grow with the animation.
bool ReadGifImage(GifFileType* file);

// Goes to the next image and reads its description. False if the stream ends or fails first.
bool FindGifImage(GifFileType* file, GifControl& control);

// Passes over the compressed pixels of the image whose description was read last.
bool SkipGifPixels(GifFileType* file);

}  // namespace qvx::imaging
