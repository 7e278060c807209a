#include "qvx/socket_client.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "platform/socket.h"
#include "support/debug_lines.h"
#include "support/failing_new.h"
#include "support/fault_plan.h"
#include "support/fork_child.h"
#include "support/packet_bytes.h"
#include "support/raw_peer.h"
#include "support/temp_folder.h"

namespace {

using qvx::platform::Operation;
using qvx::platform::SocketDescriptor;
using namespace qvx::test;

constexpr std::size_t kHelloSize = 36;
constexpr auto kLong = std::chrono::seconds(20);

// Keeps what a client tells and lets a test wait for it.
class Listener : public IClientSocketListener {
 public:
  void OnClientSocketCreate(std::uint64_t user, std::uint64_t socket) override {
    Note("create", user, socket);
  }
  int OnClientReceiveData(std::uint64_t user, std::uint64_t socket, const unsigned char* data,
                          int size) override {
    const std::string text(reinterpret_cast<const char*>(data), static_cast<std::size_t>(size));
    if (on_data && on_data(text) == 0) return 0;
    Note(text, user, socket);
    return 1;
  }
  void OnClientDisconnectFromServer(std::uint64_t user, std::uint64_t socket) override {
    Note("disconnect", user, socket);
  }

  // Waits until so many events have come.
  bool Wait(std::size_t count) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, kLong, [&] { return events_.size() >= count; });
  }
  std::vector<std::string> Events() {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_;
  }
  std::uint64_t Socket() {
    std::lock_guard<std::mutex> lock(mutex_);
    return socket_;
  }

  std::function<int(const std::string&)> on_data;
  std::uint64_t user_data = 42;

 private:
  void Note(const std::string& event, std::uint64_t user, std::uint64_t socket) {
    std::lock_guard<std::mutex> lock(mutex_);
    EXPECT_EQ(user, user_data);
    EXPECT_TRUE(event == "create" || socket == socket_);
    socket_ = socket;
    events_.push_back(event);
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> events_;
  std::uint64_t socket_ = 0;
};

using Events = std::vector<std::string>;

template <typename Client = CTCPSocketClient>
struct Connection {
  // Connects and takes the hello.
  bool Open(bool raw = false) {
    if (client.Create("127.0.0.1", server.Port(), raw ? 1 : 0, 1, &listener, 42, "test") == 0) {
      return false;
    }
    peer = server.Accept();
    return raw || peer.Read(kHelloSize).size() == kHelloSize;
  }

  RawListener server;
  Listener listener;
  Client client;
  RawPeer peer;
};

