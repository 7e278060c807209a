#include "http/odd_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

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

bool OddConnection::Send(const std::string& bytes) const {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t put = send(descriptor_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (put <= 0) return false;
    sent += static_cast<std::size_t>(put);
  }
  return true;
}

void OddConnection::Stall() const {
  std::string dropped;
  while (Receive(descriptor_, dropped)) {
  }
}

void OddConnection::Cut() const {
  shutdown(descriptor_, SHUT_RDWR);
}

std::string OddHead(int status, const std::string& more) {
  return "HTTP/1.1 " + std::to_string(status) + " Odd\r\n" + more + "\r\n";
}

std::string OddAnswer(int status, const std::string& body, const std::string& more) {
  return OddHead(status, "Content-Length: " + std::to_string(body.size()) + "\r\n" + more) + body;
}

OddServer::OddServer(Answer answer)
    : answer_(std::move(answer)), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  bind(listener_, reinterpret_cast<sockaddr*>(&address), size);
  listen(listener_, 64);
  getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { Accept(); });
}

OddServer::~OddServer() {
  {
    std::lock_guard<std::mutex> guard(mutex_);
    stopping_ = true;
    for (const int descriptor : descriptors_) shutdown(descriptor, SHUT_RDWR);
  }
  shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  for (std::thread& thread : threads_) thread.join();
  for (const int descriptor : descriptors_) close(descriptor);
  close(listener_);
}

std::string OddServer::Url(const std::string& name) const {
  return "http://127.0.0.1:" + std::to_string(port_) + "/" + name;
}

void OddServer::Accept() {
  for (;;) {
    const int descriptor = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    std::lock_guard<std::mutex> guard(mutex_);
    if (descriptor >= 0) descriptors_.push_back(descriptor);
    if (descriptor < 0 || stopping_) return;
    ++accepted_;
    threads_.emplace_back([this, descriptor] { Serve(descriptor); });
  }
}

void OddServer::Serve(int descriptor) {
  std::string pending;
  OddRequest request;
  while (ReadRequest(descriptor, pending, request)) {
    ++requests_;
    if (!answer_(request, OddConnection(descriptor))) break;
  }
  shutdown(descriptor, SHUT_RDWR);
}

}  // namespace qvx::test
