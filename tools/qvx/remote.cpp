#include "remote.h"

#include <qvx/md5.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <charconv>

#include "command.h"
#include "text.h"

namespace qvx::tool {
namespace {

// Both sides give zeros for an empty file.
constexpr const char* kEmptyDigest = "d41d8cd98f00b204e9800998ecf8427e";

bool Contains(const std::vector<std::u16string>& names, const std::u16string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

HostPort ParseHostPort(const std::string& text) {
  HostPort result;
  const std::size_t colon = text.find(':');
  result.host = text.substr(0, colon);
  if (result.host.empty()) throw CommandError("no host in \"" + text + "\"");
  if (colon == std::string::npos) return result;
  const char* begin = text.data() + colon + 1;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(begin, end, result.port);
  if (error != std::errc() || stop != end || result.port == 0)
    throw CommandError("no port between 1 and 65535 in \"" + text + "\"");
  return result;
}

void AddRemoteOptions(CLI::App& command, RemoteOptions& options) {
  command.add_option("SERVER", options.server, "host or host:port of a server")->required();
  command
      .add_option("--folder", options.folder,
                  "Remote paths are below the server's folder of this number")
      ->check(CLI::NonNegativeNumber);
}

Remote::Remote(const RemoteOptions& options) {
  const HostPort server = ParseHostPort(options.server);
  if (client_.Create(server.host.c_str(), server.port, "qvx") != 1) {
    throw CommandError("cannot connect to " + server.host + ":" + std::to_string(server.port));
  }
  if (options.folder < 0) return;
  std::array<WCHAR, SOCKET_FILE_PATH_UNITS> path{};
  client_.GetFolderPath(options.folder, path.data());
  if (path[0] == 0)
    throw CommandError("the server has no folder " + std::to_string(options.folder));
  base_ = NativePath(path.data());
}

std::u16string Remote::Path(const std::string& native) const {
  return LibraryPath(base_.empty() ? native : JoinNative(base_, native));
}

EntryKind Remote::Ask(const std::u16string& path) {
  const std::u16string name = NameOf(path);
  if (name.empty()) return EntryKind::kFolder;
  std::uint64_t size = 0;
  if (Size(path, size)) return EntryKind::kFile;
  const Listing around = List(ParentOf(path));
  if (Contains(around.folders, name)) return EntryKind::kFolder;
  const Listing inside = List(path);
  if (!inside.folders.empty() || !inside.files.empty()) return EntryKind::kFolder;
  return Contains(around.files, name) ? EntryKind::kFile : EntryKind::kNone;
}

Listing Remote::List(const std::u16string& path) {
  CBaseStringW folders;
  CBaseStringW files;
  client_.GetFolderList(path.c_str(), &folders, &files);
  RequireConnection();
  Listing result{SplitList(folders.GetString()), SplitList(files.GetString())};
  std::sort(result.folders.begin(), result.folders.end());
  std::sort(result.files.begin(), result.files.end());
  return result;
}

bool Remote::Size(const std::u16string& path, std::uint64_t& size) {
  const bool opened = client_.OpenFile(path.c_str(), u"rb") == 1;
  RequireConnection();
  if (!opened) return false;
  size = client_.GetFileSize();
  client_.CloseFile();
  RequireConnection();
  return true;
}

std::string Remote::Digest(const std::u16string& path) {
  std::array<unsigned char, 16> digest{};
  if (client_.GetFileMD5(path.c_str(), digest.data()) != 1)
    throw CommandError("the server sent no MD5 of " + NativePath(path));
  RequireConnection();
  if (digest != std::array<unsigned char, 16>{}) return DigestText(digest.data());
  std::uint64_t size = 0;
  if (!Size(path, size)) throw CommandError("no such file on the server: " + NativePath(path));
  return kEmptyDigest;
}

void Remote::RequireConnection() {
  if (client_.IsConnect() != 1) throw CommandError("the connection to the server was lost");
}

std::string LocalDigest(const std::string& native) {
  std::array<unsigned char, 16> digest{};
  GetFileMD5(LibraryPath(native).c_str(), digest.data());
  return digest == std::array<unsigned char, 16>{} ? kEmptyDigest : DigestText(digest.data());
}

std::u16string ParentOf(const std::u16string& path) {
  const std::size_t separator = path.rfind(u'\\');
  return separator == std::u16string::npos ? std::u16string() : path.substr(0, separator);
}

std::u16string NameOf(const std::u16string& path) {
  const std::size_t separator = path.rfind(u'\\');
  if (separator != std::u16string::npos) return path.substr(separator + 1);
  return path == u"C:" ? std::u16string() : path;
}

}  // namespace qvx::tool
