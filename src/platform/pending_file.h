// A file that is written under a temporary name in the folder of its target, and takes the
// target's name only when all of it is there. Until then, and after any failure, what the
// target's name stood for before is untouched. For one thread at a time.
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/file.h"

namespace qvx::platform {

class PendingFile {
 public:
  PendingFile() = default;
  // As Discard.
  ~PendingFile();
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  // Makes the temporary and opens it for writing. A pending file made before is discarded. The
  // target's folder stays the caller's and must be open until the end.
  bool Create(const Place& target, mode_t permissions = 0666);
  bool Create(const std::string& target);

  bool IsPending() const { return !temporary_.empty(); }
  const File& Content() const { return file_; }

  // Closes the file and gives it its name, in place of a file or a link that stands there, but
  // not of a folder, a special file or one that may not be written. False, with the temporary
  // removed, if that fails.
  bool Install();
  // Removes the temporary.
  void Discard();

 private:
  bool MayReplace() const;

  Place target_{-1, std::string()};
  std::string temporary_;
  File file_;
};

}  // namespace qvx::platform
