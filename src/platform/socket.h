// Sockets behind one set of rules: every call is repeated on EINTR, close is never repeated,
// descriptors are close-on-exec, sends raise no signal, nothing here blocks but what says so.
//
// A socket value is 64 bits: the descriptor in the low half and a connection count from 1 to
// 0x7FFFFFFF in the high half, so that a value kept too long never reaches a later connection
// that got the same descriptor. A plain descriptor of the host (high half 0) is accepted by
// every call; it is neither counted nor owned. All calls may be made from any thread.
//
// In a forked child the values made by the parent stay usable, but ShutdownSocket leaves the
// connection alone, since the parent still uses it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace qvx::platform {

using SocketValue = std::uint64_t;
inline constexpr SocketValue kNoSocket = ~SocketValue{0};

inline int SocketDescriptor(SocketValue socket) noexcept {
  return static_cast<int>(static_cast<std::uint32_t>(socket));
}

// --- Owning -----------------------------------------------------------------------------

// Registers a plain descriptor: the result is its counted value, and the library closes it.
// A counted value comes back as it is. kNoSocket for kNoSocket, or where the table is full.
SocketValue AdoptSocket(SocketValue socket) noexcept;

// Keeps the descriptor of a socket open and its number unused by others for its lifetime.
class SocketUse {
 public:
  explicit SocketUse(SocketValue socket) noexcept;
  ~SocketUse();
  SocketUse(SocketUse&& other) noexcept;
  SocketUse& operator=(SocketUse&& other) = delete;

  // -1 if the value is stale or closed.
  int Descriptor() const noexcept { return descriptor_; }
  // True once ShutdownSocket was called for the value; always false for a plain descriptor.
  bool IsShut() const noexcept;

 private:
  SocketValue socket_;
  std::uint32_t fork_generation_ = 0;
  int descriptor_;
};

// Ends both directions, which wakes threads that poll the socket. It is never read again.
// In a forked child, does nothing to the connection of a socket that the parent made.
void ShutdownSocket(SocketValue socket) noexcept;

// The value is stale from now on; the descriptor is closed when its last user lets go.
// A plain descriptor is closed at once.
void CloseSocket(SocketValue socket) noexcept;

// True for a value whose socket is open, and for every plain descriptor.
bool IsSocketAlive(SocketValue socket) noexcept;

// --- Making -----------------------------------------------------------------------------

// Each gives kNoSocket with errno set on failure. TCP sockets come tuned: no delay of small
// sends, and a peer that gives no sign of life for four minutes ends the connection.
SocketValue MakeTcpSocket() noexcept;
SocketValue MakeUdpSocket() noexcept;
// For other families, as Bluetooth; no options are set.
SocketValue MakeSocket(int family, int type, int protocol) noexcept;

// No delay and keep-alive as MakeTcpSocket sets them; for stream sockets that hosts made.
void TuneStream(SocketValue socket) noexcept;
bool SetNonBlocking(SocketValue socket, bool non_blocking) noexcept;
bool SetReuseAddress(SocketValue socket) noexcept;
bool SetBroadcast(SocketValue socket) noexcept;
// How long a blocking send of the library waits for room.
inline constexpr std::uint32_t kSendTimeoutMilliseconds = 60000;
bool SetSendTimeout(SocketValue socket, std::uint32_t milliseconds) noexcept;
// Beyond the system's limit where the process may.
bool SetReceiveBuffer(SocketValue socket, int bytes) noexcept;
// Datagrams then tell the address and interface that they arrived on.
bool SetPacketInformation(SocketValue socket) noexcept;

// --- Addresses --------------------------------------------------------------------------

// An IPv4 address and port, both in host order.
struct Ipv4Endpoint {
  std::uint32_t address = 0;
  std::uint16_t port = 0;
};

// The system's form of an address: family, then port and address in network order.
std::array<unsigned char, 16> NativeAddress(const Ipv4Endpoint& endpoint) noexcept;

