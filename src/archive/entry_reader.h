// The data of one entry, inflated and checked against all that the archive says of it.
#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>

#include "archive/byte_source.h"
#include "archive/zip_directory.h"

namespace qvx::archive {

class EntryReader {
 public:
  explicit EntryReader(ByteSource& source) : source_(source) {}
  ~EntryReader();
  EntryReader(const EntryReader&) = delete;
  EntryReader& operator=(const EntryReader&) = delete;

  // False for an entry that is encrypted, compressed in another way, overlaps something, or
  // whose local header differs from the directory. The entry must live on.
  bool Open(const ZipEntry& entry);

  // Fills out as far as there is data; got below size only at the end. False as soon as the
  // data is no valid stream, or at its end if its sizes or checksum don't hold.
  bool Read(unsigned char* out, std::size_t size, std::size_t& got);

 private:
  bool FindData();
  bool HeaderAgrees(const unsigned char* header) const;
  bool StartStream();
  bool Copy(unsigned char* out, std::size_t wanted);
  bool Inflate(unsigned char* out, std::size_t wanted);
  bool MoreInput();
  bool EndsHere();

  ByteSource& source_;
  const ZipEntry* entry_ = nullptr;
  std::uint64_t data_ = 0;        // where the compressed data is
  std::uint64_t compressed_ = 0;  // bytes of it that were used
  std::uint64_t done_ = 0;        // bytes that were read
  std::uint32_t crc_ = 0;
  z_stream stream_{};
  bool ready_ = false;
  bool stream_over_ = false;
};

}  // namespace qvx::archive
