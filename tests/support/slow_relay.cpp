#include "support/slow_relay.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <deque>
#include <stdexcept>
#include <string>
#include <utility>

namespace qvx::test {
namespace {

using Clock = std::chrono::steady_clock;

struct Chunk {
  Clock::time_point due;
  std::string bytes;
};

// Nothing where nobody listens.
RawPeer ConnectionTo(unsigned short port) {
  try {
    return RawPeer::To(port);
  } catch (const std::runtime_error&) {
    return RawPeer();
  }
}

void DelayNothing(const RawPeer& peer) {
  const int on = 1;
  setsockopt(peer.Descriptor(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

void End(const RawPeer& peer) {
  shutdown(peer.Descriptor(), SHUT_RDWR);
}

// False once the receiver is gone.
bool SendPieces(const RawPeer& to, const std::string& bytes, std::size_t piece) {
  std::size_t sent = 0;
  while (sent < bytes.size() && to.Send(bytes.substr(sent, piece))) {
    sent += std::min(piece, bytes.size() - sent);
  }
  return sent == bytes.size();
}

int MillisecondsUntil(Clock::time_point due) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
  return static_cast<int>(std::max<std::int64_t>(0, left.count()));
}

}  // namespace

struct SlowRelay::Connection {
  RawPeer client;
  RawPeer server;
  std::thread thread;
};

SlowRelay::SlowRelay(unsigned short server_port, const RelayOptions& options)
    : options_(options), server_port_(server_port), accept_thread_([this] { AcceptLoop(); }) {}

SlowRelay::~SlowRelay() {
  {
    const std::lock_guard guard(mutex_);
    stopping_ = true;
    for (const Connection& connection : connections_) {
      End(connection.client);
      End(connection.server);
    }
  }
  shutdown(listener_.Descriptor(), SHUT_RDWR);
  accept_thread_.join();
  for (Connection& connection : connections_) connection.thread.join();
}

void SlowRelay::AcceptLoop() {
  for (;;) {
    RawPeer client(accept4(listener_.Descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
    const std::lock_guard guard(mutex_);
    if (client.Descriptor() < 0 || stopping_) return;
    RawPeer server = ConnectionTo(server_port_);
    if (server.Descriptor() < 0) continue;
    DelayNothing(client);
    DelayNothing(server);
    Connection& connection =
        connections_.emplace_back(Connection{std::move(client), std::move(server), {}});
    connection.thread = std::thread([this, &connection] { Serve(connection); });
  }
}

void SlowRelay::Serve(Connection& connection) const {
  std::thread back([&] { Pump(connection.server, connection.client, options_.cut_to_client); });
  Pump(connection.client, connection.server, options_.cut_to_server);
  back.join();
}

// Passes bytes on until one end is gone or the cut is reached, then ends both.
void SlowRelay::Pump(const RawPeer& from, const RawPeer& to, std::uint64_t cut) const {
  std::deque<Chunk> line;
  std::uint64_t passed = 0;
  bool open = true;
  while (open || !line.empty()) {
    pollfd item{from.Descriptor(), static_cast<short>(open ? POLLIN : 0), 0};
    poll(&item, open ? 1 : 0, line.empty() ? -1 : MillisecondsUntil(line.front().due));
    if (open && (item.revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
      char buffer[16384];
      const ssize_t size = recv(from.Descriptor(), buffer, sizeof(buffer), MSG_DONTWAIT);
      open = size > 0;
      if (open) line.push_back({Clock::now() + options_.delay, {buffer, buffer + size}});
    }
    while (!line.empty() && line.front().due <= Clock::now()) {
      std::string bytes = std::move(line.front().bytes);
      line.pop_front();
      const bool last = bytes.size() >= cut - passed;
      if (last) bytes.resize(static_cast<std::size_t>(cut - passed));
      passed += bytes.size();
      if (!SendPieces(to, bytes, options_.piece) || last) {
        open = false;
        line.clear();
      }
    }
  }
  End(from);
  End(to);
}

}  // namespace qvx::test
