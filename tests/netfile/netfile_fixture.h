// What the tests of the file service share: a server on a free port of 127.0.0.1, the wire by
// hand, a server that answers by script, and copies between two folders.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qvx/socket_file_client.h"
#include "qvx/socket_file_copy.h"
#include "qvx/socket_file_protocol.h"
#include "qvx/socket_file_server.h"
#include "support/packet_bytes.h"
#include "support/raw_peer.h"
#include "support/temp_folder.h"

namespace qvx::test {

using Bytes = std::string;
using Names = std::vector<std::string>;

// The library's form of a native path, and back.
std::u16string Library(const std::string& native);
std::string Native(const WCHAR* path);
// The names in a folder, sorted.
Names NamesIn(const std::string& folder);
// Whether diff sees the same names and contents in two folders; it follows links.
bool SameTrees(const std::string& one, const std::string& two);
// How many descriptors of this process lead below a folder.
int DescriptorsBelow(const std::string& folder);
// Waits until there are so many; false if that does not come.
bool WaitForDescriptorsBelow(const std::string& folder, int count);

template <typename T>
T ValueAt(const Bytes& bytes, std::size_t offset) {
  T value{};
  if (offset + sizeof(value) <= bytes.size())
    bytes.copy(reinterpret_cast<char*>(&value), sizeof(value), offset);
  return value;
}
inline Bytes U32(std::uint32_t value) {
  return LittleEndian(value);
}
inline Bytes U64(std::uint64_t value) {
  return LittleEndian(value);
}
// A text field of so many units, filled up with zeros.
Bytes Field(const std::u16string& text, std::size_t units = SOCKET_FILE_PATH_UNITS);
Bytes Record(std::uint32_t serial, std::uint32_t command, std::uint64_t cookie, const Bytes& body);
std::uint32_t CommandOf(const Bytes& record);

// The payload of the next packet, which has this routing code; nothing if the connection ended.
std::optional<Bytes> Receive(const RawPeer& peer, std::optional<std::uint64_t> code = {});

// Both are false if the client is gone. The usual answers: handle 9 for an open, 3 bytes "abc"
// for a read, and so on; 1 where there is only a result.
bool AnswerWith(const RawPeer& peer, const Bytes& request, const Bytes& body);
bool AnswerAsUsual(const RawPeer& peer, const Bytes& request);

class LoopbackServer : public CSocketFileServer {
 public:
  LoopbackServer() { EXPECT_EQ(Create(0, "file"), 1); }
  ~LoopbackServer() override { Close(); }

 protected:
  std::uint64_t SocketCreate(unsigned short port) override { return ListenOn("127.0.0.1", port); }
};

class LoopbackClient : public CSocketFileClient {
 public:
  explicit LoopbackClient(unsigned short port) { EXPECT_EQ(Create("127.0.0.1", port, "file"), 1); }
  ~LoopbackClient() override { Close(); }
};

// Takes connections one after the other, reads the hello, and hands each request to a script.
class ScriptedServer {
 public:
  // The script answers through the peer; false ends the connection.
  using Script = std::function<bool(const RawPeer& peer, const Bytes& request)>;
  explicit ScriptedServer(Script script);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;
  unsigned short Port() const { return listener_.Port(); }

 private:
  void Serve();
  Script script_;
  RawListener listener_;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

// What the listeners below expect with each call.
inline constexpr std::uint64_t kUserData = 0xABCDEF0123456789;

struct Progress : INetFolderCopyProgressListener {
  std::vector<std::uint64_t> copied;
  Names events;  // folders made and files begun, with both paths
  std::function<int(std::uint64_t* limit)> on_block;

  std::int32_t OnNetFileCopyProgress(std::uint64_t user_data, std::uint64_t bytes,
                                     std::uint64_t total, double speed,
                                     std::uint64_t* limit) override {
    EXPECT_EQ(user_data, kUserData);
    EXPECT_LE(bytes, total);
    EXPECT_GE(speed, 0.0);
    EXPECT_EQ(*limit, 0u);
    copied.push_back(bytes);
    return on_block ? on_block(limit) : 1;
  }
  void OnNetFolderCreate(std::uint64_t, const WCHAR* folder) override {
    events.push_back("folder " + Native(folder));
  }
  void OnNetFileCopyBegin(std::uint64_t, const WCHAR* remote, const WCHAR* local) override {
    events.push_back("file " + Native(remote) + " " + Native(local));
  }
};

// Results and the last names of the paths.
using Failures = std::multiset<std::pair<int, std::string>>;

struct CopyReport : ISocketFileCopyReport {
  int done = 0;
  Failures failed;

  void OnSocketFileCopyEnd(std::uint64_t user_data, const WCHAR* remote, const WCHAR* local,
                           std::int32_t result, std::uint64_t) override {
    EXPECT_EQ(user_data, kUserData);
    std::string name = std::filesystem::path(Native(local)).filename();
    if (result != SOCKET_FILE_COPY_DONE) {
      failed.emplace(result, name);
      return;
    }
    EXPECT_EQ(std::filesystem::path(Native(remote)).filename(), name);
    ++done;
  }
};

// A server, a client and a folder for each. Both directions go by the same names: Copy copies
// from the source folder to the target folder, whichever is the server's.
class Copies : public testing::TestWithParam<bool> {
 protected:
  bool Down() const { return GetParam(); }
  std::u16string Source(const std::string& name) { return Library(source_.Path(name)); }
  std::u16string Target(const std::string& name) { return Library(target_.Path(name)); }
  int CopyFile(const std::string& name, INetFileCopyProgressListener* listener = nullptr) {
    auto copy = Down() ? SocketFileCopyFromServer : SocketFileCopyToServer;
    return copy(&client_, Source(name).c_str(), Target(name).c_str(), 0, listener, kUserData);
  }
  int CopyFileEx(const std::string& name, std::uint32_t flags = 0,
                 INetFileCopyProgressListener* listener = nullptr, std::uint64_t timeout = 0) {
    auto copy = Down() ? SocketFileCopyFromServerEx : SocketFileCopyToServerEx;
    return copy(&client_, Source(name).c_str(), Target(name).c_str(), timeout, flags, listener,
                kUserData);
  }
  int CopyFolderEx(const std::string& source, const std::string& target, CopyReport* report,
                   INetFolderCopyProgressListener* listener = nullptr) {
    auto copy = Down() ? SocketFolderCopyFromServerEx : SocketFolderCopyToServerEx;
    return copy(&client_, Library(source).c_str(), Library(target).c_str(), 0, 0, listener, report,
                kUserData);
  }
  // The target folder holds these names and no file is open anywhere.
  void ExpectTarget(const Names& names) {
    EXPECT_EQ(NamesIn(target_.Path()), names);
    EXPECT_TRUE(WaitForDescriptorsBelow(source_.Path(), 0));
    EXPECT_TRUE(WaitForDescriptorsBelow(target_.Path(), 0));
  }
  // The target folder is as the source folder and no file is open anywhere.
  void ExpectWhole() {
    ExpectTarget(NamesIn(source_.Path()));
    EXPECT_TRUE(SameTrees(source_.Path(), target_.Path()));
  }

  TempFolder source_;
  TempFolder target_;
  LoopbackServer server_;
  LoopbackClient client_{server_.GetServerPort()};
};

// For INSTANTIATE_TEST_SUITE_P.
inline std::string WayName(const testing::TestParamInfo<bool>& way) {
  return way.param ? "Down" : "Up";
}

}  // namespace qvx::test
