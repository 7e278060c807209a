// One zip archive that is being written. Its entries arrive compressed, so that several threads
// can compress them. A new archive stands under a temporary name until it is complete; one
// behind the content of a file is written in place and cut off again if it fails. For one thread
// at a time.
//
// The records are written here rather than through minizip: version 1.1 of that leaves out the
// zip64 record of an archive of 65,535 entries or more, so that they can't be counted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "archive/archive_stream.h"
#include "archive/deflate_pool.h"
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

  // For the calling thread of the next packing, so that it need not be made anew each time.
  Deflater& OwnDeflater() { return deflater_; }

 private:
  // The entry under way.
  struct Entry {
    EntryHead head;
    std::string name;   // as stored
    std::string extra;  // beside zip64's
    std::uint16_t made_by;
    std::uint16_t flags;
    bool zip64;
    std::uint64_t offset;
    std::uint64_t compressed;
  };

  ZipOutput() = default;
  bool OpenNew(const std::string& path);
  bool OpenBehind(const std::string& path);
  bool Write(const std::string& bytes);
  bool WriteAt(std::uint64_t position, const std::string& bytes);
  std::string LocalHeader() const;
  std::string CentralRecord(std::uint64_t size, std::uint32_t crc) const;
  std::string EndRecords(std::uint64_t begin) const;

  platform::PendingFile pending_;
  platform::File in_place_;
  std::string path_;         // of that
  platform::File replaced_;  // what bears the name now, if anything
  std::uint64_t former_size_ = 0;
  std::unique_ptr<ArchiveStream> stream_;
  Entry entry_{};
  std::string central_;
  std::uint64_t count_ = 0;
  Deflater deflater_;
};

}  // namespace qvx::archive
