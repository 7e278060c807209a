// Threads of processes as /proc shows them.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace qvx::platform {

struct ThreadFigures {
  std::uint64_t user_ms = 0;
  std::uint64_t kernel_ms = 0;
  int priority = 0;  // as the scheduler counts: 20 is that of an ordinary thread
  int nice = 0;
};

// Ids in the system's order; empty if the process is gone.
std::vector<std::uint32_t> ThreadIds(std::uint32_t process);

// None if this process has no such thread.
std::optional<ThreadFigures> FiguresOfThread(std::uint32_t thread);

}  // namespace qvx::platform
