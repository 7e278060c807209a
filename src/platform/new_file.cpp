#include "platform/new_file.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace qvx::platform {
namespace {

constexpr std::size_t kBlock = 0x40000;

bool MayReplace(const std::string& path) {
  const EntryKind kind = KindOf(path);
  if (kind == EntryKind::kNone) return true;
  return kind == EntryKind::kFile && (AttributesOf(path) & 0x1) == 0;
}

}  // namespace

NewFile::NewFile(std::string path) : path_(std::move(path)), block_(new unsigned char[kBlock]) {
  if (MayReplace(path_)) temporary_ = MakeTemporaryBeside({AT_FDCWD, path_}, file_, 0666);
  good_ = !temporary_.empty();
}

NewFile::~NewFile() {
  if (!temporary_.empty()) DeleteName(temporary_);
}

void NewFile::Append(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  while (size > 0 && good_) {
    const std::size_t step = std::min(size, kBlock - filled_);
    std::memcpy(block_.get() + filled_, bytes, step);
    filled_ += step;
    bytes += step;
    size -= step;
    if (filled_ == kBlock) Flush();
  }
}

bool NewFile::Install() {
  Flush();
  if (!file_.Close()) good_ = false;
  if (!good_ || !MoveOver(temporary_, path_)) return good_ = false;
  temporary_.clear();
  return true;
}

void NewFile::Flush() {
  if (good_) good_ = file_.WriteAt(offset_, block_.get(), filled_).count == filled_;
  offset_ += filled_;
  filled_ = 0;
}

}  // namespace qvx::platform
