// The file server: answers the requests of socket_file_protocol.h on the local file system.
// It has no log-in and no root of its own: whoever can connect may name any path that the
// process can reach. A derived class may override the protected SocketCreate to listen on
// one address only, and the listener operations to watch clients and requests (it then calls
// this class's operation, and calls Close in its own destructor).
//
// Threads: requests of all clients are answered one after the other on the dispatch thread
// of the socket server, inside its client lock, so that a long request (a digest of a big
// file) holds up the others. A client that does not read its answers holds up nobody.
#pragma once

#include <cstdint>
#include <memory>

#include "qvx/ptr_list.h"
#include "qvx/socket_file_protocol.h"
#include "qvx/socket_server.h"
#include "qvx/sync.h"
#include "qvx/types.h"

// Maps the folder numbers of an application to paths.
class QVX_API IServerFolderPathInterface {
 public:
  virtual ~IServerFolderPathInterface();

  // Fills szPath, 260 units, NUL at the end included. The default gives an empty path.
  // Called on the dispatch thread inside the client lock; must not call Close or Create.
  virtual void OnGetFolderPath(std::int32_t nFolderID, WCHAR* szPath, std::uint64_t context);
};

namespace qvx::netfile {
class OpenFile;
}
namespace qvx::platform {
class ForkGuard;
}

class QVX_API CSocketFileServer : public CTCPSocketServer, public IServerSocketListener {
 public:
  CSocketFileServer();
  // Closes the server, which waits for its threads, and then every file still open.
  ~CSocketFileServer() override;
  // A copy is a closed server of its own; nothing of the source is taken over.
  CSocketFileServer(const CSocketFileServer& other);
  CSocketFileServer& operator=(const CSocketFileServer& other);

  // As CSocketServer::Create, in packet mode with the match code checked and this object as
  // its own listener. 1 if it listens. Not to be called from a listener operation.
  int Create(std::uint16_t nPort, const char* threadName);

  // Stores who answers folder path requests, null for nobody, and the value that each call
  // gets. The interface is not owned; it must outlive the server or be taken back. Blocks
  // while a request is being answered; after it no call to the former interface runs.
  void SetFolderPathInterface(IServerFolderPathInterface* folderPathInterface,
                              std::uint64_t context);

  // Answers one request; data lives for the call only. Records that are shorter than a
  // header, even commands and commands beyond the table are ignored. A record shorter than
  // its command asks for, a handle that this client did not get, and a read of more than
  // SOCKET_FILE_MAX_READ get the failure values of their command. 0, which ends the
  // connection, only for a wrong version. Dispatch thread, inside the client lock.
  int OnServerReceiveData(std::uint64_t userData, tagCLIENTSOCKETINFO* client,
                          const unsigned char* data, int size) override;

  // Closes what the client has open. Close thread or caller of Close, inside the client lock.
  void OnServerCloseClient(std::uint64_t userData, tagCLIENTSOCKETINFO* client) override;

 private:
  void OnRequestFolderPath(std::uint64_t nSocketFD, const tagSOCKETFILEREQFOLDERPATH* request);
  void OnRequestOpen(std::uint64_t nSocketFD, const tagSOCKETFILEREQOPEN* request);
  void OnRequestClose(std::uint64_t nSocketFD, const tagSOCKETFILEREQCLOSE* request);
  void OnRequestDelete(std::uint64_t nSocketFD, const tagSOCKETFILEREQDELETE* request);
  void OnRequestRename(std::uint64_t nSocketFD, const tagSOCKETFILEREQRENAME* request);
  void OnRequestGetSize(std::uint64_t nSocketFD, const tagSOCKETFILEREQGETSIZE* request);
  void OnRequestRead(std::uint64_t nSocketFD, const tagSOCKETFILEREQREAD* request);
  void OnRequestWrite(std::uint64_t nSocketFD, const tagSOCKETFILEREQWRITE* request,
                      std::uint32_t dataBytes);
  void OnRequestGetMD5(std::uint64_t nSocketFD, const tagSOCKETFILEREQGETMD5* request);
  void OnRequestGetFolderList(std::uint64_t nSocketFD,
                              const tagSOCKETFILEREQGETFOLDERLIST* request);
  void OnRequestMakeDirectory(std::uint64_t nSocketFD, const tagSOCKETFILEREQMKDIR* request);
  void OnRequestRemoveDirectory(std::uint64_t nSocketFD, const tagSOCKETFILEREQRMDIR* request);
  void Dispatch(std::uint64_t nSocketFD, std::uint32_t nCommand, const unsigned char* data,
                std::uint32_t size);
  void AnswerFailure(std::uint64_t nSocketFD, const tagSOCKETFILEHEADER& request);
  void AnswerCopiedRead(std::uint64_t nSocketFD, const tagSOCKETFILEREQREAD& request,
                        const qvx::netfile::OpenFile& file, std::uint32_t bytes);
  void AnswerResult(std::uint64_t nSocketFD, const tagSOCKETFILEHEADER& request,
                    std::uint32_t nResult);
  // The handle that the client gets: never given twice, never 0.
  std::uint64_t AddClientOpenFileToList(std::uint32_t nSocketFD,
                                        std::shared_ptr<qvx::netfile::OpenFile> pFile);
  // Null for a handle that this client did not get, or that is closed.
  std::shared_ptr<qvx::netfile::OpenFile> FindClientOpenFile(std::uint32_t nSocketFD,
                                                             std::uint64_t nFileHandle);
  void DelClientOpenFileFromList(std::uint32_t nSocketFD, std::uint64_t nFileHandle);
  // All ones closes the files of all clients.
  void CloseAllClientOpenFile(std::uint32_t nSocketFD);

  CBaseLock mOpenFileLock;
  CPtrListCtrl mOpenFileList;
  IServerFolderPathInterface* mFolderPathInterface = nullptr;
  std::uint64_t mFolderPathContext = 0;
  std::uint64_t mNextFileHandle = 1;
  std::unique_ptr<qvx::platform::ForkGuard> mForkGuard;
};
