#include "netfile/copy_paths.h"

#include <algorithm>

#include "platform/path.h"
#include "platform/random.h"

namespace qvx::netfile {

namespace {

std::u16string_view FolderOf(std::u16string_view path) {
  if (!path.empty() && platform::IsSeparator(path.back())) path.remove_suffix(1);
  auto last = std::find_if(path.rbegin(), path.rend(), platform::IsSeparator<char16_t>);
  if (last == path.rend()) return {};
  return path.substr(0, static_cast<std::size_t>(path.rend() - last) - 1);
}

std::u16string TemporaryName() {
  std::string characters = platform::RandomName(10);
  return u"FileCopy_" + std::u16string(characters.begin(), characters.end()) + u".tmp";
}

}  // namespace

std::optional<std::u16string> TemporaryBeside(std::u16string_view destination) {
  std::u16string folder(FolderOf(destination));
  // The root of a path without a drive, which would else count as no folder at all.
  if (folder.empty() && !destination.empty() && platform::IsSeparator(destination.front()))
    folder = destination.front();
  return ChildPath(folder, TemporaryName());
}

std::optional<std::u16string> ChildPath(const std::u16string& folder, const std::u16string& name) {
  return platform::JoinPath(folder.c_str(), name.c_str());
}

bool IsPlainName(std::u16string_view name) {
  return !name.empty() && name != u"." && name != u".." &&
         name.find_first_of(u"\\/:") == std::u16string_view::npos;
}

bool FitsPath(std::u16string_view path) {
  return path.size() <= platform::kPathLimit;
}

}  // namespace qvx::netfile
