// One zip archive that is being written, through minizip, which knows the headers, the central
// directory and zip64. Its entries arrive compressed; minizip would compress them itself, but on
// one thread. A new archive stands under a temporary name until it is complete; one behind the
// content of a file is written in place and cut off again if it fails. For one thread at a time.
#pragma once

#include <minizip/zip.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "archive/archive_stream.h"
#include "platform/file.h"
#include "platform/pending_file.h"

namespace qvx::archive {

// What stands in the headers of an entry before its data is known.
struct EntryHead {
  std::string name;  // own text
  std::uint32_t dos_date = 0;
  std::uint32_t attributes = 0;
  std::uint64_t size = 0;  // the most that can come
  bool is_folder = false;
};

class ZipOutput {
 public:
  // Native path. With append, and if the file exists, behind its content. Null for a failure.
  static std::unique_ptr<ZipOutput> Open(const std::string& path, bool append);
  // Leaves no archive, unless Finish did.
  ~ZipOutput();
  ZipOutput(const ZipOutput&) = delete;
  ZipOutput& operator=(const ZipOutput&) = delete;

  // Whether a file is this archive, or what it will replace.
  bool Holds(const platform::File& file) const;

  bool BeginEntry(const EntryHead& head);
  bool WriteCompressed(const void* data, std::size_t size);
  bool EndEntry(std::uint64_t size, std::uint32_t crc);
  // False once the archive can't be completed any more.
  bool IsSound() const { return !stream_->Failed(); }

  // Completes the archive and gives it its name. Nothing can be added afterwards.
  bool Finish();

 private:
  ZipOutput() = default;
  bool OpenNew(const std::string& path);
  bool OpenBehind(const std::string& path);
  bool Start(const platform::File& file, std::uint64_t position);

  platform::PendingFile pending_;
  platform::File in_place_;
  std::string path_;         // of that
  platform::File replaced_;  // what bears the name now, if anything
  std::uint64_t former_size_ = 0;
  std::unique_ptr<ArchiveStream> stream_;
  zipFile zip_ = nullptr;
};

}  // namespace qvx::archive
