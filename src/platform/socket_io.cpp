#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>

#include "platform/pipe_signal.h"
#include "platform/seam.h"
#include "platform/socket.h"

namespace qvx::platform {
namespace {

constexpr int kSendPatienceMilliseconds = 60000;
// What one call moves at most, so that a count always fits what the system counts with.
constexpr std::size_t kMaxTransfer = std::size_t{1} << 30;

struct Vector {
  iovec parts[kMaxParts];
  std::size_t count = 0;
};

// The first size bytes of the parts.
template <typename Bytes>
Vector ToVector(const Bytes* parts, std::size_t count, std::size_t size) {
  Vector vector;
  for (std::size_t i = 0; i < std::min(count, kMaxParts) && size > 0; ++i) {
    const std::size_t piece = std::min(parts[i].size, size);
    if (piece == 0) continue;
    vector.parts[vector.count++] = iovec{const_cast<void*>(parts[i].data), piece};
    size -= piece;
  }
  return vector;
}

template <typename Bytes>
std::size_t TotalSize(const Bytes* parts, std::size_t count) {
  std::size_t total = 0;
  for (std::size_t i = 0; i < std::min(count, kMaxParts); ++i) {
    total += std::min(parts[i].size, kMaxTransfer - total);
  }
  return total;
}

template <typename Call>
IoResult Repeat(Operation operation, std::size_t size, Call call) {
  for (;;) {
    std::size_t allowed = size;
    const ssize_t moved = SeamFailsOrShortens(operation, allowed) ? -1 : call(allowed);
    if (moved >= 0) return {static_cast<std::size_t>(moved), 0};
    if (errno != EINTR) return {0, errno};
  }
}

bool IsBlocking(SocketValue socket) {
  const SocketUse use(socket);
  const int flags = fcntl(use.Descriptor(), F_GETFL);
  return flags >= 0 && (flags & O_NONBLOCK) == 0;
}

// False once a minute went by without room.
bool WaitForRoom(SocketValue socket) {
  const int happened = PollSocket(socket, kPollWrite, kSendPatienceMilliseconds);
  if (happened == 0) errno = ETIMEDOUT;
  return happened > 0;
}

// A list of parts of which the front is gone already.
class Remaining {
 public:
  Remaining(const ConstBytes* parts, std::size_t count) : parts_(parts), count_(count) { Skip(0); }

  bool Empty() const { return count_ == 0; }

  IoResult SendSome(SocketValue socket, bool more) const {
    ConstBytes batch[kMaxParts];
    const std::size_t count = std::min(count_, kMaxParts);
    std::copy_n(parts_, count, batch);
    batch[0] = ConstBytes{static_cast<const char*>(batch[0].data) + gone_, batch[0].size - gone_};
    return SendParts(socket, batch, count, more);
  }

  void Skip(std::size_t bytes) {
    gone_ += bytes;
    while (count_ > 0 && gone_ >= parts_->size) {
      gone_ -= parts_->size;
      ++parts_;
      --count_;
    }
  }