// Dotted text into a buffer of at least 16 characters.
void FormatIpv4(std::uint32_t address, char* text, std::size_t size) noexcept;
// Plain dotted text, four decimal numbers.
bool ParseIpv4(const char* text, std::uint32_t* address) noexcept;

bool BindIpv4(SocketValue socket, const Ipv4Endpoint& local) noexcept;
bool GetLocalIpv4(SocketValue socket, Ipv4Endpoint* local) noexcept;
bool GetPeerIpv4(SocketValue socket, Ipv4Endpoint* peer) noexcept;

// --- Connecting -------------------------------------------------------------------------

enum class ConnectOutcome { kConnected, kPending, kFailed };

// Starts a connect on a non-blocking socket; kFailed leaves the reason in errno.
ConnectOutcome StartConnectIpv4(SocketValue socket, const Ipv4Endpoint& peer) noexcept;
// Waits at most the milliseconds for a pending connect.
ConnectOutcome WaitConnect(SocketValue socket, std::uint32_t milliseconds) noexcept;

// Listens with the longest queue that the system allows.
bool ListenSocket(SocketValue socket) noexcept;

enum class AcceptOutcome {
  kAccepted,
  kNothing,      // none waits: poll, then ask again
  kRetry,        // that connection failed, or the network had a hiccup: ask again
  kNoResources,  // no descriptor or memory left: ask again after 100 ms
  kClosed        // the listener was shut down, closed or is none
};

struct AcceptResult {
  AcceptOutcome outcome;
  SocketValue socket;  // kNoSocket unless accepted; non-blocking
};

// What an errno of accept means.
AcceptOutcome AcceptOutcomeOf(int error) noexcept;
// Takes a waiting connection; does not block. The options of the listener carry over.
AcceptResult AcceptSocket(SocketValue listener) noexcept;

// --- Moving bytes -----------------------------------------------------------------------

// bytes counts what was moved; error is 0 or the errno of the failure. A receive of 0 bytes
// without an error is an orderly close by the peer.
struct IoResult {
  std::size_t bytes = 0;
  int error = 0;

  bool WouldBlock() const noexcept;
};

struct ConstBytes {
  const void* data;
  std::size_t size;
};

struct MutableBytes {
  void* data;
  std::size_t size;
};

inline constexpr std::size_t kMaxParts = 64;

// One gathering send of what the socket takes at once. Never blocks, whatever the socket's
// mode. At most kMaxParts parts are looked at. With more, what follows at once shall leave in the
// same segments.
IoResult SendParts(SocketValue socket, const ConstBytes* parts, std::size_t count,
                   bool more = false) noexcept;

// Sends a range of a regular file straight from the page cache, as much as is taken at once;
// never blocks on the socket, which it makes non-blocking. 0 bytes without an error means that the
// file ends before offset.
IoResult SendFileRange(SocketValue socket, int file, std::uint64_t offset,
                       std::size_t size) noexcept;

// One receive of what waits. Never blocks. A socket that was shut down gives ESHUTDOWN.
IoResult Receive(SocketValue socket, void* data, std::size_t size) noexcept;
IoResult ReceiveParts(SocketValue socket, const MutableBytes* parts, std::size_t count) noexcept;

// Bytes that wait to be received; 0 on failure and for a socket that was shut down.
std::size_t PendingBytes(SocketValue socket) noexcept;

enum class FullSocket {
  kFail,  // fails with EAGAIN if not one byte is taken at once by a non-blocking socket
  kWait   // waits for room from the first byte on
};

// Sends all the parts. Blocks while the peer makes no room, at most 60 s without progress;
// a shutdown by another thread ends it. False leaves the reason in errno.
bool SendWhole(SocketValue socket, const ConstBytes* parts, std::size_t count, FullSocket when_full,
               bool more = false) noexcept;
