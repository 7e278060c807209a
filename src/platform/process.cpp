#include "platform/process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include "platform/proc_files.h"
#include "platform/seam.h"

namespace qvx::platform {
namespace {

constexpr std::uint32_t kSignalBase = 128;

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int Number() const { return number_; }
  int Release() { return std::exchange(number_, -1); }

 private:
  int number_;
};

std::string ProcPath(std::uint32_t process, const char* name) {
  return "/proc/" + std::to_string(process) + "/" + name;
}

std::optional<std::string> ReadLink(const std::string& path) {
  std::array<char, 4097> target;  // longer than any that the system hands out
  const ssize_t count = readlink(path.c_str(), target.data(), target.size());
  if (count <= 0) return std::nullopt;
  return std::string(target.data(), static_cast<std::size_t>(count));
}

// -1 where the system has no such descriptors.
int OpenProcess(std::uint32_t process) {
  return static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(process), 0u));
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

class Attributes {
 public:
  Attributes() {
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_init(&attributes_);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~Attributes() { posix_spawnattr_destroy(&attributes_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  const posix_spawnattr_t* Get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

class Actions {
 public:
  // Both outputs to the descriptor, or nowhere if it is none.
  explicit Actions(int output) {
    posix_spawn_file_actions_init(&actions_);
    if (output >= 0) {
      Keep(posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO));
    } else {
      Keep(posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0));
    }
    Keep(posix_spawn_file_actions_adddup2(&actions_, STDOUT_FILENO, STDERR_FILENO));
    Keep(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
  }
  ~Actions() { posix_spawn_file_actions_destroy(&actions_); }
  Actions(const Actions&) = delete;
  Actions& operator=(const Actions&) = delete;
  int Error() const { return error_; }
  const posix_spawn_file_actions_t* Get() const { return &actions_; }

 private:
  void Keep(int error) {
    if (error_ == 0) error_ = error;
  }

  posix_spawn_file_actions_t actions_;
  int error_ = 0;
};

int Spawn(std::vector<std::string> arguments, int output, pid_t& child) {
  const Attributes attributes;
  const Actions actions(output);
  if (actions.Error() != 0) return actions.Error();
  const std::vector<char*> pointers = Pointers(arguments);
  return posix_spawnp(&child, pointers[0], actions.Get(), attributes.Get(), pointers.data(),
                      environ);
}

bool HasNul(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

// Cuts one word at a time off a command line.
class WordReader {
 public:
  explicit WordReader(std::string_view line) : rest_(line) {}

  std::optional<std::string> Next() {
    while (!rest_.empty() && IsBlank(rest_.front())) rest_.remove_prefix(1);
    if (rest_.empty()) return std::nullopt;
    std::string word;
    char quote = 0;
    while (!rest_.empty() && (quote != 0 || !IsBlank(rest_.front()))) Step(word, quote);
    return word;
  }

 private:
  static bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

  char Take() {
    const char c = rest_.front();
    rest_.remove_prefix(1);
    return c;
  }

  void Step(std::string& word, char& quote) {
    const char c = Take();
    if (c == quote) {
      quote = 0;
    } else if (quote == 0 && (c == '"' || c == '\'')) {
      quote = c;
    } else if (c == '\\' && quote != '\'' && !rest_.empty()) {
      TakeEscaped(word, quote);
    } else {
      word += c;
    }
  }

  // Between double quotes a backslash stands for itself, but before one of its own kind.
  void TakeEscaped(std::string& word, char quote) {
    const char c = rest_.front();
    if (quote == '"' && c != '"' && c != '\\') {
      word += '\\';
      return;
    }
    word += c;
    rest_.remove_prefix(1);
  }

  std::string_view rest_;
};

}  // namespace

std::vector<std::uint32_t> ProcessIds() {
  return ProcIds("/proc");
}

// The field behind the state.
std::optional<std::uint32_t> ParentOf(std::uint32_t process) {
  const std::string fields = ProcStatFields(ProcPath(process, "stat"));
  const std::size_t state = fields.find(' ', 1);
  const std::size_t end = state == std::string::npos ? state : fields.find(' ', state + 1);
  if (end == std::string::npos) return std::nullopt;
  return ProcNumber(std::string_view(fields).substr(state + 1, end - state - 1));
}

std::optional<std::string> ProgramOf(std::uint32_t process) {
  constexpr std::string_view kDeleted = " (deleted)";
  const std::string link = ProcPath(process, "exe");
  std::optional<std::string> program = ReadLink(link);
  if (!program || !program->ends_with(kDeleted)) return program;
  struct stat status {};
  if (stat(link.c_str(), &status) == 0 && status.st_nlink == 0) {
    program->resize(program->size() - kDeleted.size());
  }
  return program;
}

const char* OwnProgramLink() {
  return "/proc/self/exe";
}

bool EndProcess(std::uint32_t process, const std::function<bool(std::uint32_t)>& still_meant) {
  if (process == 0 || process > INT32_MAX) return false;
  const Descriptor descriptor(OpenProcess(process));
  if (descriptor.Number() < 0 && errno != ENOSYS) return false;
  if (!still_meant(process)) return false;
  if (descriptor.Number() < 0) return kill(static_cast<pid_t>(process), SIGKILL) == 0;
  return syscall(SYS_pidfd_send_signal, descriptor.Number(), SIGKILL, nullptr, 0u) == 0;
}

ChildProcess::~ChildProcess() {
  if (output_ >= 0) close(output_);
  Wait();
}

bool ChildProcess::Start(const std::vector<std::string>& arguments, bool reads_output) {
  const bool impossible = arguments.empty() || arguments[0].empty() ||
                          std::any_of(arguments.begin(), arguments.end(), &HasNul);
  if (impossible) {
    errno = EINVAL;
    return false;
  }
  if (SeamFails(Operation::kFork)) return false;
  int ends[2] = {-1, -1};
  if (reads_output && pipe2(ends, O_CLOEXEC) != 0) return false;
  Descriptor output(ends[0]);
  const Descriptor input(ends[1]);
  if (const int error = Spawn(arguments, input.Number(), child_)) {
    child_ = -1;
    errno = error;
    return false;
  }
  output_ = output.Release();
  return true;
}

std::size_t ChildProcess::Read(void* data, std::size_t size) {
  if (output_ < 0) return 0;
  const ssize_t count = TEMP_FAILURE_RETRY(read(output_, data, size));
  return count > 0 ? static_cast<std::size_t>(count) : 0;
}

std::optional<std::uint32_t> ChildProcess::Wait() {
  if (child_ < 0) return std::nullopt;
  int status = 0;
  const pid_t child = std::exchange(child_, -1);
  if (TEMP_FAILURE_RETRY(waitpid(child, &status, 0)) < 0) return std::nullopt;
  if (WIFSIGNALED(status)) return kSignalBase + static_cast<std::uint32_t>(WTERMSIG(status));
  return static_cast<std::uint32_t>(WEXITSTATUS(status));
}

std::vector<std::string> SplitCommandLine(const std::string& line) {
  std::vector<std::string> words;
  WordReader reader(line);
  while (std::optional<std::string> word = reader.Next()) words.push_back(std::move(*word));
  return words;
}

std::vector<std::string> ShellCommand(const std::string& command) {
  return {"/bin/sh", "-c", command};
}

}  // namespace qvx::platform
