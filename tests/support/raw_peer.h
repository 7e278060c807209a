// Plain blocking sockets on 127.0.0.1 for the far side of a test, without the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qvx::test {

// An owned descriptor of a connected stream socket.
class RawPeer {
 public:
  RawPeer() = default;
  explicit RawPeer(int descriptor) : descriptor_(descriptor) {}
  RawPeer(RawPeer&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  RawPeer& operator=(RawPeer&& other) noexcept;
  ~RawPeer() { Close(); }

  // Connects to a port of 127.0.0.1.
  static RawPeer To(std::uint16_t port);

  int Descriptor() const { return descriptor_; }
  // False if the other side is gone.
  bool Send(const std::string& bytes) const;
  // Up to size bytes; fewer only where the other side ended first.
  std::string Read(std::size_t size) const;
  // True once the other side's end is seen; what it sends before is dropped.
  bool SeesEnd() const;
  // Ends the connection in order, or with a reset.
  void Close();
  void Reset();

 private:
  int descriptor_ = -1;
};

class RawListener {
 public:
  RawListener();
  // With a queue that is full already, so that connecting to it takes forever.
  static RawListener Deaf();

  std::uint16_t Port() const { return port_; }
  int Descriptor() const { return socket_.Descriptor(); }
  RawPeer Accept() const;
  void Close() { socket_.Close(); }

 private:
  explicit RawListener(int queue);

  RawPeer socket_;
  std::uint16_t port_ = 0;
  std::vector<RawPeer> fillers_;
};

}  // namespace qvx::test
