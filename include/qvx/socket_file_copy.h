// Copies of files and folders between the local file system and the server of a connected
// CSocketFileClient, in blocks of 512 KiB. A file is written under a temporary name beside
// its destination and gets its own name when all bytes are there, so that no failed copy
// leaves a part of a file under a final name.
//
// Rules that all functions share:
// - They run on the caller's thread and block for the whole copy; listeners are called there.
// - They use the client's open file: nothing else may use that client's file operations
//   meanwhile, and two copies on one client must not overlap. Afterwards no file is open.
// - timeoutMs limits each read or write of a block, 0 being no limit; if it is not 0, it
//   also limits the copying of a file's bytes as a whole, looked at before each block.
// - Paths are in the library's form, remote ones those of the server. A path that the copy
//   joins itself and that does not fit 259 units makes that entry fail; it is never cut.
// - With a listener the client's read or write speed limit becomes what the listener leaves
//   in the limit cell after each block. Without one the client's own limits stay.
// - A null client or path fails; a null listener or report is ignored.
#pragma once

#include <cstdint>

#include "qvx/copy_progress.h"
#include "qvx/socket_file_client.h"
#include "qvx/types.h"

// How the copy of one entry ended.
enum SOCKETFILECOPYRESULT : std::int32_t {
  SOCKET_FILE_COPY_DONE = 0,           // all bytes stand under the final name
  SOCKET_FILE_COPY_LOCAL_OPEN = 1,     // the local file, or its temporary, can't be opened
  SOCKET_FILE_COPY_REMOTE_OPEN = 2,    // the server did not open its file
  SOCKET_FILE_COPY_LOCAL_IO = 3,       // reading or writing the local file failed or was short
  SOCKET_FILE_COPY_REMOTE_IO = 4,      // the server gave or took too few bytes, or no answer
  SOCKET_FILE_COPY_TIMEOUT = 5,        // the limit of the whole file ran out
  SOCKET_FILE_COPY_EXISTS = 6,         // complete, but the final name was taken or can't be had
  SOCKET_FILE_COPY_TOO_LONG = 7,       // a path of it does not fit 259 units
  SOCKET_FILE_COPY_HIDDEN = 8,         // left out: hidden (told by uploads only)
  SOCKET_FILE_COPY_SPECIAL = 9,        // left out: neither file nor folder (told by uploads only)
  SOCKET_FILE_COPY_NO_FOLDER = 10,     // a folder could not be made or listed
  SOCKET_FILE_COPY_DISCONNECTED = 11,  // the connection ended before or during the copy
  SOCKET_FILE_COPY_CANCELLED = 12,     // the listener asked for the end
};

// Options of the functions with a report.
enum SOCKETFILECOPYFLAGS : std::uint32_t {
  SOCKET_FILE_COPY_KEEP_EXISTING = 0,
  // Takes the place of a file that has the final name. A download replaces in one step; an
  // upload deletes the old file when the new one is complete, and then renames.
  SOCKET_FILE_COPY_OVERWRITE = 1,
};

// Hears how each entry of a copy ended. Called on the copying thread, no lock held.
class QVX_API ISocketFileCopyReport {
 public:
  virtual ~ISocketFileCopyReport();

  // One file was copied or failed, or one entry was left out. The call for a file may come
  // after later files have begun, but for all before the copy function returns. size is the
  // number of bytes copied.
  virtual void OnSocketFileCopyEnd(std::uint64_t userData, const WCHAR* remotePath,
                                   const WCHAR* localPath, std::int32_t result,
                                   std::uint64_t size) = 0;
};

extern "C" {

// Copies one file from the server. 1 if all bytes arrived. Where the final name is taken the
// old file stays as it is, the temporary file stays beside it, and the result is still 1;
// the function with a report tells, and cleans up.
QVX_API int SocketFileCopyFromServer(CSocketFileClient* client, const WCHAR* remotePath,
                                     const WCHAR* localPath, std::uint64_t timeoutMs,
                                     INetFileCopyProgressListener* listener,
                                     std::uint64_t userData);

// Copies one file to the server. 1 if the server took all bytes; a taken final name as above.
QVX_API int SocketFileCopyToServer(CSocketFileClient* client, const WCHAR* localPath,
                                   const WCHAR* remotePath, std::uint64_t timeoutMs,
                                   INetFileCopyProgressListener* listener, std::uint64_t userData);

// Copies all that the remote folder holds, hidden entries left out, into the local folder,
// which must exist: sub-folders first, each to its full depth, then the folder's files. A
// file that fails does not stop the rest.
QVX_API void SocketFolderCopyFromServer(CSocketFileClient* client, const WCHAR* remoteFolder,
                                        const WCHAR* localFolder, std::uint64_t timeoutMs,
                                        INetFolderCopyProgressListener* listener,
                                        std::uint64_t userData);

// The same in the other direction.
QVX_API void SocketFolderCopyToServer(CSocketFileClient* client, const WCHAR* localFolder,
                                      const WCHAR* remoteFolder, std::uint64_t timeoutMs,
                                      INetFolderCopyProgressListener* listener,
                                      std::uint64_t userData);

// As SocketFileCopyFromServer, but the result is a SOCKETFILECOPYRESULT, flags may ask for
// overwriting, no temporary file stays in any case, and a 0 from OnNetFileCopyProgress ends
// the copy; the connection then goes on.
QVX_API std::int32_t SocketFileCopyFromServerEx(CSocketFileClient* client, const WCHAR* remotePath,
                                                const WCHAR* localPath, std::uint64_t timeoutMs,
                                                std::uint32_t flags,
                                                INetFileCopyProgressListener* listener,
                                                std::uint64_t userData);

// The same for SocketFileCopyToServer. A temporary file on the server stays only where the
// connection is lost. One more request looks whether the final name could be had.
QVX_API std::int32_t SocketFileCopyToServerEx(CSocketFileClient* client, const WCHAR* localPath,
                                              const WCHAR* remotePath, std::uint64_t timeoutMs,
                                              std::uint32_t flags,
                                              INetFileCopyProgressListener* listener,
                                              std::uint64_t userData);

// As SocketFolderCopyFromServer, with the rules of the Ex functions for each file, and a
// report of every file and of every entry that was left out. Once the listener has asked for
// the end no further file begins. The result is 1 if every file was copied and every folder
// made.
QVX_API int SocketFolderCopyFromServerEx(CSocketFileClient* client, const WCHAR* remoteFolder,
                                         const WCHAR* localFolder, std::uint64_t timeoutMs,
                                         std::uint32_t flags,
                                         INetFolderCopyProgressListener* listener,
                                         ISocketFileCopyReport* report, std::uint64_t userData);

// The same for SocketFolderCopyToServer. Hidden and special entries are reported too; they
// don't change the result; their remote path is empty. The calling thread's listener for
// skipped entries (folder_list.h) does not hear of them.
QVX_API int SocketFolderCopyToServerEx(CSocketFileClient* client, const WCHAR* localFolder,
                                       const WCHAR* remoteFolder, std::uint64_t timeoutMs,
                                       std::uint32_t flags,
                                       INetFolderCopyProgressListener* listener,
                                       ISocketFileCopyReport* report, std::uint64_t userData);

}  // extern "C"
