#include "platform/proc_files.h"

#include <dirent.h>

#include <array>
#include <charconv>
#include <memory>

#include "platform/file.h"

namespace qvx::platform {
namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

}  // namespace

std::optional<std::uint32_t> ProcNumber(std::string_view text) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::vector<std::uint32_t> ProcIds(const std::string& folder) {
  std::vector<std::uint32_t> ids;
  const std::unique_ptr<DIR, CloseFolder> opened(opendir(folder.c_str()));
  if (opened == nullptr) return ids;
  while (const dirent* entry = readdir(opened.get())) {
    if (const auto id = ProcNumber(entry->d_name)) ids.push_back(*id);
  }
  return ids;
}

std::string ProcStatFields(const std::string& path) {
  File file;
  std::array<char, 1024> buffer;
  if (!file.OpenNative(path, OpenMode::Read())) return {};
  const std::string text(buffer.data(), file.ReadAt(0, buffer.data(), buffer.size()).count);
  const std::size_t name_end = text.rfind(')');
  return name_end == std::string::npos ? std::string() : text.substr(name_end + 1);
}

}  // namespace qvx::platform
