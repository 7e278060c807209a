#include "platform/thread_info.h"

#include <dirent.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <memory>
#include <sstream>
#include <string>

#include "platform/file.h"

namespace qvx::platform {
namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

// /proc tells no size, so it is read to its end.
std::string ReadAll(const std::string& path) {
  File file;
  std::array<char, 1024> buffer;
  if (!file.OpenNative(path, OpenMode::Read())) return {};
  return {buffer.data(), file.ReadAt(0, buffer.data(), buffer.size()).count};
}

}  // namespace

std::vector<std::uint32_t> ThreadIds(std::uint32_t process) {
  std::vector<std::uint32_t> ids;
  const std::string path = "/proc/" + std::to_string(process) + "/task";
  const std::unique_ptr<DIR, CloseFolder> folder(opendir(path.c_str()));
  while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
    const std::string_view name(entry->d_name);
    std::uint32_t id = 0;
    if (std::from_chars(name.begin(), name.end(), id).ec == std::errc()) ids.push_back(id);
  }
  return ids;
}

// The fields behind the name, which may hold blanks and brackets of its own.
std::optional<ThreadFigures> FiguresOfThread(std::uint32_t thread) {
  const std::string text = ReadAll("/proc/self/task/" + std::to_string(thread) + "/stat");
  const std::size_t name_end = text.rfind(')');
  if (name_end == std::string::npos) return std::nullopt;
  std::istringstream fields(text.substr(name_end + 1));
  fields.imbue(std::locale::classic());
  std::string skipped;
  for (int field = 3; field < 14; ++field) fields >> skipped;
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
