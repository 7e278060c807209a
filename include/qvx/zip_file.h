// A file that is compressed while it is written and decompressed while it is read: one gzip
// stream of zlib (RFC 1952), not a zip archive. Nothing is logged and no lock is taken; an
// object is for one thread at a time. Calls block while the disk works.
#pragma once

#include "qvx/types.h"

class QVX_API CZipFile {
 public:
  CZipFile();
  // As Close.
  virtual ~CZipFile();
  // A copy is closed; nothing of the source is taken over. Assigning changes nothing.
  CZipFile(const CZipFile& other);
  CZipFile& operator=(const CZipFile& other);

  // Closes the stream that is open and opens another, also if that then fails. path is a
  // library path of a regular file; mode is zlib's: r, w, a or x, then digits for the level and
  // letters for the strategy ("wb9", "rb"). Returns 1, or 0 where the file can't be opened.
  // Reading a file without a gzip header gives its bytes as they are.
  int Open(const char* path, const char* mode);

  // Ends the stream; does nothing when closed. A failure of the last write stays untold: see
  // Finish.
  void Close();

  // As Close, and returns 1 if all of the stream is in order: what was written reached the
  // file, or what was read did not break off inside a stream. Else, and when closed, 0.
  int Finish();

  int IsOpen();

  // Up to len bytes; returns how many there were, 0 at the end and on a closed object, -1 for
  // data that is no valid stream. A file that is cut off gives what there is and then 0.
  int Read(void* buffer, int len);

  // Returns len, or 0 for a failure and on a closed object.
  int Write(const void* buffer, int len);

  // Moves in the uncompressed data: origin 0 from the start, 1 from here; forward only while
  // writing, which fills with zeros. Returns the new position, or -1, also on a closed object.
  long Seek(long offset, int origin);

  // 1 once a read reached the end, and on a closed object; else 0.
  int Eof();

  // zlib's gzFile of the open stream, or null. Stays the object's.
  void* GetZipFileHandle();

 private:
  void* gzHandle;
};
