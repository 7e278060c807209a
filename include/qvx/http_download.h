// Files from a web server onto the local disk: a copy of a whole file, which blocks, and the
// download of one range of a file by a thread of its own, with pause, resume, cancel, retry and
// resumption. A host that wants a file in parallel pieces makes the local file, plans the ranges
// and runs one CMultiThreadDownload for each. Both need InitSysLibCURL (curl_binding.h).
#pragma once

#include <atomic>
#include <cstdint>

#include "qvx/base_buffer.h"
#include "qvx/base_string.h"
#include "qvx/base_thread.h"
#include "qvx/copy_progress.h"
#include "qvx/http_file_client.h"
#include "qvx/sync.h"
#include "qvx/types.h"

namespace qvx::platform {
class File;
}

extern "C" {

// Copies a whole file to localPath, in the library's form, in blocks of 512 KiB. What stands
// there is emptied first, and a part stays there after a failure. 1 if all bytes of a file of
// known size are on disk; 0 for any failure, and for a file of unknown size, which ends with a
// read of 0. A null client or localPath fails; client is the caller's, who can cancel
// through it from another thread (PrepareClose, CloseFile), and is closed afterwards. The
// arguments between them are those of http_file.h. timeoutMs limits each read and the copy as a
// whole, 0 for no limit. listener may be null; it is called on this thread after each block, ends
// the copy with 0, and what it leaves in its limit cell becomes the client's read speed limit.
QVX_API int HttpFileCopyFromServer(CHttpFileClient* client, const char* url,
                                   const CBaseBuffer* caCertificate, const char* bearerToken,
                                   const char* extraHeader, long authType, const char* userName,
                                   const char* password, int useProxy, long proxyType,
                                   const char* proxy, const char* proxyUserName,
                                   const char* proxyPassword, const char* localPath,
                                   std::uint64_t timeoutMs, INetFileCopyProgressListener* listener,
                                   std::uint64_t userData);

}  // extern "C"

// One job: a range of a file on a server, and the local file that takes it at the same place.
// The caller owns it and keeps it in place until the download has ended; it must not change it
// meanwhile. An empty text is passed on as an empty text, not as a null one.
struct tagMTDOWNLOAD_BLOCK {
  CBaseBuffer caCertificate;  // the connection arguments of http_file.h
  CBaseStringA bearerToken;
  CBaseStringA extraHeader;
  long authType = 0;
  CBaseStringA userName;
  CBaseStringA password;
  int useProxy = 0;
  long proxyType = 0;
  CBaseStringA proxy;
  CBaseStringA proxyUserName;
  CBaseStringA proxyPassword;
  CBaseStringA url;
  CBaseStringA localPath;      // in the library's form; the file must exist
  std::uint64_t startPos = 0;  // first byte of the range
  std::uint64_t endPos = 0;    // one past its last byte
  // Bytes of the range that the file took. The download begins there and counts on; it may be
  // read at any time, and a block that is passed again goes on where it stopped.
  std::atomic<std::uint64_t> copiedSize{0};
  // Bytes per millisecond of the last block of data; 0 while no transfer runs.
  std::atomic<double> speedKBPS{0.0};
};

// Hears of the end of each attempt that was not cancelled, on the download's thread with no lock
// held. success is 1 when the whole range is on disk; after 0 another attempt follows in 5 s. The
// result is not used. It must not call CancelDownload, DownloadFile or the destructor.
class QVX_API IMultiThreadDownloadFailedListener {
 public:
  virtual ~IMultiThreadDownloadFailedListener();
  virtual int OnDownloadBlockEnd(std::uint64_t userData, int success) = 0;
};

// The worker of a download.
struct tagMTDOWNLOAD_THREADINFO {
  std::atomic<tagMTDOWNLOAD_BLOCK*> block{nullptr};
  CHttpFileClient client;
  CBaseThread thread;
};

// Downloads one range at a time on the thread "MT_ONEBLOCK". All calls may come from any thread
// but the download's own.
class QVX_API CMultiThreadDownload : public IThreadFuncInterface {
 public:
  CMultiThreadDownload();
  // A copy is an idle object of its own; nothing of the source is taken over.
  CMultiThreadDownload(const CMultiThreadDownload& other);
  CMultiThreadDownload& operator=(const CMultiThreadDownload& other);
  // As CancelDownload.
  ~CMultiThreadDownload() override;

  // Cancels a job that still runs, then starts this one. readBlockSize in bytes, 0 for 512 KiB:
  // the size of each read and write. Listeners may be null and must live until the job has ended;
  // both get userData. Attempts go on, 5 s apart, until the range is complete or cancelled. With
  // waitEnd non-zero the present attempt is ended and waited for, its pause included.
  void DownloadFile(int waitEnd, tagMTDOWNLOAD_BLOCK* block, unsigned int readBlockSize,
                    INetFileCopyProgressListener* progressListener,
                    IMultiThreadDownloadFailedListener* failedListener, std::uint64_t userData);

  // Ends the job and waits for its thread, also out of a pause; an open in progress may take its
  // 10 s. No listener is called afterwards. Harmless when nothing runs.
  void CancelDownload();

  // A paused job stops after the block in progress and keeps its connection. Without a job these
  // do nothing.
  void PauseDownload();
  void ResumeDownload();

  // 1 from DownloadFile until CancelDownload or the end of a wait, also when the range has long
  // been complete: OnDownloadBlockEnd tells that.
  int IsDownloadingStart();

  // The body of the thread; not for callers.
  int ThreadLoop(std::uint64_t context) override;

 private:
  int DownloadOneBlock(tagMTDOWNLOAD_THREADINFO* info);
  void WaitForDownloadEnd();

  void AskToStop();
  bool Attempt(CHttpFileClient& client, tagMTDOWNLOAD_BLOCK& block);
  bool Transfer(CHttpFileClient& client, tagMTDOWNLOAD_BLOCK& block,
                const qvx::platform::File& file);
  unsigned int CopyPiece(CHttpFileClient& client, tagMTDOWNLOAD_BLOCK& block,
                         const qvx::platform::File& file, void* buffer);
  bool IsStopping() const;
  void ReportProgress(CHttpFileClient& client, const tagMTDOWNLOAD_BLOCK& block);
  void ReportEnd(bool success);

  std::atomic<int> mDownloading;
  tagMTDOWNLOAD_THREADINFO mThreadInfo[1];
  std::atomic<unsigned int> mReadBlockSize;
  std::atomic<int> mStopDownload;
  CBaseEvent mPauseEvent;
  CBaseEvent mRetryEvent;
  std::atomic<INetFileCopyProgressListener*> mProgressListener;
  std::atomic<IMultiThreadDownloadFailedListener*> mFailedListener;
  std::atomic<std::uint64_t> mUserData;

  CBaseLock mLifecycleLock;  // one of DownloadFile and CancelDownload at a time
};
