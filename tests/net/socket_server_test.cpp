#include "qvx/socket_server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <thread>

#include "net/server_peer.h"
#include "platform/bluetooth.h"
#include "support/debug_lines.h"
#include "support/fault_plan.h"
#include "support/fork_child.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

using platform::Operation;

std::string Hello(std::uint64_t own_socket, std::uint32_t version = SOCKET_HELLO_VERSION) {
  const tagSOCKETHELLO hello{SOCKET_HELLO_TAG, version, own_socket};
  return std::string(reinterpret_cast<const char*>(&hello), sizeof(hello));
}

std::string BytesTo(std::uint64_t code, const std::string& payload) {
  return PacketBytes(payload, static_cast<std::int64_t>(code));
}

std::vector<Peer> ConnectPeers(LocalServer& server, Recorder& recorder, int count) {
  const int before = recorder.accepted;
  std::vector<Peer> peers;
  for (int i = 0; i < count; ++i) {
    peers.emplace_back(server.GetServerPort());
    EXPECT_TRUE(recorder.WaitForAccepted(before + i + 1));
  }
  return peers;
}

TEST(SocketServer, RoutesByCode) {
  Recorder recorder;
  LocalServer server;
  ASSERT_TRUE(server.Start(&recorder));
  std::vector<Peer> peers = ConnectPeers(server, recorder, 3);
  const std::vector<std::uint64_t> sockets = server.Sockets();
  ASSERT_EQ(sockets.size(), 3u);

  peers[0].SendPacket(SOCKET_CODE_HELLO, Hello(77));
  peers[1].SendPacket(SOCKET_CODE_HELLO, Hello(78, 2));
  peers[2].SendPacket(SOCKET_CODE_HELLO, Hello(79).substr(0, 15));
  peers[0].SendPacket(sockets[0] + (std::uint64_t{1} << 40), "nobody's");
  peers[0].SendPacket(SOCKET_CODE_ALL_CLIENTS, "all");
  peers[0].SendPacket(SOCKET_CODE_OTHER_CLIENTS, "others");
  peers[0].SendPacket(sockets[1], "one");
  peers[0].SendPacket(SOCKET_CODE_TO_SERVER, "server");

  const std::vector<std::vector<std::string>> expected = {
      {"all"}, {"all", "others", "one"}, {"all", "others"}};
  for (std::size_t i = 0; i < 3; ++i) {
    for (const std::string& payload : expected[i]) {
      const std::optional<Packet> packet = peers[i].Receive();
      ASSERT_TRUE(packet.has_value());
      EXPECT_EQ(packet->payload, payload);
      EXPECT_EQ(packet->code, sockets[i]);
    }
  }
  ASSERT_TRUE(recorder.WaitForData(1));
  EXPECT_EQ(recorder.AllData(), "server");
  peers[1].SendPacket(SOCKET_CODE_TO_SERVER, "b");
  peers[2].SendPacket(SOCKET_CODE_TO_SERVER, "c");
  ASSERT_TRUE(recorder.WaitForData(3));
  server.LockClient();
  EXPECT_EQ(server.GetClientSocketInfo_Locked(0)->nPeerSocketFD, 77u);
  EXPECT_EQ(server.GetClientSocketInfo_Locked(1)->nPeerSocketFD, QVX_INVALID_SOCKET);
  EXPECT_EQ(server.GetClientSocketInfo_Locked(2)->nPeerSocketFD, QVX_INVALID_SOCKET);
  EXPECT_STREQ(server.GetClientSocketInfo_Locked(0)->strIPAddr.GetString(), "127.0.0.1");
  EXPECT_EQ(server.GetClientSocketInfo_Locked(3), nullptr);
  server.UnlockClient();
}

