// Plays an animated GIF that is held in memory: one call a frame, each giving the whole composed
// picture on a canvas of the logical screen's size. The animation starts over without end;
// loop counts in the file are not looked at.
//
// Format: GIF89a (CompuServe, 1990). Plain text extensions draw nothing.
//
// A decoder serves one thread at a time; separate decoders share nothing. Nothing is logged.
#pragma once

#include <qvx/types.h>

struct GifFileType;

class QVX_API CGifDecoder {
 public:
  CGifDecoder();
  // Copy the fields as they stand: two owners of one GIF. Only one of them may be used further,
  // or destroyed.
  CGifDecoder(const CGifDecoder& source) = default;
  CGifDecoder& operator=(const CGifDecoder& source) = default;
  virtual ~CGifDecoder();

  // Takes a GIF of size bytes; data is copied. What was loaded before goes, whatever the result.
  // False, with nothing loaded, for a null data, a size below 1, no memory for the copy, and for
  // bytes that are no GIF or end inside its screen description. Damage further on gives true.
  //
  // A logical screen of more than 67,108,864 pixels, or one that there is no memory for, gets no
  // canvas: all goes on as usual, but GetGifFrameBuffer gives null and nothing is drawn. The
  // canvas and what disposal restores from take 4 bytes a pixel each.
  bool LoadFromGifData(const unsigned char* data, int size);
  // Frees everything; the decoder is then as new.
  void Unload();
  bool IsLoad() const { return gifFile != nullptr; }

  // Size of the logical screen in pixels; 0 when nothing is loaded.
  int GetGifWidth() const;
  int GetGifHeight() const;
  // Number of frames; 0 when nothing is loaded, and for a file that is damaged or cut off before
  // its trailer, of which every DecNextFrame shows the first frame.
  int GetFrameCount() const { return frameCount; }
  // The next DecNextFrame starts from the first frame.
  void ResetGifFrameIndex();

  // The canvas: rows from the top, width * 4 bytes each. Owned by the decoder, the same block for
  // every frame, valid until Unload, a load or the destructor. Null without a canvas. A pixel
  // that was drawn has alpha 255, any other is 0 in all four bytes.
  unsigned char* GetGifFrameBuffer() const { return frameBuffer; }
  // Draws the next frame onto the canvas, with bytes R, G, B, A in memory or, for false, with
  // B, G, R, A. A frame that passes the edge of the screen draws nothing, and of a damaged one
  // the part before the damage is drawn; neither is reported. Does nothing when not loaded.
  //
  // Background disposal clears to transparent where any frame of the file uses transparency, and
  // paints the background colour where none does. The disposal to the previous picture goes back
  // to what the frames marked "keep" have built since the first frame.
  void DecNextFrame(bool rgbaOrder);
  // Delay of the frame drawn last in milliseconds: as the file says, 0 included; the last one
  // given where the frame gives none, and 100 where none was given yet.
  int GetDelayTimeMS() const { return delayTimeMS; }
  // Index of the frame that the next call draws.
  int GetCurFrameIndex() const { return curFrameIndex; }

 private:
  static int ReadData(GifFileType* file, unsigned char* bytes, int count);

  bool OpenStream();
  void AllocateCanvas();
  void ClearCanvas();
  void DisposeLastFrame(bool rgbaOrder);
  int BackgroundPixel(bool rgbaOrder) const;
  void DrawFrame(int transparentIndex, bool rgbaOrder, unsigned char* row);
  void SetLastFrame(int disposal, int left, int top, int width, int height);
  bool IsOnScreen(int left, int top, int width, int height) const;

  void Gif_Statistics();
  void Gif_DecFromImage(bool rgbaOrder);
  void Gif_DecCopyBuf(unsigned char* src, int srcPitch, int srcX, int srcY, unsigned char* dst,
                      int dstPitch, int dstX, int dstY, int width, int height);
  void Gif_DecSetColor(int x, int y, int width, int height, int color);

  GifFileType* gifFile;
  unsigned char* gifData;
  int gifDataSize;
  int gifDataPos;
  int firstFramePos;
  bool hasTransparency;
  int frameCount;
  int curFrameIndex;
  unsigned char* frameBuffer;
  unsigned char* backupBuffer;
  int lastDisposal;
  int lastLeft;
  int lastTop;
  int lastWidth;
  int lastHeight;
  int delayTimeMS;
};
