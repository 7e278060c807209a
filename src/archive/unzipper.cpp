#include "qvx/unzipper.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "archive/byte_source.h"
#include "archive/dos_time.h"
#include "archive/entry_reader.h"
#include "archive/full_path.h"
#include "archive/zip_directory.h"
#include "archive/zip_format.h"
#include "archive/zip_name.h"
#include "platform/file.h"
#include "platform/output_folder.h"
#include "platform/path.h"
#include "platform/pending_file.h"
#include "qvx/copy_progress.h"

namespace qvx::archive {
namespace {

constexpr std::size_t kBlock = 256 * 1024;
constexpr std::size_t kNameLimit = 260;
constexpr std::size_t kCommentLimit = 255;
constexpr std::size_t kLocateLimit = 256;  // whole names from this length on are not looked for
constexpr std::uint64_t kFreeSize = 16ull << 30;
constexpr std::uint64_t kFreeRatio = 100;

// What stands behind an open archive's handle.
struct OpenArchive {
  ByteSource source;
  std::vector<ZipEntry> entries;
  std::size_t current = 0;
  EntryReader reader{source};
  std::unique_ptr<unsigned char[]> block;

  const ZipEntry* Current() const { return current < entries.size() ? &entries[current] : nullptr; }
};

OpenArchive* Archive(void* handle) {
  return static_cast<OpenArchive*>(handle);
}

const ZipEntry* CurrentEntry(void* handle) {
  return handle == nullptr ? nullptr : Archive(handle)->Current();
}

std::string Narrow(std::string_view own) {
  return NarrowFromOwn(std::string(own), std::numeric_limits<std::uint16_t>::max());
}

bool HasExtension(const ZipEntry& entry, const char* ext) {
  if (ext == nullptr || *ext == '\0') return true;
  return EqualTexts(Narrow(ExtensionOf(entry.name)), ext);
}

std::string_view View(const char* text) {
  return text == nullptr ? std::string_view() : std::string_view(text);
}

// A missing path of one element is not made, but counts as a folder.
bool MakeFolders(const std::string& native) {
  const platform::EntryKind kind = platform::KindOf(native);
  if (kind != platform::EntryKind::kNone) return kind == platform::EntryKind::kFolder;
  const std::string above = FolderPart(native);
  if (above.empty()) return true;
  return MakeFolders(WithoutSeparators(above)) && platform::MakeFolder(native);
}

void CopyText(const std::string& text, char* out) {
  std::memcpy(out, text.data(), text.size());
  out[text.size()] = '\0';
}

void FillInfo(const ZipEntry& entry, UZ_FileInfo& info) {
  std::string name = NarrowFromOwn(entry.name, kNameLimit);
  std::replace(name.begin(), name.end(), '/', '\\');
  CopyText(name, info.fileName);
  CopyText(NarrowFromOwn(entry.comment, kCommentLimit), info.comment);
  info.version = entry.version;
  info.versionNeeded = entry.version_needed;
  info.flags = entry.flags;
  info.compressionMethod = entry.method;
  info.dosDate = entry.dos_date;
  info.crc = entry.crc;
  info.compressedSize = static_cast<std::uint32_t>(entry.compressed_size);
  info.uncompressedSize = static_cast<std::uint32_t>(entry.size);
  info.internalAttrib = entry.internal_attributes;
  info.externalAttrib = entry.attributes;
  info.isFolder = entry.IsFolder();
}

// The files of one call, below one folder.
class Unpacking {
 public:
  Unpacking(OpenArchive& archive, IArchiveProgressListener* listener, bool bare_names)
      : archive_(archive), listener_(listener), bare_names_(bare_names) {}

  // Library path.
  bool OpenFolder(const char* folder) {
    const std::optional<std::string> native = platform::ToNativePath(std::string_view(folder));
    return native && folder_.Open(*native);
  }

  bool Unpack(const ZipEntry& entry) {
    if (entry.IsFolder()) return bare_names_ || MakeFolder(entry);
    const std::string_view name = bare_names_ ? BareName(entry.name) : entry.name;
    const auto elements = ElementsBelow(name);
    platform::PendingFile file;
    if (!elements || !archive_.reader.Open(entry)) return false;
    if (!folder_.BeginFile(*elements, file) || !Write(entry, file.Content())) return false;
    if (const auto seconds = SecondsFromDos(entry.dos_date)) {
      platform::SetWriteTime(file.Content(), *seconds);
    }
    return file.Install();
  }

 private:
  bool MakeFolder(const ZipEntry& entry) {
    const auto elements = ElementsBelow(entry.name);
    return elements && folder_.MakeFolder(*elements);
  }

