#include "netfile/netfile_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "platform/path.h"
#include "qvx/socket_primitives.h"

namespace qvx::test {

namespace {

constexpr unsigned kPatienceSeconds = 30;

}  // namespace

std::u16string Library(const std::string& native) {
  return *platform::FromNativePath<char16_t>(native);
}

int DescriptorsBelow(const std::string& folder) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    auto target = std::filesystem::read_symlink(entry.path(), gone).string();
    if (!gone && target.compare(0, folder.size(), folder) == 0) ++count;
  }
  return count;
}

bool WaitForDescriptorsBelow(const std::string& folder, int count) {
  auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(kPatienceSeconds);
  while (DescriptorsBelow(folder) != count) {
    if (std::chrono::steady_clock::now() > patience) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

Bytes Field(const std::u16string& text, std::size_t units) {
  Bytes field(units * sizeof(char16_t), '\0');
  std::copy_n(reinterpret_cast<const char*>(text.data()),
              std::min(text.size(), units) * sizeof(char16_t), field.begin());
  return field;
}

Bytes Record(std::uint32_t serial, std::uint32_t command, std::uint64_t cookie, const Bytes& body) {
  return LittleEndian(SOCKET_FILE_VERSION) + LittleEndian(serial) + LittleEndian(command) +
         LittleEndian(cookie) + body;
}

LoopbackServer::LoopbackServer() {
  EXPECT_EQ(Create(0, "file"), 1);
}

std::uint64_t LoopbackServer::SocketCreate(unsigned short port) {
  return ListenOn("127.0.0.1", port);
}

void LoopbackServer::OnServerCloseClient(std::uint64_t user_data, tagCLIENTSOCKETINFO* client) {
  CSocketFileServer::OnServerCloseClient(user_data, client);
  std::lock_guard<std::mutex> lock(mutex_);
  ++closed_;
  changed_.notify_all();
}

int LoopbackServer::OnServerReceiveData(std::uint64_t user_data, tagCLIENTSOCKETINFO* client,
                                        const unsigned char* data, int size) {
  if (on_request && size >= 20)
    on_request(ValueAt<std::uint32_t>(Bytes(reinterpret_cast<const char*>(data), 20), 8));
  return CSocketFileServer::OnServerReceiveData(user_data, client, data, size);
}

void LoopbackServer::WaitClosed(int count) {
  std::unique_lock<std::mutex> lock(mutex_);
  EXPECT_TRUE(changed_.wait_for(lock, std::chrono::seconds(kPatienceSeconds),
                                [&] { return closed_ >= count; }));
}

LoopbackClient::LoopbackClient(unsigned short port) {
  EXPECT_EQ(Create("127.0.0.1", port, "file"), 1);
}

void WirePeer::SendPacket(std::uint64_t code, const Bytes& payload) {
  peer_.Send(PacketBytes(payload, static_cast<std::int64_t>(code)));
}

std::optional<Bytes> WirePeer::ReceivePacket(std::uint64_t* code) {
  Bytes header = peer_.Read(20);
  if (header.size() < 20) return std::nullopt;
  EXPECT_EQ(ValueAt<std::uint32_t>(header, 0), SOCKET_PACKET_TAG);
  if (code) *code = ValueAt<std::uint64_t>(header, 8);
  auto size = ValueAt<std::uint32_t>(header, 16);
  Bytes payload = peer_.Read(size);
  return payload.size() == size ? std::optional(payload) : std::nullopt;
}

Bytes WirePeer::Ask(const Bytes& record) {
  SendPacket(SOCKET_CODE_TO_SERVER, record);
  return ReceivePacket().value_or(Bytes());
}

ScriptedServer::ScriptedServer(Script script) : script_(std::move(script)) {
  thread_ = std::thread([this] { Serve(); });
}

ScriptedServer::~ScriptedServer() {
  stopping_ = true;
  RawPeer::To(Port());
  thread_.join();
}

void ScriptedServer::Serve() {
  for (;;) {
    WirePeer peer(listener_.Accept());
    if (stopping_) return;
    std::uint64_t code = 0;
    auto packet = peer.ReceivePacket(&code);
    EXPECT_EQ(code, SOCKET_CODE_HELLO);
    while (packet) {
      packet = peer.ReceivePacket(&code);
      if (!packet) break;
      EXPECT_EQ(code, SOCKET_CODE_TO_SERVER);
      if (!script_(peer, *packet)) break;
    }
  }
}

Bytes Answer(const Bytes& request, const Bytes& body) {
  auto header = ValueAt<tagSOCKETFILEHEADER>(request, 0);
  return Record(header.nSerial, header.nCommand + 1, header.nCookie, body);
}

}  // namespace qvx::test
