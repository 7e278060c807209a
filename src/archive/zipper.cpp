#include "qvx/zipper.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "archive/dos_time.h"
#include "archive/full_path.h"
#include "archive/packer.h"
#include "archive/zip_format.h"
#include "archive/zip_name.h"
#include "archive/zip_output.h"
#include "platform/file.h"
#include "platform/folder.h"
#include "platform/path.h"
#include "qvx/copy_progress.h"
#include "qvx/debug_output.h"

namespace qvx::archive {
namespace {

using platform::EntryKind;
using platform::File;
using platform::FolderEntry;
using platform::FolderReader;

constexpr std::uint64_t kManyBytes = UINT64_MAX;  // of a folder, which is not counted before

std::uint32_t AttributesOf(const std::optional<std::string>& native) {
  return native ? platform::AttributesOf(*native) : platform::kNoAttributes;
}

// A path as given may mean another place than it does below the root folder, or nothing; only a
// file's own attributes are taken.
std::uint32_t FileAttributes(const std::string& native, const std::optional<std::string>& given) {
  const std::uint32_t attributes = AttributesOf(given);
  const bool is_file = (attributes & kAttributeFolder) == 0;
  return is_file ? attributes : platform::AttributesOf(native) & ~kAttributeFolder;
}

std::uint32_t DosDateOf(const File& file) {
  const std::optional<platform::FileTimes> times = platform::TimesOf(file);
  return times ? DosFromSeconds(times->write.tv_sec) : 0;
}

void TellSkipped(IArchiveProgressListener* listener, const std::string& path) {
  if (listener != nullptr) listener->OnArchiveSkipped(path.c_str());
}

// One walk through a folder with all below it. Folders are entered by their open parents.
class FolderWalk {
 public:
  FolderWalk(Packer& packer, const ZipOutput& output, Z_FileInfo& info,
             IArchiveProgressListener* listener, bool bare_names)
      : packer_(packer),
        output_(output),
        info_(info),
        listener_(listener),
        bare_names_(bare_names) {}

  // path: library form, for messages; stored: the name of the folder's entry, ending in a
  // separator, or empty for none.
  void Pack(FolderReader& folder, const std::string& path, const std::string& stored) {
    std::vector<FolderEntry> entries;
    for (FolderEntry entry; folder.Next(entry);) entries.push_back(entry);
    for (const FolderEntry& entry : entries) {
      if (packer_.IsOver()) return;
      PackEntry(folder, entry, path, stored);
    }
  }

 private:
  void PackEntry(const FolderReader& folder, const FolderEntry& entry, const std::string& path,
                 const std::string& stored) {
    const auto name = platform::FromNativeName<char>(entry.name);
    const std::string child = path + '\\' + name.value_or("?");
    if (!name || entry.Hidden() || entry.kind == EntryKind::kSpecial) return Skip(child);
    const std::string own = OwnFromNative(entry.name);
    const std::string prefix = bare_names_ ? std::string() : stored;
    if (entry.kind == EntryKind::kFolder) {
      const std::string shown = bare_names_ ? WithoutExtension(own) : own;
      PackFolder(folder, entry.name, child, prefix + shown + '\\');
    } else {
      PackFile(folder, entry.name, child, prefix + own);
    }
  }

  void PackFolder(const FolderReader& above, const std::string& name, const std::string& path,
                  const std::string& stored) {
    ++info_.folderCount;
    FolderReader folder;
    const bool open = folder.OpenAt(above.Descriptor(), name, false);
    EntryHead head{stored, 0, kAttributeFolder, 0, true};
    if (open) {
      head.dos_date = DosFromSeconds(folder.WriteTime());
      head.attributes = platform::AttributesAt(above.Descriptor(), name);
    }
    packer_.AddFolder(head);
    if (!open) return Skip(path);
    Pack(folder, path, stored);
  }

  void PackFile(const FolderReader& folder, const std::string& name, const std::string& path,
                const std::string& stored) {
    DbgOutputA(2, "CZipper::AddFileToZip(%s)\n", path.c_str());
    File file;
    const int above = folder.Descriptor();
    if (!file.OpenAt(above, name, platform::OpenMode::Read(), 0, true) || output_.Holds(file)) {
      return Skip(path);
    }
    const std::int64_t size = file.Size();
    if (size < 0) return Skip(path);
    const EntryHead head{stored, DosDateOf(file), platform::AttributesAt(above, name),
                         static_cast<std::uint64_t>(size), false};
    if (!packer_.AddFile(file, head)) Skip(path);
  }

  void Skip(const std::string& path) { TellSkipped(listener_, path); }

