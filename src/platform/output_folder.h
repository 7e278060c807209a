// Making files and folders below an open folder by names from elsewhere. Below that folder no
// link is ever followed, and each step is taken from an open folder, so that nothing is made
// outside it, whatever others do to the tree meanwhile. Names are native elements without
// separators; "." and ".." are the caller's to keep out. For one thread at a time.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/folder.h"
#include "platform/pending_file.h"

namespace qvx::platform {

class OutputFolder {
 public:
  using Elements = std::vector<std::string>;

  // The folder itself may be reached through links.
  bool Open(const std::string& path);

  // Makes the folder, and those above it, where they are missing.
  bool MakeFolder(const Elements& elements);
  // Makes the folders above the file and begins it. It must end before the next call here.
  bool BeginFile(const Elements& elements, PendingFile& file);

 private:
  struct Step {
    std::string name;
    FolderReader folder;
  };

  bool Enter(const Elements& elements, std::size_t count);
  bool EnterNext(const std::string& name);
  int Deepest() const;

  FolderReader top_;
  std::vector<Step> steps_;  // the folders that were entered last, kept open
};

}  // namespace qvx::platform
