#include "support/raw_peer.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

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

RawPeer NewSocket(int flags = 0) {
  return RawPeer(Check(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0), "socket"));
}

int Connect(const RawPeer& peer, std::uint16_t port) {
  const sockaddr_in address = Loopback(port);
  return connect(peer.Descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

}  // namespace

RawPeer& RawPeer::operator=(RawPeer&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

RawPeer RawPeer::To(std::uint16_t port) {
  RawPeer peer = NewSocket();
  Check(Connect(peer, port), "connect");
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
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = -1;
}

void RawPeer::Reset() {
  const linger at_once{1, 0};
  setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
  Close();
}

RawListener::RawListener() : RawListener(64) {}

RawListener::RawListener(int queue) : socket_(NewSocket()) {
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof(address);
  Check(bind(Descriptor(), reinterpret_cast<const sockaddr*>(&address), size), "bind");
  Check(listen(Descriptor(), queue), "listen");
  Check(getsockname(Descriptor(), reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
  port_ = ntohs(address.sin_port);
}

RawListener RawListener::Deaf() {
  RawListener listener(0);
  for (int i = 0; i < 8; ++i) {
    const RawPeer& filler = listener.fillers_.emplace_back(NewSocket(SOCK_NONBLOCK));
    if (Connect(filler, listener.port_) < 0 && errno != EINPROGRESS) {
      throw std::runtime_error("connect");
    }
  }
  return listener;
}

RawPeer RawListener::Accept() const {
  return RawPeer(Check(accept4(Descriptor(), nullptr, nullptr, SOCK_CLOEXEC), "accept"));
}

}  // namespace qvx::test
