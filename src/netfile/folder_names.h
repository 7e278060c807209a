// The bare names of what a local folder holds, hidden entries left out.
#pragma once

#include "qvx/folder_list.h"
#include "qvx/ptr_array.h"
#include "qvx/types.h"

namespace qvx::netfile {

struct FolderNames {
  explicit FolderNames(const WCHAR* path) {
    GetLocalFolderFileListW(path, &folders, &files, nullptr, 0, 0);
  }
  ~FolderNames() {
    FreeFileListW(&folders);
    FreeFileListW(&files);
  }
  FolderNames(const FolderNames&) = delete;
  FolderNames& operator=(const FolderNames&) = delete;

  CPtrArrayCtrl folders;  // of WCHAR texts
  CPtrArrayCtrl files;
};

}  // namespace qvx::netfile
