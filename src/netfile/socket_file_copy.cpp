#include "qvx/socket_file_copy.h"

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

template <typename Job>
std::int32_t CopyFile(Copy& copy, const WCHAR* remote, const WCHAR* local) {
  {
    Job job(copy, CopyPaths{remote, local});
    job.Run();
  }
  copy.FinishAll();
  return copy.LastResult();
}

bool Usable(const CSocketFileClient* client, const WCHAR* remote, const WCHAR* local) {
  return client && remote && local;
}

}  // namespace

ISocketFileCopyReport::~ISocketFileCopyReport() = default;

extern "C" {

int SocketFileCopyFromServer(CSocketFileClient* client, const WCHAR* remotePath,
                             const WCHAR* localPath, std::uint64_t timeoutMs,
                             INetFileCopyProgressListener* listener, std::uint64_t userData) {
  if (!Usable(client, remotePath, localPath)) return 0;
  Copy copy(client, timeoutMs, listener, userData);
  return CopyFile<Download>(copy, remotePath, localPath) == SOCKET_FILE_COPY_DONE;
}

int SocketFileCopyToServer(CSocketFileClient* client, const WCHAR* localPath,
                           const WCHAR* remotePath, std::uint64_t timeoutMs,
                           INetFileCopyProgressListener* listener, std::uint64_t userData) {
  if (!Usable(client, remotePath, localPath)) return 0;
  Copy copy(client, timeoutMs, listener, userData);
  return CopyFile<Upload>(copy, remotePath, localPath) == SOCKET_FILE_COPY_DONE;
}

void SocketFolderCopyFromServer(CSocketFileClient* client, const WCHAR* remoteFolder,
                                const WCHAR* localFolder, std::uint64_t timeoutMs,
                                INetFolderCopyProgressListener* listener, std::uint64_t userData) {
  if (!Usable(client, remoteFolder, localFolder)) return;
  Copy copy(client, timeoutMs, listener, userData);
  FolderCopy(copy, listener).FromServer({remoteFolder, localFolder});
}

void SocketFolderCopyToServer(CSocketFileClient* client, const WCHAR* localFolder,
                              const WCHAR* remoteFolder, std::uint64_t timeoutMs,
                              INetFolderCopyProgressListener* listener, std::uint64_t userData) {
  if (!Usable(client, remoteFolder, localFolder)) return;
  Copy copy(client, timeoutMs, listener, userData);
  FolderCopy(copy, listener).ToServer({remoteFolder, localFolder});
}

std::int32_t SocketFileCopyFromServerEx(CSocketFileClient* client, const WCHAR* remotePath,
                                        const WCHAR* localPath, std::uint64_t timeoutMs,
                                        std::uint32_t flags, INetFileCopyProgressListener* listener,
                                        std::uint64_t userData) {
  if (!Usable(client, remotePath, localPath)) return SOCKET_FILE_COPY_LOCAL_OPEN;
  Copy copy(client, timeoutMs, listener, userData);
  copy.SetExtended(flags, nullptr);
  return CopyFile<Download>(copy, remotePath, localPath);
}

std::int32_t SocketFileCopyToServerEx(CSocketFileClient* client, const WCHAR* localPath,
                                      const WCHAR* remotePath, std::uint64_t timeoutMs,
                                      std::uint32_t flags, INetFileCopyProgressListener* listener,
                                      std::uint64_t userData) {
  if (!Usable(client, remotePath, localPath)) return SOCKET_FILE_COPY_LOCAL_OPEN;
  Copy copy(client, timeoutMs, listener, userData);
  copy.SetExtended(flags, nullptr);
  return CopyFile<Upload>(copy, remotePath, localPath);
}

int SocketFolderCopyFromServerEx(CSocketFileClient* client, const WCHAR* remoteFolder,
                                 const WCHAR* localFolder, std::uint64_t timeoutMs,
                                 std::uint32_t flags, INetFolderCopyProgressListener* listener,
                                 ISocketFileCopyReport* report, std::uint64_t userData) {
  if (!Usable(client, remoteFolder, localFolder)) return 0;
  Copy copy(client, timeoutMs, listener, userData);
  copy.SetExtended(flags, report);
  FolderCopy(copy, listener).FromServer({remoteFolder, localFolder});
  copy.FinishAll();
  return copy.AllDone() && !copy.Cancelled();
}

int SocketFolderCopyToServerEx(CSocketFileClient* client, const WCHAR* localFolder,
                               const WCHAR* remoteFolder, std::uint64_t timeoutMs,
                               std::uint32_t flags, INetFolderCopyProgressListener* listener,
                               ISocketFileCopyReport* report, std::uint64_t userData) {
  if (!Usable(client, remoteFolder, localFolder)) return 0;
  Copy copy(client, timeoutMs, listener, userData);
  copy.SetExtended(flags, report);
  FolderCopy(copy, listener).ToServer({remoteFolder, localFolder});
  copy.FinishAll();
  return copy.AllDone() && !copy.Cancelled();
}

}  // extern "C"