  bool Write(const ZipEntry& entry, const platform::File& file) {
    if (!archive_.block) archive_.block.reset(new unsigned char[kBlock]);
    unsigned char* block = archive_.block.get();
    std::uint64_t offset = 0;
    std::size_t got = kBlock;
    while (got == kBlock) {
      if (!archive_.reader.Read(block, kBlock, got)) return false;
      if (!IsZero(block, got) && file.WriteAt(offset, block, got).count < got) return false;
      offset += got;
      if (!Report(entry, offset)) return false;
    }
    return file.Size() == static_cast<std::int64_t>(offset) || file.Resize(offset);
  }

  // Blocks of zeros become holes of the file.
  static bool IsZero(const unsigned char* block, std::size_t size) {
    return size == 0 || (block[0] == 0 && std::memcmp(block, block + 1, size - 1) == 0);
  }

  bool Report(const ZipEntry& entry, std::uint64_t done) const {
    return listener_ == nullptr ||
           listener_->OnArchiveProgress(Narrow(entry.name).c_str(), done, entry.size) != 0;
  }

  OpenArchive& archive_;
  IArchiveProgressListener* const listener_;
  const bool bare_names_;
  platform::OutputFolder folder_;
};

// The sum of what files claim, or the largest number where that is more.
std::uint64_t TotalSize(const std::vector<ZipEntry>& entries) {
  std::uint64_t total = 0;
  for (const ZipEntry& entry : entries) {
    if (entry.IsFolder()) continue;
    total = entry.size > UINT64_MAX - total ? UINT64_MAX : total + entry.size;
  }
  return total;
}

bool FindName(OpenArchive& archive, const char* name, bool bare) {
  for (std::size_t i = 0; i < archive.entries.size(); ++i) {
    const std::string_view own = archive.entries[i].name;
    if (!EqualTexts(Narrow(bare ? BareName(own) : own), name)) continue;
    archive.current = i;
    return true;
  }
  return false;
}

// The entries from here on, of which the first that fits becomes the current one.
bool MoveToExtension(OpenArchive& archive, std::size_t from, const char* ext) {
  for (std::size_t i = from; i < archive.entries.size(); ++i) {
    archive.current = i;
    if (HasExtension(archive.entries[i], ext)) return true;
  }
  return false;
}

}  // namespace
}  // namespace qvx::archive

namespace archive = qvx::archive;
namespace platform = qvx::platform;

CUnzipper::CUnzipper(const char* zipPath)
    : unzHandle(nullptr), outputFolder(), mSizeLimit(0), mListener(nullptr) {
  OpenZip(zipPath);
}

CUnzipper::~CUnzipper() {
  CloseZip();
}

CUnzipper::CUnzipper(const CUnzipper& other) : CUnzipper() {
  *this = other;
}

CUnzipper& CUnzipper::operator=(const CUnzipper& other) {
  if (this == &other) return *this;
  std::memcpy(outputFolder, other.outputFolder, sizeof outputFolder);
  mSizeLimit = other.mSizeLimit;
  mListener = other.mListener;
  return *this;
}

bool CUnzipper::OpenZip(const char* zipPath) {
  CloseZip();
  if (zipPath == nullptr) return false;
  const std::optional<std::string> native = archive::FullPath(zipPath);
  auto opened = std::make_unique<archive::OpenArchive>();
  if (!native || !opened->source.Open(*native)) return false;
  if (!archive::ReadZipDirectory(opened->source, opened->entries)) return false;
  archive::CopyText(archive::LibraryForm(archive::WithoutExtension(*native)), outputFolder);
  unzHandle = opened.release();
  return true;
}

bool CUnzipper::CloseZip() {
  const std::unique_ptr<archive::OpenArchive> opened(archive::Archive(unzHandle));
  unzHandle = nullptr;
  outputFolder[0] = '\0';
  return opened != nullptr;
}

bool CUnzipper::SetOutputFolder(const char* folder) {
  if (folder == nullptr || std::strlen(folder) >= sizeof outputFolder) return false;
  const auto native = platform::ToNativePath(std::string_view(folder));
  if (native) {
    const platform::EntryKind kind = platform::KindOf(*native);
    if (kind != platform::EntryKind::kNone && kind != platform::EntryKind::kFolder) return false;
  }
  std::memcpy(outputFolder, folder, std::strlen(folder) + 1);
  return CreateFolder(folder);
}

int CUnzipper::GetFileCount() {
  if (unzHandle == nullptr) return 0;
  const std::size_t most = std::numeric_limits<int>::max();
  return static_cast<int>(std::min(archive::Archive(unzHandle)->entries.size(), most));
}

bool CUnzipper::GetFileInfo(UZ_FileInfo& info) {
  info = {};
  const archive::ZipEntry* entry = archive::CurrentEntry(unzHandle);
  if (entry == nullptr) return false;
  archive::FillInfo(*entry, info);
  return true;
}

bool CUnzipper::GetFileInfo(int index, UZ_FileInfo& info) {
  info = {};
  return GotoFile(index) && GetFileInfo(info);
}

