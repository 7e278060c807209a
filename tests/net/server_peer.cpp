#include "net/server_peer.h"

#include <sys/socket.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <iterator>

namespace qvx::test {
namespace {

constexpr std::chrono::seconds kLimit(120);

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

bool Peer::SendPacket(std::uint64_t code, const std::string& payload) const {
  return Send(PacketBytes(payload, static_cast<std::int64_t>(code)));
}

std::optional<Packet> Peer::Receive() const {
  const std::string header = Read(20);
  if (header.size() != 20 || header.compare(0, 4, "\xBB\xBB\xCD\xAB") != 0) return std::nullopt;
  Packet packet{};
  std::uint32_t length = 0;
  std::memcpy(&packet.code, header.data() + 8, sizeof(packet.code));
  std::memcpy(&length, header.data() + 16, sizeof(length));
  packet.payload = Read(length);
  if (packet.payload.size() != length) return std::nullopt;
  return packet;
}

void Peer::ShrinkReceiveBuffer() const {
  const int size = 8192;
  setsockopt(Descriptor(), SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
}

int CountDescriptors() {
  return CountEntries("/proc/self/fd");
}

int CountThreads() {
  return CountEntries("/proc/self/task");
}

}  // namespace qvx::test
