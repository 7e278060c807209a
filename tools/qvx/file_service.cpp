#include "file_service.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "command.h"
#include "text.h"

namespace qvx::tool {
namespace {

// A record of the protocol, copied out of a packet that is long enough for it.
template <typename Record>
bool ReadRecord(const unsigned char* data, int size, Record& record) {
  if (static_cast<std::size_t>(size) < sizeof(Record)) return false;
  std::memcpy(&record, data, sizeof(Record));
  return true;
}

template <std::size_t kUnits>
std::u16string Text(const WCHAR (&field)[kUnits]) {
  return std::u16string(field, std::find(field, field + kUnits - 1, u'\0'));
}

std::string PathWords(const char* verb, const unsigned char* data, int size) {
  tagSOCKETFILEREQPATH request;
  if (!ReadRecord(data, size, request)) return std::string(verb) + " (short record)";
  return std::string(verb) + " " + NativePath(Text(request.szPath));
}

std::string OpenWords(const unsigned char* data, int size) {
  tagSOCKETFILEREQOPEN request;
  if (!ReadRecord(data, size, request)) return "open (short record)";
  return "open " + NativePath(Text(request.szPath)) + " " + NativePath(Text(request.szMode));
}

std::string RenameWords(const unsigned char* data, int size) {
  tagSOCKETFILEREQRENAME request;
  if (!ReadRecord(data, size, request)) return "rename (short record)";
  return "rename " + NativePath(Text(request.szPath)) + " to " +
         NativePath(Text(request.szNewPath));
}

std::string HandleWords(const char* verb, const unsigned char* data, int size) {
  tagSOCKETFILEREQHANDLE request;
  if (!ReadRecord(data, size, request)) return std::string(verb) + " (short record)";
  return std::string(verb) + " #" + std::to_string(request.nFileHandle);
}

std::string RangeWords(const char* verb, const unsigned char* data, int size) {
  tagSOCKETFILEREQRANGE request;
  if (!ReadRecord(data, size, request)) return std::string(verb) + " (short record)";
  return HandleWords(verb, data, size) + ", " + std::to_string(request.nSize) + " bytes at " +
         std::to_string(request.nOffset);
}

std::string FolderWords(const unsigned char* data, int size) {
  tagSOCKETFILEREQFOLDERPATH request;
  if (!ReadRecord(data, size, request)) return "folder path (short record)";
  return "folder path " + std::to_string(request.nFolderID);
}

std::string RequestWords(const unsigned char* data, int size) {
  tagSOCKETFILEHEADER header;
  if (!ReadRecord(data, size, header))
    return "unknown record of " + std::to_string(size) + " bytes";
  switch (header.nCommand) {
    case SOCKET_FILE_REQ_FOLDERPATH:
      return FolderWords(data, size);
    case SOCKET_FILE_REQ_OPEN:
      return OpenWords(data, size);
    case SOCKET_FILE_REQ_CLOSE:
      return HandleWords("close", data, size);
    case SOCKET_FILE_REQ_DELETE:
      return PathWords("delete", data, size);
    case SOCKET_FILE_REQ_RENAME:
      return RenameWords(data, size);
    case SOCKET_FILE_REQ_GETSIZE:
      return HandleWords("size", data, size);
    case SOCKET_FILE_REQ_READ:
      return RangeWords("read", data, size);
    case SOCKET_FILE_REQ_WRITE:
      return RangeWords("write", data, size);
    case SOCKET_FILE_REQ_GETMD5:
      return PathWords("md5", data, size);
    case SOCKET_FILE_REQ_GETFOLDERLIST:
      return PathWords("list", data, size);
    case SOCKET_FILE_REQ_MKDIR:
      return PathWords("make folder", data, size);
    case SOCKET_FILE_REQ_RMDIR:
      return PathWords("empty folder", data, size);
    default:
      return "unknown command " + std::to_string(header.nCommand);
  }
}

// "FileCopy_", ten characters, ".tmp": how copies name a file until it is complete.
bool IsUploadName(const std::u16string& path) {
  constexpr std::u16string_view kBegin = u"FileCopy_";
  constexpr std::u16string_view kEnd = u".tmp";
  const std::u16string name = path.substr(path.rfind(u'\\') + 1);
  return name.size() == kBegin.size() + 10 + kEnd.size() &&
         name.compare(0, kBegin.size(), kBegin) == 0 &&
         name.compare(name.size() - kEnd.size(), kEnd.size(), kEnd) == 0;
}

}  // namespace

FileService::FileService(ServiceRules rules) : rules_(std::move(rules)) {
  SetFolderPathInterface(this, 0);
}

FileService::~FileService() {
  Close();
}

void FileService::Start() {
  if (Create(rules_.port, "qvx") == 1) return;
  throw CommandError("cannot listen on " + rules_.address + ":" + std::to_string(rules_.port));
}

std::uint64_t FileService::SocketCreate(unsigned short port) {
  return ListenOn(rules_.address.c_str(), port);
}

int FileService::OnServerAcceptClient(std::uint64_t, tagCLIENTSOCKETINFO* client) {
  Tell(client, "connected");
  return 1;
}

int FileService::OnServerReceiveData(std::uint64_t user_data, tagCLIENTSOCKETINFO* client,
                                     const unsigned char* data, int size) {
  if (rules_.tells_requests) Tell(client, RequestWords(data, size));
  WatchUploads(client->nSocketFD, data, size);
  return CSocketFileServer::OnServerReceiveData(user_data, client, data, size);
}

void FileService::OnServerCloseClient(std::uint64_t user_data, tagCLIENTSOCKETINFO* client) {
  CSocketFileServer::OnServerCloseClient(user_data, client);
  std::vector<std::u16string> left;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    for (auto upload = uploads_.begin(); upload != uploads_.end();) {
      if (upload->second != client->nSocketFD) {
        ++upload;
        continue;
      }
      left.push_back(upload->first);
      upload = uploads_.erase(upload);
    }
  }
  for (const std::u16string& path : left) {
    std::error_code ignored;
    std::filesystem::remove(NativePath(path), ignored);
    Tell(client, "left an upload unfinished; removed " + NativePath(path));
  }
  Tell(client, "disconnected");
}

