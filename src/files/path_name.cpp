#include "qvx/path_name.h"

#include <cstdio>
#include <string>
#include <string_view>

#include "files/bounded_text.h"
#include "platform/clock.h"
#include "platform/folder.h"
#include "platform/path.h"
#include "platform/random.h"

namespace qvx::files {
namespace {

using platform::EntryKind;
using platform::kPathLimit;

constexpr std::size_t kNone = std::string_view::npos;

template <typename C>
std::size_t Length(const C* text) {
  return std::char_traits<C>::length(text);
}

template <typename C>
std::basic_string_view<C> View(const C* text) {
  return text == nullptr ? std::basic_string_view<C>() : std::basic_string_view<C>(text);
}

template <typename C>
void FixToPathName(C* path) {
  const std::size_t length = View(path).size();
  if (length == 0 || path[length - 1] == C('\\')) return;
  path[length] = C('\\');
  path[length + 1] = C();
}

template <typename C>
void FixToFileName(C* path) {
  const std::size_t length = View(path).size();
  if (length > 0 && path[length - 1] == C('\\')) path[length - 1] = C();
}

template <typename C>
int CombinePathName(C* dest, const C* folder, const C* name) {
  if (dest == nullptr) return 0;
  BoundedText<C> path;
  path.Append(folder);
  if (!path.IsEmpty() && !path.EndsIn(C('\\'))) path.Append(C('\\'));
  path.Append(name);
  path.CopyTo(dest);
  return 1;
}

template <typename C>
void CopyBounded(C* dest, std::basic_string_view<C> text) {
  text = text.substr(0, kPathLimit);
  std::char_traits<C>::move(dest, text.data(), text.size());
  dest[text.size()] = C();
}

template <typename C>
int GetFileParentDir(C* dest, const C* path) {
  if (dest == nullptr || path == nullptr) return 0;
  if (dest != path) CopyBounded(dest, View(path));
  FixToFileName(dest);
  const std::size_t separator = View<C>(dest).rfind(C('\\'));
  dest[separator == kNone ? 0 : separator] = C();
  return 1;
}

template <typename C>
int GetFileShortName(C* dest, const C* path) {
  if (dest == nullptr || path == nullptr) return 0;
  const std::basic_string_view<C> text = View(path).substr(0, kPathLimit);
  CopyBounded(dest, text.substr(text.rfind(C('\\')) + 1));
  return 1;
}

template <typename C>
void SetFileExtName(C* path, const C* ext) {
  if (path == nullptr || ext == nullptr) return;
  const std::basic_string_view<C> text = View<C>(path);
  const std::size_t point = text.rfind(C('.'));
  C* place = path + (point == kNone ? text.size() : point);
  std::char_traits<C>::move(place, ext, Length(ext) + 1);
}

template <typename C>
void GetFileExtName(const C* path, C* ext, int extSize) {
  if (ext == nullptr) return;
  const std::basic_string_view<C> text = View(path);
  const std::size_t point = text.rfind(C('.'));
  std::basic_string_view<C> found;
  if (point != kNone && extSize >= 2) {
    found = text.substr(point + 1, static_cast<std::size_t>(extSize) - 1);
  }
  std::char_traits<C>::move(ext, found.data(), found.size());
  ext[found.size()] = C();
}

template <typename C>
C FoldCase(C character) {
  const bool upper = character >= C('A') && character <= C('Z');
  return upper ? static_cast<C>(character + 0x20) : character;
}

template <typename C>
bool EqualIgnoringCase(std::basic_string_view<C> left, std::basic_string_view<C> right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](C a, C b) { return FoldCase(a) == FoldCase(b); });
}

template <typename C>
std::basic_string_view<C> WithoutSeparator(std::basic_string_view<C> text) {
  if (!text.empty() && text.back() == C('\\')) text.remove_suffix(1);
  return text;
}

template <typename C>
const C* GetFileRelativePath(const C* path, const C* root) {
  const std::basic_string_view<C> inside = WithoutSeparator(View(path));
  const std::basic_string_view<C> start = WithoutSeparator(View(root));
  if (start.size() > inside.size()) return path;
  if (!EqualIgnoringCase(inside.substr(0, start.size()), start)) return path;
  if (path == nullptr) return path;
  path += start.size();
  while (*path == C('\\')) ++path;
  return path;
}

template <typename C>
void GetFileAbsolutePath(C* dest, const C* path, const C* root) {
  if (dest == nullptr) return;
  if (View(path).find(C(':')) == kNone) {
    CombinePathName(dest, root, path);
  } else {
    CopyBounded(dest, View(path));
  }
}

template <typename C>
bool Finds(const C* path, EntryKind kind) {
  return platform::FindFirst(View(path)) == kind;
}

template <typename C>
void AppendExtension(BoundedText<C>& name, const C* ext) {
  if (ext == nullptr) return;
  if (View(ext).find(C('.')) == kNone) name.Append(C('.'));
  name.Append(ext);
}

template <typename C>
void GetFileNameByNumber(C* dest, const C* ext, const C* prefix, int number) {
  if (dest == nullptr) return;
  BoundedText<C> name;
  name.Append(prefix);
  name.AppendAscii(std::to_string(number));
  AppendExtension(name, ext);
  name.CopyTo(dest);
}

