#include "archive_progress.h"

#include <qvx/platform.h>

#include <filesystem>

#include "command.h"
#include "text.h"

namespace qvx::tool {

ArchiveProgress::ArchiveProgress(const std::string& name, std::uint64_t total)
    : guard_([] {}), progress_(true, ProgressRules()), total_(total) {
  progress_.BeginFile(name);
}

int ArchiveProgress::OnArchiveProgress(const char* name, std::uint64_t done, std::uint64_t) {
  if (name_ != name || done < current_) {
    before_ += current_;
    name_ = name;
  }
  current_ = done;
  return Advance(before_ + current_) ? 1 : 0;
}

bool ArchiveProgress::Advance(std::uint64_t done) {
  std::uint64_t limit = 0;
  progress_.OnNetFileCopyProgress(0, done, total_, 0, &limit);
  return !Interrupted();
}

void ArchiveProgress::OnArchiveSkipped(const char* path) {
  CBaseStringA native;
  LibraryPathToNativeA(path, &native);
  if (BaseName(native.GetString()).front() == '.') {
    ++hidden_;
  } else {
    skipped_.emplace_back(native.GetString());
  }
}

std::string ArchiveProgress::Amount(std::uint64_t bytes) const {
  const double seconds = progress_.Seconds();
  return SizeText(bytes) + " in " + DurationText(seconds) + " (" + RateText(bytes, seconds) + ")";
}

std::string NarrowLibraryPath(const std::string& native) {
  CBaseStringA path;
  const std::string absolute = std::filesystem::absolute(native).lexically_normal().string();
  if (native.empty() || NativePathToLibraryA(absolute.c_str(), &path) == 0)
    throw CommandError("no such path can be used: " + native);
  return path.GetString();
}

}  // namespace qvx::tool
