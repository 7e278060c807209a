#include "qvx/udp_socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "support/debug_lines.h"
#include "support/fault_plan.h"
#include "support/network_lab.h"

namespace qvx::test {
namespace {

constexpr unsigned short kPort = 5000;

class Ear : public IUDPSocketListener {
 public:
  void OnUDPDataReceived(std::uint64_t user, const unsigned char* data, int size) override {
    const std::lock_guard<std::mutex> guard(mutex);
    heard.emplace_back(reinterpret_cast<const char*>(data), static_cast<std::size_t>(size));
    last_user = user;
    changed.notify_all();
  }

  // Waits for this text, and gives all that was heard up to now.
  std::vector<std::string> WaitFor(const std::string& text) {
    std::unique_lock<std::mutex> guard(mutex);
    EXPECT_TRUE(changed.wait_for(guard, std::chrono::seconds(60), [&] {
      return !heard.empty() && heard.back() == text;
    })) << text;
    return heard;
  }

  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> heard;
  std::uint64_t last_user = 0;
};

// A datagram from source to target; sends nothing where that is not possible.
bool SendFrom(const char* source, const char* target, unsigned short port,
              const std::string& text) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on));
  sockaddr_in from{};
  from.sin_family = AF_INET;
  inet_pton(AF_INET, source, &from.sin_addr);
  sockaddr_in to = from;
  to.sin_port = htons(port);
  inet_pton(AF_INET, target, &to.sin_addr);
  const bool sent = bind(fd, reinterpret_cast<sockaddr*>(&from), sizeof(from)) == 0 &&
                    sendto(fd, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&to),
                           sizeof(to)) == static_cast<ssize_t>(text.size());
  close(fd);
  return sent;
}

unsigned short FreePort() {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  socklen_t size = sizeof(address);
  bind(fd, reinterpret_cast<sockaddr*>(&address), size);
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  close(fd);
  return ntohs(address.sin_port);
}

using Texts = std::vector<std::string>;

TEST(UdpSocket, HearsItsAddressAndDropsItsOwn) {
  const unsigned short port = FreePort();
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
  const auto says = [&log](int level, const std::string& text) {
    return log.Count(level, text) > 0;
  };
  CUDPSocket socket;
  const unsigned short port = FreePort();
  const std::string text = std::to_string(port);
  EXPECT_EQ(socket.Create("203.0.113.77", port, nullptr, 0, "x"), 0);
  EXPECT_TRUE(says(2, "CUDPSocket::Bind bind error(addr=203.0.113.77, port=" + text +
                          "), code = " + std::to_string(EADDRNOTAVAIL) + "\r\n"));
  EXPECT_EQ(socket.Create("nonsense", port, nullptr, 0, "x"), 0);
  ASSERT_EQ(socket.Create(nullptr, port, nullptr, 0, "x"), 1);
  EXPECT_TRUE(says(2, "CUDPSocket::Bind BindPort(addr=0.0.0.0, port=" + text + ") Success!\r\n"));
  CUDPSocket second;
  EXPECT_EQ(second.Create(nullptr, port, nullptr, 0, "x"), 0);
  EXPECT_EQ(second.SendData(port, "x", 1), 0);
  EXPECT_TRUE(says(2, "CUDPSocket::SendData: mSocketFD is closed!!\r\n"));
  EXPECT_EQ(socket.SendData(port, "x", 0), 0);
  EXPECT_TRUE(says(2, "CUDPSocket::SendData: parameter invalid!\r\n"));
  EXPECT_EQ(socket.IsCreated(), 1);
  FaultPlan plan;
  plan.Fail(platform::Operation::kSend, 1, EPERM);
  EXPECT_EQ(socket.SendData(port, "x", 1), 0);
  EXPECT_EQ(socket.IsCreated(), 0);
  EXPECT_TRUE(says(2, "send failed, error(" + std::to_string(EPERM) + ") ----\r\n"));
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
}

}  // namespace
}  // namespace qvx::test
