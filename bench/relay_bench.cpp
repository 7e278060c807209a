// Packets of 64 bytes from one client to all of many, through our server and through a bare
// relay: one thread that reads a packet and sends it to one socket after the other.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "qvx/socket_server.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr int kPayload = 64;
constexpr int kPacket = 20 + kPayload;

int Check(int result, const char* what) {
  if (result < 0) throw std::runtime_error(what);
  return result;
}

void AllowManyDescriptors() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

sockaddr_in Loopback(unsigned short port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

std::string RelayPacket() {
  tagTCPPACKETHEADER header{SOCKET_PACKET_TAG, 0, SOCKET_CODE_ALL_CLIENTS, kPayload};
  std::string bytes(reinterpret_cast<const char*>(&header), sizeof(header));
  return bytes + std::string(kPayload, 'x');
}

void SetNoDelay(int fd) {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

// The clients of either relay: the first one sends, all are read by this thread.
class Clients {
 public:
  Clients(unsigned short port, int count) : epoll_(Check(epoll_create1(0), "epoll")) {
    const sockaddr_in address = Loopback(port);
    for (int i = 0; i < count; ++i) {
      const int fd = Check(socket(AF_INET, SOCK_STREAM, 0), "socket");
      Check(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), "connect");
      SetNoDelay(fd);
      epoll_event event{};
      event.events = EPOLLIN;
      event.data.fd = fd;
      Check(epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event), "epoll_ctl");
      sockets_.push_back(fd);
    }
  }
  ~Clients() {
    for (const int fd : sockets_) close(fd);
    close(epoll_);
  }

  void Run(long long times) {
    const std::string packet = RelayPacket();
    std::thread sender([&] {
      for (long long i = 0; i < times; ++i) {
        if (send(sockets_[0], packet.data(), packet.size(), MSG_NOSIGNAL) != kPacket) return;
      }
    });
    std::uint64_t left =
        static_cast<std::uint64_t>(times) * sockets_.size() * std::uint64_t{kPacket};
    while (left > 0) left -= ReadSome();
    sender.join();
  }

 private:
  std::uint64_t ReadSome() {
    epoll_event events[256];
    const int ready = Check(epoll_wait(epoll_, events, 256, 10000), "epoll_wait");
    if (ready == 0) throw std::runtime_error("packets were lost");
    std::uint64_t total = 0;
    for (int i = 0; i < ready; ++i) {
      const ssize_t size = recv(events[i].data.fd, buffer_, sizeof(buffer_), 0);
      if (size <= 0) throw std::runtime_error("a client was cut off");
      total += static_cast<std::uint64_t>(size);
    }
    return total;
  }

  int epoll_;
  std::vector<int> sockets_;
  char buffer_[65536];
};

class OurRelay : public CTCPSocketServer {
 public:
  explicit OurRelay(int count) {
    if (Create(0, 0, 1, nullptr, 0, "bench") == 0) throw std::runtime_error("no server");
    clients_ = std::make_unique<Clients>(GetServerPort(), count);
    while (GetClientCount() < count) std::this_thread::yield();
  }
  ~OurRelay() override { Close(); }
  void Run(long long times) { clients_->Run(times); }

 protected:
  std::uint64_t SocketCreate(unsigned short port) override { return ListenOn("127.0.0.1", port); }

 private:
  std::unique_ptr<Clients> clients_;
};

class BareRelay {
 public:
  explicit BareRelay(int count) {
    const int listener = Check(socket(AF_INET, SOCK_STREAM, 0), "socket");
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof(address);
    Check(bind(listener, reinterpret_cast<sockaddr*>(&address), size), "bind");
    Check(listen(listener, 4096), "listen");
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    clients_ = std::make_unique<Clients>(ntohs(address.sin_port), count);
    for (int i = 0; i < count; ++i) {
      sockets_.push_back(Check(accept(listener, nullptr, nullptr), "accept"));
      SetNoDelay(sockets_.back());
    }
    close(listener);
    thread_ = std::thread([this] { Loop(); });
  }
  ~BareRelay() {
    clients_.reset();
    thread_.join();
    for (const int fd : sockets_) close(fd);
  }
  void Run(long long times) { clients_->Run(times); }

 private:
  void Loop() {
    char packet[kPacket];
    while (recv(sockets_[0], packet, sizeof(packet), MSG_WAITALL) == kPacket) {
      for (const int fd : sockets_) {
        if (send(fd, packet, sizeof(packet), MSG_NOSIGNAL) < 0) return;
      }
    }
  }

  std::vector<int> sockets_;
  std::unique_ptr<Clients> clients_;
  std::thread thread_;
};

// The relays are made at the first turn and live on, so that turns measure packets alone.
template <typename Relay>
Work Relaying(int count) {
  auto relay = std::make_shared<std::unique_ptr<Relay>>();
  return [relay, count](long long times) {
    AllowManyDescriptors();
    if (!*relay) *relay = std::make_unique<Relay>(count);
    (*relay)->Run(times);
  };
}

Pair RelayPair(const char* name, int count) {
  return {name, 1.5, Relaying<OurRelay>(count), Relaying<BareRelay>(count)};
}

const bool kTen = AddPair(RelayPair("relay/to all of 10 clients", 10));
const bool kHundred = AddPair(RelayPair("relay/to all of 100 clients", 100));
const bool kThousand = AddPair(RelayPair("relay/to all of 1000 clients", 1000));

}  // namespace
}  // namespace qvx::bench
