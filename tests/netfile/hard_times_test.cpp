// Copies while the disk is full, the server dies, the line is slow, or there is much to copy.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "netfile/netfile_fixture.h"
#include "support/fork_child.h"
#include "support/network_lab.h"
#include "support/slow_relay.h"
#include "support/small_disk.h"

namespace qvx::test {
namespace {

TEST(HardTimes, AFullDiskLeavesNothing) {
  QVX_STARTS_THREADS_AFTER_FORK();
  TempFolder source;
  auto big = Library(source.Write("big", Pattern(3000000)));
  auto fits = Library(source.Write("fits", Pattern(100000)));
  const std::string told = OnSmallDisk(1024, [&](const std::string& disk) -> std::string {
    LoopbackServer server;
    LoopbackClient client(server.GetServerPort());
    auto target = Library(disk + "/target");
    EXPECT_EQ(SocketFileCopyFromServerEx(&client, big.c_str(), target.c_str(), 0, 0, nullptr, 0),
              SOCKET_FILE_COPY_LOCAL_IO);
    EXPECT_EQ(SocketFileCopyToServerEx(&client, big.c_str(), target.c_str(), 0, 0, nullptr, 0),
              SOCKET_FILE_COPY_REMOTE_IO);
    EXPECT_TRUE(NamesIn(disk).empty());
    EXPECT_EQ(SocketFileCopyToServer(&client, fits.c_str(), target.c_str(), 0, nullptr, 0), 1);
    EXPECT_EQ(NamesIn(disk), Names{"target"});
    return testing::Test::HasFailure() ? "failed in the child" : "";
  });
  if (told == kNoSmallDisk) GTEST_SKIP() << told;
  EXPECT_EQ(told, "");
}

// A server in a process of its own, to be killed.
class ServerProcess {
 public:
  ServerProcess() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    child_ = Fork();
    if (child_ == 0) Serve(ends[1]);
    close(ends[1]);
    EXPECT_EQ(read(ends[0], &port_, sizeof(port_)), ssize_t{sizeof(port_)});
    close(ends[0]);
  }
  ~ServerProcess() { Kill(); }

  unsigned short Port() const { return port_; }
  void Kill() {
    if (child_ <= 0) return;
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
    child_ = -1;
  }

 private:
  [[noreturn]] static void Serve(int out) {
    alarm(60);
    LoopbackServer server;
    const unsigned short port = server.GetServerPort();
    if (write(out, &port, sizeof(port)) != sizeof(port)) _exit(1);
    for (;;) pause();
  }

