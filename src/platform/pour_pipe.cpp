#include "platform/pour_pipe.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/seam.h"

namespace qvx::platform {
namespace {

constexpr int kPipeBytes = 1 << 20;

// Both the failures of a descriptor of a kind that can't do it, and of a system that can't.
bool IsUnable(int error) {
  return error == EINVAL || error == ENOSYS;
}

// Never waits for room: the pipe is empty.
IoResult ReceiveIntoPipe(SocketValue socket, int pipe, std::size_t size) {
  const SocketUse use(socket);
  if (use.Descriptor() < 0 || use.IsShut()) return {0, EBADF};
  std::size_t allowed = size;
  if (SeamFailsOrShortens(Operation::kReceive, allowed)) return {0, errno};
  const ssize_t moved =
      splice(use.Descriptor(), nullptr, pipe, nullptr, allowed, SPLICE_F_NONBLOCK);
  if (moved < 0) return {0, errno};
  return {static_cast<std::size_t>(moved), 0};
}

}  // namespace

PourPipe::~PourPipe() {
  GiveUp();
}

// False where the system grants no pipe of the size that makes it quick.
bool PourPipe::Open() {
  int ends[2];
  if (unable_ || out_ >= 0) return !unable_;
  unable_ = pipe2(ends, O_CLOEXEC) != 0;
  if (unable_) return false;
  out_ = ends[0];
  in_ = ends[1];
  if (fcntl(in_, F_SETPIPE_SZ, kPipeBytes) < kPipeBytes) GiveUp();
  return !unable_;
}

void PourPipe::GiveUp() {
  unable_ = true;
  if (out_ < 0) return;
  close(std::exchange(out_, -1));
  close(std::exchange(in_, -1));
}

std::size_t PourPipe::Pour(SocketValue socket, std::size_t size, const File& file,
                           std::uint64_t offset, bool* written) {
  *written = false;
  // Only with bytes there a receive into a pipe returns at once, whatever the socket's mode.
  const std::size_t waiting = PendingBytes(socket);
  if (waiting == 0 || waiting < std::min(size, kWorthwhile) || !Open()) return 0;
  const IoResult result = ReceiveIntoPipe(socket, in_, std::min(size, waiting));
  if (result.bytes > 0) *written = Empty(result.bytes, file, offset);
  if (IsUnable(result.error)) GiveUp();
  return result.bytes;
}

// Writes what the pipe holds, which is empty then in any case.
bool PourPipe::Empty(std::size_t size, const File& file, std::uint64_t offset) {
  auto position = static_cast<loff_t>(offset);
  while (size > 0) {
    std::size_t allowed = size;
    const bool fails = SeamFailsOrShortens(Operation::kFileWrite, allowed);
    const ssize_t moved =
        fails ? -1 : splice(out_, nullptr, file.Descriptor(), &position, allowed, 0);
    if (moved < 0 && errno == EINTR) continue;
    if (moved <= 0) {
      const bool failed = moved == 0 || !IsUnable(errno);
      return EmptyThroughMemory(size, file, static_cast<std::uint64_t>(position), failed);
    }
    size -= static_cast<std::size_t>(moved);
  }
  return true;
}

bool PourPipe::EmptyThroughMemory(std::size_t size, const File& file, std::uint64_t offset,
                                  bool failed) {
  char block[32 * 1024];
  while (size > 0) {
    const ssize_t got = read(out_, block, std::min(size, sizeof(block)));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      GiveUp();  // what it still holds must not go elsewhere
      return false;
    }
    const auto count = static_cast<std::size_t>(got);
    if (!failed) failed = file.WriteAt(offset, block, count).count != count;
    offset += count;
    size -= count;
  }
  return !failed;
}

}  // namespace qvx::platform
