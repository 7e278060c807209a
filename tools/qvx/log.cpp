// qvx log: runs a command and shows the debug lines that the library writes in it, on the
// error output, in colour by level where that is a terminal.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "command.h"
#include "descriptor.h"
#include "words.h"

namespace qvx::tool {
namespace {

struct Options {
  std::vector<std::string> command;
  std::string colour = "auto";
};

// The letter stands in brackets before the arrow: "[W]=> ".
const char* ColourOf(std::string_view line) {
  const std::size_t arrow = line.find("]=> ");
  if (arrow == std::string_view::npos || arrow == 0) return "";
  switch (line[arrow - 1]) {
    case 'D':
      return "\033[2m";
    case 'I':
      return "\033[36m";
    case 'W':
      return "\033[33m";
    case 'E':
      return "\033[1;31m";
    default:
      return "";
  }
}

// Cuts what comes from the pipe into lines.
class LineWriter {
 public:
  explicit LineWriter(bool colour) : colour_(colour) {}

  void Add(const char* data, std::size_t size) {
    pending_.append(data, size);
    std::size_t begin = 0;
    for (std::size_t end; (end = pending_.find('\n', begin)) != std::string::npos; begin = end + 1)
      Write(std::string_view(pending_).substr(begin, end - begin));
    pending_.erase(0, begin);
  }

  void Finish() {
    if (!pending_.empty()) Write(pending_);
    pending_.clear();
  }

 private:
  void Write(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    const char* colour = colour_ ? ColourOf(line) : "";
    std::fprintf(stderr, "%s%.*s%s\n", colour, static_cast<int>(line.size()), line.data(),
                 *colour != '\0' ? "\033[0m" : "");
  }

  bool colour_;
  std::string pending_;
};

bool WantsColour(const std::string& choice) {
  if (choice != "auto") return choice == "always";
  return isatty(STDERR_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr;
}

std::vector<std::string> EnvironmentWith(const std::string& setting) {
  const std::string name = setting.substr(0, setting.find('=') + 1);
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry)
    if (std::string_view(*entry).substr(0, name.size()) != name) result.emplace_back(*entry);
  result.push_back(setting);
  return result;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

pid_t Start(std::vector<std::string> command, const std::string& setting) {
  std::vector<std::string> environment = EnvironmentWith(setting);
  sigset_t interrupts;
  sigemptyset(&interrupts);
  sigaddset(&interrupts, SIGINT);
  sigaddset(&interrupts, SIGQUIT);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigdefault(&attributes, &interrupts);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t child = 0;
  const int error = posix_spawnp(&child, command[0].c_str(), nullptr, &attributes,
                                 Pointers(command).data(), Pointers(environment).data());
  posix_spawnattr_destroy(&attributes);
  if (error != 0) throw CommandError("cannot run " + command[0] + ": " + std::strerror(error));
  return child;
}

// False at the end of the pipe or when nothing waits any more.
bool ReadSome(int descriptor, LineWriter& lines) {
  std::array<char, 65536> block;
  const ssize_t count = read(descriptor, block.data(), block.size());
  if (count > 0) lines.Add(block.data(), static_cast<std::size_t>(count));
  return count > 0 || (count < 0 && errno == EINTR);
}

// Until the command ends; a process that it leaves behind may hold the pipe for longer.
void ShowUntilEnd(int output, pid_t child, LineWriter& lines) {
  const Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
  if (!process) throw CommandError("cannot watch the command");
  std::array<pollfd, 2> polled{pollfd{output, POLLIN, 0}, pollfd{process.Get(), POLLIN, 0}};
  while (polled[1].revents == 0) {
    if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR) break;
    if (polled[0].revents != 0 && !ReadSome(output, lines) && errno != EAGAIN) polled[0].fd = -1;
  }
  while (polled[0].fd >= 0 && ReadSome(output, lines)) continue;
  lines.Finish();
}

void Run(const Options& options) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw CommandError("cannot make a pipe");
  const Descriptor output(ends[0]);
  Descriptor input(ends[1]);
  fcntl(output.Get(), F_SETFL, O_NONBLOCK);
  fcntl(input.Get(), F_SETFD, 0);
  // An interrupt from the keyboard is for the command; its last lines are still wanted.
  signal(SIGINT, SIG_IGN);
  signal(SIGQUIT, SIG_IGN);
  const pid_t child = Start(options.command, "QVX_DEBUG_OUTPUT=fd:" + std::to_string(input.Get()));
  input.Close();
  LineWriter lines(WantsColour(options.colour));
  ShowUntilEnd(output.Get(), child, lines);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status))
    throw CommandError(options.command[0] + " ended by signal " + std::to_string(WTERMSIG(status)));
  if (WEXITSTATUS(status) != 0)
    throw CommandError(options.command[0] + " ended with status " +
                       std::to_string(WEXITSTATUS(status)));
}

}  // namespace

void AddLogCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      app.add_subcommand("log", "Run a command and show the library's debug lines of it");
  command->add_option("--colour", options->colour, "auto, always or never")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->capture_default_str();
  const Words words(*command, "COMMAND", "Program, and its arguments after it, best behind --");
  command->callback([options, words] {
    options->command = words.Command();
    Run(*options);
  });
}

}  // namespace qvx::tool
