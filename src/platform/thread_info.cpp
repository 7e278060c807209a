#include "platform/thread_info.h"

#include <unistd.h>

#include <locale>
#include <sstream>
#include <string>

#include "platform/proc_files.h"

namespace qvx::platform {

std::vector<std::uint32_t> ThreadIds(std::uint32_t process) {
  return ProcIds("/proc/" + std::to_string(process) + "/task");
}

std::optional<ThreadFigures> FiguresOfThread(std::uint32_t thread) {
  constexpr int kFieldsBeforeTimes = 11;
  std::istringstream fields(ProcStatFields("/proc/self/task/" + std::to_string(thread) + "/stat"));
  fields.imbue(std::locale::classic());
  std::string skipped;
  for (int i = 0; i < kFieldsBeforeTimes; ++i) fields >> skipped;
  std::uint64_t user = 0;
  std::uint64_t kernel = 0;
  ThreadFigures figures;
  fields >> user >> kernel >> skipped >> skipped >> figures.priority >> figures.nice;
  if (!fields) return std::nullopt;
  const auto ticks = static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
  figures.user_ms = user * 1000 / ticks;
  figures.kernel_ms = kernel * 1000 / ticks;
  return figures;
}

}  // namespace qvx::platform
