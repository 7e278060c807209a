#include "qvx/folder_list.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "files/extension_filter.h"
#include "files/tree_report.h"
#include "platform/folder.h"
#include "platform/path.h"
#include "qvx/ptr_ctrl.h"
#include "qvx/ptr_list.h"

namespace qvx::files {
namespace {

using platform::EntryKind;
using platform::FolderEntry;
using platform::FolderReader;
using platform::JoinPath;

template <typename C>
void FreeFileList(CPtrCtrl* list) {
  if (list == nullptr) return;
  for (int i = 0, count = list->GetCount(); i < count; ++i) {
    delete[] static_cast<const C*>(list->GetAt(i));
  }
  list->DeleteAll();
}

// A list of this library's own, freed with the scope.
template <typename C>
class OwnedList {
 public:
  OwnedList() = default;
  ~OwnedList() { FreeFileList<C>(&list_); }
  OwnedList(const OwnedList&) = delete;
  OwnedList& operator=(const OwnedList&) = delete;

  CPtrCtrl* Get() { return &list_; }
  int Count() const { return list_.GetCount(); }
  const C* At(int index) { return static_cast<const C*>(list_.GetAt(index)); }

 private:
  CPtrListCtrl list_;
};

template <typename C>
void AddText(CPtrCtrl* list, const std::basic_string<C>& text) {
  std::unique_ptr<C[]> block(new C[text.size() + 1]);
  std::char_traits<C>::copy(block.get(), text.c_str(), text.size() + 1);
  list->AddData(block.get(), -1);
  block.release();
}

template <typename C>
bool OpenFolder(FolderReader& reader, const C* folder) {
  const C here[] = {C('.'), C()};
  const std::basic_string_view<C> path = *folder == C() ? here : folder;
  const std::optional<std::string> native = platform::ToNativePath(path);
  return native && reader.Open(*native, true);
}

// What one listing wants, and where it goes.
template <typename C>
struct Listing {
  const C* folder;
  CPtrCtrl* folders;
  CPtrCtrl* files;
  ExtensionFilter filter;
  bool hidden;
  bool full_path;

  void Skip(const FolderEntry& entry, int reason) const { TellSkipped(folder, entry.name, reason); }

  void Take(const FolderEntry& entry) const {
    if (entry.Hidden() && !hidden) return Skip(entry, kSkippedHidden);
    if (entry.kind == EntryKind::kSpecial) return Skip(entry, kSkippedSpecial);
    const bool folder_entry = entry.kind == EntryKind::kFolder;
    CPtrCtrl* list = folder_entry ? folders : files;
    if (list == nullptr) return;
    if (!folder_entry && !filter.TakesAll() &&
        !filter.Takes(*platform::FromNativeName<char16_t>(entry.name))) {
      return;
    }
    Add(list, entry);
  }

  void Add(CPtrCtrl* list, const FolderEntry& entry) const {
    const auto name = platform::FromNativeName<C>(entry.name);
    if (!name) return Skip(entry, kSkippedNoNarrowForm);
    const C* none = nullptr;
    const auto text = JoinPath(full_path ? folder : none, name->c_str());
    if (!text) return Skip(entry, kSkippedTooLong);
    AddText(list, *text);
  }
};

template <typename C>
void GetLocalFolderFileList(const C* folder, CPtrCtrl* folderList, CPtrCtrl* fileList,
                            const C* extFilter, bool hidden, bool full_path) {
  if (folderList != nullptr) folderList->DeleteAll();
  if (fileList != nullptr) fileList->DeleteAll();
  FolderReader reader;
  if (folder == nullptr || !OpenFolder(reader, folder)) return;
  const Listing<C> listing{folder, folderList, fileList, ExtensionFilter(extFilter),
                           hidden, full_path};
  FolderEntry entry;
  while (reader.Next(entry)) listing.Take(entry);
}

template <typename C>
void GetTreeFiles(const C* folder, CPtrCtrl* fileList, const C* extFilter, bool hidden,
                  bool recursive) {
  OwnedList<C> folders;
  OwnedList<C> files;
  CPtrCtrl* none = nullptr;
  GetLocalFolderFileList(folder, recursive ? folders.Get() : none, files.Get(), extFilter, hidden,
                         true);
  for (int i = 0; i < folders.Count(); ++i) {
    GetTreeFiles(folders.At(i), fileList, extFilter, hidden, true);
  }
  fileList->AddPtrCtrl(files.Get(), -1);
  files.Get()->DeleteAll();
}

template <typename C>
void GetSubFolderFileList(const C* rootFolder, const C* subFolder, CPtrCtrl* fileList,
                          const C* extFilter, bool hidden, bool recursive) {
  if (fileList == nullptr) return;
  const auto folder = JoinPath(rootFolder, subFolder);
  if (folder) GetTreeFiles(folder->c_str(), fileList, extFilter, hidden, recursive);
}

template <typename C>
bool FindFileInFolder(const C* folder, const C* name, bool hidden) {
  FolderReader reader;
  if (folder == nullptr || name == nullptr || !OpenFolder(reader, folder)) return false;
  FolderEntry entry;
  while (reader.Next(entry)) {
    if (entry.kind == EntryKind::kSpecial || (entry.Hidden() && !hidden)) continue;
    const auto found = platform::FromNativeName<C>(entry.name);
    if (found && *found == name) return true;
  }
  return false;
}

template <typename C>
bool FindFileInTree(const C* folder, const C* name, bool hidden, bool recursive, C* foundPath) {
  if (FindFileInFolder(folder, name, hidden)) {
    const auto path = JoinPath(folder, name);
    if (!path) return false;
    if (foundPath != nullptr) {
      std::char_traits<C>::copy(foundPath, path->c_str(), path->size() + 1);
    }
    return true;
  }
  if (!recursive) return false;
  OwnedList<C> folders;
  const C* no_filter = nullptr;
  GetLocalFolderFileList(folder, folders.Get(), nullptr, no_filter, hidden, true);
  for (int i = 0; i < folders.Count(); ++i) {
    if (FindFileInTree(folders.At(i), name, hidden, true, foundPath)) return true;
  }
  return false;
}

template <typename C>
bool FindFileInSubFolder(const C* rootFolder, const C* subFolder, const C* name, bool hidden,
                         bool recursive, C* foundPath) {
  const auto folder = JoinPath(rootFolder, subFolder);
  return folder && FindFileInTree(folder->c_str(), name, hidden, recursive, foundPath);
}

template <typename C>
std::optional<std::string> Native(const C* path) {
  if (path == nullptr || *path == C()) return std::nullopt;
  return platform::ToNativePath(std::basic_string_view<C>(path));
}

template <typename C>
void RecursiveCreateDirectory(const C* path) {
  const std::optional<std::string> native = Native(path);
  if (native) platform::MakeFolders(*native);
}

template <typename C>
void RecursiveCopyDirectory(const C* source, const C* target) {
  const std::optional<std::string> from = Native(source);
  const std::optional<std::string> to = Native(target);
  if (!to) return;
  if (!from) return platform::MakeFolders(*to);
  platform::TreeActions actions;
  actions.skipped = TreeReport(source);
  platform::CopyFolderContent(
      *from, *to, [&to] { platform::MakeFolders(*to); }, actions);
}

}  // namespace
}  // namespace qvx::files

