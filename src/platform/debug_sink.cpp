#include "platform/debug_sink.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <optional>

#include "platform/pipe_signal.h"

namespace qvx::platform {
namespace {

// What the lines go to. Only the load and the unload of the library change it; both before and
// after that it is kNone, which needs no constructor.
enum class Target { kNone, kFile, kPipe, kPollable, kSocket, kSyslog };

constinit std::atomic<Target> target{Target::kNone};
constinit std::atomic<int> descriptor{-1};

constexpr std::size_t kLongestDatagram = 60000;
constexpr std::size_t kAlwaysRoom = 256;  // what a pipe or terminal takes that polls writable
constexpr int kUserFacility = 1 << 3;

// Opening -----------------------------------------------------------------------------------

void Use(Target kind, int opened) {
  descriptor.store(opened, std::memory_order_relaxed);
  target.store(kind, std::memory_order_release);
}

// A pipe or terminal of the host, opened anew: this description can be non-blocking while the
// host's own stays as it is.
int OpenAnew(int host_descriptor) {
  char path[32];
  snprintf(path, sizeof(path), "/proc/self/fd/%d", host_descriptor);
  return open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

void UsePipeOrTerminal(int host_descriptor) {
  const int anew = OpenAnew(host_descriptor);
  if (anew >= 0) return Use(Target::kPipe, anew);
  const int copy = fcntl(host_descriptor, F_DUPFD_CLOEXEC, 3);
  if (copy >= 0) Use(Target::kPollable, copy);
}

// The copy goes on to mean this target when the host closes the number or uses it again.
void UseDescriptor(int host_descriptor) {
  struct stat info;
  if (fstat(host_descriptor, &info) != 0) return;
  if (S_ISFIFO(info.st_mode) || S_ISCHR(info.st_mode)) return UsePipeOrTerminal(host_descriptor);
  const int copy = fcntl(host_descriptor, F_DUPFD_CLOEXEC, 3);
  if (copy >= 0) Use(S_ISSOCK(info.st_mode) ? Target::kSocket : Target::kFile, copy);
}

void UseFile(const char* path) {
  const int flags = O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const int opened = open(path, flags, 0600);
  struct stat info;
  if (opened < 0) return;
  const bool regular = fstat(opened, &info) == 0 && S_ISREG(info.st_mode);
  Use(regular ? Target::kFile : Target::kPipe, opened);
}

void UseSyslog() {
  const int opened = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (opened >= 0) Use(Target::kSyslog, opened);
}

std::optional<int> NumberBehind(std::string_view text, std::string_view head) {
  int number = -1;
  if (text.substr(0, head.size()) != head) return std::nullopt;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data() + head.size(), end, number);
  if (error != std::errc() || rest != end || number < 0) return std::nullopt;
  return number;
}

// Runs ahead of all constructors that have no priority.
__attribute__((constructor(101))) void ReadEnvironment() {
  const char* value = secure_getenv("QVX_DEBUG_OUTPUT");
  if (value == nullptr || *value == '\0') return;
  const int error = errno;
  const std::string_view name = value;
  if (name == "stderr") {
    UseDescriptor(STDERR_FILENO);
  } else if (name == "syslog") {
    UseSyslog();
  } else if (name.substr(0, 3) == "fd:") {
    if (const auto number = NumberBehind(name, "fd:")) UseDescriptor(*number);
  } else {
    UseFile(value);
  }
  errno = error;
}

// Runs behind all destructors of static objects, so that what they log is still written. The
// descriptor stays open: at the end of a process another thread may be writing to it.
__attribute__((destructor(101))) void ForgetTarget() {
  target.store(Target::kNone, std::memory_order_release);
}

// Writing -----------------------------------------------------------------------------------

bool HasRoom(int to) {
  pollfd entry = {to, POLLOUT, 0};
  return poll(&entry, 1, 0) == 1 && (entry.revents & POLLOUT) != 0;
}

// With a step, no more than that at once and only while there is room.
void WriteAll(int to, std::string_view text, std::size_t step = SIZE_MAX) {
  while (!text.empty()) {
    if (step != SIZE_MAX && !HasRoom(to)) return;
    const ssize_t written = write(to, text.data(), std::min(text.size(), step));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

void WriteToPipe(int to, std::string_view text, std::size_t step) {
  const PipeSignalGuard guard;
  WriteAll(to, text, step);
}

void SendAll(int to, std::string_view text) {
  while (!text.empty()) {
    const ssize_t sent = send(to, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(sent));
  }
}

int Severity(int level) {
  constexpr int kSeverities[] = {6, 7, 6, 4, 3};
  return level >= 0 && level <= 4 ? kSeverities[level] : 6;
}

// Without the time, which the daemon sets where it is missing: no lock of the C library then.
void SendToSyslog(int from, int level, std::string_view text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
  char head[64];
  const int size = snprintf(head, sizeof(head), "<%d>%.32s[%d]: ", kUserFacility | Severity(level),
                            program_invocation_short_name, static_cast<int>(getpid()));
  sockaddr_un daemon = {AF_UNIX, "/dev/log"};
  iovec parts[2] = {{head, static_cast<std::size_t>(size)},
                    {const_cast<char*>(text.data()), std::min(text.size(), kLongestDatagram)}};
  msghdr message = {};
  message.msg_name = &daemon;
  message.msg_namelen = sizeof(daemon);
  message.msg_iov = parts;
  message.msg_iovlen = 2;
  while (sendmsg(from, &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 && errno == EINTR) {
  }
}

void WriteTo(Target kind, int to, int level, std::string_view text) {
  switch (kind) {
    case Target::kNone:
      return;
    case Target::kFile:
      return WriteAll(to, text);
    case Target::kPipe:
      return WriteToPipe(to, text, SIZE_MAX);
    case Target::kPollable:
      return WriteToPipe(to, text, kAlwaysRoom);
    case Target::kSocket:
      return SendAll(to, text);
    case Target::kSyslog:
      return SendToSyslog(to, level, text);
  }
}

}  // namespace

void WriteDebugOutput(int level, std::string_view text) noexcept {
  const Target kind = target.load(std::memory_order_acquire);
  if (kind == Target::kNone) return;
  const int error = errno;
  WriteTo(kind, descriptor.load(std::memory_order_relaxed), level, text);
  errno = error;
}

bool HasDebugOutput() noexcept {
  return target.load(std::memory_order_acquire) != Target::kNone;
}

}  // namespace qvx::platform