  pid_t child_ = -1;
  unsigned short port_ = 0;
};

TEST(HardTimes, AKilledServerLeavesNoHalfFile) {
  QVX_STARTS_THREADS_AFTER_FORK();
  TempFolder source, target;
  source.Write("file", Pattern(20000000));
  for (bool down : {true, false}) {
    ServerProcess server;
    LoopbackClient client(server.Port());
    Progress progress;
    progress.on_block = [&](std::uint64_t*) {
      server.Kill();
      return 1;
    };
    auto copy = down ? SocketFileCopyFromServer : SocketFileCopyToServer;
    EXPECT_EQ(copy(&client, Library(source.Path("file")).c_str(),
                   Library(target.Path("file")).c_str(), 0, &progress, kUserData),
              0);
    EXPECT_FALSE(std::filesystem::exists(target.Path("file")));
    EXPECT_EQ(NamesIn(target.Path()).size(), down ? 0u : 1u);
    EXPECT_EQ(client.GetFileSize(), 0u);
  }
}

TEST(HardTimes, AForkedChildLeavesTheConnectionAlone) {
  TempFolder folder;
  LoopbackServer server;
  LoopbackClient client(server.GetServerPort());
  ASSERT_EQ(client.OpenFile(Library(folder.Write("file", "content")).c_str(), u"rb"), 1);
  char buffer[8] = {};
  EXPECT_TRUE(HoldsInChild([&] {
    bool idle = client.IsConnect() == 0 && client.ReadFile(0, buffer, 7, 0) == 0 &&
                client.OpenFile(u"C:\\dev", u"rb") == 0;
    client.Close();
    return idle;
  }));
  EXPECT_EQ(client.ReadFile(0, buffer, 7, 0), 7u);
  EXPECT_STREQ(buffer, "content");
}

// A folder with one big file and many small ones goes there and back.
void CopyBothWays(CSocketFileClient& client, std::size_t size, unsigned int count) {
  TempFolder source, down, up;
  source.Write("big", Pattern(size));
  for (unsigned int i = 0; i < count; ++i)
    source.Write("file" + std::to_string(i), Pattern(3000, i * 1000));
  EXPECT_EQ(SocketFolderCopyFromServerEx(&client, Library(source.Path()).c_str(),
                                         Library(down.Path()).c_str(), 0, 0, nullptr, nullptr, 0),
            1);
  EXPECT_EQ(SocketFolderCopyToServerEx(&client, Library(down.Path()).c_str(),
                                       Library(up.Path()).c_str(), 0, 0, nullptr, nullptr, 0),
            1);
  EXPECT_TRUE(SameTrees(source.Path(), up.Path()));
}

TEST(HardTimes, ALongLineInPieces) {
  LoopbackServer server;
  RelayOptions options;
  options.delay = std::chrono::milliseconds(20);
  options.piece = 1000;
  SlowRelay relay(server.GetServerPort(), options);
  LoopbackClient client(relay.Port());
  CopyBothWays(client, 1 << 20, 50);
}

TEST(LargeRealLink, FilesCrossASlowShallowLink) {
  NetworkLab lab;
  QVX_NEEDS_LAB(lab);
  ASSERT_TRUE(lab.SlowDown());
  CSocketFileServer server;
  CSocketFileClient client;
  lab.In(0, [&] { ASSERT_EQ(server.Create(0, "lab"), 1); });
  lab.In(1, [&] {
    ASSERT_EQ(client.Create(NetworkLab::Address(0), server.GetServerPort(), "lab"), 1);
  });
  CopyBothWays(client, 20 << 20, 200);
  // One packet of 64 MiB, the most that a read may ask for.
  TempFolder folder;
  std::string content = Pattern(SOCKET_FILE_MAX_READ);
  ASSERT_EQ(client.OpenFile(Library(folder.Write("whole", content)).c_str(), u"rb"), 1);
  std::string read(content.size(), '\0');
  EXPECT_EQ(client.ReadFile(0, read.data(), SOCKET_FILE_MAX_READ, 0), SOCKET_FILE_MAX_READ);
  EXPECT_TRUE(read == content);
  client.Close();
}

using LargeCopies = Copies;

INSTANTIATE_TEST_SUITE_P(Large, LargeCopies, testing::Values(true, false), WayName);

TEST_P(LargeCopies, OneGibibyte) {
  std::ofstream out(source_.Path("big"), std::ios::binary);
  for (unsigned int i = 0; i < 1024; ++i) out << Pattern(1 << 20, i * 1000);
  ASSERT_TRUE(out.flush().good());
  out.close();
  Progress progress;
  ASSERT_EQ(CopyFile("big", &progress), 1);
  EXPECT_EQ(progress.copied.size(), 2048u);
  ExpectWhole();
}

TEST_P(LargeCopies, TenThousandFiles) {
  const std::string names[] = {"plain", "\xE4\xB8\xAD\xE6\x96\x87 \xE5\x90\x8D\xE5\xAD\x97",
                               "back\\slash", "two  words ", "no text \xFF\xC3"};
  for (int folder = 0; folder < 20; ++folder) {
    std::string path = std::to_string(folder) + names[folder % 5];
    mkdir(source_.Path(path).c_str(), 0777);
    for (int file = 0; file < 500; ++file)
      source_.Write(path + "/" + names[file % 5] + std::to_string(file),
                    path + std::string(static_cast<std::size_t>(file * 17 % 9000), 'x'));
    symlink((names[0] + "0").c_str(), source_.Path(path + "/link").c_str());
  }
  CopyReport report;
  EXPECT_EQ(CopyFolderEx(source_.Path(), target_.Path(), &report), 1);
  EXPECT_EQ(report.done, 10020);
  ExpectWhole();
}

}  // namespace
}  // namespace qvx::test
