#include "support/raw_peer.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace qvx::test {
namespace {

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int Check(int result, const char* what) {
  if (result < 0) throw std::runtime_error(what);
  return result;
}

int NewSocket(int flags = 0) {
  return Check(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0), "socket");
}

void CloseDescriptor(int& descriptor) {
  if (descriptor >= 0) close(descriptor);
  descriptor = -1;
}

}  // namespace

RawPeer::RawPeer(RawPeer&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

RawPeer& RawPeer::operator=(RawPeer&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

RawPeer::~RawPeer() {
  Close();
}

RawPeer RawPeer::To(std::uint16_t port) {
  RawPeer peer(NewSocket());
  const sockaddr_in address = Loopback(port);
  Check(connect(peer.descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
        "connect");
  return peer;
}

bool RawPeer::Send(const std::string& bytes) const {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t now = send(descriptor_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (now < 0 && errno == EINTR) continue;
    if (now < 0) return false;
    sent += static_cast<std::size_t>(now);
  }
  return true;
}

std::string RawPeer::Read(std::size_t size) const {
  std::string bytes(size, '\0');
  std::size_t got = 0;
  while (got < size) {
    const ssize_t now = recv(descriptor_, bytes.data() + got, size - got, 0);
    if (now < 0 && errno == EINTR) continue;
    if (now <= 0) break;
    got += static_cast<std::size_t>(now);
  }
  bytes.resize(got);
  return bytes;
}

bool RawPeer::SeesEnd() const {
  while (!Read(65536).empty()) {
  }
  return true;
}

void RawPeer::Close() {
  CloseDescriptor(descriptor_);
}

void RawPeer::Reset() {
  const linger at_once{1, 0};
  setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
  Close();
}

RawListener::RawListener() : RawListener(64) {}

RawListener::RawListener(int queue) : descriptor_(NewSocket()) {
  std::fill(std::begin(fillers_), std::end(fillers_), -1);
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof(address);
  Check(bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), size), "bind");
  Check(listen(descriptor_, queue), "listen");
  Check(getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
  port_ = ntohs(address.sin_port);
}

RawListener RawListener::Deaf() {
  RawListener listener(0);
  const sockaddr_in address = Loopback(listener.port_);
  for (int& filler : listener.fillers_) {
    filler = NewSocket(SOCK_NONBLOCK);
    const int result =
        connect(filler, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    if (result < 0 && errno != EINPROGRESS) throw std::runtime_error("connect");
  }
  return listener;
}

RawListener::RawListener(RawListener&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), port_(other.port_) {
  std::copy(std::begin(other.fillers_), std::end(other.fillers_), fillers_);
  std::fill(std::begin(other.fillers_), std::end(other.fillers_), -1);
}

RawListener::~RawListener() {
  Close();
  for (int& filler : fillers_) CloseDescriptor(filler);
}

RawPeer RawListener::Accept() const {
  return RawPeer(Check(accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC), "accept"));
}

void RawListener::Close() {
  CloseDescriptor(descriptor_);
}

}  // namespace qvx::test
