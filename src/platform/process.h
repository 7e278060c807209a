// Other processes: what /proc tells of them, ending one, and starting a child. A process may end
// while it is looked at; then there is nothing to tell. All paths are native.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace qvx::platform {

std::vector<std::uint32_t> ProcessIds();
std::optional<std::uint32_t> ParentOf(std::uint32_t process);

// The file that a process runs, under the name that it was started from if it was deleted since.
// Nothing for kernel threads, for processes of others, and for those that have gone.
std::optional<std::string> ProgramOf(std::uint32_t process);
// Of this process. Open it to look at the program itself, which may have lost its name.
const char* OwnProgramLink();

// Ends a process at once if still_meant says so: it is asked when the process can no longer be
// confused with a later one of the same number.
bool EndProcess(std::uint32_t process, const std::function<bool(std::uint32_t)>& still_meant);

// A child process with default signal mask and dispositions, none of our descriptors beyond the
// standard ones, and its outputs in one pipe or nowhere.
class ChildProcess {
 public:
  ChildProcess() = default;
  // Waits for a child that Wait was not called for, without reading what it writes.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // The first argument is a program, sought in PATH if it has no "/". False with errno set if it
  // can't be started; nothing is left then.
  bool Start(const std::vector<std::string>& arguments, bool reads_output);

  // Waits for output; 0 at its end, which comes when no process holds it any more.
  std::size_t Read(void* data, std::size_t size);

  // Waits for the child's end. Its exit code, 128 + n after signal n; nothing if the host has the
  // system forget its children.
  std::optional<std::uint32_t> Wait();

 private:
  pid_t child_ = -1;
  int output_ = -1;
};

// The program and arguments of a command line: words divided by blanks; a backslash takes away
// the meaning of the next character, "..." and '...' that of blanks, and '...' that of
// backslashes too. The text may be anything.
std::vector<std::string> SplitCommandLine(const std::string& line);
// The program and arguments that have the system's shell run a command.
std::vector<std::string> ShellCommand(const std::string& command);

}  // namespace qvx::platform
