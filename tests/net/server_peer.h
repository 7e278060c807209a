// What the server tests share: a server on 127.0.0.1, a listener that remembers, and a bare
// client that speaks the packet format byte by byte. Waits end in a test failure after a
// generous limit.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "qvx/socket_server.h"
#include "support/packet_bytes.h"
#include "support/raw_peer.h"

namespace qvx::test {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

class LocalServer : public CTCPSocketServer {
 public:
  ~LocalServer() override { Close(); }
  using CTCPSocketServer::SendFileRange;
  using CTCPSocketServer::SendParts;

  // In packet mode with check, or raw.
  bool Start(IServerSocketListener* listener, bool raw = false);
  // The server's socket values in order of acceptance.
  std::vector<std::uint64_t> Sockets();

 protected:
  std::uint64_t SocketCreate(unsigned short port) override { return ListenOn("127.0.0.1", port); }
};

// Counts and keeps what a server tells; answers as the fields say.
class Recorder : public IServerSocketListener {
 public:
  int accept_answer = 1;
  std::function<int(tagCLIENTSOCKETINFO*, const std::string&)> on_data;

  int OnServerAcceptClient(std::uint64_t user, tagCLIENTSOCKETINFO* client) override;
  void OnServerCloseClient(std::uint64_t user, tagCLIENTSOCKETINFO* client) override;
  int OnServerReceiveData(std::uint64_t user, tagCLIENTSOCKETINFO* client,
                          const unsigned char* data, int size) override;

  // Waits until the predicate holds, which is called with the mutex held.
  bool WaitUntil(const std::function<bool()>& predicate);
  bool WaitForAccepted(int count);
  bool WaitForClosed(int count);
  bool WaitForData(std::size_t count);
  std::string AllData();

  std::mutex mutex;
  std::condition_variable changed;
  std::atomic<int> accepted{0};
  std::atomic<int> closed{0};
  std::vector<std::uint64_t> closed_sockets;
  std::vector<std::string> data;
};

struct Packet {
  std::uint64_t code;
  std::string payload;
};

// A bare client that reads packets.
class Peer : public RawPeer {
 public:
  explicit Peer(unsigned short port) : RawPeer(To(port)) {}

  bool SendPacket(std::uint64_t code, const std::string& payload) const;
  // Nothing at the end of the connection.
  std::optional<Packet> Receive() const;
  bool IsEnded() const { return SeesEnd(); }
  // So small that little is taken in without being read.
  void ShrinkReceiveBuffer() const;
};

int CountDescriptors();
int CountThreads();

}  // namespace qvx::test