void FileService::WatchUploads(std::uint64_t client, const unsigned char* data, int size) {
  tagSOCKETFILEHEADER header;
  if (!ReadRecord(data, size, header)) return;
  tagSOCKETFILEREQOPEN open;
  tagSOCKETFILEREQPATH path;
  const std::lock_guard<std::mutex> guard(mutex_);
  if (header.nCommand == SOCKET_FILE_REQ_OPEN && ReadRecord(data, size, open)) {
    const std::u16string name = Text(open.szPath);
    if (open.szMode[0] == u'w' && IsUploadName(name)) uploads_.emplace(name, client);
  }
  const bool ends =
      header.nCommand == SOCKET_FILE_REQ_RENAME || header.nCommand == SOCKET_FILE_REQ_DELETE;
  if (ends && ReadRecord(data, size, path)) uploads_.erase(Text(path.szPath));
}

void FileService::OnGetFolderPath(std::int32_t number, WCHAR* path, std::uint64_t) {
  const auto folder = rules_.folders.find(number);
  const std::u16string text =
      folder == rules_.folders.end() ? std::u16string() : LibraryPath(folder->second);
  std::copy(text.c_str(), text.c_str() + text.size() + 1, path);
}

void FileService::Tell(const tagCLIENTSOCKETINFO* client, const std::string& text) const {
  if (!rules_.tell) return;
  rules_.tell(std::string(client->strIPAddr.GetString()) + ":" + std::to_string(client->nPort) +
              " " + text);
}

}  // namespace qvx::tool