 private:
  const ConstBytes* parts_;
  std::size_t count_;
  std::size_t gone_ = 0;
};

// For file systems that can't hand their pages to a socket.
IoResult SendThroughMemory(SocketValue socket, int file, std::uint64_t offset, std::size_t size) {
  char block[64 * 1024];
  const ssize_t read =
      pread(file, block, std::min(size, sizeof(block)), static_cast<off_t>(offset));
  if (read < 0) return {0, errno};
  if (read == 0) return {0, 0};
  const ConstBytes part{block, static_cast<std::size_t>(read)};
  return SendParts(socket, &part, 1);
}

// Failures of a connection, as against those of reading a file.
bool IsConnectionError(int error) {
  switch (error) {
    case EIO:
    case EINVAL:
    case EISDIR:
    case EOVERFLOW:
    case ENOSYS:
    case ESPIPE:
      return false;
    default:
      return true;
  }
}

struct alignas(cmsghdr) PacketControl {
  char bytes[CMSG_SPACE(sizeof(in_pktinfo))];
};

void ReadControl(msghdr& message, DatagramPath* path) {
  for (cmsghdr* item = CMSG_FIRSTHDR(&message); item != nullptr;
       item = CMSG_NXTHDR(&message, item)) {
    if (item->cmsg_level != IPPROTO_IP || item->cmsg_type != IP_PKTINFO) continue;
    in_pktinfo info{};
    memcpy(&info, CMSG_DATA(item), sizeof(info));
    path->local_address = ntohl(info.ipi_addr.s_addr);
    path->interface_index = static_cast<std::uint32_t>(info.ipi_ifindex);
  }
}

void WriteControl(msghdr& message, PacketControl& control, const DatagramPath& path) {
  if (path.local_address == 0 && path.interface_index == 0) return;
  message.msg_control = control.bytes;
  message.msg_controllen = sizeof(control.bytes);
  cmsghdr* item = CMSG_FIRSTHDR(&message);
  item->cmsg_level = IPPROTO_IP;
  item->cmsg_type = IP_PKTINFO;
  item->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
  in_pktinfo info{};
  info.ipi_spec_dst.s_addr = htonl(path.local_address);
  info.ipi_ifindex = static_cast<int>(path.interface_index);
  memcpy(CMSG_DATA(item), &info, sizeof(info));
}

}  // namespace

bool IoResult::WouldBlock() const noexcept {
  return error == EAGAIN;
}

IoResult SendParts(SocketValue socket, const ConstBytes* parts, std::size_t count,
                   bool more) noexcept {
  const SocketUse use(socket);
  if (use.Descriptor() < 0) return {0, EBADF};
  const int flags = MSG_NOSIGNAL | MSG_DONTWAIT | (more ? MSG_MORE : 0);
  return Repeat(Operation::kSend, TotalSize(parts, count), [&](std::size_t allowed) {
    Vector vector = ToVector(parts, count, allowed);
    msghdr message{};
    message.msg_iov = vector.parts;
    message.msg_iovlen = vector.count;
    return sendmsg(use.Descriptor(), &message, flags);
  });
}

IoResult SendFileRange(SocketValue socket, int file, std::uint64_t offset,
                       std::size_t size) noexcept {
  const SocketUse use(socket);
  if (use.Descriptor() < 0) return {0, EBADF};
  if (offset > static_cast<std::uint64_t>(INT64_MAX)) return {0, EINVAL};
  if (IsBlocking(socket)) SetNonBlocking(socket, true);
  const PipeSignalGuard guard;
  const IoResult result =
      Repeat(Operation::kSend, std::min(size, kMaxTransfer), [&](std::size_t allowed) {
        off_t position = static_cast<off_t>(offset);
        return sendfile(use.Descriptor(), file, &position, allowed);
      });
  const bool unable = result.error == EINVAL || result.error == ENOSYS;
  return unable ? SendThroughMemory(socket, file, offset, std::min(size, kMaxTransfer)) : result;
}

IoResult Receive(SocketValue socket, void* data, std::size_t size) noexcept {
  const MutableBytes part{data, size};
  return ReceiveParts(socket, &part, 1);
}

IoResult ReceiveParts(SocketValue socket, const MutableBytes* parts, std::size_t count) noexcept {
  const SocketUse use(socket);
  if (use.Descriptor() < 0) return {0, EBADF};
  if (use.IsShut()) return {0, ESHUTDOWN};
  return Repeat(Operation::kReceive, TotalSize(parts, count), [&](std::size_t allowed) {
    Vector vector = ToVector(parts, count, allowed);
    msghdr message{};
    message.msg_iov = vector.parts;
    message.msg_iovlen = vector.count;
    return recvmsg(use.Descriptor(), &message, MSG_DONTWAIT);
  });
}

std::size_t PendingBytes(SocketValue socket) noexcept {
  const SocketUse use(socket);
  int waiting = 0;
  if (use.Descriptor() < 0 || use.IsShut()) return 0;
  if (ioctl(use.Descriptor(), FIONREAD, &waiting) != 0 || waiting < 0) return 0;
  return static_cast<std::size_t>(waiting);
}

bool SendWhole(SocketValue socket, const ConstBytes* parts, std::size_t count, FullSocket when_full,
               bool more) noexcept {
  Remaining remaining(parts, count);
  bool may_wait = when_full == FullSocket::kWait;
  while (!remaining.Empty()) {
    const IoResult result = remaining.SendSome(socket, more);
    if (result.error == 0) {
      remaining.Skip(result.bytes);
      may_wait = true;
      continue;
    }
    errno = result.error;
    if (!result.WouldBlock()) return false;
    if (!may_wait && !IsBlocking(socket)) {
      errno = EAGAIN;
      return false;
    }
    if (!WaitForRoom(socket)) return false;
  }
  return true;
}

bool SendWholeFile(SocketValue socket, int file, std::uint64_t offset, std::size_t size,
                   std::size_t* sent) noexcept {
  *sent = 0;
  while (*sent < size) {
    const IoResult result = SendFileRange(socket, file, offset + *sent, size - *sent);
    *sent += result.bytes;
    if (result.WouldBlock()) {
      if (!WaitForRoom(socket)) return false;
    } else if (result.error != 0) {
      errno = result.error;
      return !IsConnectionError(result.error);
    } else if (result.bytes == 0) {
      return true;
    }
  }
  return true;
}

IoResult ReceiveDatagram(SocketValue socket, void* data, std::size_t size,
                         DatagramPath* path) noexcept {
  const SocketUse use(socket);
  if (use.Descriptor() < 0) return {0, EBADF};
  if (use.IsShut()) return {0, ESHUTDOWN};
  *path = DatagramPath{};
  return Repeat(Operation::kReceive, size, [&](std::size_t allowed) {
    iovec part{data, allowed};
    sockaddr_in peer{};
    PacketControl control{};
    msghdr message{};
    message.msg_name = &peer;
    message.msg_namelen = sizeof(peer);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof(control.bytes);
    const ssize_t moved = recvmsg(use.Descriptor(), &message, MSG_DONTWAIT);
    if (moved < 0) return moved;
    path->peer = Ipv4Endpoint{ntohl(peer.sin_addr.s_addr), ntohs(peer.sin_port)};
    ReadControl(message, path);
    return moved;
  });
}

IoResult SendDatagram(SocketValue socket, const void* data, std::size_t size,
                      const DatagramPath& path) noexcept {
  const SocketUse use(socket);
  if (use.Descriptor() < 0) return {0, EBADF};
  return Repeat(Operation::kSend, size, [&](std::size_t allowed) {
    iovec part{const_cast<void*>(data), allowed};
    std::array<unsigned char, 16> peer = NativeAddress(path.peer);
    PacketControl control{};
    msghdr message{};
    message.msg_name = peer.data();
    message.msg_namelen = peer.size();
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    WriteControl(message, control, path);
    return sendmsg(use.Descriptor(), &message, MSG_NOSIGNAL);
  });
}

}  // namespace qvx::platform
