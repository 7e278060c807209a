#include "text.h"

#include <qvx/file_data.h>
#include <qvx/hex_text.h>
#include <qvx/platform.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "command.h"

namespace qvx::tool {
namespace {

constexpr int kLongestPath = 259;

std::string WithoutTrailingSeparators(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

std::u16string LibraryPath(const std::string& native) {
  if (native.empty()) throw CommandError("an empty path names nothing");
  CBaseStringW path;
  NativePathToLibraryW(WithoutTrailingSeparators(native).c_str(), &path);
  if (path.GetLength() > kLongestPath)
    throw CommandError("the path is too long (259 characters is the most): " + native);
  return path.GetString();
}

std::string NativePath(std::u16string_view path) {
  CBaseStringA native;
  LibraryPathToNativeW(std::u16string(path).c_str(), &native);
  return native.GetString();
}

std::string JoinNative(const std::string& folder, const std::string& name) {
  if (folder.empty() || folder.back() == '/') return folder + name;
  return folder + "/" + name;
}

std::string BaseName(const std::string& native) {
  const std::string path = WithoutTrailingSeparators(native);
  return path.substr(path.rfind('/') + 1);
}

std::vector<std::u16string> SplitList(std::u16string_view list) {
  std::vector<std::u16string> names;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(u';'), list.size());
    if (end > 0) names.emplace_back(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return names;
}

std::uint64_t FolderBytes(const std::string& native) {
  namespace fs = std::filesystem;
  std::uint64_t total = 0;
  std::error_code error;
  auto entry = fs::recursive_directory_iterator(
      native, fs::directory_options::skip_permission_denied, error);
  for (; !error && entry != fs::end(entry); entry.increment(error)) {
    if (entry->path().filename().native().front() == '.') entry.disable_recursion_pending();
    std::error_code unknown;
    const bool counts =
        entry->path().filename().native().front() != '.' && entry->is_regular_file(unknown);
    const std::uint64_t size = counts ? entry->file_size(unknown) : 0;
    if (!unknown) total += size;
  }
  return total;
}

std::string SizeText(std::uint64_t bytes) {
  if (bytes < 1024) return CountText(bytes, "byte");
  CBaseStringA text;
  FormatFileSizeA(bytes, &text);
  return std::string(text.GetString()) + "iB";
}

std::string RateText(std::uint64_t bytes, double seconds) {
  if (seconds <= 0) return "-";
  return SizeText(static_cast<std::uint64_t>(static_cast<double>(bytes) / seconds)) + "/s";
}

std::string DurationText(double seconds) {
  constexpr double kLongest = 359999;  // 99:59:59
  const auto whole = static_cast<unsigned>(std::clamp(seconds + 0.5, 0.0, kLongest));
  std::array<char, 32> text;
  if (whole >= 3600) {
    std::snprintf(text.data(), text.size(), "%u:%02u:%02u", whole / 3600, whole / 60 % 60,
                  whole % 60);
  } else {
    std::snprintf(text.data(), text.size(), "%u:%02u", whole / 60, whole % 60);
  }
  return text.data();
}

std::string DigestText(const unsigned char* digest) {
  CBaseStringA text;
  BufferToHexStringA(digest, 16, 0, 0, &text);
  return text.GetString();
}

std::string CountText(std::uint64_t count, const char* thing) {
  std::string text = std::to_string(count) + " " + thing;
  if (count == 1) return text;
  if (text.back() != 'y') return text + "s";
  text.pop_back();
  return text + "ies";
}

}  // namespace qvx::tool
