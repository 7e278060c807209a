#include "qvx/udp_socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <memory>

#include "net/net_fixture.h"
#include "platform/socket.h"
#include "support/debug_lines.h"
#include "support/fault_plan.h"
#include "support/network_lab.h"

namespace qvx::test {
namespace {

using platform::Ipv4Endpoint;
using Texts = std::vector<std::string>;

constexpr unsigned short kPort = 5000;

class Ear : public IUDPSocketListener, public Notes {
 public:
  void OnUDPDataReceived(std::uint64_t user, const unsigned char* data, int size) override {
    Note([&] {
      heard_.push_back(Text(data, static_cast<std::size_t>(size)));
      last_user = user;
    });
  }

  // Waits for this text, and gives all that was heard up to now.
  Texts WaitFor(const std::string& text) {
    Texts all;
    EXPECT_TRUE(WaitUntil([&] {
      all = heard_;
      return !all.empty() && all.back() == text;
    })) << text;
    return all;
  }

  std::uint64_t last_user = 0;

 private:
  Texts heard_;
};

struct Socket {
  explicit Socket(const Ipv4Endpoint& local) {
    EXPECT_TRUE(platform::SetBroadcast(value) && platform::BindIpv4(value, local));
    EXPECT_TRUE(platform::GetLocalIpv4(value, &at));
  }
  ~Socket() { platform::CloseSocket(value); }

  bool Send(const Ipv4Endpoint& to, const std::string& text) const {
    return platform::SendDatagram(value, text.data(), text.size(), {to, 0, 0}).error == 0;
  }

