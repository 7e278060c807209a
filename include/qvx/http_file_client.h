// A file on a web server in the shape of a local file: open, read, seek, close. Two ways of
// reading share one position:
// - ReadFile_Part asks for a range with each call, on the caller's thread.
// - ReadFile_Continue takes the next bytes of one transfer that a thread of the object, "HttpRead",
//   keeps running from call to call, with up to 1 MiB read ahead. A seek to another place, a
//   ReadFile_Part and a transfer that has ended make the next call begin a new one.
//
// Threads: all calls may come from any thread, also at the same time. Reads wait for one another;
// CloseFile and OpenFile end a read in progress and wait for it. Needs InitSysLibCURL
// (curl_binding.h). In a child after fork the object must not be used before OpenFile.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "qvx/base_buffer.h"
#include "qvx/base_thread.h"
#include "qvx/http_file.h"
#include "qvx/sync.h"
#include "qvx/types.h"

namespace qvx::http {
class CopyJob;
class ReadAhead;
}  // namespace qvx::http

class QVX_API CHttpFileClient : public IThreadFuncInterface, public IHttpDataCallback {
 public:
  CHttpFileClient();
  // A copy is a closed client of its own; nothing of the source is taken over.
  CHttpFileClient(const CHttpFileClient& other);
  CHttpFileClient& operator=(const CHttpFileClient& other);
  // As CloseFile.
  ~CHttpFileClient() override;

  // Closes, then opens; the arguments are those of http_file.h. Blocks for at most about 10 s.
  // 1 if open, with the position at 0 and no speed limit; after 0 the object is closed.
  int OpenFile(const char* url, const CBaseBuffer* caCertificate, const char* bearerToken,
               const char* extraHeader, long authType, const char* userName, const char* password,
               int useProxy, long proxyType, const char* proxy, const char* proxyUserName,
               const char* proxyPassword);

  // Bytes; 0 where the server did not tell, or nothing is open.
  std::uint64_t GetFileSize();
  std::uint64_t GetFilePos();

  // Moves the position to offset from the start (origin 0), from the position (1) or from the end
  // (2); another origin gives 0. Kept within 0 and a known size. Returns the new position. Waits
  // for a ReadFile_Part in progress. A seek to where the position is costs nothing.
  std::int64_t SeekFile(std::int64_t offset, int origin);

  // Takes the next len bytes of the running transfer into dest, beginning one where there is none.
  // Blocks until all are there, the transfer has ended (the end of the file, a failure, 30 s
  // without a byte) or timeoutMs have passed; 0 and all ones are no limit. Returns the bytes
  // stored; the next call goes on behind them. 0 where nothing is open, and at the end.
  unsigned int ReadFile_Continue(void* dest, unsigned int len, std::uint64_t timeoutMs);

  // Asks for the next len bytes and stores them at dest, with further requests where an answer
  // was short; as ReadHttpBody it trusts the server to keep to the range. Returns the bytes
  // stored. timeoutMs limits the call, and each request to at most 10 s; 0 is no limit for both.
  // After a cancel the result is 0 and the position stays.
  unsigned int ReadFile_Part(void* dest, unsigned int len, std::uint64_t timeoutMs);

  // Ends a read in progress within about a second; where there is none, the next
  // ReadFile_Continue gives 0 if the transfer is still running then, or has bytes read ahead.
  // Takes no lock. Reads after that begin afresh.
  void CancelRead();

  // Limits both kinds of read to so many bytes per second, 0 for no limit: a read that was faster
  // sleeps, before it returns, for all the time that its bytes should take. Reset by OpenFile.
  void LimitReadSpeed(std::uint64_t bytesPerSecond);

  // Speed in bytes per millisecond: the average of the present or else the last transfer, and the
  // last one measured over a second of it or over a ReadFile_Part. 0.0 where nothing is open.
  double GetTotalAvgDownloadSpeedKBPS();
  double GetRealTimeDownloadSpeedKBPS();

  // Tells reads of the stream to end, ahead of a CloseFile by another thread, and lets no other
  // begin; a ReadFile_Part in progress ends by CancelRead or CloseFile. Takes no lock, does not
  // wait.
  void PrepareClose();

  // Ends the transfer and a read in progress, waits for both, and closes. Always 1; harmless on a
  // closed object. A sleep of the speed limit is cut short.
  int CloseFile();

  // The body of the thread and its callbacks; not for callers.
  int ThreadLoop(std::uint64_t context) override;
  unsigned int OnHttpDataRecvCallback(const unsigned char* data, unsigned int len,
                                      std::uint64_t userData) override;
  int OnHttpDataProgressCallback(std::uint64_t userData) override;

 private:
  friend class qvx::http::CopyJob;
  enum class Attached { kNoTransfer, kWaiting, kFilled };

  tagHTTPFILEINFO* GetHttpFileInfo();
  int StartHttpReadThread();
  void StopHttpReadThread();

  bool IsOpenLocked() const;
  bool IsReadable(const void* dest, unsigned int len) const;
  bool IsCancelled();
  void CloseLocked();
  void ResetOpenState();
  unsigned int LeftOf(unsigned int len) const;
  unsigned int ReadStream(void* dest, unsigned int len, std::uint64_t timeoutMs);
  bool HasTransfer();
  Attached Attach(void* dest, unsigned int len);
  void AwaitServing(std::uint64_t limit);
  bool IsServed();
  void AttachLocked(void* dest, unsigned int len);
  bool BeginTransfer(void* dest, unsigned int len);
  unsigned int Detach();
  unsigned int ReadRange(void* dest, unsigned int len, std::uint64_t timeoutMs,
                         std::uint32_t start);
  unsigned int AskRanges(unsigned char* dest, unsigned int wanted, std::uint64_t timeoutMs,
                         std::uint32_t start);
  unsigned int TakePiece(const unsigned char* data, unsigned int len);
  void WakeServedReader();
  void MeasureSpeed(std::uint32_t now);
  void KeepSpeedLimit(unsigned int bytes, std::uint32_t start);

  CBaseLock mFileLock;
  tagHTTPFILEINFO mFileInfo;
  std::atomic<int> mNeedClose;
  int mStopRead;  // through std::atomic_ref only
  std::atomic<std::uint64_t> mFilePos;
  std::atomic<int> mNeedRestart;
  CBaseThread mReadThread;
  CBaseLock mBufferLock;
  CBaseBuffer mReadBuffer;
  CBaseEvent mRoomEvent;
  CBaseEvent mDoneEvent;
  std::atomic<std::uint64_t> mLastRecvTick;
  std::uint64_t mIntervalStartTick;  // these two on the thread of the transfer
  std::uint64_t mIntervalBytes;
  std::atomic<double> mRealTimeSpeed;
  std::atomic<std::uint64_t> mSpeedLimit;

  CBaseLock mReaderLock;                 // held for a whole read; taken before mFileLock
  std::atomic<std::uint64_t> mFileSize;  // that of mFileInfo, to be read without a lock
  std::atomic<double> mAverageSpeed;
  std::atomic<int> mClosing;  // calls of CloseFile in progress
  CBaseEvent mWakeEvent;      // cuts a sleep short
  bool mTransferEnded;        // these two under mBufferLock
  bool mReaderServed;         // its memory is full, and it does not know yet
  std::unique_ptr<qvx::http::ReadAhead> mReadAhead;
  std::uint32_t mForkGeneration;
};