// The same for a range of a file, from the first byte on. *sent is below size, with a true
// result, where the file ends early or can't be read.
bool SendWholeFile(SocketValue socket, int file, std::uint64_t offset, std::size_t size,
                   std::size_t* sent) noexcept;

// --- Datagrams --------------------------------------------------------------------------

struct DatagramPath {
  Ipv4Endpoint peer;
  std::uint32_t local_address = 0;    // where it arrived; 0 without SetPacketInformation
  std::uint32_t interface_index = 0;  // likewise
};

// One datagram; never blocks. An empty one gives 0 bytes without an error. A datagram longer
// than size is cut.
IoResult ReceiveDatagram(SocketValue socket, void* data, std::size_t size,
                         DatagramPath* path) noexcept;
// One datagram to path.peer; a local address or an interface in path chooses where it leaves.
// Blocks as the socket's mode and send time-out say.
IoResult SendDatagram(SocketValue socket, const void* data, std::size_t size,
                      const DatagramPath& path) noexcept;

// --- Waiting ----------------------------------------------------------------------------

// Bits as the library's log lines print them.
inline constexpr std::uint16_t kPollError = 0x0001;    // the connection was reset or broke
inline constexpr std::uint16_t kPollHangUp = 0x0002;   // closed by the peer, nothing left to read
inline constexpr std::uint16_t kPollInvalid = 0x0004;  // a stale value or no socket
inline constexpr std::uint16_t kPollEnded = 0x0007;
inline constexpr std::uint16_t kPollWrite = 0x0010;
inline constexpr std::uint16_t kPollRead = 0x0300;

struct PollItem {
  SocketValue socket;
  std::uint16_t wanted = kPollRead;  // kPollRead, kPollWrite or both
  std::uint16_t happened = 0;
};

// Lets one thread end another's PollSockets. Valid() is false where no descriptor was left.
class WakeSignal {
 public:
  WakeSignal() noexcept;
  ~WakeSignal();
  WakeSignal(const WakeSignal&) = delete;
  WakeSignal& operator=(const WakeSignal&) = delete;

  bool Valid() const noexcept { return descriptor_ >= 0; }
  // Stays set until a poll sees it, however often it is given.
  void Give() noexcept;
  void Clear() noexcept;
  int Descriptor() const noexcept { return descriptor_; }

 private:
  int descriptor_;
};

inline constexpr int kNoTimeLimit = -1;

// Waits until an item has something to tell, the wake signal is given or the time is over.
// The result is the number of items with happened not 0 (0 also for a wake, which is cleared),
// or -1 with errno set. kPollError, kPollHangUp and kPollInvalid come unasked. A close by the
// peer is told only when nothing is left to read; a reset at once; for a socket that was shut
// down here kPollHangUp without kPollRead. Keeps the descriptors open while it waits.
int PollSockets(PollItem* items, std::size_t count, int milliseconds,
                WakeSignal* wake = nullptr) noexcept;
// The same for one socket; the bits that happened, 0 for none, or -1 with errno set.
int PollSocket(SocketValue socket, std::uint16_t wanted, int milliseconds) noexcept;

// What poll or epoll reported of a socket (POLLIN, POLLOUT, POLLERR, POLLHUP, POLLRDHUP and
// POLLNVAL), as the bits above and by their rules: looks whether something is left to read
// where the peer has closed.
std::uint16_t TranslateReadiness(SocketValue socket, std::uint32_t native) noexcept;
// What poll or epoll must be asked for.
std::uint32_t NativeWanted(std::uint16_t wanted) noexcept;

// The errno of the last failed call of this thread, and a way to leave one for a caller.
int LastSocketError() noexcept;
void SetLastSocketError(int error) noexcept;
// What this layer's callers report by themselves.
extern const int kErrorCancelled;
extern const int kErrorTimedOut;
extern const int kErrorNoHost;
// The system's text for an error.
const char* SocketErrorText(int error) noexcept;

}  // namespace qvx::platform