namespace files = qvx::files;

void GetLocalFolderFileListA(const char* folder, CPtrCtrl* folderList, CPtrCtrl* fileList,
                             const char* extFilter, int includeHidden, int fullPath) {
  files::GetLocalFolderFileList(folder, folderList, fileList, extFilter, includeHidden != 0,
                                fullPath != 0);
}
void GetLocalFolderFileListW(const WCHAR* folder, CPtrCtrl* folderList, CPtrCtrl* fileList,
                             const WCHAR* extFilter, int includeHidden, int fullPath) {
  files::GetLocalFolderFileList(folder, folderList, fileList, extFilter, includeHidden != 0,
                                fullPath != 0);
}

void GetSubFolderFileListA(const char* rootFolder, const char* subFolder, CPtrCtrl* fileList,
                           const char* extFilter, int includeHidden, int recursive) {
  files::GetSubFolderFileList(rootFolder, subFolder, fileList, extFilter, includeHidden != 0,
                              recursive != 0);
}
void GetSubFolderFileListW(const WCHAR* rootFolder, const WCHAR* subFolder, CPtrCtrl* fileList,
                           const WCHAR* extFilter, int includeHidden, int recursive) {
  files::GetSubFolderFileList(rootFolder, subFolder, fileList, extFilter, includeHidden != 0,
                              recursive != 0);
}

void FreeFileListA(CPtrCtrl* list) {
  files::FreeFileList<char>(list);
}
void FreeFileListW(CPtrCtrl* list) {
  files::FreeFileList<WCHAR>(list);
}

int FindFileInFolderA(const char* folder, const char* name, int includeHidden) {
  return files::FindFileInFolder(folder, name, includeHidden != 0);
}
int FindFileInFolderW(const WCHAR* folder, const WCHAR* name, int includeHidden) {
  return files::FindFileInFolder(folder, name, includeHidden != 0);
}

int FindFileInSubFolderA(const char* rootFolder, const char* subFolder, const char* name,
                         int includeHidden, int recursive, char* foundPath) {
  return files::FindFileInSubFolder(rootFolder, subFolder, name, includeHidden != 0, recursive != 0,
                                    foundPath);
}
int FindFileInSubFolderW(const WCHAR* rootFolder, const WCHAR* subFolder, const WCHAR* name,
                         int includeHidden, int recursive, WCHAR* foundPath) {
  return files::FindFileInSubFolder(rootFolder, subFolder, name, includeHidden != 0, recursive != 0,
                                    foundPath);
}

void RecursiveCreateDirectoryA(const char* path) {
  files::RecursiveCreateDirectory(path);
}
void RecursiveCreateDirectoryW(const WCHAR* path) {
  files::RecursiveCreateDirectory(path);
}

void RecursiveCopyDirectoryA(const char* source, const char* target) {
  files::RecursiveCopyDirectory(source, target);
}
void RecursiveCopyDirectoryW(const WCHAR* source, const WCHAR* target) {
  files::RecursiveCopyDirectory(source, target);
}
