#include "archive/full_path.h"

#include <string_view>

#include "platform/path.h"

namespace qvx::archive {

std::optional<std::string> FullPath(const char* path) {
  const std::string_view text = path == nullptr ? std::string_view() : std::string_view(path);
  const std::optional<std::string> native = platform::ToNativePath(text);
  std::optional<std::string> full = native ? platform::AbsolutePath(*native) : std::nullopt;
  if (!full) return std::nullopt;
  const std::string library = LibraryForm(*full);
  if (library.empty() || library.size() > platform::kPathLimit) return std::nullopt;
  return full;
}

std::string FolderPart(const std::string& native) {
  return native.substr(0, native.rfind('/') + 1);
}

std::string WithoutExtension(const std::string& native) {
  const std::size_t name = native.rfind('/') + 1;
  const std::size_t point = native.rfind('.');
  return point == std::string::npos || point < name ? native : native.substr(0, point);
}

std::string WithoutSeparators(std::string native) {
  while (native.size() > 1 && native.back() == '/') native.pop_back();
  return native;
}

std::string LibraryForm(const std::string& native) {
  return platform::FromNativePath<char>(native).value_or(std::string());
}

}  // namespace qvx::archive
