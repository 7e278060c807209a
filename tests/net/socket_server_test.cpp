#include "qvx/socket_server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <thread>

#include "net/net_fixture.h"
#include "support/debug_lines.h"
#include "support/fault_plan.h"
#include "support/fork_child.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

using platform::Operation;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

std::ptrdiff_t CountEntries(const char* folder) {
  const std::filesystem::directory_iterator all(folder);
  return std::distance(begin(all), end(all));
}

// So small that little is taken in without being read.
void ShrinkReceiveBuffer(const Peer& peer) {
  const int size = 8192;
  setsockopt(peer.Descriptor(), SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
}

class SocketServer : public testing::Test {
 protected:
  // Clients that are accepted one after the other, by a server in packet mode if none runs yet.
  std::vector<Peer> Connect(int count) {
    if (server.IsCreated() == 0) {
      EXPECT_TRUE(server.Start(&recorder));
    }
    const int before = recorder.accepted;
    std::vector<Peer> peers;
    for (int i = 1; i <= count; ++i) {
      peers.emplace_back(server.GetServerPort());
      EXPECT_TRUE(recorder.WaitForAccepted(before + i));
    }
    return peers;
  }

  Recorder recorder;
  LocalServer server;
};

TEST_F(SocketServer, KeepsWhatAHelloTells) {
  const std::vector<Peer> peers = Connect(3);
  const std::string hellos[] = {HelloBytes(77), HelloBytes(78, 2), HelloBytes(79).substr(0, 15)};
  for (std::size_t i = 0; i < 3; ++i) {
    peers[i].SendPacket(hellos[i], SOCKET_CODE_HELLO);
    peers[i].SendPacket("behind");
  }
  ASSERT_TRUE(recorder.WaitForData(3));
  EXPECT_EQ(recorder.data, Events(3, "behind"));
  server.LockClient();
  EXPECT_EQ(server.GetClientSocketInfo_Locked(0)->nPeerSocketFD, 77u);
  EXPECT_EQ(server.GetClientSocketInfo_Locked(1)->nPeerSocketFD, QVX_INVALID_SOCKET);
  EXPECT_EQ(server.GetClientSocketInfo_Locked(2)->nPeerSocketFD, QVX_INVALID_SOCKET);
  EXPECT_STREQ(server.GetClientSocketInfo_Locked(0)->strIPAddr.GetString(), "127.0.0.1");
  EXPECT_EQ(server.GetClientSocketInfo_Locked(3), nullptr);
  server.UnlockClient();
  CTCPSocketServer copy(server);
  copy = server;
  EXPECT_EQ(copy.IsCreated() + copy.GetClientCount(), 0);
}

// Each client sends one packet to each kind of destination, all at once; every destination
// must get each sender's packets once and in the sender's order, with its own socket as the code.
TEST_F(SocketServer, RelaysForFiveHundredClientsWithoutLossOrReordering) {
  const int count = kSanitized ? 60 : 500;
  std::vector<Peer> peers = Connect(count);
  const std::vector<std::uint64_t> sockets = server.Sockets();
  const auto size = static_cast<std::size_t>(count);

  for (std::size_t i = 0; i < size; ++i) {
    const std::string name = std::to_string(i);
    peers[i].SendPacket(name + ":nobody's", sockets[i] + (std::uint64_t{1} << 40));
    peers[i].SendPacket(name + ":0", SOCKET_CODE_ALL_CLIENTS);
    peers[i].SendPacket(name + ":1", SOCKET_CODE_OTHER_CLIENTS);
    peers[i].SendPacket(name + ":2", sockets[(i + 1) % size]);
    peers[i].SendPacket(name + ":3");
    peers[i].SendPacket(name + ":4", SOCKET_CODE_ALL_CLIENTS);
  }
  const std::size_t expected = 3 * size;  // two to all, one to the others, one from a neighbour
  for (std::size_t i = 0; i < size; ++i) {
    std::map<std::string, std::string> seen;
    for (std::size_t n = 0; n < expected; ++n) {
      std::uint64_t code = 0;
      const std::string payload = peers[i].Receive(&code);
      ASSERT_EQ(code, sockets[i]);
      const std::size_t colon = payload.find(':');
      ASSERT_NE(colon, std::string::npos) << "client " << i << " after " << n;
      seen[payload.substr(0, colon)] += payload.substr(colon + 1);
    }
    ASSERT_EQ(seen.size(), size);
    for (const auto& [sender, order] : seen) {
      const std::size_t from = std::stoul(sender);
      const bool neighbour = (from + 1) % size == i;
      ASSERT_EQ(order, from == i ? "04" : neighbour ? "0124" : "014") << sender << " to " << i;
    }
  }
  ASSERT_TRUE(recorder.WaitForData(size));
  EXPECT_EQ(recorder.data.size(), size);
  EXPECT_EQ(recorder.closed.load(), 0);
}

TEST_F(SocketServer, KeepsWhatASlowClientLeavesAndSendsItInOrder) {
  std::vector<Peer> peers = Connect(1);
  const std::uint64_t socket = server.Sockets()[0];
  const TempFolder folder;
  const std::string content = Pattern(3 << 20, 3);
  struct File : ISocketSendFile {
    explicit File(const std::string& path) : fd(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
    ~File() override { close(fd); }
    int GetSendDescriptor() const override { return fd; }
    int fd;
  };
  auto file = std::make_shared<File>(folder.Write("file", content));
  const std::weak_ptr<File> watch = file;

  // Larger than the limit, but the queue is empty.
  const std::string big = Pattern(20 << 20, 2);
  server.SetSendQueueLimit(64 << 20);
  ASSERT_EQ(server.SendText(socket, big), 1);
  ASSERT_EQ(server.SendFileRange(socket, "head", 4, file, 1000, 2 << 20), 1);
  file.reset();
  EXPECT_FALSE(watch.expired());
  std::vector<tagSOCKETSENDPART> parts;
  for (std::size_t i = 0; i < 100; ++i) parts.push_back({big.data() + i * 10, i % 11});
  std::string gathered;
  for (const auto& part : parts) gathered.append(static_cast<const char*>(part.pData), part.nSize);
  ASSERT_EQ(server.SendParts(socket, parts.data(), 100), 1);
  ASSERT_EQ(server.SendText(socket, "end"), 1);

  EXPECT_EQ(peers[0].Receive(), big);
  EXPECT_EQ(peers[0].Receive(), "head" + content.substr(1000, 2 << 20));
  EXPECT_EQ(peers[0].Receive(), gathered);
  EXPECT_EQ(peers[0].Receive(), "end");
  EXPECT_TRUE(watch.expired());

  // Now the socket takes all at once.
  file = std::make_shared<File>(folder.Path("file"));
  ASSERT_EQ(server.SendFileRange(socket, "h", 1, file, 5, 100), 1);
  ASSERT_EQ(server.SendParts(socket, parts.data(), 100), 1);
  EXPECT_EQ(peers[0].Receive(), "h" + content.substr(5, 100));
  EXPECT_EQ(peers[0].Receive(), gathered);

  // A file that ends too early can't complete its packet.
  EXPECT_EQ(server.SendFileRange(socket, "h", 1, file, content.size() - 10, 20), 0);
  EXPECT_EQ(peers[0].Receive(), "");
  EXPECT_TRUE(recorder.WaitForClosed(1));
}

TEST_F(SocketServer, CutsOffAClientThatNeverReadsAndHarmsNoOther) {
  server.SetSendQueueLimit(4 << 20);
  const std::vector<Peer> peers = Connect(3);
  const std::vector<std::uint64_t> sockets = server.Sockets();
  const Peer& partly = peers[1];
  const Peer& good = peers[2];
  ShrinkReceiveBuffer(peers[0]);
  ShrinkReceiveBuffer(partly);
  for (unsigned round = 0; round < 40; ++round) {
    const std::string packet = Pattern(1 << 20, round);
    server.SendToAll(packet);
    if (round == 0) {
      EXPECT_EQ(partly.Read(100000).size(), 100000u);
    }
    ASSERT_EQ(good.Receive(), packet);
  }
  ASSERT_TRUE(recorder.WaitForClosed(2));
  const std::multiset<std::uint64_t> closed(recorder.closed_sockets.begin(),
                                            recorder.closed_sockets.end());
  EXPECT_EQ(closed, (std::multiset<std::uint64_t>{sockets[0], sockets[1]}));
  EXPECT_EQ(server.SendText(sockets[0], "x"), 0);
}

TEST_F(SocketServer, DeliversWhatWasSentBeforeAnOrderlyClose) {
  ASSERT_TRUE(server.Start(&recorder));
  Events expected;
  for (int round = 0; round < 20; ++round) {
    const Peer peer(server.GetServerPort());
    for (int i = 0; i < 50; ++i) {
      expected.push_back(std::to_string(round) + "." + std::to_string(i));
      peer.SendPacket(expected.back());
    }
  }
  ASSERT_TRUE(recorder.WaitForClosed(20));
  EXPECT_EQ(recorder.data, expected);
}

TEST_F(SocketServer, ListenerEndsAConnectionAfterItsAnswer) {
  const std::string answer = Pattern(8 << 20);
  recorder.on_data = [&](tagCLIENTSOCKETINFO* client, const std::string& text) {
    if (text != "bye") return 1;
    server.SendText(client->nSocketFD, answer);
    return 0;
  };
  std::vector<Peer> peers = Connect(2);
  peers[0].SendPacket("bye");
  ASSERT_TRUE(recorder.WaitForData(1));
  EXPECT_EQ(server.SendText(server.Sockets()[0], "late"), 0);
  EXPECT_EQ(peers[0].Receive(), answer);
  EXPECT_TRUE(peers[0].SeesEnd());
  EXPECT_TRUE(recorder.WaitForClosed(1));
  server.CloseClient(server.Sockets().back());
  EXPECT_TRUE(peers[1].SeesEnd());
  EXPECT_TRUE(recorder.WaitForClosed(2));
}

TEST_F(SocketServer, RefusedClientIsToldAndNeverHeard) {
  recorder.accept_answer = 0;
  ASSERT_TRUE(server.Start(&recorder));
  Peer peer(server.GetServerPort());
  peer.SendPacket("secret");
  EXPECT_TRUE(peer.SeesEnd());
  EXPECT_TRUE(recorder.WaitForClosed(1));
  EXPECT_TRUE(recorder.data.empty());
  EXPECT_EQ(server.GetClientCount(), 0);
}

TEST_F(SocketServer, WhatBreaksAConnectionLeavesTheOthersAlone) {
  std::vector<Peer> peers = Connect(4);
  SetSocketMatchCode(5);
  peers[0].Send("GET / HTTP/1.1\r\nHost: x\r\n\r\n");
  EXPECT_TRUE(peers[0].SeesEnd());
  peers[1].SendPacket("foreign code");
  EXPECT_TRUE(peers[1].SeesEnd());
  SetSocketMatchCode(0);
  FaultPlan plan;
  plan.Fail(Operation::kReceive, 1, ECONNRESET);
  peers[2].SendPacket("lost");
  EXPECT_TRUE(peers[2].SeesEnd());
  EXPECT_TRUE(recorder.WaitForClosed(3));
  peers[3].SendPacket("good");
  EXPECT_TRUE(recorder.WaitForData(1));
  EXPECT_EQ(recorder.data, Events{"good"});
}

TEST_F(SocketServer, StaleCodeNeverReachesTheNextConnection) {
  std::vector<Peer> peers = Connect(2);
  const std::uint64_t old = server.Sockets()[1];
  peers[1].Close();
  ASSERT_TRUE(recorder.WaitForClosed(1));
  server.LockClient();  // the descriptor is closed inside the lock, after the listener
  server.UnlockClient();
  Peer next(server.GetServerPort());
  ASSERT_TRUE(recorder.WaitForAccepted(3));
  const std::uint64_t fresh = server.Sockets()[1];
  EXPECT_EQ(static_cast<std::uint32_t>(fresh), static_cast<std::uint32_t>(old));
  peers[0].SendPacket("for the old one", old);
  peers[0].SendPacket("for the new one", fresh);
  EXPECT_EQ(next.Receive(), "for the new one");
}

TEST_F(SocketServer, RawModePassesBytesBothWays) {
  recorder.on_data = [&](tagCLIENTSOCKETINFO*, const std::string& text) {
    server.SendToAll(text);
    return 1;
  };
  ASSERT_TRUE(server.Start(&recorder, true));
  const std::vector<Peer> peers = Connect(1);
  const std::string bytes = Pattern(300000);
  peers[0].Send(bytes);
  EXPECT_EQ(peers[0].Read(bytes.size()), bytes);
}

TEST_F(SocketServer, WritesItsLogLines) {
  const DebugLines log;
  ASSERT_TRUE(server.Start(&recorder));
  const unsigned short number = server.GetServerPort();
  const std::string port = std::to_string(number);
  const auto listener = static_cast<std::uint32_t>(server.GetServerFd());
  LocalServer second;
  EXPECT_EQ(second.Create(number, 0, 1, nullptr, 0, "x"), 0);
  EXPECT_EQ(second.SendData(1, "x", 1), 0);
  EXPECT_EQ(server.SendData(1, nullptr, 1), 0);
  Connect(1);
  ASSERT_TRUE(recorder.WaitForClosed(1));
  server.Close();
  const std::string error = std::to_string(EADDRINUSE);
  const std::pair<int, std::string> expected[] = {
      {2, "server bind to(" + port + "), mSocketFD=" + std::to_string(listener) +
              ", packet socket\r\n"},
      {4, "Server Bind Port : " + port + " Failed, error=" + error + "\r\n"},
      {4, "Create MsgServer Socket Failed, error=" + error + "!\r\n"},
      {2, "CSocketServer::SendData: mServerSocketFD is closed!!\r\n"},
      {2, "CSocketServer::SendData: parameter invalid!\r\n"},
      {2, "Total 1 client connected!\r\n"},
      {2, "Total 0 client connected!\r\n"},
      {2, "TCPAccept_test Accept failed, exit accept thread!\r\n"}};
  for (const auto& [level, line] : expected) EXPECT_GT(log.Count(level, line), 0) << line;
}

TEST_F(SocketServer, AcceptOutlivesErrorsAndALackOfDescriptors) {
  FaultPlan plan;
  plan.Fail(Operation::kAccept, 1, ECONNABORTED);
  ASSERT_TRUE(server.Start(&recorder));
  Peer first(server.GetServerPort());
  ASSERT_TRUE(recorder.WaitForAccepted(1));

  // No number is free but the one that a second client takes, until the first one leaves.
  const int spare = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(spare);
  rlimit old{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &old), 0);
  const rlimit tight{static_cast<rlim_t>(spare) + 1, old.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
  const int calls = plan.Calls(Operation::kAccept);
  const Peer second(server.GetServerPort());
  for (int i = 0; i < 1000 && plan.Calls(Operation::kAccept) < calls + 2; ++i) usleep(10000);
  EXPECT_GE(plan.Calls(Operation::kAccept), calls + 2);
  EXPECT_EQ(recorder.accepted.load(), 1);
  first.Close();
  EXPECT_TRUE(recorder.WaitForAccepted(2));
  setrlimit(RLIMIT_NOFILE, &old);
}

TEST_F(SocketServer, ThousandsOfConnectionsLeaveNothingBehind) {
  const int rounds = kSanitized ? 20 : 200;
  const int each = 50;
  ASSERT_TRUE(server.Start(&recorder));
  const auto connect_some = [&](int round) {
    std::vector<Peer> peers = Connect(each);
    for (Peer& peer : peers) {
      peer.SendPacket("x");
      if (round % 2 == 1) peer.Reset();
    }
    peers.clear();
    ASSERT_TRUE(recorder.WaitForClosed((round + 1) * each));
  };
  connect_some(0);
  recorder.data.reserve(std::size_t{rounds} * each);
  recorder.closed_sockets.reserve(std::size_t{rounds} * each);
  server.LockClient();
  server.UnlockClient();
  const std::ptrdiff_t descriptors = CountEntries("/proc/self/fd");
  const std::ptrdiff_t threads = CountEntries("/proc/self/task");
  const std::size_t memory = mallinfo2().uordblks;
  for (int round = 1; round < rounds; ++round) connect_some(round);
  server.LockClient();
  server.UnlockClient();
  EXPECT_EQ(server.GetClientCount(), 0);
  EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
  EXPECT_EQ(CountEntries("/proc/self/task"), threads);
  if (!kSanitized) {
    EXPECT_LT(mallinfo2().uordblks, memory + 16384);
  }
}

TEST_F(SocketServer, IdleClientCostsLittle) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer's allocator pads every block";
  const std::size_t count = 400;
  std::vector<Peer> peers = Connect(10);
  peers.reserve(peers.size() + count);
  const std::size_t before = mallinfo2().uordblks;
  for (std::size_t i = 1; i <= count; ++i) {
    peers.push_back(std::move(Connect(1)[0]));
    peers.back().SendPacket("x");
    ASSERT_TRUE(recorder.WaitForData(i));
  }
  const std::size_t used = mallinfo2().uordblks - before;
  RecordProperty("bytes_per_client", static_cast<int>(used / count));
  EXPECT_LT(used / count, 2048u);
}

TEST_F(SocketServer, ClosesWithAllConnectedAndMuchUnsent) {
  const int count = kSanitized ? 50 : 400;
  recorder.on_close = [this] {
    const int last = server.GetClientCount() - 1;
    EXPECT_EQ(server.GetClientSocketInfo_Locked(last) != nullptr, last >= 0);
  };
  for (int round = 0; round < 2; ++round) {
    std::vector<Peer> peers = Connect(count);
    const std::string packet = Pattern(4 << 20);
    const std::vector<std::uint64_t> sockets = server.Sockets();
    for (std::size_t i = 0; i < 20; ++i) {
      server.SendText(sockets[i], packet);
      if (i % 2 == 0) server.CloseClient(sockets[i]);
    }
    server.Close();
    EXPECT_EQ(recorder.closed.load(), (round + 1) * count);
    EXPECT_EQ(server.IsCreated(), 0);
    EXPECT_EQ(server.GetServerPort(), 0);
    EXPECT_EQ(server.GetServerFd(), QVX_INVALID_SOCKET);
  }
}

TEST_F(SocketServer, CreateFailsWholeWhereAThreadCannotStart) {
  const std::ptrdiff_t descriptors = CountEntries("/proc/self/fd");
  for (int failing = 1; failing <= 4; ++failing) {
    FaultPlan plan;
    plan.Fail(Operation::kThreadCreate, failing, EAGAIN);
    EXPECT_FALSE(server.Start(nullptr));
    EXPECT_EQ(server.IsCreated(), 0);
  }
  EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
  EXPECT_TRUE(server.Start(nullptr));
}

TEST_F(SocketServer, ForkInTheMiddleOfTraffic) {
  QVX_FORKS_BUSY_THREADS();
  recorder.on_data = [&](tagCLIENTSOCKETINFO* client, const std::string& text) {
    return server.SendText(client->nSocketFD, text);
  };
  std::vector<Peer> peers = Connect(8);
  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0};
  std::vector<std::thread> traffic;
  traffic.reserve(peers.size());
  for (Peer& peer : peers) {
    traffic.emplace_back([&] {
      for (unsigned i = 0; !stop; ++i) {
        const std::string text = Pattern(1 + i * 37 % 3000, i);
        peer.SendPacket(text);
        if (peer.Receive() != text) ++wrong;
      }
    });
  }
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(HoldsInChild([&] {
      const bool idle = server.IsCreated() == 0 && server.GetClientCount() == 0 &&
                        server.SendData(1, "x", 1) == 0;
      if (i % 2 == 0) server.Close();
      return idle && server.IsCreated() == 0;
    }));
  }
  stop = true;
  for (std::thread& thread : traffic) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(recorder.closed.load(), 0);
  EXPECT_EQ(server.GetClientCount(), 8);
}

TEST_F(SocketServer, AForkedChildCanServeAnew) {
  QVX_STARTS_THREADS_AFTER_FORK();
  std::vector<Peer> peers = Connect(1);
  EXPECT_TRUE(HoldsInChild([&] {
    Recorder fresh;
    if (!server.Start(&fresh)) return false;
    Peer peer(server.GetServerPort());
    peer.SendPacket("child", SOCKET_CODE_ALL_CLIENTS);
    const bool answered = peer.Receive() == "child";
    server.Close();
    return answered && fresh.closed == 1;
  }));
  peers[0].SendPacket("parent", SOCKET_CODE_ALL_CLIENTS);
  EXPECT_EQ(peers[0].Receive(), "parent");
}

}  // namespace
}  // namespace qvx::test
