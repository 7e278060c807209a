// Progress of copies between the local file system and a server, over the socket file
// service and over HTTP, and of archives. A listener is called on the thread that runs the copy,
// between two blocks, with no lock of the library held; it must outlive the copy.
#pragma once

#include <cstdint>

#include "qvx/types.h"

// Progress of one file.
class QVX_API INetFileCopyProgressListener {
 public:
  virtual ~INetFileCopyProgressListener();

  // After each block. nCopied and nTotal are bytes; speed is that of the last block in bytes
  // per millisecond, 0.0 where no tick of the clock has passed. *pLimitSpeed is 0 at the
  // call; what the listener leaves there, in bytes per second, limits the blocks that
  // follow, 0 being no limit. The result is not looked at by socket copies; an HTTP copy
  // stops on 0.
  virtual std::int32_t OnNetFileCopyProgress(std::uint64_t userData, std::uint64_t nCopied,
                                             std::uint64_t nTotal, double speed,
                                             std::uint64_t* pLimitSpeed) = 0;
};

// Progress of a folder with all it holds.
class QVX_API INetFolderCopyProgressListener : public INetFileCopyProgressListener {
 public:
  ~INetFolderCopyProgressListener() override;

  // A folder was just made, or was there already, at the destination.
  virtual void OnNetFolderCreate(std::uint64_t userData, const WCHAR* folderPath) = 0;

  // A file's copy begins. The order of the paths is the same in both directions.
  virtual void OnNetFileCopyBegin(std::uint64_t userData, const WCHAR* remotePath,
                                  const WCHAR* localPath) = 0;
};

// Progress of packing into and unpacking from an archive. Called on the thread that packs or
// unpacks, without any lock.
class QVX_API IArchiveProgressListener {
 public:
  virtual ~IArchiveProgressListener();

  // The entry of this stored name is under way: done bytes of its total, uncompressed. Called
  // after each block, and at the end with done equal to total unless the source shrank. Returns
  // 1 to go on; 0 stops the operation, which then fails.
  virtual int OnArchiveProgress(const char* name, std::uint64_t done, std::uint64_t total) = 0;

  // Packing a folder leaves out what stands under this path: it is hidden, no file, can't be
  // read, or is the archive itself. Does nothing unless overridden.
  virtual void OnArchiveSkipped(const char* path);
};
