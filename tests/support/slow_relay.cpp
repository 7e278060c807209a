#include "support/slow_relay.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <stdexcept>
#include <string>

namespace qvx::test {
namespace {

using Clock = std::chrono::steady_clock;

struct Chunk {
  Clock::time_point due;
  std::string bytes;
};

sockaddr_in Loopback(unsigned short port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int ConnectTo(unsigned short port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Loopback(port);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return fd;
  close(fd);
  return -1;
}

// False once the receiver is gone.
bool WriteAll(int to, const std::string& bytes, std::size_t piece) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const std::size_t size = std::min(piece, bytes.size() - sent);
    const ssize_t result = send(to, bytes.data() + sent, size, MSG_NOSIGNAL);
    if (result <= 0) return false;
    sent += static_cast<std::size_t>(result);
  }
  return true;
}

int MillisecondsUntil(Clock::time_point due) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
  return static_cast<int>(std::max<std::int64_t>(0, left.count()));
}

}  // namespace

struct SlowRelay::Connection {
  int client;
  int server;
  std::thread thread;
};

SlowRelay::SlowRelay(unsigned short server_port, const RelayOptions& options)
    : options_(options), server_port_(server_port) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof(address);
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      listen(listener_, SOMAXCONN) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("the relay can't listen");
  }
  port_ = ntohs(address.sin_port);
  accept_thread_ = std::thread([this] { AcceptLoop(); });
}

SlowRelay::~SlowRelay() {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    stopping_ = true;
    for (Connection& connection : connections_) {
      shutdown(connection.client, SHUT_RDWR);
      shutdown(connection.server, SHUT_RDWR);
    }
  }
  shutdown(listener_, SHUT_RDWR);
  accept_thread_.join();
  for (Connection& connection : connections_) {
    connection.thread.join();
    close(connection.client);
    close(connection.server);
  }
  close(listener_);
}

void SlowRelay::AcceptLoop() {
  for (;;) {
    const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    const std::lock_guard<std::mutex> guard(mutex_);
    if (client < 0 || stopping_) {
      if (client >= 0) close(client);
      return;
    }
    const int server = ConnectTo(server_port_);
    if (server < 0) {
      close(client);
      continue;
    }
    const int on = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    setsockopt(server, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    Connection& connection = connections_.emplace_back(Connection{client, server, {}});
    connection.thread = std::thread([this, &connection] { Serve(connection); });
  }
}

void SlowRelay::Serve(Connection& connection) const {
  std::thread back([&] { Pump(connection.server, connection.client, options_.cut_to_client); });
  Pump(connection.client, connection.server, options_.cut_to_server);
  back.join();
}

// Passes bytes on until one end is gone or the cut is reached, then ends both.
void SlowRelay::Pump(int from, int to, std::uint64_t cut) const {
  std::deque<Chunk> line;
  std::uint64_t passed = 0;
  bool open = true;
  while (open || !line.empty()) {
    pollfd item{from, static_cast<short>(open ? POLLIN : 0), 0};
    poll(&item, open ? 1 : 0, line.empty() ? -1 : MillisecondsUntil(line.front().due));
    if (open && (item.revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
      char buffer[16384];
      const ssize_t size = recv(from, buffer, sizeof(buffer), MSG_DONTWAIT);
      open = size > 0;
      if (open) line.push_back({Clock::now() + options_.delay, {buffer, buffer + size}});
    }
    while (!line.empty() && line.front().due <= Clock::now()) {
      std::string bytes = std::move(line.front().bytes);
      line.pop_front();
      const bool last = bytes.size() >= cut - passed;
      if (last) bytes.resize(static_cast<std::size_t>(cut - passed));
      passed += bytes.size();
      if (!WriteAll(to, bytes, options_.piece) || last) {
        open = false;
        line.clear();
      }
    }
  }
  shutdown(from, SHUT_RDWR);
  shutdown(to, SHUT_RDWR);
}

}  // namespace qvx::test
