// The list of entries at the end of a zip archive, read and checked. Everything in it is a claim
// of the archive: offsets and sizes are held against the file and against each other, so that no
// two entries can claim the same bytes.
//
// This and the reader of entries stand on zlib rather than on minizip: that neither tells where
// an entry's bytes are, so that overlaps stay unseen, nor notices a stream that ends before or
// behind the claimed size, and walks from the first entry for each index.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "archive/byte_source.h"

namespace qvx::archive {

struct ZipEntry {
  std::string raw_name;  // as stored
  std::string name;      // own text
  std::string comment;   // own text
  std::uint16_t version = 0;
  std::uint16_t version_needed = 0;
  std::uint16_t flags = 0;
  std::uint16_t method = 0;
  std::uint32_t dos_date = 0;
  std::uint32_t crc = 0;
  std::uint64_t compressed_size = 0;
  std::uint64_t size = 0;
  std::uint16_t internal_attributes = 0;
  std::uint32_t attributes = 0;
  std::uint64_t offset = 0;  // of the local header
  std::uint64_t limit = 0;   // where something else begins

  bool IsFolder() const;
};

// Nothing is thrown but std::bad_alloc; memory grows with the file's own bytes, not with claims.
// False for a file that is no archive, is cut off, or whose list is damaged.
bool ReadZipDirectory(ByteSource& source, std::vector<ZipEntry>& entries);

}  // namespace qvx::archive
