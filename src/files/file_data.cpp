#include "qvx/file_data.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "files/extension_filter.h"
#include "files/tree_report.h"
#include "platform/clock.h"
#include "platform/code_page.h"
#include "platform/file.h"
#include "platform/folder.h"
#include "platform/last_error.h"
#include "platform/path.h"
#include "qvx/debug_output.h"

namespace qvx::files {
namespace {

using platform::EntryKind;
using platform::File;
using platform::OpenMode;

constexpr std::size_t kBlock = 0x100000;

std::size_t BlockFor(std::int64_t size) {
  return static_cast<std::size_t>(std::min<std::int64_t>(size, kBlock));
}

template <typename C>
bool OpenForReading(File& file, const C* path) {
  return path != nullptr &&
         platform::FindFirst(std::basic_string_view<C>(path)) == EntryKind::kFile &&
         file.Open(path, OpenMode::Read());
}

template <typename C>
std::uint64_t ReadFileData(const C* path, void** data) {
  if (data != nullptr) *data = nullptr;
  File file;
  if (!OpenForReading(file, path)) return 0;
  const std::int64_t size = file.Size();
  if (size <= 0) return 0;
  const auto count = static_cast<std::size_t>(size);
  if (data == nullptr) return count;
  std::unique_ptr<char[]> block(new char[count]);
  const platform::Transfer got = file.ReadAt(0, block.get(), count);
  if (got.count > 0) *data = block.release();
  return got.count;
}

void LogWriteFailure(const char* path, const char* error) {
  DbgOutputA(3, "WriteFile failed create file:%s, error=%s\r\n", path, error);
}

void LogWriteFailure(const WCHAR* path, const char* error) {
  const std::u16string wide = platform::Utf8ToUtf16(error);
  DbgOutputW(3, u"WriteFile failed create file:%ls, error=%ls\r\n", path, wide.c_str());
}

template <typename C>
bool WriteFileData(const C* path, const void* data, std::uint64_t size, bool append) {
  if (path == nullptr || data == nullptr) return false;
  File file;
  if (!file.Open(path, append ? OpenMode::Append() : OpenMode::Write())) {
    LogWriteFailure(path, platform::SystemErrorText(errno));
    return false;
  }
  const bool complete = file.WriteAt(0, data, size).count == size;
  return file.Close() && complete;
}

bool EqualBytes(const File& left, const File& right, std::int64_t size) {
  const std::size_t block = BlockFor(size);
  const std::unique_ptr<char[]> left_block(new char[block]);
  const std::unique_ptr<char[]> right_block(new char[block]);
  for (std::int64_t offset = 0; offset < size;) {
    const std::size_t step = BlockFor(size - offset);
    const auto place = static_cast<std::uint64_t>(offset);
    if (left.ReadAt(place, left_block.get(), step).count != step) return false;
    if (right.ReadAt(place, right_block.get(), step).count != step) return false;
    if (std::memcmp(left_block.get(), right_block.get(), step) != 0) return false;
    offset += static_cast<std::int64_t>(step);
  }
  return true;
}

// The bytes copied.
std::int64_t CopyWithProgress(const File& from, const File& to, std::int64_t size,
                              IFileCopyProgressListener* listener, std::uint64_t userData) {
  const std::unique_ptr<char[]> block(new char[BlockFor(size)]);
  if (listener != nullptr) listener->OnFileCopyProgress(userData, 0, size);
  std::int64_t copied = 0;
  while (copied < size) {
    const std::size_t step = BlockFor(size - copied);
    const auto place = static_cast<std::uint64_t>(copied);
    if (from.ReadAt(place, block.get(), step).count != step) break;
    if (to.WriteAt(place, block.get(), step).count != step) break;
    copied += static_cast<std::int64_t>(step);
    if (listener != nullptr) listener->OnFileCopyProgress(userData, copied, size);
  }
  return copied;
}

template <typename C>
void RemoveFile(const C* folder, const C* extFilter, bool removeFolders, bool recursive) {
  if (folder == nullptr || *folder == C()) return;
  const std::optional<std::string> native =
      platform::ToNativePath(std::basic_string_view<C>(folder));
  if (!native) return;
  const ExtensionFilter filter(extFilter);
  platform::TreeActions actions;
  actions.skipped = TreeReport(folder);
  if (!filter.TakesAll()) {
    actions.filter = [&filter](const std::string& name) {
      return filter.Takes(*platform::FromNativeName<char16_t>(name));
    };
  }
  platform::RemoveFolderContent(*native, removeFolders, recursive, actions);
}

void Store(SYSTEMTIME* out, const timespec& time) {
  if (out == nullptr) return;
  *out = platform::LocalTimeOf(time.tv_sec, static_cast<std::int32_t>(time.tv_nsec));
}

template <typename C>
bool GetFileSystemTime(const C* path, SYSTEMTIME* creation, SYSTEMTIME* lastAccess,
                       SYSTEMTIME* lastWrite) {
  File file;
  if (!file.Open(path, OpenMode::Read())) return false;
  const std::optional<platform::FileTimes> times = platform::TimesOf(file);
  if (!times) return false;
  Store(creation, times->creation);
  Store(lastAccess, times->access);
  Store(lastWrite, times->write);
  return true;
}

// Set keeps a text that is equal but for case, so the old one goes first.
void FormatFileSize(std::uint64_t size, CBaseStringA& text) {
  const auto number = static_cast<double>(size);
  text.Free();
  if (size < 1024) return text.Format("%.0f ", number);
  if (size < 0x100000) return text.Format("%.2f K", number / 1024);
  if (size < 0x40000000) return text.Format("%.2f M", number / 0x100000);
  if (size < 0x10000000000) return text.Format("%.2f G", number / 0x40000000);
  text.Format("%.2f T", number / 0x10000000000);
}

}  // namespace
}  // namespace qvx::files

