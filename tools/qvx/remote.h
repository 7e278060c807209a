// A connection to a file server, with the questions that several commands ask of it.
#pragma once

#include <qvx/socket_file_client.h>

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qvx::tool {

constexpr std::uint16_t kDefaultPort = 7447;

struct HostPort {
  std::string host;
  std::uint16_t port = kDefaultPort;
};

// "host" or "host:port". Throws CommandError for anything else.
HostPort ParseHostPort(const std::string& text);

// What every command that talks to a server is told.
struct RemoteOptions {
  std::string server;
  int folder = -1;
};

void AddRemoteOptions(CLI::App& command, RemoteOptions& options);

struct Listing {
  std::vector<std::u16string> folders;
  std::vector<std::u16string> files;
};

enum class EntryKind { kNone, kFile, kFolder };

class Remote {
 public:
  // Connects. Throws CommandError where nobody answers.
  explicit Remote(const RemoteOptions& options);
  ~Remote() { client_.Close(); }
  Remote(const Remote&) = delete;
  Remote& operator=(const Remote&) = delete;

  CSocketFileClient& Client() { return client_; }

  // The server's path of what the user wrote, below the chosen folder if there is one.
  std::u16string Path(const std::string& native) const;

  // What a path names on the server. A hidden folder that shows nothing counts as none: the
  // service has no request that would tell.
  EntryKind Ask(const std::u16string& path);
  Listing List(const std::u16string& path);
  // False if the server can't open the file.
  bool Size(const std::u16string& path, std::uint64_t& size);
  // Hexadecimal digits. Throws where there is no such file.
  std::string Digest(const std::u16string& path);

  // Throws CommandError if the connection has ended.
  void RequireConnection();

 private:
  std::string base_;  // native path of the chosen folder, or empty
  CSocketFileClient client_;
};

// The same of a local file, which must exist.
std::string LocalDigest(const std::string& native);

// The folder part and the last element of a path in the library's form.
std::u16string ParentOf(const std::u16string& path);
std::u16string NameOf(const std::u16string& path);

}  // namespace qvx::tool
