#include "platform/folder.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "platform/path.h"
#include "platform/seam.h"

namespace qvx::platform {

namespace {

std::string WithoutTrailingSeparators(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

EntryKind KindOfEntry(int folder, const dirent& entry) {
  switch (entry.d_type) {
    case DT_REG:
      return EntryKind::kFile;
    case DT_DIR:
      return EntryKind::kFolder;
    case DT_LNK:
    case DT_UNKNOWN:
      return KindAt(folder, entry.d_name);
    default:
      return EntryKind::kSpecial;
  }
}

bool IsDots(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// A search text cut into the folder, which keeps its separator or drive, and the element.
struct Search {
  std::u16string folder;
  std::u16string element;

  bool HasWildcard() const { return element.find_first_of(u"*?") != std::u16string::npos; }
};

Search SplitSearch(std::u16string_view text) {
  const std::size_t separator = text.find_last_of(u"\\/");
  std::size_t start = separator == std::u16string_view::npos ? 0 : separator + 1;
  if (start == 0 && text.size() > 2 && text[1] == u':') start = 2;
  Search search{std::u16string(text.substr(0, start)), std::u16string(text.substr(start))};
  if (search.folder.empty()) search.folder = u".";
  return search;
}

std::optional<EntryKind> FirstMatch(const Search& search) {
  const std::optional<std::string> folder = ToNativePath(std::u16string_view(search.folder));
  FolderReader reader;
  if (!folder || !reader.Open(*folder, true)) return std::nullopt;
  FolderEntry entry;
  while (reader.Next(entry)) {
    if (entry.kind == EntryKind::kSpecial) continue;
    if (MatchesPattern(*FromNativeName<char16_t>(entry.name), search.element)) return entry.kind;
  }
  return std::nullopt;
}

// One folder of a walk through a tree, with what it held when the walk came to it.
struct Level {
  FolderReader source;
  FolderReader target;  // of a copy
  std::string below;    // path below the top, with a separator behind it where not empty
  std::vector<std::string> folders;
  std::vector<std::string> files;
  std::size_t next = 0;  // in folders

  bool Done() const { return next == folders.size(); }
};

void Tell(const TreeActions& actions, const std::string& below, SkipReason reason) {
  if (actions.skipped) actions.skipped(below, reason);
}

void ReadLevel(Level& level, bool recursive, const TreeActions& actions) {
  FolderEntry entry;
  while (level.source.Next(entry)) {
    if (entry.kind == EntryKind::kFolder) {
      if (recursive) level.folders.push_back(entry.name);
    } else if (entry.kind == EntryKind::kSpecial) {
      Tell(actions, level.below + entry.name, SkipReason::kSpecial);
    } else if (!actions.filter || actions.filter(entry.name)) {
      level.files.push_back(entry.name);
    }
  }
}

void DeleteFiles(const Level& level, const TreeActions& actions) {
  for (const std::string& name : level.files) {
    if (unlinkat(level.source.Descriptor(), name.c_str(), 0) != 0 && errno != ENOENT) {
      Tell(actions, level.below + name, SkipReason::kFailed);
    }
  }
}

void RemoveFolder(const Level& parent, const std::string& name, const TreeActions& actions) {
  if (unlinkat(parent.source.Descriptor(), name.c_str(), AT_REMOVEDIR) == 0) return;
  if (errno == ENOTEMPTY || errno == EEXIST || errno == ENOENT) return;
  Tell(actions, parent.below + name, SkipReason::kFailed);
}

// The next folder below a level, opened and read. One that can't be opened goes if it is empty.
std::optional<Level> EnterForRemoval(const Level& parent, const std::string& name,
                                     bool remove_folders, const TreeActions& actions) {
  Level level;
  level.below = parent.below + name + '/';
  if (!level.source.OpenAt(parent.source.Descriptor(), name, false)) {
    const bool gone =
        errno == ENOENT ||
        (remove_folders && unlinkat(parent.source.Descriptor(), name.c_str(), AT_REMOVEDIR) == 0);
    if (!gone) Tell(actions, parent.below + name, SkipReason::kFailed);
    return std::nullopt;
  }
  ReadLevel(level, true, actions);
  return level;
}

bool IsSameFolder(int descriptor, const struct stat& other) {
  struct stat status;
  return fstat(descriptor, &status) == 0 && status.st_dev == other.st_dev &&
         status.st_ino == other.st_ino;
}

// Makes and opens the copy of a folder that is open.
bool OpenCopy(const Level& parent, const std::string& name, Level& level) {
  struct stat status;
  if (fstat(level.source.Descriptor(), &status) != 0) return false;
  const mode_t permissions = (status.st_mode & 0777) | 0700;
  const int target = parent.target.Descriptor();
  if (mkdirat(target, name.c_str(), permissions) != 0 && errno != EEXIST) return false;
  return level.target.OpenAt(target, name, false);
}

std::optional<Level> EnterForCopy(const Level& parent, const std::string& name,
                                  const struct stat& top_target, const TreeActions& actions) {
  Level level;
  level.below = parent.below + name + '/';
  const bool open = level.source.OpenAt(parent.source.Descriptor(), name, false);
  if (open && IsSameFolder(level.source.Descriptor(), top_target)) return std::nullopt;
  if (!open || !OpenCopy(parent, name, level)) {
    Tell(actions, parent.below + name, SkipReason::kFailed);
    return std::nullopt;
  }
  ReadLevel(level, true, actions);
  return level;
}

bool CopyEntry(const Level& level, const std::string& name) {
  const Place from{level.source.Descriptor(), name};
  const Place to{level.target.Descriptor(), name};
  struct stat status;
  const bool file = fstatat(from.folder, name.c_str(), &status, 0) == 0 && S_ISREG(status.st_mode);
  return file ? CopyFileContent(from, to) : CopyLink(from, to);
}

void CopyFiles(const Level& level, const TreeActions& actions) {
  for (const std::string& name : level.files) {
    if (!CopyEntry(level, name)) Tell(actions, level.below + name, SkipReason::kFailed);
  }
}

}  // namespace

FolderReader::~FolderReader() {
  if (stream_ != nullptr) closedir(stream_);
}

FolderReader::FolderReader(FolderReader&& other) noexcept
    : stream_(std::exchange(other.stream_, nullptr)) {}

FolderReader& FolderReader::operator=(FolderReader&& other) noexcept {
  std::swap(stream_, other.stream_);
  return *this;
}

bool FolderReader::Open(const std::string& path, bool follow) {
  return OpenAt(AT_FDCWD, WithoutTrailingSeparators(path), follow);
}

bool FolderReader::OpenAt(int folder, const std::string& name, bool follow) {
  if (SeamFails(Operation::kFileOpen)) return false;
  const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK | (follow ? 0 : O_NOFOLLOW);
  int descriptor;
  do {
    descriptor = openat(folder, name.c_str(), flags);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) return false;
  DIR* stream = fdopendir(descriptor);
  if (stream == nullptr) {
    const int error = errno;
    close(descriptor);
    errno = error;
    return false;
  }
  if (stream_ != nullptr) closedir(stream_);
  stream_ = stream;
  return true;
}

bool FolderReader::Next(FolderEntry& entry) {
  if (stream_ == nullptr) return false;
  for (;;) {
    const dirent* found = readdir(stream_);
    if (found == nullptr) return false;
    if (IsDots(found->d_name)) continue;
    entry.kind = KindOfEntry(Descriptor(), *found);
    if (entry.kind == EntryKind::kNone) continue;
    entry.name = found->d_name;
    return true;
  }
}

int FolderReader::Descriptor() const {
  return stream_ == nullptr ? -1 : dirfd(stream_);
}

std::int64_t FolderReader::WriteTime() const {
  struct stat status;
  return fstat(Descriptor(), &status) == 0 ? status.st_mtim.tv_sec : 0;
}

bool MatchesPattern(std::u16string_view name, std::u16string_view pattern) {
  if (pattern == u"*.*") return true;
  std::size_t at = 0;
  std::size_t want = 0;
  std::size_t star = std::u16string_view::npos;  // the last * passed
  std::size_t resume = 0;                        // what it has taken so far
  while (at < name.size()) {
    if (want < pattern.size() && pattern[want] == u'*') {
      star = want++;
      resume = at;
    } else if (want < pattern.size() && (pattern[want] == u'?' || pattern[want] == name[at])) {
      ++want;
      ++at;
    } else if (star != std::u16string_view::npos) {
      want = star + 1;
      at = ++resume;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of(u'*', want) == std::u16string_view::npos;
}

std::optional<EntryKind> FindFirst(std::u16string_view search) {
  if (search.empty() || IsSeparator(search.back())) return std::nullopt;
  const Search parts = SplitSearch(search);
  if (parts.HasWildcard()) return FirstMatch(parts);
  const std::optional<std::string> native = ToNativePath(search);
  if (!native) return std::nullopt;
  const EntryKind kind = KindOf(*native);
  if (kind == EntryKind::kNone || kind == EntryKind::kSpecial) return std::nullopt;
  return kind;
}

std::optional<EntryKind> FindFirst(std::string_view search) {
  return FindFirst(std::u16string_view(WidePath(search)));
}

void MakeFolders(const std::string& path) {
  if (path.size() >= PATH_MAX) return;
  const std::string whole = WithoutTrailingSeparators(path);
  std::string existing = whole;
  while (!existing.empty() && KindOf(existing) != EntryKind::kFolder) {
    const std::size_t separator = existing.rfind('/');
    existing.resize(separator == std::string::npos ? 0 : separator);
  }
  std::size_t end = existing.size();
  while (end < whole.size()) {
    end = std::min(whole.find('/', end + 1), whole.size());
    MakeFolder(whole.substr(0, end));
  }
}

void RemoveFolderContent(const std::string& folder, bool remove_folders, bool recursive,
                         const TreeActions& actions) {
  std::vector<Level> levels(1);
  if (!levels.back().source.Open(folder, false)) return;
  ReadLevel(levels.back(), recursive, actions);
  while (!levels.empty()) {
    Level& level = levels.back();
    if (!level.Done()) {
      std::optional<Level> child =
          EnterForRemoval(level, level.folders[level.next], remove_folders, actions);
      if (child) {
        levels.push_back(std::move(*child));
      } else {
        ++level.next;
      }
      continue;
    }
    DeleteFiles(level, actions);
    levels.pop_back();
    if (levels.empty()) break;
    Level& parent = levels.back();
    if (remove_folders) RemoveFolder(parent, parent.folders[parent.next], actions);
    ++parent.next;
  }
}

void CopyFolderContent(const std::string& source, const std::string& target,
                       const std::function<void()>& make_target, const TreeActions& actions) {
  std::vector<Level> levels(1);
  const bool readable = levels.back().source.Open(source, true);
  if (readable) ReadLevel(levels.back(), true, actions);
  make_target();
  struct stat top_target;
  if (!readable || !levels.back().target.Open(target, true)) return;
  if (fstat(levels.back().target.Descriptor(), &top_target) != 0) return;
  if (IsSameFolder(levels.back().source.Descriptor(), top_target)) return;
  while (!levels.empty()) {
    Level& level = levels.back();
    if (level.Done()) {
      CopyFiles(level, actions);
      levels.pop_back();
      continue;
    }
    const std::string& name = level.folders[level.next++];
    std::optional<Level> child = EnterForCopy(level, name, top_target, actions);
    if (child) levels.push_back(std::move(*child));
  }
}

}  // namespace qvx::platform
