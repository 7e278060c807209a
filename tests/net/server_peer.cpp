#include "net/server_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <utility>

#include "qvx/debug_output.h"

namespace qvx::test {
namespace {

constexpr std::chrono::seconds kLimit(120);
constexpr int kLimitMilliseconds = 120000;

int CountEntries(const char* folder) {
  const std::filesystem::directory_iterator all(folder);
  return static_cast<int>(std::distance(begin(all), end(all)));
}

}  // namespace

bool LocalServer::Start(IServerSocketListener* listener, bool raw) {
  return Create(0, raw ? 1 : 0, 1, listener, 7, "test") == 1;
}

std::vector<std::uint64_t> LocalServer::Sockets() {
  std::vector<std::uint64_t> result;
  LockClient();
  for (int i = 0; i < GetClientCount(); ++i) {
    result.push_back(GetClientSocketInfo_Locked(i)->nSocketFD);
  }
  UnlockClient();
  return result;
}

int Recorder::OnServerAcceptClient(std::uint64_t, tagCLIENTSOCKETINFO*) {
  const std::lock_guard<std::mutex> guard(mutex);
  ++accepted;
  changed.notify_all();
  return accept_answer;
}

void Recorder::OnServerCloseClient(std::uint64_t, tagCLIENTSOCKETINFO* client) {
  const std::lock_guard<std::mutex> guard(mutex);
  ++closed;
  closed_sockets.push_back(client->nSocketFD);
  changed.notify_all();
}

int Recorder::OnServerReceiveData(std::uint64_t, tagCLIENTSOCKETINFO* client,
                                  const unsigned char* bytes, int size) {
  std::string text(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
  const int result = on_data ? on_data(client, text) : 1;
  const std::lock_guard<std::mutex> guard(mutex);
  data.push_back(std::move(text));
  changed.notify_all();
  return result;
}

bool Recorder::WaitUntil(const std::function<bool()>& predicate) {
  std::unique_lock<std::mutex> guard(mutex);
  return changed.wait_for(guard, kLimit, predicate);
}

bool Recorder::WaitForAccepted(int count) {
  return WaitUntil([&] { return accepted >= count; });
}

bool Recorder::WaitForClosed(int count) {
  return WaitUntil([&] { return closed >= count; });
}

bool Recorder::WaitForData(std::size_t count) {
  return WaitUntil([&] { return data.size() >= count; });
}

std::string Recorder::AllData() {
  const std::lock_guard<std::mutex> guard(mutex);
  std::string all;
  for (const std::string& block : data) all += block;
  return all;
}

std::string PacketBytes(std::uint64_t code, const std::string& payload) {
  std::string bytes("\xBB\xBB\xCD\xAB\0\0\0\0", 8);
  for (int i = 0; i < 8; ++i) bytes += static_cast<char>(code >> (8 * i));
  for (int i = 0; i < 4; ++i) bytes += static_cast<char>(payload.size() >> (8 * i));
  return bytes + payload;
}

Peer::Peer(unsigned short port, int receive_buffer) {
  fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (receive_buffer > 0) {
    setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof(receive_buffer));
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) Close();
}

Peer::~Peer() {
  Close();
}

Peer::Peer(Peer&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)),
      buffer_(std::move(other.buffer_)),
      used_(std::exchange(other.used_, 0)) {}

void Peer::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

void Peer::Reset() {
  const linger now{1, 0};
  setsockopt(fd_, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
  Close();
}

bool Peer::Send(const std::string& bytes) const {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t size = send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (size <= 0) return false;
    sent += static_cast<std::size_t>(size);
  }
  return true;
}

bool Peer::SendPacket(std::uint64_t code, const std::string& payload) const {
  return Send(PacketBytes(code, payload));
}

bool Peer::FillBuffer() {
  if (used_ > 0) buffer_.erase(0, std::exchange(used_, 0));
  pollfd item{fd_, POLLIN, 0};
  if (poll(&item, 1, kLimitMilliseconds) != 1) return false;
  const std::size_t old = buffer_.size();
  buffer_.resize(old + 65536);
  const ssize_t size = recv(fd_, buffer_.data() + old, 65536, 0);
  buffer_.resize(old + static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  return size > 0;
}

std::string Peer::ReceiveBytes(std::size_t size) {
  std::string result;
  for (;;) {
    const std::size_t part = std::min(size - result.size(), buffer_.size() - used_);
    result.append(buffer_, used_, part);
    used_ += part;
    if (result.size() == size || !FillBuffer()) return result;
  }
}

std::optional<Packet> Peer::Receive() {
  const std::string header = ReceiveBytes(20);
  if (header.size() != 20 || header.compare(0, 4, "\xBB\xBB\xCD\xAB") != 0) return std::nullopt;
  Packet packet{};
  std::uint32_t length = 0;
  std::memcpy(&packet.code, header.data() + 8, sizeof(packet.code));
  std::memcpy(&length, header.data() + 16, sizeof(length));
  packet.payload = ReceiveBytes(length);
  if (packet.payload.size() != length) return std::nullopt;
  return packet;
}

bool Peer::IsEnded() {
  return ReceiveBytes(1).empty();
}

LogLines::LogLines() {
  DbgOutputSetDisplayType(5);
  DbgOutputAddCallback(&Take, this);
}

LogLines::~LogLines() {
  DbgOutputDelCallback(&Take);
  DbgOutputSetDisplayType(0);
}

int LogLines::Take(void* context, int, const char* line, int length) {
  auto& self = *static_cast<LogLines*>(context);
  const std::string text(line, static_cast<std::size_t>(length));
  const std::size_t bracket = text.find(") [");
  const std::lock_guard<std::mutex> guard(self.mutex_);
  self.lines_.push_back(bracket == std::string::npos ? text : text.substr(bracket + 2));
  return 0;
}

int LogLines::Count(const std::string& text) {
  const std::lock_guard<std::mutex> guard(mutex_);
  return static_cast<int>(std::count(lines_.begin(), lines_.end(), text));
}

bool LogLines::Contains(const std::string& text) {
  return Count(text) > 0;
}

int CountDescriptors() {
  return CountEntries("/proc/self/fd");
}

int CountThreads() {
  return CountEntries("/proc/self/task");
}

}  // namespace qvx::test
