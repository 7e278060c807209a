#include "qvx/socket_file_copy.h"

#include <optional>

#include "netfile/copy_job.h"
#include "netfile/download.h"
#include "netfile/folder_copy.h"
#include "netfile/upload.h"

using qvx::netfile::Copy;
using qvx::netfile::CopyPaths;
using qvx::netfile::Download;
using qvx::netfile::FolderCopy;
using qvx::netfile::Upload;

namespace {

bool Usable(const CSocketFileClient* client, const WCHAR* remote, const WCHAR* local) {
  return client && remote && local;
}

// What a call was given besides its paths. Without flags it keeps the rules of the functions
// that have no result code.
template <typename Listener>
struct Settings {
  CSocketFileClient* client;
  std::uint64_t timeout;
  Listener* listener;
  std::uint64_t user_data;
  std::optional<std::uint32_t> flags = std::nullopt;
  ISocketFileCopyReport* report = nullptr;
};
using FileSettings = Settings<INetFileCopyProgressListener>;
using FolderSettings = Settings<INetFolderCopyProgressListener>;

template <typename Job>
std::int32_t CopyFile(const FileSettings& with, const WCHAR* remote, const WCHAR* local) {
  if (!Usable(with.client, remote, local)) return SOCKET_FILE_COPY_LOCAL_OPEN;
  Copy copy(with.client, with.timeout, with.listener, with.user_data);
  if (with.flags) copy.SetExtended(*with.flags, nullptr);
  {
    Job job(copy, CopyPaths{remote, local});
    job.Run();
  }
  copy.FinishAll();
  return copy.LastResult();
}

int CopyFolder(const FolderSettings& with, void (FolderCopy::*direction)(const CopyPaths&),
               const WCHAR* remote, const WCHAR* local) {
  if (!Usable(with.client, remote, local)) return 0;
  Copy copy(with.client, with.timeout, with.listener, with.user_data);
  if (with.flags) copy.SetExtended(*with.flags, with.report);
  (FolderCopy(copy, with.listener).*direction)({remote, local});
  copy.FinishAll();
  return copy.AllDone() && !copy.Cancelled();
}

}  // namespace

ISocketFileCopyReport::~ISocketFileCopyReport() = default;

extern "C" {

int SocketFileCopyFromServer(CSocketFileClient* client, const WCHAR* remotePath,
                             const WCHAR* localPath, std::uint64_t timeoutMs,
                             INetFileCopyProgressListener* listener, std::uint64_t userData) {
  return CopyFile<Download>({client, timeoutMs, listener, userData}, remotePath, localPath) ==
         SOCKET_FILE_COPY_DONE;
}

int SocketFileCopyToServer(CSocketFileClient* client, const WCHAR* localPath,
                           const WCHAR* remotePath, std::uint64_t timeoutMs,
                           INetFileCopyProgressListener* listener, std::uint64_t userData) {
  return CopyFile<Upload>({client, timeoutMs, listener, userData}, remotePath, localPath) ==
         SOCKET_FILE_COPY_DONE;
}

void SocketFolderCopyFromServer(CSocketFileClient* client, const WCHAR* remoteFolder,
                                const WCHAR* localFolder, std::uint64_t timeoutMs,
                                INetFolderCopyProgressListener* listener, std::uint64_t userData) {
  CopyFolder({client, timeoutMs, listener, userData}, &FolderCopy::FromServer, remoteFolder,
             localFolder);
}

void SocketFolderCopyToServer(CSocketFileClient* client, const WCHAR* localFolder,
                              const WCHAR* remoteFolder, std::uint64_t timeoutMs,
                              INetFolderCopyProgressListener* listener, std::uint64_t userData) {
  CopyFolder({client, timeoutMs, listener, userData}, &FolderCopy::ToServer, remoteFolder,
             localFolder);
}

std::int32_t SocketFileCopyFromServerEx(CSocketFileClient* client, const WCHAR* remotePath,
                                        const WCHAR* localPath, std::uint64_t timeoutMs,
                                        std::uint32_t flags, INetFileCopyProgressListener* listener,
                                        std::uint64_t userData) {
  return CopyFile<Download>({client, timeoutMs, listener, userData, flags}, remotePath, localPath);
}

std::int32_t SocketFileCopyToServerEx(CSocketFileClient* client, const WCHAR* localPath,
                                      const WCHAR* remotePath, std::uint64_t timeoutMs,
                                      std::uint32_t flags, INetFileCopyProgressListener* listener,
                                      std::uint64_t userData) {
  return CopyFile<Upload>({client, timeoutMs, listener, userData, flags}, remotePath, localPath);
}

int SocketFolderCopyFromServerEx(CSocketFileClient* client, const WCHAR* remoteFolder,
                                 const WCHAR* localFolder, std::uint64_t timeoutMs,
                                 std::uint32_t flags, INetFolderCopyProgressListener* listener,
                                 ISocketFileCopyReport* report, std::uint64_t userData) {
  return CopyFolder({client, timeoutMs, listener, userData, flags, report}, &FolderCopy::FromServer,
                    remoteFolder, localFolder);
}

int SocketFolderCopyToServerEx(CSocketFileClient* client, const WCHAR* localFolder,
                               const WCHAR* remoteFolder, std::uint64_t timeoutMs,
                               std::uint32_t flags, INetFolderCopyProgressListener* listener,
                               ISocketFileCopyReport* report, std::uint64_t userData) {
  return CopyFolder({client, timeoutMs, listener, userData, flags, report}, &FolderCopy::ToServer,
                    remoteFolder, localFolder);
}

}  // extern "C"
