#include "qvx/socket_file_client.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "netfile/netfile_fixture.h"
#include "support/debug_lines.h"
#include "support/fault_plan.h"

namespace qvx::test {
namespace {

constexpr std::uint64_t kForever = 0;

TEST(FileClient, SendsEachRequestAsTheWireSays) {
  std::vector<Bytes> requests;
  ScriptedServer server([&](const RawPeer& peer, const Bytes& request) {
    requests.push_back(request);
    return AnswerAsUsual(peer, request);
  });
  LoopbackClient client(server.Port());
  CSocketFileClient copy(client);
  copy = client;
  EXPECT_EQ(copy.IsConnect(), 0);
  std::u16string long_path(300, u'p');
  WCHAR path[260];
  char buffer[5] = "....";
  unsigned char digest[16];
  CBaseStringW folders, files;
  client.GetFolderPath(-2, path);
  EXPECT_EQ(client.OpenFile(long_path.c_str(), u"01234567890123456789"), 1);
  EXPECT_EQ(client.GetFileSize(), 0x123456789u);
  EXPECT_EQ(client.ReadFile(0x1234567890, buffer, 4, kForever), 3u);
  EXPECT_EQ(client.WriteFile(7, "hello", 5, ~std::uint64_t{0}), 5u);
  EXPECT_EQ(client.CloseFile(), 1);
  EXPECT_EQ(client.DeleteFileW(u"d"), 1);
  EXPECT_EQ(client.RenameFile(u"old", nullptr), 1);
  EXPECT_EQ(client.GetFileMD5(u"m", digest), 1);
  client.GetFolderList(u"l", &folders, &files);
  EXPECT_EQ(client.MakeDirectory(u"k"), 1);
  EXPECT_EQ(client.RemoveDirectoryW(u"r"), 1);
  EXPECT_EQ(std::u16string(path), u"C:\\data");
  EXPECT_STREQ(buffer, "abc.");
  EXPECT_EQ(std::string(digest, digest + 16), "0123456789abcdef");
  EXPECT_EQ(std::u16string(folders.GetString()), u"a;b");
  EXPECT_EQ(std::u16string(files.GetString()), u"c");
  Bytes handle = U64(9);
  const std::pair<std::uint32_t, Bytes> expected[] = {
      {1, LittleEndian(std::int32_t{-2})},
      {3, Field(std::u16string(259, u'p')) + Field(u"012345678901234", 16)},
      {11, handle},
      {13, handle + U64(0x1234567890) + U32(4)},
      {15, handle + U64(7) + U32(5) + "hello"},
      {5, handle},
      {7, Field(u"d")},
      {9, Field(u"old") + Field(u"")},
      {17, Field(u"m")},
      {19, Field(u"l")},
      {21, Field(u"k")},
      {23, Field(u"r")},
  };
  ASSERT_EQ(requests.size(), std::size(expected));
  for (std::uint32_t i = 0; i < std::size(expected); ++i) {
    const Bytes& request = requests[i];
    EXPECT_EQ(request, Record(i, expected[i].first, ValueAt<std::uint64_t>(request, 12),
                              expected[i].second));
  }
}

TEST(FileClient, WithoutConnectionOrFileNothingGoesOut) {
  DebugLines log;
  char buffer[4];
  {
    CSocketFileClient client;
    EXPECT_EQ(client.OpenFile(u"f", u"rb"), 0);
    EXPECT_EQ(client.ReadFile(0, buffer, 4, kForever), 0u);
    EXPECT_EQ(client.DeleteFileW(u"f"), 0);
    EXPECT_EQ(log.Count(2, "CSocketFileClient::OpenFile: SendData Failed\r\n"), 0);
    unsigned char digest[16];
    EXPECT_EQ(client.GetFileMD5(nullptr, digest), 0);
    EXPECT_EQ(client.GetFileMD5(u"f", digest), 0);
    EXPECT_EQ(log.Count(2, "CSocketFileClient::GetFileMD5: SendData Failed\r\n"), 1);
  }
  std::atomic<int> requests{0};
  {
    ScriptedServer server([&](const RawPeer& peer, const Bytes& request) {
      ++requests;
      return AnswerAsUsual(peer, request);
    });
    LoopbackClient client(server.Port());
    EXPECT_EQ(client.ReadFile(0, buffer, 4, kForever), 0u);
    EXPECT_EQ(client.WriteFile(0, buffer, 4, kForever), 0u);
    EXPECT_EQ(client.GetFileSize(), 0u);
    EXPECT_EQ(client.CloseFile(), 0);
  }
  EXPECT_EQ(log.Count(2, "Net Closed!!\r\n"), 3);
  EXPECT_EQ(requests, 0);
}

TEST(FileClient, ALateAnswerReachesNobody) {
  std::vector<Bytes> held;
  ScriptedServer server([&](const RawPeer& peer, const Bytes& request) {
    if (CommandOf(request) == 13) {
      held.push_back(request);
      return true;
    }
    for (const auto& late : held) AnswerWith(peer, late, U32(4) + "late");
    return AnswerAsUsual(peer, request);
  });
  DebugLines log;
  LoopbackClient client(server.Port());
  ASSERT_EQ(client.OpenFile(u"f", u"rb"), 1);
  auto buffer = std::make_unique<std::array<char, 4>>();
  EXPECT_EQ(client.ReadFile(0, buffer->data(), 4, 20), 0u);
  EXPECT_EQ(log.Count(2, "CSocketFileClient::ReadFile: wait response timeout\r\n"), 1);
  buffer.reset();
  EXPECT_EQ(client.GetFileSize(), 0x123456789u);
}

TEST(FileClient, ImpossibleAnswersTouchNoMemory) {
  Bytes body;
  std::uint32_t command = 0;
  bool break_version = false;
  ScriptedServer server([&](const RawPeer& peer, const Bytes& request) {
    if (CommandOf(request) == 3) return AnswerAsUsual(peer, request);
    Bytes answer = Record(ValueAt<std::uint32_t>(request, 4), command, 0, body);
    if (break_version) answer[0] = 0;
    return peer.Send(PacketBytes(answer));
  });
  LoopbackClient client(server.Port());
  ASSERT_EQ(client.OpenFile(u"f", u"rb"), 1);
  auto read = [&](std::uint32_t code, const Bytes& answer) {
    char buffer[12] = "...........";
    command = code;
    body = answer;
    EXPECT_EQ(client.ReadFile(0, buffer, 8, kForever), 0u);
    EXPECT_STREQ(buffer, "...........");
  };
  read(14, U32(9) + "123456789");
  read(14, U32(8) + "1234");
  read(14, U32(0xFFFFFFFF) + Bytes(100, 'x'));
  read(14, U32(0) + Bytes(100, 'x'));
  read(14, "");
  read(12, U64(5));
  for (std::uint32_t code : {13u, 99u}) read(code, U32(4) + "1234");
  command = 20;
  CBaseStringW folders(u"kept"), files(u"kept");
  for (auto sizes : {std::array<std::uint32_t, 2>{100, 0}, {0, 100}, {0xFFFFFFFF, 5}, {0, 0}}) {
    body = LittleEndian(sizes[0]) + LittleEndian(sizes[1]) + "1234";
    client.GetFolderList(u"l", &folders, &files);
    EXPECT_EQ(std::u16string(folders.GetString()), u"kept");
    EXPECT_EQ(std::u16string(files.GetString()), u"kept");
  }
  DebugLines log;
  break_version = true;
  read(14, U32(8) + "12345678");
  EXPECT_EQ(log.Count(2, "CSocketFileClient::OnClientReceiveData: Net File Version NOT MATCH\r\n"),
            1);
  EXPECT_EQ(client.OpenFile(u"f", u"rb"), 0);
}

// Keeps the call to itself.
class CountingClient : public CSocketFileClient {
 public:
  ~CountingClient() override { Close(); }
  void OnClientSocketCreate(std::uint64_t, std::uint64_t) override { ++made; }
  std::size_t made = 0;
};

TEST(FileClient, AConnectionThatEndsAtAnyByteWakesItsCaller) {
  constexpr std::size_t kWhole = 20 + 24 + 20;
  std::atomic<std::size_t> sent{0};
  ScriptedServer server([&](const RawPeer& peer, const Bytes& request) {
    if (CommandOf(request) == 3) return AnswerAsUsual(peer, request);
    Bytes record = Record(ValueAt<std::uint32_t>(request, 4), 14, 0, U32(20) + Bytes(20, 'x'));
    peer.Send(PacketBytes(record).substr(0, sent));
    return false;
  });
  CountingClient client;
  char buffer[20];
  do {
    ASSERT_EQ(client.Create("127.0.0.1", server.Port(), "cut"), 1);
    ASSERT_EQ(client.OpenFile(u"f", u"rb"), 1);
    std::uint32_t read = client.ReadFile(0, buffer, 20, kForever);
    EXPECT_EQ(read, sent == kWhole ? 20u : 0u) << sent;
  } while (sent++ < kWhole);
  EXPECT_EQ(client.made, kWhole + 1);
  client.Close();
  EXPECT_EQ(client.ReadFile(0, buffer, 20, kForever), 0u);
}

TEST(FileClient, CloseWakesAWaitingCall) {
  std::atomic<bool> asked{false};
  ScriptedServer server([&](const RawPeer&, const Bytes&) {
    asked = true;
    asked.notify_all();
    return true;
  });
  DebugLines log;
  LoopbackClient client(server.Port());
  unsigned char digest[16] = {42};
  int result = 0;
  std::thread caller([&] { result = client.GetFileMD5(u"f", digest); });
  asked.wait(false);
  std::string descriptor = std::to_string(static_cast<int>(client.GetSocketFd()));
  client.Close();
  caller.join();
  EXPECT_EQ(result, 1);
  EXPECT_EQ(digest[0], 42);
  EXPECT_EQ(log.Count(2, "CSocketFileClient::GetFileMD5: wait response timeout\r\n"), 0);
  EXPECT_EQ(log.Count(2, "Client Socket(" + descriptor + ") Disconnect\r\n"), 1);
}

TEST(FileClient, SixteenThreadsGetTheirOwnAnswers) {
  TempFolder folder;
  std::string content = Pattern(500000);
  folder.Write("shared", content);
  LoopbackServer server;
  LoopbackClient client(server.GetServerPort());
  ASSERT_EQ(client.OpenFile(Library(folder.Path("shared")).c_str(), u"rb"), 1);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < 16; ++t)
    threads.emplace_back([&, t] {
      std::string buffer(100000, '\0');
      for (std::size_t i = 0; i < 60; ++i) {
        std::size_t offset = (t * 60 + i) * 400;
        auto size = static_cast<std::uint32_t>((i * 7919 + t) % buffer.size());
        auto read = client.ReadFile(offset, buffer.data(), size, kForever);
        if (content.compare(offset, size, buffer.data(), read) != 0) ++wrong;
        if (client.GetFileSize() != content.size()) ++wrong;
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST(FileClient, SpeedLimitsSleepForAllTheTimeNeeded) {
  TempFolder folder;
  LoopbackServer server;
  LoopbackClient client(server.GetServerPort());
  ASSERT_EQ(client.OpenFile(Library(folder.Write("f", Bytes(8000, 'x'))).c_str(), u"r+b"), 1);
  std::string buffer(8000, 'y');
  FaultPlan plan;
  plan.FakeClock(1000000000);
  client.LimitReadSpeed(1000);
  client.LimitWriteSpeed(2000);
  EXPECT_EQ(client.ReadFile(0, buffer.data(), 2000, kForever), 2000u);
  EXPECT_EQ(plan.Slept(), 2000 * 1000000LL);
  EXPECT_EQ(client.WriteFile(0, buffer.data(), 500, kForever), 500u);
  EXPECT_EQ(plan.Slept(), 2250 * 1000000LL);
  client.LimitReadSpeed(0);
  EXPECT_EQ(client.ReadFile(0, buffer.data(), 8000, kForever), 8000u);
  EXPECT_EQ(plan.Slept(), 2250 * 1000000LL);
}

}  // namespace
}  // namespace qvx::test