  Packer& packer_;
  const ZipOutput& output_;
  Z_FileInfo& info_;
  IArchiveProgressListener* const listener_;
  const bool bare_names_;
};

// path: where the file is; given: what the caller called it; stored: the entry's name.
struct OneFile {
  std::string path;
  std::string given;
  std::string stored;
};

bool PackOneFile(ZipOutput& output, Z_FileInfo& info, IArchiveProgressListener* listener,
                 const OneFile& one) {
  if (one.stored.empty() || ClimbsUp(one.stored)) return false;
  const std::optional<std::string> native = platform::ToNativePath(one.path);
  File file;
  if (!native || !file.OpenNative(*native, platform::OpenMode::Read())) return false;
  const std::int64_t size = file.Size();
  if (size < 0 || output.Holds(file)) return false;
  const std::uint32_t attributes = FileAttributes(*native, platform::ToNativePath(one.given));
  const EntryHead head{one.stored, DosDateOf(file), attributes, static_cast<std::uint64_t>(size),
                       false};
  Packer packer(output, info, listener, PackingThreads(head.size));
  if (!packer.AddFile(file, head)) TellSkipped(listener, one.path);
  return packer.Flush();
}

// Without the root folder, which the path must begin with; separators are alike.
std::optional<std::string> BelowRoot(const std::string& own, const char* root_folder) {
  std::optional<std::string> root = OwnFromLibrary(root_folder);
  if (!root) return std::nullopt;
  std::string path = own;
  std::replace(path.begin(), path.end(), '/', '\\');
  std::replace(root->begin(), root->end(), '/', '\\');
  if (!BeginsWith(path, *root)) return std::nullopt;
  return own.substr(root->size());
}

std::optional<std::string> StoredFileName(const std::string& path, const char* root_folder,
                                          bool bare_name) {
  const std::optional<std::string> own = OwnFromLibrary(path);
  if (!own) return std::nullopt;
  if (bare_name) return std::string(BareName(*own));
  if (path.find(':') != std::string::npos) return BelowRoot(*own, root_folder);
  return BeginsWith(*own, ".\\") ? own->substr(2) : *own;
}

// Without a separator at its end; empty for the root folder itself.
std::optional<std::string> StoredFolderName(const std::string& path, const char* root_folder,
                                            bool bare_name) {
  std::optional<std::string> own = OwnFromLibrary(path);
  if (!own) return std::nullopt;
  while (EndsInSeparator(*own)) own->pop_back();
  if (bare_name) return WithoutExtension(std::string(BareName(*own)));
  std::optional<std::string> below = BelowRoot(*own + '\\', root_folder);
  while (below && EndsInSeparator(*below)) below->pop_back();
  return below;
}

bool PackFolder(ZipOutput& output, Z_FileInfo& info, IArchiveProgressListener* listener,
                const std::string& path, const std::string& stored, bool bare_names) {
  const std::optional<std::string> native = platform::ToNativePath(path);
  FolderReader folder;
  const bool open = native && folder.Open(*native, true);
  Packer packer(output, info, listener, PackingThreads(open ? kManyBytes : 0));
  const std::string prefix = stored.empty() ? stored : stored + '\\';
  EntryHead head{prefix, 0, kAttributeFolder, 0, true};
  if (open) {
    head.dos_date = DosFromSeconds(folder.WriteTime());
    head.attributes = platform::AttributesOf(*native);
  }
  if (!prefix.empty()) packer.AddFolder(head);
  if (open) {
    const std::string shown = LibraryForm(WithoutSeparators(*native));
    FolderWalk(packer, output, info, listener, bare_names).Pack(folder, shown, prefix);
  }
  packer.Flush();
  return !packer.IsOver();
}

// The root folder that the arguments of OpenZip stand for.
std::string RootFolder(const char* root_folder, const std::string& archive) {
  if (root_folder == nullptr) return LibraryForm(FolderPart(archive));
  std::string root = root_folder;
  if (!root.empty() && !platform::IsSeparator(root.back())) root += '\\';
  return root;
}

// An archive beside what it holds, which add adds.
template <typename Add>
bool PackBeside(const char* path, Add add) {
  const std::optional<std::string> full = FullPath(path);
  if (!full) return false;
  CZipper zipper;
  const std::string archive = LibraryForm(WithoutExtension(*full)) + ".zip";
  const bool added = zipper.OpenZip(archive.c_str(), nullptr) && add(zipper, LibraryForm(*full));
  if (added) return zipper.CloseZip();
  zipper.DiscardZip();
  return false;
}

ZipOutput* Output(void* handle) {
  return static_cast<ZipOutput*>(handle);
}

}  // namespace
}  // namespace qvx::archive

namespace archive = qvx::archive;
namespace platform = qvx::platform;

IArchiveProgressListener::~IArchiveProgressListener() = default;
void IArchiveProgressListener::OnArchiveSkipped(const char*) {}

