#include "netfile/netfile_fixture.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "platform/path.h"
#include "qvx/debug_output.h"
#include "qvx/socket_primitives.h"

namespace qvx::test {

namespace {

constexpr unsigned kPatienceSeconds = 30;

sockaddr_in Loopback(unsigned short port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

Bytes HeaderOf(std::uint64_t code, std::size_t size) {
  return Raw(tagTCPPACKETHEADER{SOCKET_PACKET_TAG, 0, code, static_cast<std::uint32_t>(size)});
}

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
  return Raw(tagSOCKETFILEHEADER{SOCKET_FILE_VERSION, serial, command, cookie}) + body;
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

WirePeer::WirePeer(unsigned short port)
    : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  timeval patience{kPatienceSeconds, 0};
  setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
  auto address = Loopback(port);
  EXPECT_EQ(connect(descriptor_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
}

WirePeer::~WirePeer() {
  close(descriptor_);
}

void WirePeer::SendBytes(const Bytes& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    ssize_t moved = send(descriptor_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (moved <= 0) return;
    sent += static_cast<std::size_t>(moved);
  }
}

void WirePeer::SendPacket(std::uint64_t code, const Bytes& payload) {
  SendBytes(HeaderOf(code, payload.size()) + payload);
}

bool WirePeer::ReceiveBytes(char* data, std::size_t size) {
  while (size > 0) {
    ssize_t moved = recv(descriptor_, data, size, 0);
    if (moved <= 0) return false;
    data += moved;
    size -= static_cast<std::size_t>(moved);
  }
  return true;
}

std::optional<Bytes> WirePeer::ReceivePacket(std::uint64_t* code) {
  tagTCPPACKETHEADER header;
  if (!ReceiveBytes(reinterpret_cast<char*>(&header), sizeof(header))) return std::nullopt;
  EXPECT_EQ(header.nTag, SOCKET_PACKET_TAG);
  if (code) *code = header.nCode;
  Bytes payload(header.nLength, '\0');
  if (!ReceiveBytes(payload.data(), payload.size())) return std::nullopt;
  return payload;
}

Bytes WirePeer::Ask(const Bytes& record) {
  SendPacket(SOCKET_CODE_TO_SERVER, record);
  return ReceivePacket().value_or(Bytes());
}

bool WirePeer::AtEnd() {
  char byte;
  return !ReceiveBytes(&byte, 1);
}

void WirePeer::Reset() {
  linger now{1, 0};
  setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
  close(descriptor_);
  descriptor_ = -1;
}

ScriptedServer::ScriptedServer(Script script)
    : script_(std::move(script)), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  auto address = Loopback(0);
  socklen_t size = sizeof(address);
  EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(listen(listener_, 8), 0);
  getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { Serve(); });
}

ScriptedServer::~ScriptedServer() {
  shutdown(listener_, SHUT_RDWR);
  thread_.join();
  close(listener_);
}

void ScriptedServer::Serve() {
  for (;;) {
    int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) return;
    WirePeer peer(connection);
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

Bytes Packet(const Bytes& payload) {
  return HeaderOf(1, payload.size()) + payload;
}

Bytes Answer(const Bytes& request, const Bytes& body) {
  auto header = ValueAt<tagSOCKETFILEHEADER>(request, 0);
  return Record(header.nSerial, header.nCommand + 1, header.nCookie, body);
}

LogLines::LogLines() {
  DbgOutputAddCallback(&LogLines::Take, this);
}

LogLines::~LogLines() {
  DbgOutputDelCallback(&LogLines::Take);
}

int LogLines::Take(void* context, int, const char* line, int length) {
  auto* lines = static_cast<LogLines*>(context);
  std::lock_guard<std::mutex> lock(lines->mutex_);
  lines->lines_.emplace_back(line, static_cast<std::size_t>(length));
  return 1;
}

int LogLines::Count(const std::string& text) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return static_cast<int>(std::count_if(lines_.begin(), lines_.end(), [&](const auto& line) {
    return line.find(text) != std::string::npos;
  }));
}

}  // namespace qvx::test
