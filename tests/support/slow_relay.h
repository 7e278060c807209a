// A relay between clients and a server on 127.0.0.1 that makes a loopback connection behave
// like a long line: it delays both directions, cuts at a byte, and splits what it passes on.
#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <mutex>
#include <thread>

#include "support/raw_peer.h"

namespace qvx::test {

struct RelayOptions {
  std::chrono::milliseconds delay{0};  // each way
  std::size_t piece = SIZE_MAX;        // most bytes that one write passes on
  // A connection is cut once this many bytes went that way.
  std::uint64_t cut_to_server = UINT64_MAX;
  std::uint64_t cut_to_client = UINT64_MAX;
};

class SlowRelay {
 public:
  SlowRelay(unsigned short server_port, const RelayOptions& options);
  ~SlowRelay();
  SlowRelay(const SlowRelay&) = delete;
  SlowRelay& operator=(const SlowRelay&) = delete;

  // Where clients connect instead of the server's port.
  unsigned short Port() const { return listener_.Port(); }

 private:
  struct Connection;

  void AcceptLoop();
  void Pump(const RawPeer& from, const RawPeer& to, std::uint64_t cut) const;
  void Serve(Connection& connection) const;

  RelayOptions options_;
  unsigned short server_port_;
  RawListener listener_;
  std::mutex mutex_;
  bool stopping_ = false;
  std::list<Connection> connections_;
  std::thread accept_thread_;
};

}  // namespace qvx::test