std::uint64_t CUnzipper::GetFileSize() {
  const archive::ZipEntry* entry = archive::CurrentEntry(unzHandle);
  return entry == nullptr ? 0 : entry->size;
}

std::uint64_t CUnzipper::GetTotalSize() {
  return unzHandle == nullptr ? 0 : archive::TotalSize(archive::Archive(unzHandle)->entries);
}

bool CUnzipper::GotoFirstFile(const char* ext) {
  return unzHandle != nullptr && archive::MoveToExtension(*archive::Archive(unzHandle), 0, ext);
}

bool CUnzipper::GotoNextFile(const char* ext) {
  if (unzHandle == nullptr) return false;
  archive::OpenArchive& opened = *archive::Archive(unzHandle);
  return archive::MoveToExtension(opened, opened.current + 1, ext);
}

bool CUnzipper::GotoFile(int index) {
  if (index < 0 || index >= GetFileCount()) return false;
  archive::Archive(unzHandle)->current = static_cast<std::size_t>(index);
  return true;
}

bool CUnzipper::GotoFile(const char* fileName, bool ignoreFilePath) {
  if (unzHandle == nullptr || fileName == nullptr) return false;
  archive::OpenArchive& opened = *archive::Archive(unzHandle);
  if (std::strlen(fileName) < archive::kLocateLimit && archive::FindName(opened, fileName, false)) {
    return true;
  }
  if (!ignoreFilePath) return false;
  if (archive::FindName(opened, fileName, true)) return true;
  if (!opened.entries.empty()) opened.current = opened.entries.size() - 1;
  return false;
}

bool CUnzipper::UnzipFile(const char* folder, bool ignoreFilePath) {
  if (unzHandle == nullptr) return false;
  archive::OpenArchive& opened = *archive::Archive(unzHandle);
  const char* target = folder == nullptr ? outputFolder : folder;
  const archive::ZipEntry* entry = opened.Current();
  archive::Unpacking unpacking(opened, mListener, ignoreFilePath);
  if (!CreateFolder(target) || entry == nullptr || !unpacking.OpenFolder(target)) return false;
  if (!entry->IsFolder() && entry->size > GetSizeLimit()) return false;
  return unpacking.Unpack(*entry);
}

bool CUnzipper::UnzipFile(int index, const char* folder, bool ignoreFilePath) {
  return GotoFile(index) && UnzipFile(folder, ignoreFilePath);
}

bool CUnzipper::UnzipTo(const char* folder, bool ignoreFilePath) {
  if (unzHandle == nullptr || folder == nullptr || !CreateFolder(folder)) return false;
  archive::OpenArchive& opened = *archive::Archive(unzHandle);
  archive::Unpacking unpacking(opened, mListener, ignoreFilePath);
  if (!GotoFirstFile(nullptr) || !unpacking.OpenFolder(folder)) return false;
  if (archive::TotalSize(opened.entries) > GetSizeLimit()) return false;
  do {
    if (!unpacking.Unpack(*opened.Current())) return false;
  } while (GotoNextFile(nullptr));
  return true;
}

bool CUnzipper::Unzip(bool ignoreFilePath) {
  return UnzipTo(outputFolder, ignoreFilePath);
}

bool CUnzipper::Unzip(const char* zipPath, const char* folder, bool ignoreFilePath) {
  CUnzipper unzipper(zipPath);
  return unzipper.UnzipTo(folder, ignoreFilePath);
}

void CUnzipper::SetSizeLimit(std::uint64_t bytes) {
  mSizeLimit = bytes;
}

std::uint64_t CUnzipper::GetSizeLimit() {
  if (mSizeLimit != 0 || unzHandle == nullptr) return mSizeLimit;
  const std::uint64_t size = archive::Archive(unzHandle)->source.Size();
  return std::max(archive::kFreeSize, archive::kFreeRatio * size);
}

void CUnzipper::SetProgressListener(IArchiveProgressListener* listener) {
  mListener = listener;
}

bool CUnzipper::CreateFolder(const char* path) {
  const auto native = platform::ToNativePath(archive::View(path));
  return native && archive::MakeFolders(archive::WithoutSeparators(*native));
}

bool CUnzipper::CreateFilePath(const char* filePath) {
  const auto native = platform::ToNativePath(archive::View(filePath));
  const std::string folder = native ? archive::FolderPart(*native) : std::string();
  return !folder.empty() && archive::MakeFolders(archive::WithoutSeparators(folder));
}

bool CUnzipper::SetFileModTime(const char* filePath, unsigned long dosDate) {
  platform::File file;
  if (!file.Open(filePath, platform::OpenMode{true, true, false, false, false, false})) {
    return false;
  }
  const auto seconds = archive::SecondsFromDos(static_cast<std::uint32_t>(dosDate));
  return seconds && platform::SetWriteTime(file, *seconds) && file.Close();
}
