#include "qvx/socket_client.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <new>
#include <thread>

#include "net/net_fixture.h"
#include "platform/socket.h"
#include "support/debug_lines.h"
#include "support/failing_new.h"
#include "support/fault_plan.h"
#include "support/fork_child.h"
#include "support/temp_folder.h"

namespace {

using qvx::platform::Operation;
using qvx::platform::SocketDescriptor;
using namespace qvx::test;

constexpr std::size_t kHelloSize = 36;

class Client : public CTCPSocketClient {
 public:
  ~Client() override { Close(); }
  using CTCPSocketClient::SendDataFile;
  using CTCPSocketClient::SendDataParts;
};

struct Connection {
  int Create(bool raw = false) {
    return client.Create("127.0.0.1", server.Port(), raw ? 1 : 0, 1, &listener, 42, "test");
  }
  // Connects and takes the hello.
  bool Open(bool raw = false) {
    if (Create(raw) == 0) return false;
    peer = server.Accept();
    return raw || peer.Read(kHelloSize).size() == kHelloSize;
  }

  RawListener server;
  ClientRecorder listener;
  Client client;
  RawPeer peer;
};

struct OpenConnection : Connection {
  explicit OpenConnection(bool raw = false) { EXPECT_TRUE(Open(raw)); }
};

// The descriptor that the next socket will have.
int NextDescriptor() {
  const std::uint64_t probe = qvx::platform::MakeTcpSocket();
  qvx::platform::CloseSocket(probe);
  return SocketDescriptor(probe);
}

TEST(SocketClient, IntroducesItselfAndPassesPacketsOn) {
  Connection c;
  DebugLines log;
  SetSocketMatchCode(7);
  ASSERT_EQ(c.Create(), 1);
  c.peer = c.server.Accept();
  const std::uint64_t socket = c.client.GetSocketFd();
  const std::string descriptor = std::to_string(SocketDescriptor(socket));
  EXPECT_EQ(c.client.IsConnect(), 1);
  EXPECT_EQ(c.listener.current_socket, socket);
  EXPECT_EQ(
      log.Count(2, "client connect to(127.0.0.1), mSocketFD=" + descriptor + ", packet socket\r\n"),
      1);
  EXPECT_EQ(c.peer.Read(kHelloSize), PacketBytes(HelloBytes(socket), -4, 7));

  EXPECT_EQ(c.client.SendData(SOCKET_CODE_ALL_CLIENTS, "abc", 3), 1);
  EXPECT_EQ(c.peer.Read(23), PacketBytes("abc", -1, 7));
  c.peer.Send(PacketBytes("one", 99, 7) + PacketBytes(Pattern(200'000), 1, 7));
  ASSERT_TRUE(c.listener.WaitForEvents(3));
  c.client.Close();
  EXPECT_EQ(c.client.IsConnect(), 0);
  EXPECT_EQ(c.client.GetSocketFd(), QVX_INVALID_SOCKET);
  EXPECT_EQ(c.listener.All(), (Events{"create", "one", Pattern(200'000), "disconnect"}));
  EXPECT_EQ(c.client.SendData(1, "x", 1), 0);
  EXPECT_EQ(log.Count(2, "client Close mSocketFD=" + descriptor + "\r\n"), 1);
  SetSocketMatchCode(0);
}

TEST(SocketClient, RawModeIsBytesAlone) {
  OpenConnection c(true);
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
  EXPECT_EQ(c.listener.All().back(), "disconnect");
  EXPECT_EQ(all, "first second");
}

TEST(SocketClient, DisconnectIsToldOnceHoweverItComes) {
  const std::function<void(Connection&)> ways[] = {
      [](Connection& c) { c.peer.Close(); },
      [](Connection& c) { c.peer.Reset(); },
      [](Connection& c) { c.peer.Send("this is no packet at all"); },
      [](Connection& c) { c.peer.Send(HeaderBytes(0xABCDBBBB, 0, 1, 0) + "x"); },
      [](Connection& c) { c.client.Close(); },
      [](Connection& c) {
        c.listener.on_data = [](const std::string&) { return 0; };
        c.peer.Send(PacketBytes("stop") + PacketBytes("never seen"));
      },
      [](Connection& c) {
        FaultPlan plan;
        plan.Fail(Operation::kSend, 1, EAGAIN);
        EXPECT_EQ(c.client.SendData(1, "x", 1), 0);
      }};
  const DebugLines log;
  for (const auto& way : ways) {
    OpenConnection c;
    way(c);
    EXPECT_TRUE(c.listener.WaitForEvents(2));
    c.client.Close();
    c.client.Close();
    EXPECT_EQ(c.listener.All(), (Events{"create", "disconnect"}));
  }
  EXPECT_EQ(log.Count(2, "RecvTCPPacket: nRecvBytes = 0, error=0\r\n"), 1);
  const char* no_packet =
      "RecvOnePackage: tag not match, expect:0xabcdbbbb, actual is 0x73696874\r\n";
  EXPECT_EQ(log.Count(2, no_packet), 1);
}

TEST(SocketClient, WhatWasSentBeforeTheCloseIsDelivered) {
  OpenConnection c;
  Events expected{"create"};
  std::string wire;
  for (int i = 0; i < 500; ++i) {
    expected.push_back("packet " + std::to_string(i));
    wire += PacketBytes(expected.back());
  }
  expected.push_back("disconnect");
  c.peer.Send(wire);
  c.peer.Close();
  EXPECT_TRUE(c.listener.WaitForEvents(expected.size()));
  c.client.Close();
  EXPECT_EQ(c.listener.All(), expected);
}

TEST(SocketClient, PacketsOfSeveralThreadsGoOutWhole) {
  OpenConnection c;
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
  OpenConnection c;
  const std::uint64_t first = c.client.GetSocketFd();
  ClientRecorder second;
  second.user_data = 43;
  ASSERT_EQ(c.client.Create("127.0.0.1", c.server.Port(), 1, 0, &second, 43, nullptr), 1);
  EXPECT_EQ(c.listener.All(), (Events{"create", "disconnect"}));
  EXPECT_EQ(second.All(), Events{"create"});
  EXPECT_NE(c.client.GetSocketFd(), first);
  EXPECT_TRUE(c.peer.SeesEnd());
  EXPECT_EQ(c.client.Create(nullptr, 1, 0, 0, nullptr, 0, ""), 0);
  EXPECT_EQ(second.All(), (Events{"create", "disconnect"}));
  EXPECT_EQ(c.client.Create("", 1, 0, 0, nullptr, 0, ""), 0);
}

TEST(SocketClient, FailuresAreToldAndLeaveNothingBehind) {
  Connection c;
  DebugLines log;
  FaultPlan plan;
  const int next = NextDescriptor();
  plan.Fail(Operation::kSocket, 1, EMFILE);
  EXPECT_EQ(c.Create(), 0);
  EXPECT_EQ(log.Count(4, "tcp client socket create fail, errno=24\r\n"), 1);
  plan.Fail(Operation::kConnect, 1, ECONNREFUSED);
  EXPECT_EQ(c.Create(), 0);
  EXPECT_EQ(log.Count(4, "AsyncConnect 127.0.0.1 failed, errno=111\r\n"), 1);
  plan.Fail(Operation::kThreadCreate, 1, EAGAIN);
  EXPECT_EQ(c.Create(), 0);
  EXPECT_EQ(c.client.IsConnect(), 0);
  EXPECT_EQ(c.listener.All(), (Events{"create", "create"}));
  EXPECT_EQ(NextDescriptor(), next);

  plan.Fail(Operation::kSend, 1, ENOBUFS);
  EXPECT_EQ(c.Create(), 1);
  EXPECT_TRUE(c.listener.WaitForEvents(4));
  EXPECT_EQ(c.listener.All().back(), "disconnect");
  EXPECT_EQ(
      log.Count(2, "CSocketClient::SendData: Failed, sock=" +
                       std::to_string(SocketDescriptor(c.listener.current_socket)) + "!!\r\n"),
      1);
  EXPECT_EQ(c.client.SendData(1, nullptr, 3), 0);
  EXPECT_EQ(c.client.SendData(1, "x", 0), 0);
  EXPECT_EQ(log.Count(2, "CSocketClient::SendData: parameter invalid!\r\n"), 2);
}

TEST(SocketClient, MissingMemoryInCreateLeavesTheClientClosed) {
  Connection c;
  const int next = NextDescriptor();
  for (int nth = 1, seen = 0; seen >= nth - 1; ++nth) {
    ASSERT_LT(nth, 1000);
    FailingAllocations no_memory(nth);
    try {
      c.client.Create("127.0.0.1", c.server.Port(), 0, 1, nullptr, 0, "no memory");
    } catch (const std::bad_alloc&) {
      EXPECT_EQ(c.client.IsConnect(), 0);
      EXPECT_EQ(NextDescriptor(), next);
    }
    seen = no_memory.Seen();
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

TEST(SocketClient, CloseWakesASenderThatWaitsForRoom) {
  OpenConnection c;
  const std::string big = Pattern(64 << 20);
  FaultPlan plan;
  std::thread sender(
      [&] { EXPECT_EQ(c.client.SendData(1, big.data(), static_cast<int>(big.size())), 0); });
  while (plan.Calls(Operation::kSend) < 2) std::this_thread::yield();
  c.client.Close();
  sender.join();
}

TEST(SocketClient, MissingMemoryEndsTheConnectionAlone) {
  OpenConnection c;
  c.peer.Send(PacketBytes("the thread is up"));
  ASSERT_TRUE(c.listener.WaitForEvents(2));
  const std::string wire = PacketBytes(Pattern(100));
  FaultPlan plan;
  plan.Fail(Operation::kAllocate, 1, ENOMEM);
  c.peer.Send(wire);
  EXPECT_TRUE(c.listener.WaitForEvents(3));
  EXPECT_EQ(c.listener.All(), (Events{"create", "the thread is up", "disconnect"}));
}

TEST(SocketClient, ListenerThatClosesEndsTheConnectionWithoutWaitingForItself) {
  OpenConnection c;
  c.listener.on_data = [&](const std::string&) {
    EXPECT_EQ(c.Create(), 0);
    c.client.Close();
    return 1;
  };
  c.peer.Send(PacketBytes("end"));
  EXPECT_TRUE(c.listener.WaitForEvents(3));
  EXPECT_EQ(c.listener.All(), (Events{"create", "end", "disconnect"}));
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
      done = Text(head, 4) + std::to_string(length);
      return 1;
    }
  };
  const RawListener server;
  ClientRecorder listener;
  Placer client;
  ASSERT_EQ(client.Create("127.0.0.1", server.Port(), 0, 1, &listener, 42, "place"), 1);
  const RawPeer peer = server.Accept();
  const std::string body = Pattern(100'000);
  peer.Send(PacketBytes("Phea" + body) + PacketBytes("ordinary"));
  ASSERT_TRUE(listener.WaitForEvents(2));
  client.Close();
  EXPECT_EQ(listener.All()[1], "ordinary");
  EXPECT_EQ(client.place, body);
  EXPECT_EQ(client.done, "Phea100004");
}

TEST(SocketClient, FileRangesGoOutAsOnePacket) {
  TempFolder folder;
  const std::string content = Pattern(300'000);
  const int file = open(folder.Write("f", content).c_str(), O_RDONLY | O_CLOEXEC);
  OpenConnection c;
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
  OpenConnection c;
  EXPECT_TRUE(HoldsInChild([&c] {
    const bool idle = c.client.IsConnect() == 0 && c.client.SendData(1, "x", 1) == 0;
    c.client.Close();
    const bool again =
        !kThreadsStartAfterFork || (c.Create() == 1 && c.client.SendData(1, "x", 1) == 1);
    c.client.Close();
    return idle && again;
  }));
  EXPECT_EQ(c.client.SendData(1, "y", 1), 1);
  EXPECT_EQ(c.peer.Read(21), PacketBytes("y", 1));
  c.peer.Send(PacketBytes("still here"));
  EXPECT_TRUE(c.listener.WaitForEvents(2));
  EXPECT_EQ(c.listener.All(), (Events{"create", "still here"}));
}

TEST(SocketClient, ManyConnectionsLeaveNoDescriptorBehind) {
  Connection c;
  const int next = NextDescriptor();
  for (int i = 0; i < 300; ++i) {
    ASSERT_TRUE(c.Open(i % 2 == 1));
    ASSERT_LE(SocketDescriptor(c.client.GetSocketFd()), next + 1);
    if (i % 3 == 0) c.client.Close();
  }
}

}  // namespace
