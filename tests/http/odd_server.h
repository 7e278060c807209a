// A web server that answers as a test tells it to, byte by byte, on a plain socket.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "support/raw_peer.h"

namespace qvx::test {

struct OddRequest {
  std::string head;  // with the empty line
  std::string body;

  std::string Method() const { return head.substr(0, head.find(' ')); }
  bool Has(const std::string& line) const { return head.find("\r\n" + line) != std::string::npos; }
  // What the line with this label begins with; 0 without one.
  std::uint64_t Number(const std::string& label) const {
    const std::size_t place = head.find("\r\n" + label);
    return place == std::string::npos ? 0 : std::stoull(head.substr(place + 2 + label.size()));
  }
  std::uint64_t RangeStart() const { return Number("Range: bytes="); }
};

// The head of an answer, and a whole answer with its length.
inline std::string OddHead(int status, const std::string& more = "") {
  return "HTTP/1.1 " + std::to_string(status) + " Odd\r\n" + more + "\r\n";
}

inline std::string OddAnswer(int status, const std::string& body, const std::string& more = "") {
  return OddHead(status, "Content-Length: " + std::to_string(body.size()) + "\r\n" + more) + body;
}

class OddServer {
 public:
  // Called for each request, on a thread of its connection. False ends the connection.
  using Answer = std::function<bool(const OddRequest&, const RawPeer& connection)>;

  explicit OddServer(Answer answer) : answer_(std::move(answer)), acceptor_([this] { Accept(); }) {}
  ~OddServer() {
    std::lock_guard<std::mutex> guard(mutex_);
    stopping_ = true;
    for (const RawPeer& peer : peers_) shutdown(peer.Descriptor(), SHUT_RDWR);
    RawPeer::To(listener_.Port());  // so that the acceptor looks up
  }
  OddServer(const OddServer&) = delete;
  OddServer& operator=(const OddServer&) = delete;

  std::string Url(const std::string& name = "file") const {
    return "http://127.0.0.1:" + std::to_string(listener_.Port()) + "/" + name;
  }
  int Requests() const { return requests_; }
  int Connections() const { return connections_; }

 private:
  void Accept() {
    for (;;) {
      RawPeer peer = listener_.Accept();
      std::lock_guard<std::mutex> guard(mutex_);
      if (stopping_) return;
      ++connections_;
      const RawPeer& kept = peers_.emplace_back(std::move(peer));
      threads_.emplace_back([this, &kept] { Serve(kept); });
    }
  }
  void Serve(const RawPeer& peer) {
    OddRequest request;
    while (ReadRequest(peer, request)) {
      ++requests_;
      if (!answer_(request, peer)) break;
    }
    shutdown(peer.Descriptor(), SHUT_RDWR);
  }
  // False at the end of the connection.
  static bool ReadRequest(const RawPeer& peer, OddRequest& request) {
    request.head.clear();
    while (!request.head.ends_with("\r\n\r\n")) {
      const std::string byte = peer.Read(1);
      if (byte.empty()) return false;
      request.head += byte;
    }
    const std::uint64_t length = request.Number("Content-Length: ");
    request.body = peer.Read(length);
    return request.body.size() == length;
  }

  Answer answer_;
  RawListener listener_;
  std::atomic<int> requests_{0};
  std::atomic<int> connections_{0};
  std::mutex mutex_;
  bool stopping_ = false;
  std::list<RawPeer> peers_;
  std::list<std::jthread> threads_;
  std::jthread acceptor_;  // the last member, so that it ends first
};

}  // namespace qvx::test
