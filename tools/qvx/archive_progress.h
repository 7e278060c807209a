// Shows how packing and unpacking go, as one piece of work, and ends it at an interrupt. Keeps
// what packing left out.
#pragma once

#include <qvx/copy_progress.h>

#include <cstdint>
#include <string>
#include <vector>

#include "interrupt.h"
#include "progress.h"

namespace qvx::tool {

class ArchiveProgress : public IArchiveProgressListener {
 public:
  ArchiveProgress(const std::string& name, std::uint64_t total);

  int OnArchiveProgress(const char* name, std::uint64_t done, std::uint64_t total) override;
  void OnArchiveSkipped(const char* path) override;
  // The same for work on one file: false if it shall stop.
  bool Advance(std::uint64_t done);

  bool Interrupted() const { return guard_.Interrupted(); }
  void Clear() { progress_.Clear(); }
  // "12.34 MiB in 0:07 (1.70 MiB/s)"
  std::string Amount(std::uint64_t bytes) const;

  std::uint64_t Hidden() const { return hidden_; }
  // Native paths.
  const std::vector<std::string>& Skipped() const { return skipped_; }

 private:
  InterruptGuard guard_;
  Progress progress_;
  const std::uint64_t total_;
  std::uint64_t before_ = 0;   // bytes of the entries that are done
  std::uint64_t current_ = 0;  // bytes of the one under way
  std::string name_;
  std::uint64_t hidden_ = 0;
  std::vector<std::string> skipped_;
};

// A native path in the library's narrow form, absolute, whatever its length.
std::string NarrowLibraryPath(const std::string& native);

}  // namespace qvx::tool
