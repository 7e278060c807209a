#include "platform/socket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "platform/seam.h"

namespace qvx::platform {
namespace {

// A silent peer is asked after 30 s; one that does not answer, or leaves what was sent
// unacknowledged, or takes nothing, is given up after these times.
constexpr int kKeepAliveIdleSeconds = 30;
constexpr int kKeepAliveIntervalSeconds = 10;
constexpr int kKeepAliveProbes = 6;
constexpr unsigned int kUnacknowledgedMilliseconds = 4 * 60 * 1000;

template <typename Value>
bool SetOption(SocketValue socket, int level, int name, const Value& value) noexcept {
  const SocketUse use(socket);
  return setsockopt(use.Descriptor(), level, name, &value, sizeof(value)) == 0;
}

sockaddr_in ToNative(const Ipv4Endpoint& endpoint) {
  sockaddr_in native{};
  native.sin_family = AF_INET;
  native.sin_port = htons(endpoint.port);
  native.sin_addr.s_addr = htonl(endpoint.address);
  return native;
}

using NameCall = int (*)(int, sockaddr*, socklen_t*);

bool GetName(NameCall call, SocketValue socket, Ipv4Endpoint* endpoint) {
  const SocketUse use(socket);
  sockaddr_storage native{};
  socklen_t size = sizeof(native);
  if (call(use.Descriptor(), reinterpret_cast<sockaddr*>(&native), &size) != 0) return false;
  if (native.ss_family != AF_INET) {
    errno = EAFNOSUPPORT;
    return false;
  }
  sockaddr_in address{};
  memcpy(&address, &native, sizeof(address));
  *endpoint = Ipv4Endpoint{ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
  return true;
}

ConnectOutcome ConnectError(int error) {
  if (error == EISCONN) return ConnectOutcome::kConnected;
  if (error == EINPROGRESS || error == EINTR || error == EALREADY) return ConnectOutcome::kPending;
  errno = error;
  return ConnectOutcome::kFailed;
}

int AcceptNative(int listener) {
  if (SeamFails(Operation::kAccept)) return -1;
  return accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
}

}  // namespace

SocketValue MakeSocket(int family, int type, int protocol) noexcept {
  if (SeamFails(Operation::kSocket)) return kNoSocket;
  const int descriptor = ::socket(family, type | SOCK_CLOEXEC, protocol);
  if (descriptor < 0) return kNoSocket;
  const SocketValue value = AdoptSocket(static_cast<SocketValue>(descriptor));
  if (value == kNoSocket) {
    close(descriptor);
    errno = EMFILE;
  }
  return value;
}

SocketValue MakeTcpSocket() noexcept {
  const SocketValue socket = MakeSocket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (socket != kNoSocket) TuneStream(socket);
  return socket;
}

SocketValue MakeUdpSocket() noexcept {
  return MakeSocket(AF_INET, SOCK_DGRAM, 0);
}

void TuneStream(SocketValue socket) noexcept {
  SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
  SetOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
  SetOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, kKeepAliveIdleSeconds);
  SetOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, kKeepAliveIntervalSeconds);
  SetOption(socket, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes);
  SetOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, kUnacknowledgedMilliseconds);
}

bool SetNonBlocking(SocketValue socket, bool non_blocking) noexcept {
  const SocketUse use(socket);
  const int flags = fcntl(use.Descriptor(), F_GETFL);
  if (flags < 0) return false;
  const int wanted = non_blocking ? flags | O_NONBLOCK : flags & ~O_NONBLOCK;
  return wanted == flags || fcntl(use.Descriptor(), F_SETFL, wanted) == 0;
}

bool SetReuseAddress(SocketValue socket) noexcept {
  return SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
}

bool SetBroadcast(SocketValue socket) noexcept {
  return SetOption(socket, SOL_SOCKET, SO_BROADCAST, 1);
}

bool SetSendTimeout(SocketValue socket, std::uint32_t milliseconds) noexcept {
  const timeval time{static_cast<time_t>(milliseconds / 1000),
                     static_cast<suseconds_t>(milliseconds % 1000) * 1000};
  return SetOption(socket, SOL_SOCKET, SO_SNDTIMEO, time);
}

bool SetReceiveBuffer(SocketValue socket, int bytes) noexcept {
  return SetOption(socket, SOL_SOCKET, SO_RCVBUFFORCE, bytes) ||
         SetOption(socket, SOL_SOCKET, SO_RCVBUF, bytes);
}

bool SetPacketInformation(SocketValue socket) noexcept {
  return SetOption(socket, IPPROTO_IP, IP_PKTINFO, 1);
}

