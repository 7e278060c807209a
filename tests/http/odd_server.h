// A web server that answers as a test tells it to, byte by byte, on a plain socket.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

#include "support/raw_peer.h"

namespace qvx::test {

struct OddRequest {
  std::string head;  // with the empty line
  std::string body;

  std::string Method() const { return head.substr(0, head.find(' ')); }
  bool Has(const std::string& line) const { return head.find("\r\n" + line) != std::string::npos; }
  // The first byte of the range that was asked for; 0 without one.
  std::uint64_t RangeStart() const;
};

// The head of an answer, and a whole answer with its length.
std::string OddHead(int status, const std::string& more = std::string());
std::string OddAnswer(int status, const std::string& body, const std::string& more = std::string());

class OddServer {
 public:
  // Called for each request, on a thread of its connection. False ends the connection.
  using Answer = std::function<bool(const OddRequest&, const RawPeer& connection)>;

  explicit OddServer(Answer answer);
  ~OddServer();
  OddServer(const OddServer&) = delete;
  OddServer& operator=(const OddServer&) = delete;

  std::string Url(const std::string& name = "file") const;
  int Requests() const { return requests_; }
  int Connections() const { return accepted_; }

 private:
  void Accept();
  void Serve(const RawPeer& peer);

  Answer answer_;
  RawListener listener_;
  std::atomic<int> requests_{0};
  std::atomic<int> accepted_{0};
  std::mutex mutex_;
  bool stopping_ = false;
  std::list<RawPeer> peers_;
  std::list<std::thread> threads_;
  std::thread acceptor_;
};

}  // namespace qvx::test
