#include "platform/pending_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/seam.h"

namespace qvx::platform {
namespace {

constexpr std::uint32_t kReadOnly = 0x1;

}  // namespace

PendingFile::~PendingFile() {
  Discard();
}

bool PendingFile::Create(const Place& target, mode_t permissions) {
  Discard();
  target_ = target;
  if (!MayReplace()) return false;
  temporary_ = MakeTemporaryBeside(target, file_, permissions);
  return IsPending();
}

bool PendingFile::Create(const std::string& target) {
  return Create(Place{AT_FDCWD, target});
}

bool PendingFile::MayReplace() const {
  const EntryKind kind = KindAt(target_.folder, target_.name.c_str());
  if (kind == EntryKind::kNone) return true;
  const bool read_only = (AttributesAt(target_.folder, target_.name) & kReadOnly) != 0;
  if (kind == EntryKind::kFile && !read_only) return true;
  errno = kind == EntryKind::kFolder ? EISDIR : read_only ? EACCES : EINVAL;
  return false;
}

bool PendingFile::Install() {
  const bool named =
      IsPending() && file_.Close() && MayReplace() && !SeamFails(Operation::kFileRename) &&
      renameat(target_.folder, temporary_.c_str(), target_.folder, target_.name.c_str()) == 0;
  if (named) {
    temporary_.clear();
  } else {
    Discard();
  }
  return named;
}

void PendingFile::Discard() {
  if (!IsPending()) return;
  const int error = errno;
  file_.Close();
  unlinkat(target_.folder, std::exchange(temporary_, std::string()).c_str(), 0);
  errno = error;
}

}  // namespace qvx::platform
