// The file server of the tool: listens on one address, names its folders, tells about its
// clients, and removes what an upload that broke off has left.
#pragma once

#include <qvx/socket_file_server.h>

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace qvx::tool {

struct ServiceRules {
  std::string address = "127.0.0.1";
  std::uint16_t port = 0;                       // 0 takes a free one
  std::map<std::int32_t, std::string> folders;  // number to native path
  bool tells_requests = false;
  std::function<void(const std::string&)> tell;  // one line; called from several threads
};

class FileService : public CSocketFileServer, private IServerFolderPathInterface {
 public:
  explicit FileService(ServiceRules rules);
  ~FileService() override;

  // Throws CommandError where it can't listen.
  void Start();

  int OnServerAcceptClient(std::uint64_t user_data, tagCLIENTSOCKETINFO* client) override;
  int OnServerReceiveData(std::uint64_t user_data, tagCLIENTSOCKETINFO* client,
                          const unsigned char* data, int size) override;
  void OnServerCloseClient(std::uint64_t user_data, tagCLIENTSOCKETINFO* client) override;

 protected:
  std::uint64_t SocketCreate(unsigned short port) override;

 private:
  void OnGetFolderPath(std::int32_t number, WCHAR* path, std::uint64_t context) override;
  void Tell(const tagCLIENTSOCKETINFO* client, const std::string& text) const;
  void WatchUploads(std::uint64_t client, const unsigned char* data, int size);

  const ServiceRules rules_;
  std::mutex mutex_;
  // Temporary files of uploads that are neither renamed nor deleted yet, and whose they are.
  std::map<std::u16string, std::uint64_t> uploads_;
};

}  // namespace qvx::tool
