// Raw pixel buffers as BMP files, and as bitmap objects.
//
// A buffer is rows of pixels, srcPitch bytes from one row to the next in memory; a negative pitch
// steps back from the row that buffer points to, and a pitch of 0 stands on one row for all. A
// row of the file holds rowBytes = (|width| * bitCount + 31) / 32 * 4 bytes: those of the row in
// memory, as many as rowBytes and |srcPitch| allow, and behind them its first bytes again until
// it is full. bitCount is 1 to 64. Colour tables have 4 bytes an entry: blue, green, red, 0.
//
// The file writers give no result. A file appears under its name when it is complete, in place of
// a file or link that stood there; after a failure (a null buffer or path, sizes that a BMP
// file's 32-bit fields don't hold, a path that can't be written, a full disk) what stood there
// stays. paths are narrow library paths. No state but the bitmap objects, which any thread may
// use; all calls may block for the disk. Format: the Windows device-independent bitmap, with an
// info header of version 3 (40 bytes) or 5 (124 bytes).
#pragma once

#include "qvx/types.h"

extern "C" {

// A file with the 40-byte header, in which row 0 of the buffer is the top of the picture: with a
// positive height the rows come in the order of memory, else from the last to the first.
//
// palette holds paletteCount entries: the colour table, or for 16 and 32 bits the masks of the
// three components. It counts as given if it is not null and paletteCount is above 0. Without
// one, a picture of 8 bits or less gets a grey ramp of 1 << bitCount entries.
QVX_API void SaveRgbBufferToBmpFile(const unsigned char* buffer, int width, int height,
                                    int bitCount, int srcPitch, const void* palette,
                                    int paletteCount, const char* path);

// A file with the 124-byte header, which gives the four component masks. The picture is always
// stored from the bottom up: with a positive height row 0 of the buffer is the lowest row of the
// picture, with a negative one its top. palette as above, but never made.
QVX_API void SaveRgbBufferToBmpFileV5(const unsigned char* buffer, int width, int height,
                                      int bitCount, int srcPitch, unsigned int redMask,
                                      unsigned int greenMask, unsigned int blueMask,
                                      unsigned int alphaMask, const void* palette, int paletteCount,
                                      const char* path);

// The same for 16-bit pixels with 5 bits of red (the highest), 6 of green and 5 of blue.
QVX_API void SaveRgb565BufferToBmpFile(const unsigned char* buffer, int width, int height,
                                       int srcPitch, const char* path);

// Makes a bitmap object: an info header as SaveRgbBufferToBmpFile writes it, with its colour table
// or masks, and |height| rows of rowBytes bytes. If bits is given and *bits is not null, the pixels
// are copied from there; if *bits is null, it gets the address of the object's own pixels, which
// are then all 0. Returns null, with *bits as it was, for a bitCount other than 1, 4, 8, 16, 24 or
// 32, for a width or height of 0, and where the memory can't be had or would be 4 GiB or more. The
// caller owns the object; ReadHBitmap and FreeHBitmap of platform.h look into it and free it.
QVX_API HBITMAP CreateHBitmap(void** bits, int width, int height, int bitCount, const void* palette,
                              int paletteCount);

}  // extern "C"