// Each client sends one packet to each kind of destination, all at once; every destination
// must get each sender's packets once and in the sender's order.
TEST(SocketServer, RelaysForFiveHundredClientsWithoutLossOrReordering) {
  const int count = kSanitized ? 60 : 500;
  Recorder recorder;
  LocalServer server;
  ASSERT_TRUE(server.Start(&recorder));
  std::vector<Peer> peers = ConnectPeers(server, recorder, count);
  const std::vector<std::uint64_t> sockets = server.Sockets();
  const auto size = static_cast<std::size_t>(count);

  for (std::size_t i = 0; i < size; ++i) {
    const std::string name = std::to_string(i);
    ASSERT_TRUE(peers[i].Send(BytesTo(SOCKET_CODE_ALL_CLIENTS, name + ":0") +
                              BytesTo(SOCKET_CODE_OTHER_CLIENTS, name + ":1") +
                              BytesTo(sockets[(i + 1) % size], name + ":2") +
                              BytesTo(SOCKET_CODE_TO_SERVER, name + ":3") +
                              BytesTo(SOCKET_CODE_ALL_CLIENTS, name + ":4")));
  }
  const std::size_t expected = 3 * size;  // two to all, one to the others, one from a neighbour
  for (std::size_t i = 0; i < size; ++i) {
    std::map<std::string, std::string> seen;
    for (std::size_t n = 0; n < expected; ++n) {
      const std::optional<Packet> packet = peers[i].Receive();
      ASSERT_TRUE(packet.has_value()) << "client " << i << " after " << n;
      const std::size_t colon = packet->payload.find(':');
      seen[packet->payload.substr(0, colon)] += packet->payload.substr(colon + 1);
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

TEST(SocketServer, KeepsWhatASlowClientLeavesAndSendsItInOrder) {
  Recorder recorder;
  LocalServer server;
  ASSERT_TRUE(server.Start(&recorder));
  std::vector<Peer> peers = ConnectPeers(server, recorder, 1);
  const std::uint64_t socket = server.Sockets()[0];
  const TempFolder folder;
  const std::string content = Pattern(3 << 20, 3);
  const int native = open(folder.Write("file", content).c_str(), O_RDONLY);
  struct File : ISocketSendFile {
    explicit File(int descriptor) : fd(descriptor) {}
    ~File() override { close(fd); }
    int GetSendDescriptor() const override { return fd; }
    int fd;
  };
  std::weak_ptr<File> watch;

  // Larger than the limit, but the queue is empty.
  const std::string big = Pattern(20 << 20, 2);
  server.SetSendQueueLimit(64 << 20);
  ASSERT_EQ(server.SendData(socket, big.data(), static_cast<int>(big.size())), 1);
  {
    const auto file = std::make_shared<File>(native);
    watch = file;
    ASSERT_EQ(server.SendFileRange(socket, "head", 4, file, 1000, 2 << 20), 1);
  }
  EXPECT_FALSE(watch.expired());
  std::vector<tagSOCKETSENDPART> parts;
  for (std::size_t i = 0; i < 100; ++i) parts.push_back({big.data() + i * 10, i % 11});
  std::string gathered;
  for (const auto& part : parts) gathered.append(static_cast<const char*>(part.pData), part.nSize);
  ASSERT_EQ(server.SendParts(socket, parts.data(), 100), 1);
  ASSERT_EQ(server.SendData(socket, "end", 3), 1);

  EXPECT_EQ(peers[0].Receive()->payload, big);
  EXPECT_EQ(peers[0].Receive()->payload, "head" + content.substr(1000, 2 << 20));
  EXPECT_EQ(peers[0].Receive()->payload, gathered);
  EXPECT_EQ(peers[0].Receive()->payload, "end");
  EXPECT_TRUE(watch.expired());

  // Now the socket takes all at once.
  const auto file = std::make_shared<File>(open(folder.Path("file").c_str(), O_RDONLY));
  ASSERT_EQ(server.SendFileRange(socket, "h", 1, file, 5, 100), 1);
  ASSERT_EQ(server.SendParts(socket, parts.data(), 100), 1);
  EXPECT_EQ(peers[0].Receive()->payload, "h" + content.substr(5, 100));
  EXPECT_EQ(peers[0].Receive()->payload, gathered);

  // A file that ends too early can't complete its packet.
  EXPECT_EQ(server.SendFileRange(socket, "h", 1, file, content.size() - 10, 20), 0);
  EXPECT_FALSE(peers[0].Receive().has_value());
  EXPECT_TRUE(recorder.WaitForClosed(1));
}

TEST(SocketServer, CutsOffAClientThatNeverReadsAndHarmsNoOther) {
  Recorder recorder;
  LocalServer server;
  server.SetSendQueueLimit(4 << 20);
  ASSERT_TRUE(server.Start(&recorder));
  Peer stuck(server.GetServerPort());
  stuck.ShrinkReceiveBuffer();
  ASSERT_TRUE(recorder.WaitForAccepted(1));
  Peer partly(server.GetServerPort());
  partly.ShrinkReceiveBuffer();
  ASSERT_TRUE(recorder.WaitForAccepted(2));
  Peer good(server.GetServerPort());
  ASSERT_TRUE(recorder.WaitForAccepted(3));
  const std::vector<std::uint64_t> sockets = server.Sockets();

  const int rounds = 40;
  int received = 0;
  std::thread reader([&] {
    for (int i = 0; i < rounds; ++i) {
      const std::optional<Packet> packet = good.Receive();
      const std::lock_guard<std::mutex> guard(recorder.mutex);
      if (packet && packet->payload == Pattern(1 << 20, static_cast<unsigned>(i))) ++received;
      recorder.changed.notify_all();
    }
  });
  for (int i = 0; i < rounds; ++i) {
    const std::string packet = Pattern(1 << 20, static_cast<unsigned>(i));
    server.BroadcastData(QVX_INVALID_SOCKET, packet.data(), static_cast<int>(packet.size()));
    if (i == 0) {
      EXPECT_EQ(partly.Read(100000).size(), 100000u);
    }
    ASSERT_TRUE(recorder.WaitUntil([&] { return received == i + 1; }));
  }
  reader.join();
  EXPECT_EQ(received, rounds);
  ASSERT_TRUE(recorder.WaitForClosed(2));
  std::vector<std::uint64_t> closed = recorder.closed_sockets;
  std::sort(closed.begin(), closed.end());
  std::vector<std::uint64_t> expected(sockets.begin(), sockets.begin() + 2);
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(closed, expected);
  EXPECT_EQ(server.SendData(sockets[0], "x", 1), 0);
}

TEST(SocketServer, DeliversWhatWasSentBeforeAnOrderlyClose) {
  Recorder recorder;
  LocalServer server;
  ASSERT_TRUE(server.Start(&recorder));
  std::string all;
  for (int round = 0; round < 20; ++round) {
    Peer peer(server.GetServerPort());
    for (int i = 0; i < 50; ++i) {
      const std::string text = std::to_string(round) + "." + std::to_string(i) + " ";
      peer.SendPacket(SOCKET_CODE_TO_SERVER, text);
      all += text;
    }
    peer.Close();
    ASSERT_TRUE(recorder.WaitForClosed(round + 1));
  }
  EXPECT_EQ(recorder.AllData(), all);

  Peer reset(server.GetServerPort());
  ASSERT_TRUE(recorder.WaitForAccepted(21));
  reset.Reset();
  EXPECT_TRUE(recorder.WaitForClosed(21));
}

TEST(SocketServer, ListenerEndsAConnectionAfterItsAnswer) {
  Recorder recorder;
  LocalServer server;
  const std::string answer = Pattern(8 << 20);
  recorder.on_data = [&](tagCLIENTSOCKETINFO* client, const std::string& text) {
    if (text != "bye") return 1;
    server.SendData(client->nSocketFD, answer.data(), static_cast<int>(answer.size()));
    return 0;
  };
  ASSERT_TRUE(server.Start(&recorder));
  std::vector<Peer> peers = ConnectPeers(server, recorder, 2);
  peers[0].SendPacket(SOCKET_CODE_TO_SERVER, "bye");
  ASSERT_TRUE(recorder.WaitForData(1));
  EXPECT_EQ(server.SendData(server.Sockets()[0], "late", 4), 0);
  EXPECT_EQ(peers[0].Receive()->payload, answer);
  EXPECT_TRUE(peers[0].IsEnded());
  EXPECT_TRUE(recorder.WaitForClosed(1));
  server.CloseClient(server.Sockets().back());
  EXPECT_TRUE(peers[1].IsEnded());
  EXPECT_TRUE(recorder.WaitForClosed(2));
}

TEST(SocketServer, RefusedClientIsToldAndNeverHeard) {
  Recorder recorder;
  recorder.accept_answer = 0;
  LocalServer server;
  ASSERT_TRUE(server.Start(&recorder));
  Peer peer(server.GetServerPort());
  peer.SendPacket(SOCKET_CODE_TO_SERVER, "secret");
  EXPECT_TRUE(peer.IsEnded());
  EXPECT_TRUE(recorder.WaitForClosed(1));
  EXPECT_TRUE(recorder.data.empty());
  EXPECT_EQ(server.GetClientCount(), 0);
}

TEST(SocketServer, BrokenProtocolEndsThatClientOnly) {
  Recorder recorder;
  LocalServer server;
  ASSERT_TRUE(server.Start(&recorder));
  std::vector<Peer> peers = ConnectPeers(server, recorder, 3);
  SetSocketMatchCode(5);
  peers[0].Send("GET / HTTP/1.1\r\nHost: x\r\n\r\n");
  EXPECT_TRUE(peers[0].IsEnded());
  peers[1].SendPacket(SOCKET_CODE_TO_SERVER, "foreign code");
  EXPECT_TRUE(peers[1].IsEnded());
  EXPECT_TRUE(recorder.WaitForClosed(2));
  SetSocketMatchCode(0);
  peers[2].SendPacket(SOCKET_CODE_TO_SERVER, "good");
  EXPECT_TRUE(recorder.WaitForData(1));
  EXPECT_EQ(recorder.AllData(), "good");
}

TEST(SocketServer, StaleCodeNeverReachesTheNextConnection) {
  Recorder recorder;
  LocalServer server;
  ASSERT_TRUE(server.Start(&recorder));
  std::vector<Peer> peers = ConnectPeers(server, recorder, 2);
  const std::uint64_t old = server.Sockets()[1];
  peers[1].Close();
  ASSERT_TRUE(recorder.WaitForClosed(1));
  server.LockClient();  // the descriptor is closed inside the lock, after the listener
  server.UnlockClient();
  Peer next(server.GetServerPort());
  ASSERT_TRUE(recorder.WaitForAccepted(3));
  const std::uint64_t fresh = server.Sockets()[1];
  EXPECT_EQ(static_cast<std::uint32_t>(fresh), static_cast<std::uint32_t>(old));
  peers[0].SendPacket(old, "for the old one");
  peers[0].SendPacket(fresh, "for the new one");
  EXPECT_EQ(next.Receive()->payload, "for the new one");
}

TEST(SocketServer, RawModePassesBytesBothWays) {
  Recorder recorder;
  LocalServer server;
  ASSERT_TRUE(server.Start(&recorder, true));
  std::vector<Peer> peers = ConnectPeers(server, recorder, 1);
  const std::string bytes = Pattern(300000);
  peers[0].Send(bytes);
  ASSERT_TRUE(recorder.WaitUntil([&] {
    std::size_t size = 0;
    for (const std::string& block : recorder.data) size += block.size();
    return size == bytes.size();
  }));
  EXPECT_EQ(recorder.AllData(), bytes);
  server.BroadcastData(QVX_INVALID_SOCKET, bytes.data(), static_cast<int>(bytes.size()));
  EXPECT_EQ(peers[0].Read(bytes.size()), bytes);
}

TEST(SocketServer, WritesItsLogLines) {
  const DebugLines log;
  const auto says = [&log](int level, const std::string& text) {
    return log.Count(level, text) > 0;
  };
  Recorder recorder;
  LocalServer server;
  ASSERT_TRUE(server.Start(&recorder));
  const int port = server.GetServerPort();
  const int listener = static_cast<int>(static_cast<std::uint32_t>(server.GetServerFd()));
  EXPECT_TRUE(says(2, "server bind to(" + std::to_string(port) +
                          "), mSocketFD=" + std::to_string(listener) + ", packet socket\r\n"));
  LocalServer second;
  EXPECT_EQ(second.Create(static_cast<unsigned short>(port), 0, 1, nullptr, 0, "x"), 0);
  const std::string error = std::to_string(EADDRINUSE);
  EXPECT_TRUE(
      says(4, "Server Bind Port : " + std::to_string(port) + " Failed, error=" + error + "\r\n"));
  EXPECT_TRUE(says(4, "Create MsgServer Socket Failed, error=" + error + "!\r\n"));
  EXPECT_EQ(second.SendData(1, "x", 1), 0);
  EXPECT_TRUE(says(2, "CSocketServer::SendData: mServerSocketFD is closed!!\r\n"));
  EXPECT_EQ(server.SendData(1, nullptr, 1), 0);
  EXPECT_TRUE(says(2, "CSocketServer::SendData: parameter invalid!\r\n"));
  {
    Peer peer(server.GetServerPort());
    ASSERT_TRUE(recorder.WaitForAccepted(1));
  }
  ASSERT_TRUE(recorder.WaitForClosed(1));
  server.Close();
  EXPECT_TRUE(says(2, "Total 1 client connected!\r\n"));
  EXPECT_TRUE(says(2, "Total 0 client connected!\r\n"));
  EXPECT_TRUE(says(2, "TCPAccept_test Accept failed, exit accept thread!\r\n"));
}

TEST(SocketServer, AcceptOutlivesErrorsAndALackOfDescriptors) {
  Recorder recorder;
  LocalServer server;
  FaultPlan plan;
  plan.Fail(Operation::kAccept, 1, ECONNABORTED);
  ASSERT_TRUE(server.Start(&recorder));
  Peer first(server.GetServerPort());
  ASSERT_TRUE(recorder.WaitForAccepted(1));
  plan.Fail(Operation::kAccept, 1, EMFILE, 2);
  Peer second(server.GetServerPort());
  ASSERT_TRUE(recorder.WaitForAccepted(2));

  // The real thing: no number below the limit is free, until a client leaves.
  rlimit old{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &old), 0);
  Peer third(server.GetServerPort());
  ASSERT_TRUE(recorder.WaitForAccepted(3));
  const int spare = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(spare);
  std::optional<Peer> waiting;
  std::vector<int> fillers;
  const rlimit tight{static_cast<rlim_t>(spare) + 20, old.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
  for (int fd = 0; fd >= 0;) {
    fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (fd >= 0) fillers.push_back(fd);
  }
  close(fillers.back());
  fillers.pop_back();
  const int calls = plan.Calls(Operation::kAccept);
  waiting.emplace(server.GetServerPort());
  for (int i = 0; i < 1000 && plan.Calls(Operation::kAccept) < calls + 2; ++i) usleep(10000);
  EXPECT_GE(plan.Calls(Operation::kAccept), calls + 2);
  EXPECT_EQ(recorder.accepted.load(), 3);
  third.Close();
  EXPECT_TRUE(recorder.WaitForAccepted(4));
  setrlimit(RLIMIT_NOFILE, &old);
  for (const int fd : fillers) close(fd);
}

TEST(SocketServer, AFailedReceiveEndsOneConnectionOnly) {
  Recorder recorder;
  LocalServer server;
  ASSERT_TRUE(server.Start(&recorder));
  std::vector<Peer> peers = ConnectPeers(server, recorder, 2);
  FaultPlan plan;
  for (int failing = 1; failing <= 3; ++failing) {
    plan.Fail(Operation::kReceive, 1, ECONNRESET);
    peers[1].SendPacket(SOCKET_CODE_TO_SERVER, "lost");
    EXPECT_TRUE(peers[1].IsEnded());
    ASSERT_TRUE(recorder.WaitForClosed(failing));
    peers.pop_back();
    peers.push_back(std::move(ConnectPeers(server, recorder, 1)[0]));
  }
  peers[0].SendPacket(SOCKET_CODE_TO_SERVER, "kept");
  ASSERT_TRUE(recorder.WaitForData(1));
  EXPECT_EQ(recorder.AllData(), "kept");
}

TEST(SocketServer, ThousandsOfConnectionsLeaveNothingBehind) {
  const int rounds = kSanitized ? 20 : 200;
  const int each = 50;
  Recorder recorder;
  LocalServer server;
  ASSERT_TRUE(server.Start(&recorder));
  const auto connect_some = [&](int round) {
    std::vector<Peer> peers = ConnectPeers(server, recorder, each);
    for (Peer& peer : peers) {
      peer.SendPacket(SOCKET_CODE_TO_SERVER, "x");
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
  const int descriptors = CountDescriptors();
  const int threads = CountThreads();
  const std::size_t memory = mallinfo2().uordblks;
  for (int round = 1; round < rounds; ++round) connect_some(round);
  server.LockClient();
  server.UnlockClient();
  EXPECT_EQ(server.GetClientCount(), 0);
  EXPECT_EQ(CountDescriptors(), descriptors);
  EXPECT_EQ(CountThreads(), threads);
  if (!kSanitized) {
    EXPECT_LT(mallinfo2().uordblks, memory + 16384);
  }
}

TEST(SocketServer, IdleClientCostsLittle) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer's allocator pads every block";
  Recorder recorder;
  LocalServer server;
  ASSERT_TRUE(server.Start(&recorder));
  std::vector<Peer> warm = ConnectPeers(server, recorder, 10);
  std::vector<Peer> peers;
  const int count = 400;
  peers.reserve(count);
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < count; ++i) {
    peers.emplace_back(server.GetServerPort());
    ASSERT_TRUE(recorder.WaitForAccepted(11 + i));
    peers.back().SendPacket(SOCKET_CODE_TO_SERVER, "x");
    ASSERT_TRUE(recorder.WaitForData(static_cast<std::size_t>(i) + 1));
  }
  const std::size_t used = mallinfo2().uordblks - before;
  RecordProperty("bytes_per_client", static_cast<int>(used / count));
  EXPECT_LT(used / count, 2048u);
}

TEST(SocketServer, ClosesWithAllConnectedAndMuchUnsent) {
  Recorder recorder;
  LocalServer server;
  const int count = kSanitized ? 50 : 400;
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(server.Start(&recorder));
    std::vector<Peer> peers = ConnectPeers(server, recorder, count);
    const std::string packet = Pattern(4 << 20);
    const std::vector<std::uint64_t> sockets = server.Sockets();
    for (std::size_t i = 0; i < 20; ++i) {
      server.SendData(sockets[i], packet.data(), static_cast<int>(packet.size()));
      if (i % 2 == 0) server.CloseClient(sockets[i]);
    }
    server.Close();
    EXPECT_EQ(recorder.closed.load(), (round + 1) * count);
    EXPECT_EQ(server.IsCreated(), 0);
    EXPECT_EQ(server.GetServerPort(), 0);
    EXPECT_EQ(server.GetServerFd(), QVX_INVALID_SOCKET);
  }
}

TEST(SocketServer, CreateFailsWholeWhereAThreadCannotStart) {
  const int descriptors = CountDescriptors();
  LocalServer server;
  for (int failing = 1; failing <= 4; ++failing) {
    FaultPlan plan;
    plan.Fail(Operation::kThreadCreate, failing, EAGAIN);
    EXPECT_FALSE(server.Start(nullptr));
    EXPECT_EQ(server.IsCreated(), 0);
  }
  EXPECT_EQ(CountDescriptors(), descriptors);
  EXPECT_TRUE(server.Start(nullptr));
}

TEST(SocketServer, ForkInTheMiddleOfTraffic) {
  QVX_FORKS_BUSY_THREADS();
  Recorder recorder;
  LocalServer server;
  recorder.on_data = [&](tagCLIENTSOCKETINFO* client, const std::string& text) {
    return server.SendData(client->nSocketFD, text.data(), static_cast<int>(text.size()));
  };
  ASSERT_TRUE(server.Start(&recorder));
  std::vector<Peer> peers = ConnectPeers(server, recorder, 8);
  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0};
  std::vector<std::thread> traffic;
  traffic.reserve(peers.size());
  for (Peer& peer : peers) {
    traffic.emplace_back([&] {
      for (unsigned i = 0; !stop; ++i) {
        const std::string text = Pattern(1 + i * 37 % 3000, i);
        peer.SendPacket(SOCKET_CODE_TO_SERVER, text);
        const std::optional<Packet> packet = peer.Receive();
        if (!packet || packet->payload != text) ++wrong;
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

TEST(SocketServer, AForkedChildCanServeAnew) {
  QVX_STARTS_THREADS_AFTER_FORK();
  Recorder recorder;
  LocalServer server;
  ASSERT_TRUE(server.Start(&recorder));
  std::vector<Peer> peers = ConnectPeers(server, recorder, 1);
  EXPECT_TRUE(HoldsInChild([&] {
    Recorder fresh;
    if (!server.Start(&fresh)) return false;
    Peer peer(server.GetServerPort());
    peer.SendPacket(SOCKET_CODE_ALL_CLIENTS, "child");
    const std::optional<Packet> packet = peer.Receive();
    server.Close();
    return packet && packet->payload == "child" && fresh.closed == 1;
  }));
  peers[0].SendPacket(SOCKET_CODE_ALL_CLIENTS, "parent");
  EXPECT_EQ(peers[0].Receive()->payload, "parent");
}

// A TCP listener stands in for the kernel's RFCOMM.
TEST(BluetoothServer, ServesClientsOfChannelOne) {
  static int bound_channel = 0;
  platform::RfcommCalls calls;
  calls.make = [] { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); };
  calls.bind = [](int descriptor, std::uint8_t channel) {
    bound_channel = channel;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof(address));
  };
  platform::SetRfcommCalls(&calls);
  Recorder recorder;
  CBTHSocketServer server;
  ASSERT_EQ(server.Create(77, 0, 1, &recorder, 0, "bth"), 1);
  platform::SetRfcommCalls(nullptr);
  EXPECT_EQ(bound_channel, 1);
  const Peer peer(server.GetServerPort());
  peer.SendPacket(SOCKET_CODE_ALL_CLIENTS, "over the air");
  EXPECT_EQ(peer.Receive()->payload, "over the air");
  server.Close();
  EXPECT_EQ(recorder.closed.load(), 1);
}

TEST(BluetoothServer, TellsWhatFailed) {
  const DebugLines log;
  CBTHSocketServer server;
  platform::RfcommCalls calls;
  calls.make = [] {
    errno = EAFNOSUPPORT;
    return -1;
  };
  platform::SetRfcommCalls(&calls);
  EXPECT_EQ(server.Create(0, 0, 1, nullptr, 0, "bth"), 0);
  EXPECT_EQ(log.Count(4, "Create MsgServer Socket Failed, error=97!\r\n"), 2);
  calls.make = [] { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); };
  calls.bind = [](int, std::uint8_t) {
    errno = EADDRINUSE;
    return -1;
  };
  platform::SetRfcommCalls(&calls);
  EXPECT_EQ(server.Create(0, 0, 1, nullptr, 0, "bth"), 0);
  platform::SetRfcommCalls(nullptr);
  EXPECT_EQ(log.Count(4, "Server Bind BTH Failed, error=98\r\n"), 1);
}

}  // namespace
}  // namespace qvx::test
