#include "platform/debug_sink.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>
#include <string>

#include <qvx/debug_output.h>

#include "support/temp_folder.h"

namespace {

using qvx::test::ReadWhole;
using qvx::test::TempFolder;

constexpr const char* kChildVariable = "QVX_TEST_DEBUG_SINK_CHILD";
constexpr const char* kLines = "[I]=> first\r\n[E]=> second 2\r\n";

// In a child process, logs before main. The library logs too when it goes up and down.
struct ChildLogger {
  ChildLogger() {
    const char* job = getenv(kChildVariable);
    if (job == nullptr) return;
    DbgOutputSetTag(0, nullptr);
    DbgOutputSetTimeType(2);
    DbgOutputSetIncludePIDTID(0);
    setenv("QVX_DEBUG_OUTPUT", "/nowhere/at/all", 1);
    if (std::string(job) == "flood") {
      for (int i = 0; i < 2000; ++i) DbgOutputA(2, "%2000d\r\n", i);
    }
    DbgOutputA(2, "first\r\n");
    DbgOutputA(4, "second %d\r\n", 2);
  }
};

const ChildLogger child_logger;

bool RedirectTo(int number, const std::string& path) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  return file >= 0 && dup2(file, number) == number && (file == number || close(file) == 0);
}

bool Nothing() {
  return true;
}

// Runs this program again as a child that logs; prepare runs in it before exec. Its stdout is the
// test runner's affair and goes away. Returns the status as waitpid gives it, or -1.
int RunChild(const char* output, const char* job = "log",
             const std::function<bool()>& prepare = &Nothing,
             const std::string& program = "/proc/self/exe") {
  const pid_t child = fork();
  if (child == 0) {
    alarm(120);
    if (output != nullptr) setenv("QVX_DEBUG_OUTPUT", output, 1);
    if (output == nullptr) unsetenv("QVX_DEBUG_OUTPUT");
    setenv(kChildVariable, job, 1);
    std::array<char, 24> filter{"--gtest_filter=none"};
    std::array<char*, 3> arguments{const_cast<char*>(program.c_str()), filter.data(), nullptr};
    if (RedirectTo(STDOUT_FILENO, "/dev/null") && prepare())
      execv(program.c_str(), arguments.data());
    _exit(99);
  }
  int status = -1;
  return waitpid(child, &status, 0) == child ? status : -1;
}

bool Holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(DebugSink, WritesNothingByDefault) {
  const TempFolder folder;
  for (const char* output : {static_cast<const char*>(nullptr), "", "fd:77", "fd:", "fd:2x",
                             "fd:-1", "/nowhere/at/all"}) {
    EXPECT_EQ(RunChild(output, "log", [&] { return RedirectTo(2, folder.Path("err")); }), 0);
    EXPECT_EQ(ReadWhole(folder.Path("err")), "") << (output != nullptr ? output : "unset");
  }
}

TEST(DebugSink, AppendsToAFile) {
  const TempFolder folder;
  const std::string path = folder.Path("log");
  EXPECT_EQ(RunChild(path.c_str()), 0);
  const std::string once = ReadWhole(path);
  EXPECT_TRUE(Holds(once, kLines)) << once;
  EXPECT_EQ(std::filesystem::status(path).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  EXPECT_EQ(RunChild(path.c_str()), 0);
  EXPECT_EQ(ReadWhole(path).substr(0, once.size()), once);
  EXPECT_GT(ReadWhole(path).size(), once.size());
}

TEST(DebugSink, WritesToDescriptorsAndNeverWaitsForThem) {
  std::array<int, 2> of_pipe;
  std::array<int, 2> of_socket;
  ASSERT_EQ(pipe(of_pipe.data()), 0);
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, of_socket.data()), 0);
  for (const auto& ends : {of_pipe, of_socket}) {
    const std::string name = "fd:" + std::to_string(ends[1]);
    EXPECT_EQ(RunChild(name.c_str()), 0);
    std::array<char, 4096> text{};
    EXPECT_GT(read(ends[0], text.data(), text.size() - 1), 0);
    EXPECT_TRUE(Holds(text.data(), kLines)) << text.data();
    EXPECT_EQ(RunChild(name.c_str(), "flood"), 0);
    EXPECT_EQ(fcntl(ends[1], F_GETFL) & O_NONBLOCK, 0) << "the host's own end stays as it was";
    close(ends[0]);
    EXPECT_EQ(RunChild(name.c_str(), "flood"), 0) << "no signal for a broken pipe";
    close(ends[1]);
  }
}

// The child sees a /dev of the test's own, where the test listens as the daemon.
TEST(DebugSink, SendsToSyslog) {
  const TempFolder folder;
  const int daemon = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
  sockaddr_un address = {AF_UNIX, ""};
  folder.Path("log").copy(address.sun_path, sizeof(address.sun_path) - 1);
  ASSERT_EQ(bind(daemon, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  const int status = RunChild("syslog", "log", [&folder] {
    if (unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) != 0) _exit(77);
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) _exit(77);
    return mount(folder.Path().c_str(), "/dev", nullptr, MS_BIND, nullptr) == 0;
  });
  if (WIFEXITED(status) && WEXITSTATUS(status) == 77) GTEST_SKIP() << "no namespaces here";
  EXPECT_EQ(status, 0);
  std::string all;
  std::array<char, 4096> text;
  for (ssize_t size; (size = recv(daemon, text.data(), text.size(), 0)) > 0;) {
    all += std::string(text.data(), static_cast<std::size_t>(size)) + "\n";
  }
  close(daemon);
  for (const char* part : {"<14>exe[", "]: [I]=> first\n", "<11>exe[", "]: [E]=> second 2\n"})
    EXPECT_TRUE(Holds(all, part)) << all;
}

TEST(DebugSink, IgnoresTheVariableWithRaisedRights) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a program with another group";
  const TempFolder folder;
  const std::string program = folder.Path("program");
  const std::string log = folder.Path("log");
  std::filesystem::copy_file("/proc/self/exe", program);
  ASSERT_EQ(RunChild(log.c_str(), "log", &Nothing, program), 0);
  EXPECT_TRUE(Holds(ReadWhole(log), kLines));
  std::filesystem::remove(log);
  ASSERT_EQ(chown(program.c_str(), 0, 65534), 0);
  ASSERT_EQ(chmod(program.c_str(), 02755), 0);
  RunChild(log.c_str(), "log", &Nothing, program);
  EXPECT_FALSE(std::filesystem::exists(log));
}

}  // namespace
