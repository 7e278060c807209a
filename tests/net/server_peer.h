// What the server tests share: a server on 127.0.0.1, a listener that remembers, and a bare
// client that speaks the packet format byte by byte. Waits end in a test failure after a
// generous limit.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "qvx/socket_server.h"

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
  int accepted = 0;
  int closed = 0;
  std::vector<std::uint64_t> closed_sockets;
  std::vector<std::string> data;
};

struct Packet {
  std::uint64_t code;
  std::string payload;
};

// The bytes of a packet with match code 0.
std::string PacketBytes(std::uint64_t code, const std::string& payload);

class Peer {
 public:
  // Connects; a receive buffer size of 0 leaves the system's.
  explicit Peer(unsigned short port, int receive_buffer = 0);
  ~Peer();
  Peer(Peer&& other) noexcept;
  Peer& operator=(Peer&&) = delete;

  bool Send(const std::string& bytes) const;
  bool SendPacket(std::uint64_t code, const std::string& payload) const;
  // Nothing after the end of the connection or the limit.
  std::optional<Packet> Receive();
  // Exactly this many bytes, fewer only at the end of the connection.
  std::string ReceiveBytes(std::size_t size);
  // True if the connection ends (orderly or not) with nothing left to read.
  bool IsEnded();
  // Ends the connection with a reset.
  void Reset();
  void Close();
  int Descriptor() const { return fd_; }

 private:
  bool FillBuffer();

  int fd_ = -1;
  std::string buffer_;
  std::size_t used_ = 0;
};

// The log lines of its lifetime, from the level letter on.
class LogLines {
 public:
  LogLines();
  ~LogLines();
  bool Contains(const std::string& text);
  int Count(const std::string& text);

 private:
  static int Take(void* context, int level, const char* line, int length);

  std::mutex mutex_;
  std::vector<std::string> lines_;
};

int CountDescriptors();
int CountThreads();

}  // namespace qvx::test