template <typename C>
void AppendTime(BoundedText<C>& name, bool date, bool milliseconds) {
  const SYSTEMTIME now = platform::LocalTimeNow();
  char text[32];
  if (date) {
    std::snprintf(text, sizeof text, "%04d_%02d_%02d_", now.wYear, now.wMonth, now.wDay);
    name.AppendAscii(text);
  }
  std::snprintf(text, sizeof text, "%02d_%02d_%02d", now.wHour, now.wMinute, now.wSecond);
  name.AppendAscii(text);
  if (!milliseconds) return;
  std::snprintf(text, sizeof text, "_%03d", now.wMilliseconds);
  name.AppendAscii(text);
}

template <typename C>
void GetFileNameByDate(C* dest, const C* ext, const C* prefix, const C* suffix, bool date,
                       bool milliseconds) {
  if (dest == nullptr) return;
  BoundedText<C> name;
  name.Append(prefix);
  AppendTime(name, date, milliseconds);
  name.Append(suffix);
  if (!View(ext).empty()) AppendExtension(name, ext);
  name.CopyTo(dest);
}

template <typename C>
void GetFileNameByRandom(C* dest, const C* ext, const C* prefix, int length) {
  if (dest == nullptr) return;
  BoundedText<C> name;
  name.Append(prefix);
  const std::size_t count = length < 0 ? 0 : static_cast<std::size_t>(length);
  name.AppendAscii(platform::RandomName(std::min(count, kPathLimit)));
  AppendExtension(name, ext);
  name.CopyTo(dest);
}

}  // namespace
}  // namespace qvx::files

namespace files = qvx::files;
using qvx::platform::EntryKind;

void FixToPathNameA(char* path) {
  files::FixToPathName(path);
}
void FixToPathNameW(WCHAR* path) {
  files::FixToPathName(path);
}
void FixToFileNameA(char* path) {
  files::FixToFileName(path);
}
void FixToFileNameW(WCHAR* path) {
  files::FixToFileName(path);
}

int CombinePathNameA(char* dest, const char* folder, const char* name) {
  return files::CombinePathName(dest, folder, name);
}
int CombinePathNameW(WCHAR* dest, const WCHAR* folder, const WCHAR* name) {
  return files::CombinePathName(dest, folder, name);
}

int GetFileParentDirA(char* dest, const char* path) {
  return files::GetFileParentDir(dest, path);
}
int GetFileParentDirW(WCHAR* dest, const WCHAR* path) {
  return files::GetFileParentDir(dest, path);
}

int GetFileShortNameA(char* dest, const char* path) {
  return files::GetFileShortName(dest, path);
}
int GetFileShortNameW(WCHAR* dest, const WCHAR* path) {
  return files::GetFileShortName(dest, path);
}

void SetFileExtNameA(char* path, const char* ext) {
  files::SetFileExtName(path, ext);
}
void SetFileExtNameW(WCHAR* path, const WCHAR* ext) {
  files::SetFileExtName(path, ext);
}

void GetFileExtNameA(const char* path, char* ext, int extSize) {
  files::GetFileExtName(path, ext, extSize);
}
void GetFileExtNameW(const WCHAR* path, WCHAR* ext, int extSize) {
  files::GetFileExtName(path, ext, extSize);
}

const char* GetFileRelativePathA(const char* path, const char* root) {
  return files::GetFileRelativePath(path, root);
}
const WCHAR* GetFileRelativePathW(const WCHAR* path, const WCHAR* root) {
  return files::GetFileRelativePath(path, root);
}

void GetFileAbsolutePathA(char* dest, const char* path, const char* root) {
  files::GetFileAbsolutePath(dest, path, root);
}
void GetFileAbsolutePathW(WCHAR* dest, const WCHAR* path, const WCHAR* root) {
  files::GetFileAbsolutePath(dest, path, root);
}

int IsDirExistA(const char* path) {
  return files::Finds(path, EntryKind::kFolder);
}
int IsDirExistW(const WCHAR* path) {
  return files::Finds(path, EntryKind::kFolder);
}

int IsFileExistA(const char* path) {
  return files::Finds(path, EntryKind::kFile) || files::Finds(path, EntryKind::kFolder);
}
int IsFileExistW(const WCHAR* path) {
  return files::Finds(path, EntryKind::kFile);
}

void GetFileNameByNumberA(char* dest, const char* ext, const char* prefix, int number) {
  files::GetFileNameByNumber(dest, ext, prefix, number);
}
void GetFileNameByNumberW(WCHAR* dest, const WCHAR* ext, const WCHAR* prefix, int number) {
  files::GetFileNameByNumber(dest, ext, prefix, number);
}

void GetFileNameByDateA(char* dest, const char* ext, const char* prefix, const char* suffix, int,
                        int withDate, int withMillis) {
  files::GetFileNameByDate(dest, ext, prefix, suffix, withDate != 0, withMillis != 0);
}
void GetFileNameByDateW(WCHAR* dest, const WCHAR* ext, const WCHAR* prefix, const WCHAR* suffix,
                        int, int withDate, int withMillis) {
  files::GetFileNameByDate(dest, ext, prefix, suffix, withDate != 0, withMillis != 0);
}

void GetFileNameByRandomA(char* dest, const char* ext, const char* prefix, int length) {
  files::GetFileNameByRandom(dest, ext, prefix, length);
}
void GetFileNameByRandomW(WCHAR* dest, const WCHAR* ext, const WCHAR* prefix, int length) {
  files::GetFileNameByRandom(dest, ext, prefix, length);
}
