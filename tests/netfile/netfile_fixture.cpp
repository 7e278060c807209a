#include "netfile/netfile_fixture.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "platform/path.h"
#include "qvx/socket_primitives.h"

namespace qvx::test {

std::u16string Library(const std::string& native) {
  return *platform::FromNativePath<char16_t>(native);
}

std::string Native(const WCHAR* path) {
  return platform::ToNativePath(std::u16string_view(path)).value_or("?");
}

Names NamesIn(const std::string& folder) {
  Names names;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

bool SameTrees(const std::string& one, const std::string& two) {
  return std::system(("diff -rq " + one + " " + two).c_str()) == 0;
}

int DescriptorsBelow(const std::string& folder) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(entry.path(), gone).string().starts_with(folder)) ++count;
  }
  return count;
}

bool WaitForDescriptorsBelow(const std::string& folder, int count) {
  auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(30);
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
  return U32(SOCKET_FILE_VERSION) + U32(serial) + U32(command) + U64(cookie) + body;
}

std::uint32_t CommandOf(const Bytes& record) {
  return ValueAt<tagSOCKETFILEHEADER>(record, 0).nCommand;
}

std::optional<Bytes> Receive(const RawPeer& peer, std::optional<std::uint64_t> code) {
  Bytes header = peer.Read(20);
  if (header.size() < 20) return std::nullopt;
  EXPECT_EQ(ValueAt<std::uint32_t>(header, 0), SOCKET_PACKET_TAG);
  EXPECT_TRUE(!code || ValueAt<std::uint64_t>(header, 8) == *code);
  auto size = ValueAt<std::uint32_t>(header, 16);
  Bytes payload = peer.Read(size);
  return payload.size() == size ? std::optional(payload) : std::nullopt;
}

bool AnswerWith(const RawPeer& peer, const Bytes& request, const Bytes& body) {
  auto header = ValueAt<tagSOCKETFILEHEADER>(request, 0);
  return peer.Send(
      PacketBytes(Record(header.nSerial, header.nCommand + 1, header.nCookie, body), 1));
}

bool AnswerAsUsual(const RawPeer& peer, const Bytes& request) {
  const std::map<std::uint32_t, Bytes> bodies = {
      {1, Field(u"C:\\data")},
      {3, U64(9)},
      {11, U64(0x123456789)},
      {13, U32(3) + "abc"},
      {15, U32(5)},
      {17, "0123456789abcdef"},
      {19, U32(6) + U32(2) + Field(u"a;bc", 4)},
  };
  auto found = bodies.find(CommandOf(request));
  return AnswerWith(peer, request, found == bodies.end() ? U32(1) : found->second);
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
    RawPeer peer = listener_.Accept();
    if (stopping_) return;
    bool goes_on = Receive(peer, SOCKET_CODE_HELLO).has_value();
    while (goes_on) {
      auto request = Receive(peer, SOCKET_CODE_TO_SERVER);
      goes_on = request && script_(peer, *request);
    }
  }
}

}  // namespace qvx::test
