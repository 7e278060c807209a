// The file client: the file system of a file server as blocking calls. Each call sends one
// request of socket_file_protocol.h and waits until its answer is there, its time is up or
// the connection ends. One file at a time can be open through one object; the operations on
// names and folders work beside it.
//
// Threads: any number of threads may call the operations of one object at once, each gets
// its own answer; they share the one open file. Answers are stored on the receiving thread,
// and no operation may be called there. Create and Close wait for that thread; Close, like
// an end of the connection, wakes every waiting call. The destructor closes the connection
// without a close request, and no call may be running then. A derived class that overrides a
// listener operation calls Close in its own destructor.
//
// Paths are those of the server, in the library's form; a path beyond 259 units is cut to
// that, a mode to 15. A null path counts as empty. No call is repeated: after a time-out the
// server may still carry the request out.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "qvx/base_string.h"
#include "qvx/ptr_list.h"
#include "qvx/socket_client.h"
#include "qvx/socket_file_protocol.h"
#include "qvx/sync.h"
#include "qvx/types.h"

struct tagSOCKETFILEWAITER;

namespace qvx::netfile {
class Copy;
class Exchange;
}  // namespace qvx::netfile
namespace qvx::platform {
class ForkGuard;
}

class QVX_API CSocketFileClient : public CTCPSocketClient, public IClientSocketListener {
 public:
  CSocketFileClient();
  ~CSocketFileClient() override;
  // A copy is a closed client of its own; nothing of the source is taken over.
  CSocketFileClient(const CSocketFileClient& other);
  CSocketFileClient& operator=(const CSocketFileClient& other);

  // As CSocketClient::Create, in packet mode with the match code checked and this object as
  // its own listener. 1 when connected. No file is open then.
  int Create(const char* host, std::uint16_t nPort, const char* threadName);

  // Fills path, 260 units, with the path of one of the application's folders, an empty text
  // if the server has none. After a failure path is as it was. Waits at most 5 s.
  void GetFolderPath(std::int32_t nFolderID, WCHAR* path);

  // Closes the file that is open, then opens another. mode is a text of the C library, as
  // "rb". 1 if the server opened the file. Waits at most 5 s for each.
  int OpenFile(const WCHAR* path, const WCHAR* mode);

  // 1 if the server answered, 0 if nothing was open or no answer came in 5 s. In either case
  // no file is open afterwards.
  int CloseFile();

  // The size of the open file; 0 also if nothing is open or no answer came in 5 s.
  std::uint64_t GetFileSize();

  // Reads at offset into buffer, which holds size bytes. The bytes read: fewer than size at
  // the end of the file; 0 beyond it, after a failure and for more than SOCKET_FILE_MAX_READ.
  // timeoutMs of 0 or all ones is no limit. After a failure the buffer may hold a part.
  std::uint32_t ReadFile(std::uint64_t offset, void* buffer, std::uint32_t size,
                         std::uint64_t timeoutMs);

  // Writes size bytes at offset; the bytes written, 0 after a failure. timeoutMs as above.
  std::uint32_t WriteFile(std::uint64_t offset, const void* data, std::uint32_t size,
                          std::uint64_t timeoutMs);

  // RFC 1321 digest of a file of the server into 16 bytes, all zero for one that is empty or
  // can't be opened. 1 if an answer came in 60 s. It is also 1, with digest as it was, where
  // the connection ended during the wait: a caller who must know clears digest first.
  int GetFileMD5(const WCHAR* path, unsigned char* digest);

  // The server answers 1 whether or not the operation succeeded; 0 if no answer came in 5 s.
  // RenameFile does not replace a file. RemoveDirectoryW deletes all that the folder holds;
  // the folder itself stays.
  int DeleteFileW(const WCHAR* path);
  int RenameFile(const WCHAR* oldPath, const WCHAR* newPath);
  int MakeDirectory(const WCHAR* path);
  int RemoveDirectoryW(const WCHAR* path);

  // The bare names of a folder's sub-folders and files, each list joined by ";"; hidden
  // entries are left out. An empty list leaves its string as it was, and so does a failure.
  // Either string may be null. Waits at most 5 s.
  void GetFolderList(const WCHAR* path, CBaseStringW* folderList, CBaseStringW* fileList);

  // Limits ReadFile and WriteFile to so many bytes per second, 0 for no limit: a call that
  // was faster sleeps before it returns.
  void LimitReadSpeed(std::uint64_t bytesPerSecond);
  void LimitWriteSpeed(std::uint64_t bytesPerSecond);

  // Listener operations, on the receiving thread.
  int OnClientReceiveData(std::uint64_t userData, std::uint64_t nSocketFD,
                          const unsigned char* data, int size) override;
  void OnClientDisconnectFromServer(std::uint64_t userData, std::uint64_t nSocketFD) override;

 protected:
  unsigned char* OnPlacePayload(const unsigned char* pHead, std::uint32_t nLength,
                                std::uint32_t nOffset, std::uint32_t* pRoom) override;
  void OnPayloadPlaced(std::uint32_t nOffset, std::uint32_t nSize) override;
  int OnPlacedPacket(const unsigned char* pHead, std::uint32_t nLength) override;
  std::uint32_t OnPourPayload(const unsigned char* pHead, std::uint32_t nLength,
                              std::uint32_t nOffset, std::uint64_t nSocketFD) override;

 private:
  friend class qvx::netfile::Copy;
  friend class qvx::netfile::Exchange;

  static void OnForkedChild(void* client);
  int SendPathRequest(std::uint32_t nCommand, const WCHAR* path);
  bool HasEnded();  // under the waiter lock
  tagSOCKETFILEWAITER* FindWaiter(std::uint32_t nSerial);
  tagSOCKETFILEWAITER* FindReader(const unsigned char* pHead, std::uint32_t nLength);

  std::atomic<std::uint64_t> mOpenFile{0};
  CBaseLock mWaiterLock;
  CPtrListCtrl mWaiterList;
  std::atomic<std::uint32_t> mNextSerial{0};
  std::atomic<std::uint64_t> mReadSpeedLimit{0};
  std::atomic<std::uint64_t> mWriteSpeedLimit{0};
  std::uint64_t mEndedSocket = QVX_INVALID_SOCKET;  // its waiters were woken; under the waiter lock
  tagSOCKETFILEWAITER* mPlacedReader = nullptr;     // of the receiving thread, under that lock
  std::unique_ptr<qvx::platform::ForkGuard> mForkGuard;
};
