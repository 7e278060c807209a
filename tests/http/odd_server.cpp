#include "http/odd_server.h"

#include <sys/socket.h>

#include <utility>

namespace qvx::test {
namespace {

constexpr std::size_t kReceiveBlock = 0x10000;

// Appends what comes; false at the end.
bool Receive(int descriptor, std::string& text) {
  char block[kReceiveBlock];
  const ssize_t got = recv(descriptor, block, sizeof(block), 0);
  if (got <= 0) return false;
  text.append(block, static_cast<std::size_t>(got));
  return true;
}

std::uint64_t NumberBehind(const std::string& text, const std::string& label) {
  const std::size_t place = text.find(label);
  return place == std::string::npos ? 0 : std::stoull(text.substr(place + label.size()));
}

// Takes one request out of the bytes that came; false at the end of the connection.
bool ReadRequest(int descriptor, std::string& pending, OddRequest& request) {
  std::size_t end = 0;
  while ((end = pending.find("\r\n\r\n")) == std::string::npos) {
    if (!Receive(descriptor, pending)) return false;
  }
  request.head = pending.substr(0, end + 4);
  pending.erase(0, end + 4);
  const std::size_t length = NumberBehind(request.head, "Content-Length: ");
  while (pending.size() < length) {
    if (!Receive(descriptor, pending)) return false;
  }
  request.body = pending.substr(0, length);
  pending.erase(0, length);
  return true;
}

}  // namespace

std::uint64_t OddRequest::RangeStart() const {
  return NumberBehind(head, "Range: bytes=");
}

std::string OddHead(int status, const std::string& more) {
  return "HTTP/1.1 " + std::to_string(status) + " Odd\r\n" + more + "\r\n";
}

std::string OddAnswer(int status, const std::string& body, const std::string& more) {
  return OddHead(status, "Content-Length: " + std::to_string(body.size()) + "\r\n" + more) + body;
}

OddServer::OddServer(Answer answer) : answer_(std::move(answer)), acceptor_([this] { Accept(); }) {}

OddServer::~OddServer() {
  {
    std::lock_guard<std::mutex> guard(mutex_);
    stopping_ = true;
    for (const RawPeer& peer : peers_) shutdown(peer.Descriptor(), SHUT_RDWR);
  }
  RawPeer::To(listener_.Port());  // so that the acceptor looks up
  acceptor_.join();
  for (std::thread& thread : threads_) thread.join();
}

std::string OddServer::Url(const std::string& name) const {
  return "http://127.0.0.1:" + std::to_string(listener_.Port()) + "/" + name;
}

void OddServer::Accept() {
  for (;;) {
    RawPeer peer = listener_.Accept();
    std::lock_guard<std::mutex> guard(mutex_);
    if (stopping_) return;
    const RawPeer& kept = peers_.emplace_back(std::move(peer));
    ++accepted_;
    threads_.emplace_back([this, &kept] { Serve(kept); });
  }
}

void OddServer::Serve(const RawPeer& peer) {
  std::string pending;
  OddRequest request;
  while (ReadRequest(peer.Descriptor(), pending, request)) {
    ++requests_;
    if (!answer_(request, peer)) break;
  }
  shutdown(peer.Descriptor(), SHUT_RDWR);
}

}  // namespace qvx::test
