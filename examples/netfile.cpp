// A file server and a file client in one process: a file is uploaded, read in part, digested,
// listed and removed again.
#include <qvx/base_string.h>
#include <qvx/hex_text.h>
#include <qvx/platform.h>
#include <qvx/socket_file_client.h>
#include <qvx/socket_file_copy.h>
#include <qvx/socket_file_server.h>

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

// The service has no log-in: this machine only.
class LocalServer : public CSocketFileServer {
 public:
  ~LocalServer() override { Close(); }

 protected:
  std::uint64_t SocketCreate(unsigned short port) override { return ListenOn("127.0.0.1", port); }
};

// The library writes C:\a\b for /a/b.
std::u16string LibraryPath(const std::string& native) {
  CBaseStringW path;
  NativePathToLibraryW(native.c_str(), &path);
  return path.GetString();
}

bool Show(CSocketFileClient& client, const std::string& folder) {
  const std::u16string remote = LibraryPath(folder + "/remote.txt");
  if (SocketFileCopyToServer(&client, LibraryPath(folder + "/local.txt").c_str(), remote.c_str(),
                             10000, nullptr, 0) != 1)
    return false;

  char text[6] = {};
  client.OpenFile(remote.c_str(), u"rb");
  client.ReadFile(7, text, 5, 10000);
  std::printf("%llu bytes, from 7 on: %s\n", static_cast<unsigned long long>(client.GetFileSize()),
              text);
  client.CloseFile();

  unsigned char digest[16] = {};
  CBaseStringA digits;
  client.GetFileMD5(remote.c_str(), digest);
  BufferToHexStringA(digest, 16, 0, 0, &digits);
  CBaseStringW files;
  client.GetFolderList(LibraryPath(folder).c_str(), nullptr, &files);
  std::printf("MD5 %s; files: %s\n", digits.GetString(), CBaseStringA(&files).GetString());
  client.DeleteFileW(remote.c_str());
  return std::string(text) == "world" && digits.Equal("3adbbad1791fbae3ec908894c4963870") == 1 &&
         files.Find(u"remote.txt") >= 0;
}

}  // namespace

int main() {
  std::string folder = (std::filesystem::temp_directory_path() / "qvx_example_XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) return 1;
  std::ofstream(folder + "/local.txt") << "hello, world!";

  LocalServer server;
  CSocketFileClient client;
  const bool shown = server.Create(0, "example") == 1 &&
                     client.Create("127.0.0.1", server.GetServerPort(), "example") == 1 &&
                     Show(client, folder);
  client.Close();
  std::filesystem::remove_all(folder);
  return shown ? 0 : 1;
}
