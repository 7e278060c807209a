// Reads files, has them compressed, and writes them to an archive in the order in which they
// came. While one piece is compressed the next are read, also those of the next file. For one
// thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "archive/deflate_pool.h"
#include "archive/zip_output.h"
#include "platform/file.h"
#include "qvx/copy_progress.h"
#include "qvx/zipper.h"

namespace qvx::archive {

class Packer {
 public:
  // Counts in info. The listener may be null.
  Packer(ZipOutput& output, Z_FileInfo& info, IArchiveProgressListener* listener,
         unsigned int threads);
  // Drops what was not written.
  ~Packer();

  // Both leave their entry on its way. AddFile gives false where the file could not be read up
  // to the size in its head; what there was is packed.
  bool AddFile(const platform::File& source, const EntryHead& head);
  void AddFolder(const EntryHead& head);
  // Writes what is on its way. False if any of it, or of what was written since the last call,
  // could not be written.
  bool Flush();

  bool Stopped() const { return stopped_; }
  // Whether nothing more can be added.
  bool IsOver() const { return stopped_ || !output_.IsSound(); }

 private:
  struct Entry {
    EntryHead head;
    std::string shown;  // for the listener
    bool open = false;
    std::uint64_t size = 0;
    std::uint32_t crc = 0;
  };
  struct Pending {
    std::shared_ptr<Entry> entry;
    std::unique_ptr<DeflatePiece> piece;  // none for a folder
    bool first;
    bool last;
  };

  void AddPiece(const std::shared_ptr<Entry>& entry, std::unique_ptr<DeflatePiece> piece,
                bool last);
  void WriteFront();
  bool WriteFolder(const Entry& entry);
  bool WritePiece(const Pending& pending);
  bool Report(const Entry& entry);

  ZipOutput& output_;
  Z_FileInfo& info_;
  IArchiveProgressListener* const listener_;
  bool stopped_ = false;
  bool failed_ = false;
  std::deque<Pending> pending_;
  std::size_t pending_bytes_ = 0;
  DeflatePool pool_;  // its threads end before the pieces go
};

// The threads that are worth while for so many bytes.
unsigned int PackingThreads(std::uint64_t bytes);

}  // namespace qvx::archive
