// The MD5 digest of RFC 1321, computed piece by piece or of a whole file. MD5 is broken as a
// protection against forgery; it serves to notice accidental changes.
#pragma once

#include <cstdint>

#include "qvx/types.h"

// A running computation. Holds no resources; one thread at a time uses an object.
class QVX_API MD5 {
 public:
  MD5();
  // The same, followed by update(data, length).
  MD5(const unsigned char* data, std::uint64_t length);

  // Adds input of length bytes. A null data adds nothing.
  void update(const unsigned char* data, std::uint64_t length);

  // The 16 bytes of the digest of all input so far, inside the object: valid until the next
  // change. The message does not end here; update may go on.
  const unsigned char* digest();

  // Back to the start, as if newly made.
  void reset();

  static const unsigned char PADDING[64];  // 0x80 and zeros: the end of each message
  static const char HEX[16];               // the lower-case hexadecimal digits
  static const std::uint64_t BUFFER_SIZE;  // 1024: a fair size of pieces to read

 private:
  void final();
  void transform(const unsigned char* blocks, std::uint64_t count);
  static void encode(const std::uint32_t* words, unsigned char* bytes, std::uint64_t byteCount);

  std::uint32_t mState[4];
  std::uint32_t mCount[2];  // message length in bits, low word first
  unsigned char mBuffer[64];
  unsigned char mDigest[16];
  bool mFinalized;
};

extern "C" {

// Writes the 16 bytes of the file's digest to digest: 16 zeros for an empty file and for one
// that can't be opened or is no regular file. If a read fails or the file gets shorter, the
// digest covers what could be read. Blocks while it reads; holds 1 MiB whatever the file's
// size. The result means nothing.
QVX_API int GetFileMD5(const WCHAR* path, unsigned char* digest);

}  // extern "C"