CZipper::CZipper() : zipHandle(nullptr), rootFolder(), info(), mListener(nullptr) {}

CZipper::CZipper(const char* zipPath, const char* rootFolderPath, bool append) : CZipper() {
  if (zipPath != nullptr) OpenZip(zipPath, rootFolderPath, append);
}

CZipper::~CZipper() {
  CloseZip();
}

CZipper::CZipper(const CZipper& other) : CZipper() {
  *this = other;
}

CZipper& CZipper::operator=(const CZipper& other) {
  if (this == &other) return *this;
  std::memcpy(rootFolder, other.rootFolder, sizeof rootFolder);
  info = other.info;
  mListener = other.mListener;
  return *this;
}

bool CZipper::OpenZip(const char* zipPath, const char* rootFolderPath, bool append) {
  CloseZip();
  const std::optional<std::string> native = archive::FullPath(zipPath);
  if (!native) return false;
  const std::string root = archive::RootFolder(rootFolderPath, *native);
  if (root.size() >= sizeof rootFolder) return false;
  zipHandle = archive::ZipOutput::Open(*native, append).release();
  if (zipHandle == nullptr) return false;
  std::memcpy(rootFolder, root.c_str(), root.size() + 1);
  return true;
}

bool CZipper::CloseZip() {
  const std::unique_ptr<archive::ZipOutput> output(archive::Output(zipHandle));
  const bool complete = output == nullptr || output->Finish();
  zipHandle = nullptr;
  rootFolder[0] = '\0';
  info = {};
  return complete;
}

void CZipper::DiscardZip() {
  delete archive::Output(std::exchange(zipHandle, nullptr));
  CloseZip();
}

void CZipper::GetFileInfo(Z_FileInfo& fileInfo) {
  fileInfo = info;
}

bool CZipper::AddFileToZip(const char* filePath, bool ignoreFilePath) {
  if (zipHandle == nullptr || filePath == nullptr) return false;
  const std::string given = filePath;
  if (!ignoreFilePath && given.compare(0, 3, "..\\") == 0) return false;
  DbgOutputA(2, "CZipper::AddFileToZip(%s)\n", filePath);
  const auto stored = archive::StoredFileName(given, rootFolder, ignoreFilePath);
  return stored && archive::PackOneFile(*archive::Output(zipHandle), info, mListener,
                                        {SourcePath(filePath), given, *stored});
}

bool CZipper::AddFileToZip(const char* filePath, const char* relFolderPath) {
  if (zipHandle == nullptr || filePath == nullptr) return false;
  std::string folder = relFolderPath == nullptr ? "" : relFolderPath;
  if (folder.find(':') != std::string::npos) return false;
  if (!folder.empty() && !platform::IsSeparator(folder.back())) folder += '\\';
  if (!folder.empty() && folder[0] == '\\') folder.erase(0, 1);
  const auto below = archive::OwnFromLibrary(folder);
  const auto own = archive::OwnFromLibrary(filePath);
  if (!below || !own) return false;
  return archive::PackOneFile(
      *archive::Output(zipHandle), info, mListener,
      {SourcePath(filePath), filePath, *below + std::string(archive::BareName(*own))});
}

bool CZipper::AddFolderToZip(const char* folderPath, bool ignoreFilePath) {
  if (zipHandle == nullptr) return false;
  ++info.folderCount;
  if (folderPath == nullptr) return false;
  const std::string path = SourcePath(folderPath);
  const auto stored = archive::StoredFolderName(path, rootFolder, ignoreFilePath);
  if (!stored || archive::ClimbsUp(*stored)) return false;
  return archive::PackFolder(*archive::Output(zipHandle), info, mListener, path, *stored,
                             ignoreFilePath);
}

bool CZipper::ZipFile(const char* filePath) {
  return archive::PackBeside(filePath, [](CZipper& zipper, const std::string& path) {
    return zipper.AddFileToZip(path.c_str(), false);
  });
}

bool CZipper::ZipFolder(const char* folderPath, bool ignoreFilePath) {
  return archive::PackBeside(folderPath, [=](CZipper& zipper, const std::string& path) {
    return zipper.AddFolderToZip(path.c_str(), ignoreFilePath);
  });
}

void CZipper::SetProgressListener(IArchiveProgressListener* listener) {
  mListener = listener;
}

std::string CZipper::SourcePath(const char* path) const {
  const std::string given = path;
  return given.find(':') == std::string::npos ? rootFolder + given : given;
}

void CZipper::PrepareSourcePath(const char* path) {
  if (path == nullptr) return;
  std::string source = SourcePath(path);
  if (source.size() >= sizeof rootFolder) source.clear();
  std::memcpy(const_cast<char*>(path), source.c_str(), source.size() + 1);
}
