#include "support/fork_child.h"

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace qvx::test {
namespace {

// The state follows the name in parentheses.
bool Rests(const std::filesystem::path& task) {
  std::ifstream file(task / "stat");
  const std::string stat{std::istreambuf_iterator<char>(file), {}};
  const std::size_t name_end = stat.rfind(')');
  return name_end == std::string::npos || stat.compare(name_end, 3, ") S") == 0;
}

[[maybe_unused]] bool OtherThreadsRest() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return std::all_of(begin(tasks), end(tasks), [](const std::filesystem::directory_entry& task) {
    return task.path().filename() == std::to_string(gettid()) || Rests(task.path());
  });
}

}  // namespace

pid_t Fork() {
#if defined(__SANITIZE_ADDRESS__)
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!OtherThreadsRest() && std::chrono::steady_clock::now() < limit) sched_yield();
#endif
  return fork();
}

bool EndedWell(pid_t child) {
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

bool HoldsInChild(const std::function<bool()>& check) {
  const pid_t child = Fork();
  if (child == 0) {
    alarm(60);
    _exit(check() ? 0 : 1);
  }
  return EndedWell(child);
}

}  // namespace qvx::test
