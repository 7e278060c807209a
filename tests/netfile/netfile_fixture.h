// What the tests of the file service share: a server on a free port of 127.0.0.1, a peer that
// speaks the wire by hand, and a server that answers by script.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "qvx/socket_file_client.h"
#include "qvx/socket_file_protocol.h"
#include "qvx/socket_file_server.h"
#include "support/packet_bytes.h"
#include "support/raw_peer.h"

namespace qvx::test {

using Bytes = std::string;

// The library's form of a native path.
std::u16string Library(const std::string& native);
// How many descriptors of this process lead below a folder.
int DescriptorsBelow(const std::string& folder);
// Waits until there are so many; false if that does not come.
bool WaitForDescriptorsBelow(const std::string& folder, int count);

template <typename T>
T ValueAt(const Bytes& bytes, std::size_t offset) {
  T value{};
  if (offset + sizeof(value) <= bytes.size())
    bytes.copy(reinterpret_cast<char*>(&value), sizeof(value), offset);
  return value;
}
// A text field of so many units, filled up with zeros.
Bytes Field(const std::u16string& text, std::size_t units = SOCKET_FILE_PATH_UNITS);
Bytes Record(std::uint32_t serial, std::uint32_t command, std::uint64_t cookie, const Bytes& body);

class LoopbackServer : public CSocketFileServer {
 public:
  LoopbackServer();
  ~LoopbackServer() override { Close(); }
  unsigned short Port() { return GetServerPort(); }

  void OnServerCloseClient(std::uint64_t user_data, tagCLIENTSOCKETINFO* client) override;
  int OnServerReceiveData(std::uint64_t user_data, tagCLIENTSOCKETINFO* client,
                          const unsigned char* data, int size) override;
  // Waits until so many clients were closed, files and all.
  void WaitClosed(int count);
  // Called before each request is answered, on the dispatch thread.
  std::function<void(std::uint32_t command)> on_request;

 protected:
  std::uint64_t SocketCreate(unsigned short port) override;

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int closed_ = 0;
};

class LoopbackClient : public CSocketFileClient {
 public:
  explicit LoopbackClient(unsigned short port);
  ~LoopbackClient() override { Close(); }
};

// A plain connection that speaks in packets.
class WirePeer {
 public:
  explicit WirePeer(unsigned short port) : peer_(RawPeer::To(port)) {}
  explicit WirePeer(RawPeer peer) : peer_(std::move(peer)) {}

  void SendPacket(std::uint64_t code, const Bytes& payload);
  void SendBytes(const Bytes& bytes) { peer_.Send(bytes); }
  // The payload of the next packet; nothing if the connection ended.
  std::optional<Bytes> ReceivePacket(std::uint64_t* code = nullptr);
  // One request and its answer.
  Bytes Ask(const Bytes& record);
  bool AtEnd() { return peer_.SeesEnd(); }
  // Ends the connection at once, without the usual goodbye.
  void Reset() { peer_.Reset(); }

 private:
  RawPeer peer_;
};

// Takes connections one after the other, reads the hello, and hands each request to a script.
class ScriptedServer {
 public:
  // The script answers through the peer; false ends the connection.
  using Script = std::function<bool(WirePeer& peer, const Bytes& request)>;
  explicit ScriptedServer(Script script);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;
  unsigned short Port() const { return listener_.Port(); }

 private:
  void Serve();
  Script script_;
  RawListener listener_;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

// The answer to a request with this body.
Bytes Answer(const Bytes& request, const Bytes& body);

}  // namespace qvx::test