std::array<unsigned char, 16> NativeAddress(const Ipv4Endpoint& endpoint) noexcept {
  const sockaddr_in native = ToNative(endpoint);
  std::array<unsigned char, 16> bytes{};
  static_assert(sizeof(native) == sizeof(bytes));
  memcpy(bytes.data(), &native, sizeof(native));
  return bytes;
}

void FormatIpv4(std::uint32_t address, char* text, std::size_t size) noexcept {
  snprintf(text, size, "%u.%u.%u.%u", address >> 24, (address >> 16) & 0xFF, (address >> 8) & 0xFF,
           address & 0xFF);
}

bool ParseIpv4(const char* text, std::uint32_t* address) noexcept {
  in_addr native{};
  if (text == nullptr || inet_pton(AF_INET, text, &native) != 1) return false;
  *address = ntohl(native.s_addr);
  return true;
}

bool BindIpv4(SocketValue socket, const Ipv4Endpoint& local) noexcept {
  const SocketUse use(socket);
  const sockaddr_in native = ToNative(local);
  return bind(use.Descriptor(), reinterpret_cast<const sockaddr*>(&native), sizeof(native)) == 0;
}

bool GetLocalIpv4(SocketValue socket, Ipv4Endpoint* local) noexcept {
  return GetName(&getsockname, socket, local);
}

bool GetPeerIpv4(SocketValue socket, Ipv4Endpoint* peer) noexcept {
  return GetName(&getpeername, socket, peer);
}

ConnectOutcome StartConnectIpv4(SocketValue socket, const Ipv4Endpoint& peer) noexcept {
  const SocketUse use(socket);
  if (SeamFails(Operation::kConnect)) return ConnectError(errno);
  const sockaddr_in native = ToNative(peer);
  const auto* address = reinterpret_cast<const sockaddr*>(&native);
  if (connect(use.Descriptor(), address, sizeof(native)) == 0) return ConnectOutcome::kConnected;
  return ConnectError(errno);
}

ConnectOutcome WaitConnect(SocketValue socket, std::uint32_t milliseconds) noexcept {
  const int wait = milliseconds > INT_MAX ? INT_MAX : static_cast<int>(milliseconds);
  const int happened = PollSocket(socket, kPollWrite, wait);
  if (happened < 0) return ConnectOutcome::kFailed;
  if (happened == 0) return ConnectOutcome::kPending;
  const SocketUse use(socket);
  int error = 0;
  socklen_t size = sizeof(error);
  if (getsockopt(use.Descriptor(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
  if (error == 0 && (happened & kPollWrite) != 0) return ConnectOutcome::kConnected;
  errno = error != 0 ? error : ECONNABORTED;
  return ConnectOutcome::kFailed;
}

bool ListenSocket(SocketValue socket) noexcept {
  const SocketUse use(socket);
  return SetNonBlocking(socket, true) && listen(use.Descriptor(), INT_MAX) == 0;
}

AcceptOutcome AcceptOutcomeOf(int error) noexcept {
  switch (error) {
    case EAGAIN:
      return AcceptOutcome::kNothing;
    case EMFILE:
    case ENFILE:
    case ENOBUFS:
    case ENOMEM:
      return AcceptOutcome::kNoResources;
    case EBADF:
    case EINVAL:
    case ENOTSOCK:
    case EOPNOTSUPP:
    case EFAULT:
      return AcceptOutcome::kClosed;
    default:
      return AcceptOutcome::kRetry;
  }
}

AcceptResult AcceptSocket(SocketValue listener) noexcept {
  const SocketUse use(listener);
  if (use.Descriptor() < 0 || use.IsShut()) return {AcceptOutcome::kClosed, kNoSocket};
  int descriptor = -1;
  do {
    descriptor = AcceptNative(use.Descriptor());
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) return {AcceptOutcomeOf(errno), kNoSocket};
  const SocketValue value = AdoptSocket(static_cast<SocketValue>(descriptor));
  if (value != kNoSocket) return {AcceptOutcome::kAccepted, value};
  close(descriptor);
  return {AcceptOutcome::kNoResources, kNoSocket};
}

const int kErrorCancelled = ECANCELED;
const int kErrorTimedOut = ETIMEDOUT;
const int kErrorNoHost = EHOSTUNREACH;

int LastSocketError() noexcept {
  return errno;
}

void SetLastSocketError(int error) noexcept {
  errno = error;
}

const char* SocketErrorText(int error) noexcept {
  return strerror(error);
}

}  // namespace qvx::platform
