// Reading folders, searching names, and operations on whole trees. Folder order is the file
// system's. Links are listed as files and never descended into; FIFOs, sockets, devices and
// links to them are told to the caller as special. Trees are walked by open folders, never by
// path, so that a tree operation stays inside its tree even when others change it meanwhile.
#pragma once

#include <dirent.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/file.h"

namespace qvx::platform {

struct FolderEntry {
  std::string name;
  EntryKind kind = EntryKind::kNone;  // kFile, kFolder or kSpecial

  // A name that begins with a point.
  bool Hidden() const { return !name.empty() && name[0] == '.'; }
};

// One pass over a folder, without . and .. in it.
class FolderReader {
 public:
  FolderReader() = default;
  ~FolderReader();
  FolderReader(FolderReader&& other) noexcept;
  FolderReader& operator=(FolderReader&& other) noexcept;

  // With follow false a link as last element of the path fails.
  bool Open(const std::string& path, bool follow);
  bool OpenAt(int folder, const std::string& name, bool follow);
  // False at the end or on an error.
  bool Next(FolderEntry& entry);
  int Descriptor() const;
  // The last write in seconds of the system's clock; 0 if there is no telling.
  std::int64_t WriteTime() const;

 private:
  DIR* stream_ = nullptr;
};

// The first thing that a search text finds. The text is a library path whose last element may
// hold * and ?; *.* finds all. A text that ends in a separator finds nothing (but C: is the
// root). Without a wildcard this is what the path leads to. Names compare with case.
std::optional<EntryKind> FindFirst(std::u16string_view search);
std::optional<EntryKind> FindFirst(std::string_view search);
// Whether a name in library form fits a pattern.
bool MatchesPattern(std::u16string_view name, std::u16string_view pattern);

// Makes a folder and those above it that are missing, as far as that works.
void MakeFolders(const std::string& path);

enum class SkipReason { kSpecial, kFailed };

struct TreeActions {
  // Which files to take, by native name; all where empty.
  std::function<bool(const std::string& name)> filter;
  // Told what was left out, by its path below the top folder.
  std::function<void(const std::string& below, SkipReason reason)> skipped;
};

// Deletes the files of a folder and, with recursive, of all folders below it, and with
// remove_folders the folders that are then empty. The folder itself stays. A top folder that
// is a link is left alone. Failures leave an entry where it is.
void RemoveFolderContent(const std::string& folder, bool remove_folders, bool recursive,
                         const TreeActions& actions);

// Copies what a folder holds, with all below it. make_target is called once the source has been
// read, also where it can't be read, and the target is opened then. Files replace files of the
// same name; a link to a file becomes a file, other links stay links; a link that stands in the
// target where a folder should be is not written through. A target inside the source is not
// copied into itself.
void CopyFolderContent(const std::string& source, const std::string& target,
                       const std::function<void()>& make_target, const TreeActions& actions);

}  // namespace qvx::platform
