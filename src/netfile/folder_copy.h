// The copy of all that a folder holds, in either direction.
#pragma once

#include <string>
#include <vector>

#include "netfile/copy_job.h"

namespace qvx::netfile {

class FolderCopy {
 public:
  FolderCopy(Copy& copy, INetFolderCopyProgressListener* listener)
      : copy_(copy), listener_(listener) {}

  void FromServer(const CopyPaths& folder);
  void ToServer(const CopyPaths& folder);

 private:
  using Names = std::vector<std::u16string>;
  using MakeJob = std::unique_ptr<CopyJob> (*)(Copy& copy, CopyPaths paths);

  // The paths of those children that can be copied; the others are reported.
  std::vector<CopyPaths> Children(const CopyPaths& folder, const Names& names);
  void ListLocal(const CopyPaths& folder, Names& folders, Names& files);
  void MakeLocalFolder(const CopyPaths& paths);
  void MakeRemoteFolder(const CopyPaths& paths);
  // Begins some files ahead of their turn where no speed limit holds.
  void CopyFiles(std::vector<CopyPaths> files, MakeJob make_job, bool limited);

  Copy& copy_;
  INetFolderCopyProgressListener* listener_;
};

}  // namespace qvx::netfile