TEST(SocketClient, IntroducesItselfAndPassesPacketsOn) {
  Connection<> c;
  DebugLines log;
  SetSocketMatchCode(7);
  ASSERT_EQ(c.client.Create("127.0.0.1", c.server.Port(), 0, 1, &c.listener, 42, "test"), 1);
  c.peer = c.server.Accept();
  const std::uint64_t socket = c.client.GetSocketFd();
  EXPECT_EQ(c.client.IsConnect(), 1);
  EXPECT_EQ(c.listener.Socket(), socket);
  EXPECT_EQ(log.Count(2, "client connect to(127.0.0.1), mSocketFD=" +
                             std::to_string(SocketDescriptor(socket)) + ", packet socket\r\n"),
            1);
  const std::string hello = LittleEndian(std::uint32_t{0xABCDDCBA}) +
                            LittleEndian(std::uint32_t{1}) + LittleEndian(socket);
  EXPECT_EQ(c.peer.Read(kHelloSize), PacketBytes(hello, -4, 7));

  EXPECT_EQ(c.client.SendData(SOCKET_CODE_ALL_CLIENTS, "abc", 3), 1);
  EXPECT_EQ(c.peer.Read(23), PacketBytes("abc", -1, 7));
  c.peer.Send(PacketBytes("one", 99, 7) + PacketBytes(Pattern(200'000), 1, 7));
  ASSERT_TRUE(c.listener.Wait(3));
  c.client.Close();
  EXPECT_EQ(c.client.IsConnect(), 0);
  EXPECT_EQ(c.client.GetSocketFd(), QVX_INVALID_SOCKET);
  EXPECT_EQ(c.listener.Events(), (Events{"create", "one", Pattern(200'000), "disconnect"}));
  EXPECT_EQ(c.client.SendData(1, "x", 1), 0);
  EXPECT_EQ(
      log.Count(2, "client Close mSocketFD=" + std::to_string(SocketDescriptor(socket)) + "\r\n"),
      1);
  SetSocketMatchCode(0);
}

TEST(SocketClient, RawModeIsBytesAlone) {
  Connection<> c;
  ASSERT_TRUE(c.Open(true));
  EXPECT_EQ(c.client.SendData(5, "abc", 3), 1);
  EXPECT_EQ(c.peer.Read(3), "abc");
  std::string all;
  c.listener.on_data = [&](const std::string& text) {
    all += text;
    return all == "first second" ? 0 : 1;
  };
  c.peer.Send("first ");
  c.peer.Send("second");
  EXPECT_TRUE(c.peer.SeesEnd());
  c.client.Close();
  EXPECT_EQ(c.listener.Events().back(), "disconnect");
  EXPECT_EQ(all, "first second");
}

TEST(SocketClient, DisconnectIsToldOnceHoweverItComes) {
  const std::function<void(Connection<>&)> ways[] = {
      [](Connection<>& c) { c.peer.Close(); },
      [](Connection<>& c) { c.peer.Reset(); },
      [](Connection<>& c) { c.peer.Send("this is no packet at all"); },
      [](Connection<>& c) { c.peer.Send(HeaderBytes(0xABCDBBBB, 0, 1, 0) + "x"); },
      [](Connection<>& c) { c.client.Close(); },
      [](Connection<>& c) {
        c.listener.on_data = [](const std::string&) { return 0; };
        c.peer.Send(PacketBytes("stop") + PacketBytes("never seen"));
      }};
  for (const auto& way : ways) {
    Connection<> c;
    ASSERT_TRUE(c.Open());
    way(c);
    EXPECT_TRUE(c.listener.Wait(2));
    c.client.Close();
    c.client.Close();
    EXPECT_EQ(c.listener.Events(), (Events{"create", "disconnect"}));
  }
}

TEST(SocketClient, WhatWasSentBeforeTheCloseIsDelivered) {
  Connection<> c;
  ASSERT_TRUE(c.Open());
  Events expected{"create"};
  std::string wire;
  for (int i = 0; i < 500; ++i) {
    expected.push_back("packet " + std::to_string(i));
    wire += PacketBytes(expected.back());
  }
  expected.push_back("disconnect");
  c.peer.Send(wire);
  c.peer.Close();
  EXPECT_TRUE(c.listener.Wait(expected.size()));
  c.client.Close();
  EXPECT_EQ(c.listener.Events(), expected);
}

TEST(SocketClient, PacketsOfSeveralThreadsGoOutWhole) {
  class Sender : public CTCPSocketClient {
   public:
    ~Sender() override { Close(); }
    using CTCPSocketClient::SendDataParts;
  };
  Connection<Sender> c;
  ASSERT_TRUE(c.Open());
  constexpr int kPackets = 40;
  constexpr std::size_t kSize = 100'000;
  std::vector<std::thread> senders;
  senders.reserve(4);
  for (int i = 0; i < 4; ++i) {
    senders.emplace_back([&c, i] {
      const std::string payload(kSize, static_cast<char>('a' + i));
      const tagSOCKETSENDPART parts[] = {
          {payload.data(), 10}, {nullptr, 0}, {payload.data(), kSize - 10}};
      for (int n = 0; n < kPackets; ++n) EXPECT_EQ(c.client.SendDataParts(3, parts, 3), 1);
    });
  }
  for (int n = 0; n < 4 * kPackets; ++n) {
    const std::string packet = c.peer.Read(kSize + 20);
    ASSERT_EQ(packet, PacketBytes(std::string(kSize, packet.back()), 3));
  }
  for (std::thread& sender : senders) sender.join();
}

TEST(SocketClient, CreateStartsOver) {
  Connection<> c;
  ASSERT_TRUE(c.Open());
  const std::uint64_t first = c.client.GetSocketFd();
  Listener second;
  second.user_data = 43;
  ASSERT_EQ(c.client.Create("127.0.0.1", c.server.Port(), 1, 0, &second, 43, nullptr), 1);
  EXPECT_EQ(c.listener.Events(), (Events{"create", "disconnect"}));
  EXPECT_EQ(second.Events(), Events{"create"});
  EXPECT_NE(c.client.GetSocketFd(), first);
  EXPECT_TRUE(c.peer.SeesEnd());
  EXPECT_EQ(c.client.Create(nullptr, 1, 0, 0, nullptr, 0, ""), 0);
  EXPECT_EQ(second.Events(), (Events{"create", "disconnect"}));
  EXPECT_EQ(c.client.Create("", 1, 0, 0, nullptr, 0, ""), 0);
}

TEST(SocketClient, FailuresOfCreateLeaveNothingBehind) {
  Connection<> c;
  DebugLines log;
  FaultPlan plan;
  const std::uint64_t next = qvx::platform::MakeTcpSocket();
  const int probe = SocketDescriptor(next);
  qvx::platform::CloseSocket(next);
  const auto create = [&] {
    return c.client.Create("127.0.0.1", c.server.Port(), 0, 1, &c.listener, 42, "test");
  };
  plan.Fail(Operation::kSocket, 1, EMFILE);
  EXPECT_EQ(create(), 0);
  EXPECT_EQ(log.Count(4, "tcp client socket create fail, errno=24\r\n"), 1);
  plan.Fail(Operation::kConnect, 1, ECONNREFUSED);
  EXPECT_EQ(create(), 0);
  EXPECT_EQ(log.Count(4, "AsyncConnect 127.0.0.1 failed, errno=111\r\n"), 1);
  plan.Fail(Operation::kThreadCreate, 1, EAGAIN);
  EXPECT_EQ(create(), 0);
  EXPECT_EQ(c.client.IsConnect(), 0);
  EXPECT_EQ(c.listener.Events(), (Events{"create", "create"}));
  EXPECT_EQ(fcntl(probe, F_GETFD), -1);

  plan.Fail(Operation::kSend, 1, ENOBUFS);
  EXPECT_EQ(create(), 1);
  EXPECT_TRUE(c.listener.Wait(4));
  EXPECT_EQ(c.listener.Events().back(), "disconnect");
  EXPECT_EQ(log.Count(2, "CSocketClient::SendData: Failed, sock=" +
                             std::to_string(SocketDescriptor(c.listener.Socket())) + "!!\r\n"),
            1);
}

TEST(SocketClient, MissingMemoryInCreateLeavesTheClientClosed) {
  Connection<> c;
  const std::uint64_t probe = qvx::platform::MakeTcpSocket();
  qvx::platform::CloseSocket(probe);
  for (int nth = 1, seen = 0; seen >= nth - 1; ++nth) {
    ASSERT_LT(nth, 1000);
    FailingAllocations no_memory(nth);
    bool thrown = false;
    try {
      c.client.Create("127.0.0.1", c.server.Port(), 0, 1, nullptr, 0, "no memory");
    } catch (const std::bad_alloc&) {
      thrown = true;
    }
    seen = no_memory.Seen();
    if (!thrown) continue;
    EXPECT_EQ(c.client.IsConnect(), 0);
    EXPECT_EQ(fcntl(SocketDescriptor(probe), F_GETFD), -1);
  }
  EXPECT_EQ(c.client.IsConnect(), 1);
}

TEST(SocketClient, CloseEndsAConnectOfAnotherThread) {
  const RawListener deaf = RawListener::Deaf();
  FaultPlan plan;
  DebugLines log;
  CTCPSocketClient client;
  std::thread closer([&] {
    while (plan.Calls(Operation::kPoll) == 0) std::this_thread::yield();
    client.Close();
  });
  EXPECT_EQ(client.Create("127.0.0.1", deaf.Port(), 0, 1, nullptr, 0, "test"), 0);
  closer.join();
  EXPECT_EQ(log.Count(3, "AsyncConnect: cancel connect\r\n"), 1);
}

TEST(SocketClient, FailedSendEndsTheConnection) {
  Connection<> c;
  DebugLines log;
  ASSERT_TRUE(c.Open());
  EXPECT_EQ(c.client.SendData(1, nullptr, 3), 0);
  EXPECT_EQ(c.client.SendData(1, "x", 0), 0);
  EXPECT_EQ(log.Count(2, "CSocketClient::SendData: parameter invalid!\r\n"), 2);
  FaultPlan plan;
  plan.Fail(Operation::kSend, 1, EAGAIN);
  EXPECT_EQ(c.client.SendData(1, "x", 1), 0);
  EXPECT_TRUE(c.listener.Wait(2));
  EXPECT_EQ(c.listener.Events().back(), "disconnect");
}

TEST(SocketClient, CloseWakesASenderThatWaitsForRoom) {
  Connection<> c;
  ASSERT_TRUE(c.Open());
  const std::string big = Pattern(64 << 20);
  FaultPlan plan;
  std::thread sender(
      [&] { EXPECT_EQ(c.client.SendData(1, big.data(), static_cast<int>(big.size())), 0); });
  while (plan.Calls(Operation::kSend) < 2) std::this_thread::yield();
  c.client.Close();
  sender.join();
}

TEST(SocketClient, MissingMemoryEndsTheConnectionAlone) {
  Connection<> c;
  ASSERT_TRUE(c.Open());
  c.peer.Send(PacketBytes("the thread is up"));
  ASSERT_TRUE(c.listener.Wait(2));
  const std::string wire = PacketBytes(Pattern(100));
  FaultPlan plan;
  plan.Fail(Operation::kAllocate, 1, ENOMEM);
  c.peer.Send(wire);
  EXPECT_TRUE(c.listener.Wait(3));
  EXPECT_EQ(c.listener.Events(), (Events{"create", "the thread is up", "disconnect"}));
}

TEST(SocketClient, ListenerThatClosesEndsTheConnectionWithoutWaitingForItself) {
  Connection<> c;
  ASSERT_TRUE(c.Open());
  c.listener.on_data = [&](const std::string&) {
    EXPECT_EQ(c.client.Create("127.0.0.1", c.server.Port(), 0, 1, nullptr, 0, ""), 0);
    c.client.Close();
    return 1;
  };
  c.peer.Send(PacketBytes("end"));
  EXPECT_TRUE(c.listener.Wait(3));
  EXPECT_EQ(c.listener.Events(), (Events{"create", "end", "disconnect"}));
}

TEST(SocketClient, DerivedClassChoosesThePlaceOfPayloads) {
  class Placer : public CTCPSocketClient {
   public:
    Placer() { SetPlacedHead(4); }
    ~Placer() override { Close(); }

    std::string place = std::string(100'000, '?');
    std::mutex mutex;
    std::string done;

   protected:
    unsigned char* OnPlacePayload(const unsigned char* head, std::uint32_t length,
                                  std::uint32_t offset, std::uint32_t* room) override {
      if (head[0] != 'P') return nullptr;
      mutex.lock();
      EXPECT_EQ(*room, length - offset);
      return reinterpret_cast<unsigned char*>(place.data()) + offset - 4;
    }
    void OnPayloadPlaced(std::uint32_t, std::uint32_t) override { mutex.unlock(); }
    int OnPlacedPacket(const unsigned char* head, std::uint32_t length) override {
      done = std::string(reinterpret_cast<const char*>(head), 4) + std::to_string(length);
      return 1;
    }
  };
  Connection<Placer> c;
  ASSERT_TRUE(c.Open());
  const std::string body = Pattern(100'000);
  c.peer.Send(PacketBytes("Phea" + body) + PacketBytes("ordinary"));
  ASSERT_TRUE(c.listener.Wait(2));
  c.client.Close();
  EXPECT_EQ(c.listener.Events()[1], "ordinary");
  EXPECT_EQ(c.client.place, body);
  EXPECT_EQ(c.client.done, "Phea100004");
}

TEST(SocketClient, FileRangesGoOutAsOnePacket) {
  class FileSender : public CTCPSocketClient {
   public:
    ~FileSender() override { Close(); }
    using CTCPSocketClient::SendDataFile;
  };
  TempFolder folder;
  const std::string content = Pattern(300'000);
  const int file = open(folder.Write("f", content).c_str(), O_RDONLY | O_CLOEXEC);
  Connection<FileSender> c;
  ASSERT_TRUE(c.Open());
  EXPECT_EQ(c.client.SendDataFile(3, "head", 4, file, 100, 200'000), 1);
  EXPECT_EQ(c.peer.Read(200'024), PacketBytes("head" + content.substr(100, 200'000), 3));
  // Past the end of the file zeros keep the connection in step.
  EXPECT_EQ(c.client.SendDataFile(3, "head", 4, file, 299'990, 100'000), 2);
  EXPECT_EQ(c.peer.Read(100'024),
            PacketBytes("head" + content.substr(299'990) + std::string(99'990, '\0'), 3));
  EXPECT_EQ(c.client.SendDataFile(3, nullptr, 4, file, 0, 1), 0);
  close(file);
}

TEST(SocketClient, ForkedChildLeavesTheConnectionToTheParent) {
  Connection<> c;
  ASSERT_TRUE(c.Open());
  EXPECT_TRUE(HoldsInChild([&c] {
    const bool idle = c.client.IsConnect() == 0 && c.client.SendData(1, "x", 1) == 0;
    c.client.Close();
    const bool again = !kThreadsStartAfterFork || (c.client.Create("127.0.0.1", c.server.Port(), 0,
                                                                   1, nullptr, 0, "child") == 1 &&
                                                   c.client.SendData(1, "x", 1) == 1);
    c.client.Close();
    return idle && again;
  }));
  EXPECT_EQ(c.client.SendData(1, "y", 1), 1);
  EXPECT_EQ(c.peer.Read(21), PacketBytes("y", 1));
  c.peer.Send(PacketBytes("still here"));
  EXPECT_TRUE(c.listener.Wait(2));
  EXPECT_EQ(c.listener.Events(), (Events{"create", "still here"}));
}

TEST(SocketClient, ManyConnectionsLeaveNoDescriptorBehind) {
  RawListener server;
  CTCPSocketClient client;
  int first = -1;
  for (int i = 0; i < 300; ++i) {
    ASSERT_EQ(client.Create("127.0.0.1", server.Port(), i % 2, 1, nullptr, 0, "again"), 1);
    const int descriptor = SocketDescriptor(client.GetSocketFd());
    if (first < 0) first = descriptor;
    ASSERT_LE(descriptor, first + 1);
    const RawPeer peer = server.Accept();
    if (i % 3 == 0) client.Close();
  }
}

}  // namespace
