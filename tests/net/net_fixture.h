// What the socket tests share: listeners that remember what they are told, a server on
// 127.0.0.1, and a bare client that speaks the packet format byte by byte. Waits end in a test
// failure after a generous limit.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "qvx/socket_client.h"
#include "qvx/socket_server.h"
#include "support/packet_bytes.h"
#include "support/raw_peer.h"

namespace qvx::test {

inline std::string Text(const unsigned char* data, std::size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size);
}

// The payload of a client's first packet.
inline std::string HelloBytes(std::uint64_t socket, std::uint32_t version = 1) {
  return LittleEndian(std::uint32_t{0xABCDDCBA}) + LittleEndian(version) + LittleEndian(socket);
}

// What other threads note and a test waits for.
class Notes {
 public:
  // Waits until the predicate holds, which is called with the mutex held.
  bool WaitUntil(const std::function<bool()>& predicate) {
    std::unique_lock<std::mutex> guard(mutex_);
    return changed_.wait_for(guard, std::chrono::seconds(240), predicate);
  }

 protected:
  ~Notes() = default;
  template <typename Change>
  void Note(const Change& change) {
    const std::lock_guard<std::mutex> guard(mutex_);
    change();
    changed_.notify_all();
  }

  std::mutex mutex_;

 private:
  std::condition_variable changed_;
};

using Events = std::vector<std::string>;

// Keeps what a client tells: "create", the data, "disconnect".
class ClientRecorder : public IClientSocketListener, public Notes {
 public:
  std::uint64_t user_data = 42;
  std::atomic<std::uint64_t> current_socket{0};
  // Data for which this gives 0 ends the connection and is not kept.
  std::function<int(const std::string&)> on_data;

  void OnClientSocketCreate(std::uint64_t user, std::uint64_t socket) override {
    current_socket = socket;
    Add("create", user, socket);
  }
  int OnClientReceiveData(std::uint64_t user, std::uint64_t socket, const unsigned char* data,
                          int size) override {
    const std::string text = Text(data, static_cast<std::size_t>(size));
    if (on_data && on_data(text) == 0) return 0;
    Add(text, user, socket);
    return 1;
  }
  void OnClientDisconnectFromServer(std::uint64_t user, std::uint64_t socket) override {
    Add("disconnect", user, socket);
  }

  bool WaitForEvents(std::size_t count) {
    return WaitUntil([&] { return events_.size() >= count; });
  }
  Events All() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return events_;
  }

 private:
  void Add(const std::string& event, std::uint64_t user, std::uint64_t socket) {
    Note([&] {
      EXPECT_EQ(user, user_data);
      EXPECT_EQ(socket, current_socket);
      events_.push_back(event);
    });
  }

  Events events_;
};

// Counts and keeps what a server tells; answers as the fields say.
class Recorder : public IServerSocketListener, public Notes {
 public:
  int accept_answer = 1;
  std::function<int(tagCLIENTSOCKETINFO*, const std::string&)> on_data;
  std::function<void()> on_close;

  int OnServerAcceptClient(std::uint64_t, tagCLIENTSOCKETINFO*) override {
    Note([&] { ++accepted; });
    return accept_answer;
  }
  void OnServerCloseClient(std::uint64_t, tagCLIENTSOCKETINFO* client) override {
    if (on_close) on_close();
    Note([&] {
      ++closed;
      closed_sockets.push_back(client->nSocketFD);
    });
  }
  int OnServerReceiveData(std::uint64_t, tagCLIENTSOCKETINFO* client, const unsigned char* bytes,
                          int size) override {
    const std::string text = Text(bytes, static_cast<std::size_t>(size));
    const int result = on_data ? on_data(client, text) : 1;
    Note([&] { data.push_back(text); });
    return result;
  }

  bool WaitForAccepted(int count) {
    return WaitUntil([&] { return accepted >= count; });
  }
  bool WaitForClosed(int count) {
    return WaitUntil([&] { return closed >= count; });
  }
  bool WaitForData(std::size_t count) {
    return WaitUntil([&] { return data.size() >= count; });
  }

  std::atomic<int> accepted{0};
  std::atomic<int> closed{0};
  std::vector<std::uint64_t> closed_sockets;
  std::vector<std::string> data;
};

class LocalServer : public CTCPSocketServer {
 public:
  ~LocalServer() override { Close(); }
  using CTCPSocketServer::SendFileRange;
  using CTCPSocketServer::SendParts;

  // In packet mode with check, or raw.
  bool Start(IServerSocketListener* listener, bool raw = false) {
    return Create(0, raw ? 1 : 0, 1, listener, 7, "test") == 1;
  }
  int SendText(std::uint64_t socket, const std::string& text) {
    return SendData(socket, text.data(), static_cast<int>(text.size()));
  }
  void SendToAll(const std::string& text) {
    BroadcastData(QVX_INVALID_SOCKET, text.data(), static_cast<int>(text.size()));
  }
  // The server's socket values in order of acceptance.
  std::vector<std::uint64_t> Sockets() {
    LockClient();
    std::vector<std::uint64_t> result(static_cast<std::size_t>(GetClientCount()));
    for (int i = 0; i < GetClientCount(); ++i) {
      result[static_cast<std::size_t>(i)] = GetClientSocketInfo_Locked(i)->nSocketFD;
    }
    UnlockClient();
    return result;
  }

 protected:
  std::uint64_t SocketCreate(unsigned short port) override { return ListenOn("127.0.0.1", port); }
};

class Peer : public RawPeer {
 public:
  explicit Peer(unsigned short port) : RawPeer(To(port)) {}

  bool SendPacket(const std::string& payload, std::uint64_t code = SOCKET_CODE_TO_SERVER) const {
    return Send(PacketBytes(payload, static_cast<std::int64_t>(code)));
  }
  // The payload of the next packet; nothing if the connection ended.
  std::string Receive(std::uint64_t* code = nullptr) const {
    const std::string header = Read(20);
    if (header.size() != 20 || header.compare(0, 4, "\xBB\xBB\xCD\xAB") != 0) return "";
    std::uint32_t length = 0;
    if (code != nullptr) header.copy(reinterpret_cast<char*>(code), sizeof(*code), 8);
    header.copy(reinterpret_cast<char*>(&length), sizeof(length), 16);
    const std::string payload = Read(length);
    return payload.size() == length ? payload : "";
  }
};

}  // namespace qvx::test