namespace files = qvx::files;

IFileCopyProgressListener::~IFileCopyProgressListener() = default;

std::uint64_t ReadFileDataA(const char* path, void** data) {
  return files::ReadFileData(path, data);
}
std::uint64_t ReadFileDataW(const WCHAR* path, void** data) {
  return files::ReadFileData(path, data);
}

void ReleaseFileData(void* data) {
  delete[] static_cast<char*>(data);
}

int WriteFileDataA(const char* path, const void* data, std::uint64_t size, int append) {
  return files::WriteFileData(path, data, size, append != 0);
}
int WriteFileDataW(const WCHAR* path, const void* data, std::uint64_t size, int append) {
  return files::WriteFileData(path, data, size, append != 0);
}

int IsFileDataEqual(const char* path1, const char* path2) {
  files::File left;
  files::File right;
  if (!left.Open(path1, files::OpenMode::Read()) || !right.Open(path2, files::OpenMode::Read()))
    return 0;
  const std::int64_t size = left.Size();
  if (size < 0 || size != right.Size()) return 0;
  return files::EqualBytes(left, right, size);
}

int CopyFileWithCallback(const char* source, const char* target,
                         IFileCopyProgressListener* listener, std::uint64_t userData) {
  files::File from;
  files::File to;
  if (!from.Open(source, files::OpenMode::Read()) || from.IsAlso(target) ||
      !to.Open(target, files::OpenMode::Write()))
    return 0;
  const std::int64_t size = from.Size();
  if (size <= 0) return size == 0 && to.Close();
  const bool complete = files::CopyWithProgress(from, to, size, listener, userData) == size;
  return to.Close() && complete;
}

void RemoveFileA(const char* folder, const char* extFilter, int removeFolders, int recursive) {
  files::RemoveFile(folder, extFilter, removeFolders != 0, recursive != 0);
}
void RemoveFileW(const WCHAR* folder, const WCHAR* extFilter, int removeFolders, int recursive) {
  files::RemoveFile(folder, extFilter, removeFolders != 0, recursive != 0);
}

int GetFileSystemTimeA(const char* path, SYSTEMTIME* creation, SYSTEMTIME* lastAccess,
                       SYSTEMTIME* lastWrite) {
  return files::GetFileSystemTime(path, creation, lastAccess, lastWrite);
}
int GetFileSystemTimeW(const WCHAR* path, SYSTEMTIME* creation, SYSTEMTIME* lastAccess,
                       SYSTEMTIME* lastWrite) {
  return files::GetFileSystemTime(path, creation, lastAccess, lastWrite);
}

void FormatFileSizeA(std::uint64_t size, CBaseStringA* text) {
  if (text != nullptr) files::FormatFileSize(size, *text);
}
void FormatFileSizeW(std::uint64_t size, CBaseStringW* text) {
  if (text == nullptr) return;
  CBaseStringA narrow;
  files::FormatFileSize(size, narrow);
  text->Free();
  text->Append(narrow.GetString());
}
