#include "platform/file.h"

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include "platform/path.h"
#include "platform/random.h"
#include "platform/seam.h"

namespace qvx::platform {

namespace {

constexpr std::size_t kCopyBlock = 0x100000;
constexpr std::size_t kSmallBlock = 0x1000;
constexpr int kTemporaryAttempts = 100;

bool Fail(int error) {
  errno = error;
  return false;
}

template <typename C>
std::optional<OpenMode> ParseMode(std::basic_string_view<C> text) {
  if (text.empty()) return std::nullopt;
  OpenMode mode;
  mode.read = text[0] == C('r');
  mode.append = text[0] == C('a');
  mode.truncate = text[0] == C('w');
  if (!mode.read && !mode.append && !mode.truncate) return std::nullopt;
  mode.write = mode.create = !mode.read;
  bool plus = false;
  bool kind = false;
  for (C character : text.substr(1)) {
    bool* seen = character == C('+')                          ? &plus
                 : character == C('b') || character == C('t') ? &kind
                 : character == C('x') && mode.truncate       ? &mode.exclusive
                                                              : nullptr;
    if (seen == nullptr || *seen) return std::nullopt;
    *seen = true;
  }
  if (plus) mode.read = mode.write = true;
  return mode;
}

int OpenFlags(const OpenMode& mode, bool follow) {
  int flags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  flags |= mode.write ? (mode.read ? O_RDWR : O_WRONLY) : O_RDONLY;
  if (mode.append) flags |= O_APPEND;
  if (mode.create) flags |= O_CREAT;
  if (mode.truncate) flags |= O_TRUNC;
  if (mode.exclusive) flags |= O_EXCL;
  if (!follow) flags |= O_NOFOLLOW;
  return flags;
}

bool IsRegular(const struct stat& status) {
  if (S_ISREG(status.st_mode)) return true;
  return Fail(S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
}

// Even opening a FIFO or a device can do something to others, so what is there already is
// looked at first.
bool MayOpen(int folder, const char* name, bool follow) {
  struct stat status;
  if (fstatat(folder, name, &status, follow ? 0 : AT_SYMLINK_NOFOLLOW) != 0) return true;
  return S_ISLNK(status.st_mode) ? Fail(ELOOP) : IsRegular(status);
}

EntryKind KindFromMode(mode_t mode) {
  if (S_ISREG(mode)) return EntryKind::kFile;
  return S_ISDIR(mode) ? EntryKind::kFolder : EntryKind::kSpecial;
}

// The last element of a path, without separators behind it.
std::string_view LastElement(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path.substr(path.rfind('/') + 1);
}

bool RenameNoReplace(const char* from, const char* to) {
  if (SeamFails(Operation::kFileRename)) return false;
  return renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0;
}

// Undoes a step of an operation that failed, and keeps the reason of the failure.
template <typename Undo>
bool FailAfter(Undo undo) {
  const int error = errno;
  undo();
  return Fail(error);
}

// Where the file system can't rename without replacing: the new name is first taken by
// something that only we replace.
bool RenameReserved(const char* from, const char* to, bool folder) {
  if (!folder && linkat(AT_FDCWD, from, AT_FDCWD, to, 0) == 0) {
    if (unlink(from) == 0) return true;
    return FailAfter([to] { unlink(to); });
  }
  if (!folder && (errno == EEXIST || errno == ENOENT)) return false;
  if (folder) {
    if (mkdir(to, 0700) != 0) return false;
    if (rename(from, to) == 0) return true;
    return FailAfter([to] { rmdir(to); });
  }
  File reservation;
  if (!reservation.OpenNative(to, OpenMode::WriteNew(), 0600)) return false;
  if (rename(from, to) == 0) return true;
  return FailAfter([to] { unlink(to); });
}

bool RenameWithoutOverwrite(const std::string& from, const std::string& to, bool folder) {
  if (RenameNoReplace(from.c_str(), to.c_str())) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  return RenameReserved(from.c_str(), to.c_str(), folder);
}

std::optional<std::string> LinkTarget(int folder, const char* name) {
  std::string target(PATH_MAX, '\0');
  const ssize_t length = readlinkat(folder, name, target.data(), target.size());
  if (length < 0) return std::nullopt;
  target.resize(static_cast<std::size_t>(length));
  return target;
}

bool CopyBytes(const File& from, const File& to) {
  const std::int64_t size = from.Size();
  if (size < 0) return false;
  const std::size_t block = std::clamp(static_cast<std::size_t>(size) + 1, kSmallBlock, kCopyBlock);
  const std::unique_ptr<char[]> buffer(new char[block]);
  std::uint64_t offset = 0;
  for (;;) {
    const Transfer got = from.ReadAt(offset, buffer.get(), block);
    if (got.error != 0) return Fail(got.error);
    const Transfer put = to.WriteAt(offset, buffer.get(), got.count);
    if (put.count < got.count) return Fail(put.error);
    if (got.count < block) return true;
    offset += got.count;
  }
}

// What else belongs to the file; of the owner only what this process may give away.
void CopyOwner(const File& to, const struct stat& status) {
  if (fchown(to.Descriptor(), status.st_uid, status.st_gid) != 0) errno = 0;
  fchmod(to.Descriptor(), status.st_mode & 0777);
}

// A temporary that goes again unless it is kept.
class Temporary {
 public:
  Temporary(const Place& target, File& file, mode_t permissions)
      : folder_(target.folder), name_(MakeTemporaryBeside(target, file, permissions)) {}
  ~Temporary() {
    const int error = errno;
    if (!name_.empty()) unlinkat(folder_, name_.c_str(), 0);
    errno = error;
  }
  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;

  bool IsMade() const { return !name_.empty(); }
  std::string Keep() { return std::exchange(name_, std::string()); }

 private:
  int folder_;
  std::string name_;
};

// Copies into a temporary beside target, complete and closed, and returns its name.
std::optional<std::string> CopyToTemporary(const Place& from, const Place& target, bool owner) {
  File source;
  struct stat status;
  if (!source.OpenAt(from.folder, from.name, OpenMode::Read(), 0, true)) return std::nullopt;
  if (fstat(source.Descriptor(), &status) != 0) return std::nullopt;
  File copy;
  Temporary temporary(target, copy, status.st_mode & 0777);
  if (!temporary.IsMade() || !CopyBytes(source, copy)) return std::nullopt;
  if (owner) CopyOwner(copy, status);
  const timespec times[2] = {status.st_atim, status.st_mtim};
  futimens(copy.Descriptor(), times);
  if (!copy.Close()) return std::nullopt;
  return temporary.Keep();
}

bool MoveLinkAcross(const std::string& from, const std::string& to) {
  const std::optional<std::string> target = LinkTarget(AT_FDCWD, from.c_str());
  if (!target || symlink(target->c_str(), to.c_str()) != 0) return false;
  if (unlink(from.c_str()) == 0) return true;
  return FailAfter([&] { unlink(to.c_str()); });
}

bool MoveFileAcross(const std::string& from, const std::string& to) {
  struct stat status;
  if (lstat(to.c_str(), &status) == 0) return Fail(EEXIST);
  const std::optional<std::string> temporary =
      CopyToTemporary({AT_FDCWD, from}, {AT_FDCWD, to}, true);
  if (!temporary) return false;
  if (!RenameWithoutOverwrite(*temporary, to, false)) {
    return FailAfter([&] { unlink(temporary->c_str()); });
  }
  if (unlink(from.c_str()) == 0) return true;
  return FailAfter([&] { unlink(to.c_str()); });
}

std::string TemporaryName(const std::string& target) {
  const std::string::size_type separator = target.rfind('/');
  const std::string folder =
      separator == std::string::npos ? std::string() : target.substr(0, separator + 1);
  return folder + "FileCopy_" + RandomName(10) + ".tmp";
}

// Gives a temporary its final name, or removes it.
bool InstallTemporary(int folder, const std::string& temporary, const std::string& name) {
  if (!SeamFails(Operation::kFileRename) &&
      renameat(folder, temporary.c_str(), folder, name.c_str()) == 0) {
    return true;
  }
  return FailAfter([&] { unlinkat(folder, temporary.c_str(), 0); });
}

EntryKind KindBehind(int folder, const std::string& path) {
  struct stat status;
  if (fstatat(folder, path.c_str(), &status, 0) == 0) return KindFromMode(status.st_mode);
  return KindAt(folder, path.c_str());
}

timespec Earlier(const timespec& left, const timespec& right) {
  if (left.tv_sec != right.tv_sec) return left.tv_sec < right.tv_sec ? left : right;
  return left.tv_nsec < right.tv_nsec ? left : right;
}

timespec FromStatx(const statx_timestamp& time) {
  return {static_cast<time_t>(time.tv_sec), static_cast<long>(time.tv_nsec)};
}

}  // namespace

std::optional<OpenMode> ParseOpenMode(std::string_view text) {
  return ParseMode(text);
}
std::optional<OpenMode> ParseOpenMode(std::u16string_view text) {
  return ParseMode(text);
}

File::~File() {
  Close();
}

File::File(File&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

File& File::operator=(File&& other) noexcept {
  if (this != &other) {
    Close();
    descriptor_ = std::exchange(other.descriptor_, -1);
  }
  return *this;
}

bool File::OpenNative(const std::string& path, const OpenMode& mode, mode_t permissions) {
  return OpenAt(AT_FDCWD, path, mode, permissions, true);
}

bool File::OpenAt(int folder, const std::string& name, const OpenMode& mode, mode_t permissions,
                  bool follow) {
  Close();
  if (SeamFails(Operation::kFileOpen)) return false;
  if (!mode.exclusive && !MayOpen(folder, name.c_str(), follow)) return false;
  const int flags = OpenFlags(mode, follow);
  int descriptor;
  do {
    descriptor = openat(folder, name.c_str(), flags, permissions);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor >= 0 && Adopt(descriptor);
}

bool File::Adopt(int descriptor) {
  descriptor_ = descriptor;
  struct stat status;
  if (fstat(descriptor, &status) == 0 && IsRegular(status)) return true;
  return FailAfter([this] { Close(); });
}

namespace {

template <typename C>
bool OpenLibraryPath(File& file, const C* path, const std::optional<OpenMode>& mode) {
  file.Close();
  if (path == nullptr || !mode) return Fail(EINVAL);
  const std::optional<std::string> native = ToNativePath(std::basic_string_view<C>(path));
  return native && file.OpenNative(*native, *mode);
}

template <typename C>
std::optional<OpenMode> ModeOf(const C* text) {
  if (text == nullptr) return std::nullopt;
  return ParseOpenMode(std::basic_string_view<C>(text));
}

}  // namespace

bool File::Open(const char* path, const OpenMode& mode) {
  return OpenLibraryPath(*this, path, mode);
}
bool File::Open(const char16_t* path, const OpenMode& mode) {
  return OpenLibraryPath(*this, path, mode);
}
bool File::Open(const char* path, const char* mode) {
  return OpenLibraryPath(*this, path, ModeOf(mode));
}
bool File::Open(const char16_t* path, const char16_t* mode) {
  return OpenLibraryPath(*this, path, ModeOf(mode));
}

bool File::IsAlso(const char* path) const {
  const std::optional<std::string> native =
      ToNativePath(std::string_view(path == nullptr ? "" : path));
  struct stat own;
  struct stat other;
  return native && fstat(descriptor_, &own) == 0 && stat(native->c_str(), &other) == 0 &&
         own.st_dev == other.st_dev && own.st_ino == other.st_ino;
}

bool File::IsSame(const File& other) const {
  struct stat own;
  struct stat status;
  return fstat(descriptor_, &own) == 0 && fstat(other.descriptor_, &status) == 0 &&
         own.st_dev == status.st_dev && own.st_ino == status.st_ino;
}

std::int64_t File::Size() const {
  struct stat status;
  if (SeamFails(Operation::kFileSize) || fstat(descriptor_, &status) != 0) return -1;
  return status.st_size;
}

Transfer File::ReadAt(std::uint64_t offset, void* data, std::size_t size) const {
  Transfer done;
  while (done.count < size) {
    std::size_t step = size - done.count;
    ssize_t got = -1;
    if (!SeamFailsOrShortens(Operation::kFileRead, step)) {
      got = pread(descriptor_, static_cast<char*>(data) + done.count, step,
                  static_cast<off_t>(offset + done.count));
    }
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) done.error = errno;
    if (got <= 0) break;
    done.count += static_cast<std::size_t>(got);
  }
  return done;
}

Transfer File::WriteAt(std::uint64_t offset, const void* data, std::size_t size) const {
  Transfer done;
  while (done.count < size) {
    std::size_t step = size - done.count;
    ssize_t put = -1;
    if (!SeamFailsOrShortens(Operation::kFileWrite, step)) {
      put = pwrite(descriptor_, static_cast<const char*>(data) + done.count, step,
                   static_cast<off_t>(offset + done.count));
    }
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) {
      done.error = put < 0 ? errno : ENOSPC;
      break;
    }
    done.count += static_cast<std::size_t>(put);
  }
  return done;
}

bool File::Resize(std::uint64_t size) const {
  if (SeamFails(Operation::kFileWrite)) return false;
  return ftruncate(descriptor_, static_cast<off_t>(size)) == 0;
}

bool File::Close() {
  if (descriptor_ < 0) return true;
  const bool seam_fails = SeamFails(Operation::kFileClose);
  const int seam_error = errno;
  const int result = close(std::exchange(descriptor_, -1));
  if (seam_fails) return Fail(seam_error);
  return result == 0 || errno == EINTR;
}

EntryKind KindAt(int folder, const char* name) {
  struct stat status;
  if (fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return EntryKind::kNone;
  if (!S_ISLNK(status.st_mode)) return KindFromMode(status.st_mode);
  if (fstatat(folder, name, &status, 0) != 0) return EntryKind::kFile;
  const EntryKind target = KindFromMode(status.st_mode);
  return target == EntryKind::kSpecial ? target : EntryKind::kFile;
}

EntryKind KindOf(const std::string& path) {
  return KindBehind(AT_FDCWD, path);
}

std::uint32_t AttributesOf(const std::string& path) {
  return AttributesAt(AT_FDCWD, path);
}

std::uint32_t AttributesAt(int folder, const std::string& name) {
  const EntryKind kind = KindBehind(folder, name);
  if (kind == EntryKind::kNone || kind == EntryKind::kSpecial) return kNoAttributes;
  std::uint32_t attributes = kind == EntryKind::kFolder ? 0x10 : 0;
  struct stat status;
  if (fstatat(folder, name.c_str(), &status, 0) == 0) {
    const bool writable =
        (status.st_mode & 0222) != 0 && faccessat(folder, name.c_str(), W_OK, AT_EACCESS) == 0;
    if (!writable) attributes |= 0x1;
  }
  const std::string_view last = LastElement(name);
  if (!last.empty() && last[0] == '.' && last != "." && last != "..") attributes |= 0x2;
  return attributes != 0 ? attributes : 0x20;
}

std::optional<FileTimes> TimesOf(const File& file) {
  struct statx status;
  if (statx(file.Descriptor(), "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &status) != 0) {
    return std::nullopt;
  }
  FileTimes times;
  times.access = FromStatx(status.stx_atime);
  times.write = FromStatx(status.stx_mtime);
  const bool has_birth = (status.stx_mask & STATX_BTIME) != 0;
  times.creation = has_birth ? Earlier(FromStatx(status.stx_btime), times.write) : times.write;
  return times;
}

bool SetWriteTime(const File& file, std::int64_t seconds) {
  const timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(seconds), 0}};
  return futimens(file.Descriptor(), times) == 0;
}

bool DeleteName(const std::string& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) return false;
  if (!S_ISLNK(status.st_mode) && !IsRegular(status)) return false;
  return unlink(path.c_str()) == 0;
}

bool MakeFolder(const std::string& path) {
  return mkdir(path.c_str(), 0777) == 0;
}

bool RemoveEmptyFolder(const std::string& path) {
  return rmdir(path.c_str()) == 0;
}

bool MoveWithoutOverwrite(const std::string& from, const std::string& to) {
  struct stat status;
  if (lstat(from.c_str(), &status) != 0) return false;
  const bool folder = S_ISDIR(status.st_mode);
  if (!folder && !S_ISLNK(status.st_mode) && !IsRegular(status)) return false;
  if (RenameWithoutOverwrite(from, to, folder)) return true;
  if (errno != EXDEV || folder) return false;
  return S_ISLNK(status.st_mode) ? MoveLinkAcross(from, to) : MoveFileAcross(from, to);
}

bool MoveOver(const std::string& from, const std::string& to) {
  if (SeamFails(Operation::kFileRename)) return false;
  return rename(from.c_str(), to.c_str()) == 0;
}

bool CopyFileContent(const Place& from, const Place& to) {
  const std::optional<std::string> temporary = CopyToTemporary(from, to, false);
  return temporary && InstallTemporary(to.folder, *temporary, to.name);
}

bool CopyFileContent(const std::string& from, const std::string& to) {
  return CopyFileContent(Place{AT_FDCWD, from}, Place{AT_FDCWD, to});
}

bool CopyLink(const Place& from, const Place& to) {
  const std::optional<std::string> target = LinkTarget(from.folder, from.name.c_str());
  if (!target) return false;
  const std::string temporary = TemporaryName(to.name);
  if (symlinkat(target->c_str(), to.folder, temporary.c_str()) != 0) return false;
  return InstallTemporary(to.folder, temporary, to.name);
}

std::string MakeTemporaryBeside(const Place& target, File& file, mode_t permissions) {
  for (int i = 0; i < kTemporaryAttempts; ++i) {
    std::string name = TemporaryName(target.name);
    if (file.OpenAt(target.folder, name, OpenMode::WriteNew(), permissions, false)) return name;
    if (errno != EEXIST) break;
  }
  return std::string();
}

}  // namespace qvx::platform
