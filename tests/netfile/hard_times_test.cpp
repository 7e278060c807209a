// Copies while the disk is full, the server dies, or the line is slow.
#include <gtest/gtest.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "netfile/copy_fixture.h"
#include "netfile/netfile_fixture.h"
#include "support/fork_child.h"
#include "support/network_lab.h"
#include "support/slow_relay.h"
#include "support/temp_folder.h"

extern char** environ;

namespace qvx::test {
namespace {

// Runs body on a thread whose mounts are its own, with a file system of 1 MiB at a folder.
// Threads that body starts see it as well. False where that can't be had.
bool WithSmallDisk(const std::string& folder, const std::function<void()>& body) {
  bool ready = false;
  std::thread([&] {
    ready = unshare(CLONE_NEWNS) == 0 &&
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
            mount("small", folder.c_str(), "tmpfs", 0, "size=1m") == 0;
    if (ready) body();
  }).join();
  return ready;
}

TEST(HardTimes, AFullDiskLeavesNothing) {
  TempFolder source, target;
  source.Write("fits", Pattern(100000));
  source.Write("big", Pattern(3000000));
  bool ready = WithSmallDisk(target.Path(), [&] {
    LoopbackServer server;
    LoopbackClient client(server.Port());
    auto big = Library(source.Path("big")), fits = Library(source.Path("fits"));
    auto at = [&](const char* name) { return Library(target.Path(name)); };
    EXPECT_EQ(SocketFileCopyFromServerEx(&client, big.c_str(), at("big").c_str(), 0, 0, nullptr, 0),
              SOCKET_FILE_COPY_LOCAL_IO);
    EXPECT_EQ(SocketFileCopyToServerEx(&client, big.c_str(), at("big").c_str(), 0, 0, nullptr, 0),
              SOCKET_FILE_COPY_REMOTE_IO);
    EXPECT_TRUE(NamesIn(target.Path()).empty());
    EXPECT_EQ(SocketFileCopyToServer(&client, fits.c_str(), at("fits").c_str(), 0, nullptr, 0), 1);
    EXPECT_EQ(NamesIn(target.Path()), std::vector<std::string>{"fits"});
  });
  if (!ready) GTEST_SKIP() << "no mounts of our own here";
}

// What ServerProcess runs: a server that tells its port and waits to be killed.
TEST(HardTimes, DISABLED_ServeInAChild) {
  const char* port_file = getenv("QVX_TEST_PORT_FILE");
  ASSERT_NE(port_file, nullptr);
  LoopbackServer server;
  std::ofstream(port_file) << server.Port() << std::endl;
  for (;;) pause();
}

class ServerProcess {
 public:
  ServerProcess() {
    std::string port_file = "QVX_TEST_PORT_FILE=" + folder_.Path("port");
    mkfifo(folder_.Path("port").c_str(), 0600);
    const char* arguments[] = {"server", "--gtest_also_run_disabled_tests",
                               "--gtest_filter=HardTimes.DISABLED_ServeInAChild", nullptr};
    std::vector<char*> environment;
    for (char** it = environ; *it; ++it) environment.push_back(*it);
    environment.push_back(port_file.data());
    environment.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    EXPECT_EQ(posix_spawn(&pid_, "/proc/self/exe", &actions, nullptr, const_cast<char**>(arguments),
                          environment.data()),
              0);
    posix_spawn_file_actions_destroy(&actions);
    std::ifstream(folder_.Path("port")) >> port_;
  }
  ~ServerProcess() { Kill(); }

  unsigned short Port() const { return port_; }
  void Kill() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  TempFolder folder_;
  pid_t pid_ = -1;
  unsigned short port_ = 0;
};

TEST(HardTimes, AKilledServerLeavesNoHalfFile) {
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
                   Library(target.Path("file")).c_str(), 0, &progress, 0xABCDEF0123456789),
              0);
    EXPECT_EQ(access(target.Path("file").c_str(), F_OK), -1);
    EXPECT_EQ(NamesIn(target.Path()).size(), down ? 0u : 1u);
    EXPECT_EQ(client.GetFileSize(), 0u);
  }
}

TEST(HardTimes, AForkedChildLeavesTheConnectionAlone) {
  TempFolder folder;
  LoopbackServer server;
  LoopbackClient client(server.Port());
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

void FillWithFiles(const TempFolder& folder, int count) {
  for (int i = 0; i < count; ++i) folder.Write("file" + std::to_string(i), Pattern(3000));
}

// Both ways for one file and for a folder of small ones, all compared.
void CopyBothWays(CSocketFileClient& client, std::size_t size, int count) {
  TempFolder source, target;
  std::string content = Pattern(size);
  auto big = Library(source.Write("big", content));
  auto down = target.Path("down"), up = target.Path("up");
  EXPECT_EQ(SocketFileCopyFromServer(&client, big.c_str(), Library(down).c_str(), 0, nullptr, 0),
            1);
  EXPECT_TRUE(ReadWhole(down) == content);
  EXPECT_EQ(SocketFileCopyToServer(&client, big.c_str(), Library(up).c_str(), 0, nullptr, 0), 1);
  EXPECT_TRUE(ReadWhole(up) == content);
  TempFolder files, files_down, files_up;
  FillWithFiles(files, count);
  EXPECT_EQ(
      SocketFolderCopyFromServerEx(&client, Library(files.Path()).c_str(),
                                   Library(files_down.Path()).c_str(), 0, 0, nullptr, nullptr, 0),
      1);
  EXPECT_EQ(SocketFolderCopyToServerEx(&client, Library(files_down.Path()).c_str(),
                                       Library(files_up.Path()).c_str(), 0, 0, nullptr, nullptr, 0),
            1);
  EXPECT_EQ(NamesIn(files_up.Path()), NamesIn(files.Path()));
  for (const auto& name : NamesIn(files.Path()))
    EXPECT_TRUE(ReadWhole(files_up.Path(name)) == Pattern(3000)) << name;
}

TEST(HardTimes, ALongLineInPieces) {
  LoopbackServer server;
  RelayOptions options;
  options.delay = std::chrono::milliseconds(20);
  options.piece = 1000;
  SlowRelay relay(server.Port(), options);
  LoopbackClient client(relay.Port());
  CopyBothWays(client, 1 << 20, 50);
}

class LabServer : public CSocketFileServer {
 public:
  ~LabServer() override { Close(); }
};

TEST(LargeRealLink, FilesCrossASlowShallowLink) {
  NetworkLab lab;
  QVX_NEEDS_LAB(lab);
  ASSERT_TRUE(lab.SlowDown());
  LabServer server;
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

}  // namespace
}  // namespace qvx::test