  const std::uint64_t value = platform::MakeUdpSocket();
  Ipv4Endpoint at;
};

// A datagram from source to target, if there is a way.
bool SendFrom(const char* source, const char* target, unsigned short port,
              const std::string& text) {
  Ipv4Endpoint from{0, 0}, to{0, port};
  EXPECT_TRUE(platform::ParseIpv4(source, &from.address) &&
              platform::ParseIpv4(target, &to.address));
  return Socket(from).Send(to, text);
}

TEST(Datagrams, ComeWithTheirSenderAndWithoutEmptyOnes) {
  const Ipv4Endpoint loopback{INADDR_LOOPBACK, 0};
  const Socket receiver(loopback);
  const Socket sender(loopback);
  EXPECT_TRUE(sender.Send(receiver.at, "") && sender.Send(receiver.at, "datagram"));

  sockaddr_in from{};
  unsigned char* data = nullptr;
  std::uint32_t size = 0;
  for (int i = 0; i < 3 && data == nullptr; ++i) {
    ASSERT_GT(platform::PollSocket(receiver.value, platform::kPollRead, 20000), 0);
    ASSERT_EQ(RecvUDPRaw(receiver.value, &from, sizeof(from), &data, &size), 1);
  }
  const std::unique_ptr<unsigned char[]> owner(data);
  EXPECT_EQ(Text(data, size), "datagram");
  EXPECT_EQ(from.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(ntohs(from.sin_port), sender.at.port);
  EXPECT_EQ(RecvUDPRaw(receiver.value, &from, sizeof(from), &data, &size), 1);
  EXPECT_EQ(data, nullptr);
}

TEST(Datagrams, FailedBroadcastIsLoggedAndLeavesNothingBehind) {
  const DebugLines log;
  FaultPlan plan;
  const std::uint64_t socket = platform::MakeUdpSocket();
  const int descriptor = platform::SocketDescriptor(socket);
  plan.Fail(platform::Operation::kSend, 1, ENETUNREACH, 10);
  EXPECT_EQ(SendUDPRaw(socket, 9, "x", 1), 0);
  EXPECT_EQ(SendUDPRaw(socket, 9, "x", 0), 0);
  BoradcastRaw(socket, 9, "x", 1, 1500);
  timeval limit{};
  socklen_t size = sizeof(limit);
  getsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, &size);
  EXPECT_EQ(limit.tv_sec, 1);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
  BoradcastRaw(QVX_INVALID_SOCKET, 9, "x", 1, 0);
  EXPECT_EQ(log.Count(2, "send failed, error(101) ----\r\n"), 3);
  plan.Fail(platform::Operation::kSocket, 1, EMFILE);
  BoradcastRaw(QVX_INVALID_SOCKET, 9, "x", 1, 0);
  const std::uint64_t next = platform::MakeUdpSocket();
  EXPECT_EQ(platform::SocketDescriptor(next), descriptor + 1);
  platform::CloseSocket(next);
  platform::CloseSocket(socket);
}

TEST(UdpSocket, HearsItsAddressAndDropsItsOwn) {
  const unsigned short port = Socket({0, 0}).at.port;
  Ear ear;
  CUDPSocket socket;
  ASSERT_EQ(socket.Create("127.0.0.1", port, &ear, 9, "ear"), 1);
  EXPECT_TRUE(SendFrom("127.0.0.1", "127.0.0.1", port, "own"));
  EXPECT_TRUE(SendFrom("127.0.0.2", "127.0.0.3", port, "another's"));
  EXPECT_TRUE(SendFrom("127.0.0.2", "127.0.0.1", port, ""));
  EXPECT_TRUE(SendFrom("127.0.0.2", "127.0.0.1", port, std::string(65507, 'x')));
  EXPECT_TRUE(SendFrom("127.0.0.2", "127.0.0.1", port, "end"));
  EXPECT_EQ(ear.WaitFor("end"), (Texts{std::string(65507, 'x'), "end"}));
  EXPECT_EQ(ear.last_user, 9u);

  // Again without an address: nothing is dropped.
  Ear all;
  ASSERT_EQ(socket.Create(nullptr, port, &all, 0, "all"), 1);
  EXPECT_TRUE(SendFrom("127.0.0.1", "127.0.0.1", port, "own"));
  EXPECT_TRUE(SendFrom("127.0.0.2", "127.0.0.3", port, "end"));
  EXPECT_EQ(all.WaitFor("end"), (Texts{"own", "end"}));
  ASSERT_EQ(socket.Create("127.0.0.1", port, nullptr, 0, "deaf"), 1);
  EXPECT_TRUE(SendFrom("127.0.0.2", "127.0.0.1", port, "unheard"));
  socket.Close();
  EXPECT_EQ(socket.IsCreated(), 0);
}

TEST(UdpSocket, TellsFailuresAndLogs) {
  const DebugLines log;
  CUDPSocket socket;
  CUDPSocket second;
  const unsigned short number = Socket({0, 0}).at.port;
  const std::string port = std::to_string(number);
  EXPECT_EQ(socket.Create("203.0.113.77", number, nullptr, 0, "x"), 0);
  EXPECT_EQ(socket.Create("nonsense", number, nullptr, 0, "x"), 0);
  ASSERT_EQ(socket.Create(nullptr, number, nullptr, 0, "x"), 1);
  EXPECT_EQ(second.Create(nullptr, number, nullptr, 0, "x"), 0);
  EXPECT_EQ(second.SendData(number, "x", 1), 0);
  EXPECT_EQ(socket.SendData(number, "x", 0), 0);
  second = socket;
  EXPECT_EQ(CUDPSocket(socket).IsCreated() + second.IsCreated(), 0);
  EXPECT_EQ(socket.IsCreated(), 1);
  FaultPlan plan;
  plan.Fail(platform::Operation::kSend, 1, EPERM);
  EXPECT_EQ(socket.SendData(number, "x", 1), 0);
  EXPECT_EQ(socket.IsCreated(), 0);
  for (const std::string& line :
       {"CUDPSocket::Bind bind error(addr=203.0.113.77, port=" + port +
            "), code = " + std::to_string(EADDRNOTAVAIL),
        "CUDPSocket::Bind BindPort(addr=0.0.0.0, port=" + port + ") Success!",
        std::string("CUDPSocket::SendData: mSocketFD is closed!!"),
        std::string("CUDPSocket::SendData: parameter invalid!"),
        "send failed, error(" + std::to_string(EPERM) + ") ----"}) {
    EXPECT_GT(log.Count(2, line + "\r\n"), 0) << line;
  }
}

TEST(UdpSocket, WaitsForRoomOnASlowLink) {
  NetworkLab lab;
  QVX_NEEDS_LAB(lab);
  ASSERT_TRUE(lab.SlowDown()) << lab.WhyNot();
  for (const char* address : {NetworkLab::Address(0), static_cast<const char*>(nullptr)}) {
    CUDPSocket socket;
    lab.In(0, [&] {
      const int descriptor = platform::SocketDescriptor(Socket({0, 0}).value);  // the next, too
      ASSERT_EQ(socket.Create(address, kPort, nullptr, 0, "lab"), 1);
      const int size = 4096;
      ASSERT_EQ(setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &size, sizeof(size)), 0);
    });
    const std::string text(1400, 'x');
    for (int i = 0; i < 200; ++i) ASSERT_EQ(socket.SendData(kPort, text.data(), 1400), 1) << i;
  }
}

TEST(UdpSocket, BroadcastReachesTheOtherHostAndNotTheSender) {
  NetworkLab lab;
  QVX_NEEDS_LAB(lab);
  Ear ears[2];
  CUDPSocket sockets[2];
  for (const int host : {0, 1}) {
    lab.In(host, [&] {
      ASSERT_EQ(sockets[host].Create(NetworkLab::Address(host), kPort, &ears[host], 0, "lab"), 1);
    });
  }
  EXPECT_EQ(sockets[0].SendData(kPort, "from 0", 6), 1);
  ears[1].WaitFor("from 0");
  EXPECT_EQ(sockets[1].SendData(kPort, "from 1", 6), 1);
  EXPECT_EQ(ears[0].WaitFor("from 1"), (Texts{"from 1"}));

  // The other ways to a host: empty datagrams, its network's broadcast address, its own
  // address; not the broadcasts of another interface.
  lab.In(0, [] {
    for (int i = 0; i < 50; ++i) SendFrom("10.77.0.1", "10.77.0.255", kPort, "");
    EXPECT_TRUE(SendFrom("10.77.0.1", "10.77.0.255", kPort, "network"));
    EXPECT_TRUE(SendFrom("10.77.0.1", "10.77.0.2", kPort, "direct"));
  });
  ears[1].WaitFor("direct");
  lab.In(1, [] {
    SendFrom("127.0.0.1", "127.255.255.255", kPort, "loopback's");
    EXPECT_TRUE(SendFrom("127.0.0.1", "127.0.0.1", kPort, "another address"));
  });
  EXPECT_EQ(sockets[0].SendData(kPort, "end", 3), 1);
  EXPECT_EQ(ears[1].WaitFor("end"), (Texts{"from 0", "network", "direct", "end"}));

  // Without an address an object hears all, itself included.
  lab.In(0, [&] { ASSERT_EQ(sockets[0].Create(nullptr, kPort, &ears[0], 0, "lab"), 1); });
  EXPECT_EQ(sockets[0].SendData(kPort, "to all", 6), 1);
  ears[0].WaitFor("to all");
  ears[1].WaitFor("to all");
  lab.In(0, [] { BoradcastRaw(QVX_INVALID_SOCKET, kPort, "by a socket of its own", 22, 0); });
  ears[1].WaitFor("by a socket of its own");
}

}  // namespace
}  // namespace qvx::test
