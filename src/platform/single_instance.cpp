#include "platform/single_instance.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "platform/fork.h"
#include "platform/lock.h"
#include "platform/seam.h"

namespace qvx::platform {
namespace {

constexpr std::size_t kLongestName = 180;  // of the escaped name, so that a file name holds it

bool IsPlain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

// FNV-1a of 64 bits.
std::uint64_t Hash(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  return hash;
}

std::string HexByte(unsigned char byte) {
  constexpr char kDigits[] = "0123456789abcdef";
  return {kDigits[byte >> 4], kDigits[byte & 15]};
}

std::string Escaped(std::string_view name) {
  std::string escaped;
  for (const char c : name) {
    escaped += IsPlain(c) ? std::string(1, c) : "%" + HexByte(static_cast<unsigned char>(c));
  }
  if (escaped.size() <= kLongestName) return escaped;
  escaped.resize(kLongestName);
  const std::uint64_t hash = Hash(name);
  escaped += '~';
  for (int shift = 56; shift >= 0; shift -= 8) {
    escaped += HexByte(static_cast<unsigned char>(hash >> shift));
  }
  return escaped;
}

// A folder that nobody else can write to.
bool IsOwnFolder(const std::string& path, bool follows) {
  struct stat status {};
  const int result = follows ? stat(path.c_str(), &status) : lstat(path.c_str(), &status);
  return result == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::optional<std::string> Folder() {
  const char* run_time = secure_getenv("XDG_RUNTIME_DIR");
  const std::string user = std::to_string(geteuid());
  for (const std::string& path :
       {std::string(run_time != nullptr ? run_time : ""), "/run/user/" + user}) {
    if (path.starts_with('/') && IsOwnFolder(path, true)) return path;
  }
  std::string path = "/tmp/qvx_common-" + user;
  if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return std::nullopt;
  if (IsOwnFolder(path, false)) return path;
  errno = EACCES;
  return std::nullopt;
}

std::optional<std::string> PathOf(std::string_view name) {
  std::optional<std::string> folder = Folder();
  if (folder) *folder += "/qvx_common-" + Escaped(name) + ".lock";
  return folder;
}

int Open(const std::string& path, int flags) {
  if (SeamFails(Operation::kFileOpen)) return -1;
  return open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
}

bool Lock(int file) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return fcntl(file, F_OFD_SETLK, &lock) == 0;
}

bool IsLocked(int file) {
  struct flock lock {};
  lock.l_type = F_RDLCK;
  lock.l_whence = SEEK_SET;
  return fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// Whether the path still leads to the open file: its last holder may have deleted it.
bool IsNamed(int file, const std::string& path) {
  struct stat open_one {};
  struct stat named_one {};
  return fstat(file, &open_one) == 0 && lstat(path.c_str(), &named_one) == 0 &&
         open_one.st_dev == named_one.st_dev && open_one.st_ino == named_one.st_ino;
}

InstanceName Failure() {
  return errno == EACCES || errno == EPERM ? InstanceName::kRefused : InstanceName::kFailed;
}

struct HeldFile {
  int descriptor = -1;
  std::uint32_t generation = ForkGeneration();  // a forked child only shares what it inherits
};

struct Held {
  RecursiveLock lock;
  ForkGuard guard{&lock};
  std::map<std::string, HeldFile> files;  // by path
};

// Never destroyed: names may be released until the process ends.
Held& AllHeld() {
  static Held* const held = new Held;
  return *held;
}

InstanceName LockFile(const std::string& path, int& file) {
  for (;;) {
    file = Open(path, O_RDWR | O_CREAT);
    if (file < 0) return Failure();
    if (!Lock(file)) {
      const bool held = errno == EAGAIN || errno == EACCES;
      close(file);
      return held ? InstanceName::kHeld : InstanceName::kFailed;
    }
    if (IsNamed(file, path)) return InstanceName::kFree;
    close(file);
  }
}

}  // namespace

InstanceName LookAtInstanceName(std::string_view name) {
  const std::optional<std::string> path = PathOf(name);
  if (!path) return Failure();
  const int file = Open(*path, O_RDONLY);
  if (file < 0) return errno == ENOENT ? InstanceName::kFree : Failure();
  const bool locked = IsLocked(file);
  close(file);
  return locked ? InstanceName::kHeld : InstanceName::kFree;
}

InstanceName HoldInstanceName(std::string_view name) {
  const std::optional<std::string> path = PathOf(name);
  if (!path) return Failure();
  Held& held = AllHeld();
  const std::lock_guard<RecursiveLock> guard(held.lock);
  const auto [place, is_new] = held.files.try_emplace(*path);
  if (!is_new) return InstanceName::kHeld;
  const InstanceName result = LockFile(*path, place->second.descriptor);
  if (result != InstanceName::kFree) held.files.erase(place);
  return result;
}

bool ReleaseInstanceName(std::string_view name) {
  const std::optional<std::string> path = PathOf(name);
  if (!path) return false;
  Held& held = AllHeld();
  const std::lock_guard<RecursiveLock> guard(held.lock);
  const auto place = held.files.find(*path);
  if (place == held.files.end()) return false;
  if (place->second.generation == ForkGeneration()) unlink(path->c_str());
  close(place->second.descriptor);
  held.files.erase(place);
  return true;
}

}  // namespace qvx::platform
