#include "qvx/http_file_client.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "core/quiet_log.h"
#include "http/pause.h"
#include "http/read_ahead.h"
#include "platform/fork.h"
#include "qvx/debug_output.h"

using qvx::core::LogQuietly;
using qvx::http::ReadAhead;

namespace {

constexpr std::uint64_t kNoLimit = ~std::uint64_t{0};
constexpr std::uint64_t kRequestMilliseconds = 10000;
constexpr std::uint32_t kStallMilliseconds = 30001;
constexpr std::uint32_t kIntervalMilliseconds = 1000;
constexpr int kStackSize = 0x200000;

std::uint32_t MillisecondsSince(std::uint64_t tick) {
  return MS_GetTime() - static_cast<std::uint32_t>(tick);
}

std::atomic_ref<int> Flag(int& flag) {
  return std::atomic_ref<int>(flag);
}

void LogStep(const char* operation, const char* step) {
  LogQuietly([&] { DbgOutputA(2, "%s: %s\r\n", operation, step); });
}

// The sum, kept at or above 0.
std::int64_t Shifted(std::uint64_t base, std::int64_t offset) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  const auto start = static_cast<std::int64_t>(std::min<std::uint64_t>(base, kMost));
  std::int64_t sum = 0;
  if (__builtin_add_overflow(start, offset, &sum)) return kMost;
  return std::max<std::int64_t>(sum, 0);
}

// Marks a call of CloseFile while it lasts.
class CountedCall {
 public:
  explicit CountedCall(std::atomic<int>& count) : count_(count) { count_.fetch_add(1); }
  ~CountedCall() { count_.fetch_sub(1); }
  CountedCall(const CountedCall&) = delete;
  CountedCall& operator=(const CountedCall&) = delete;

 private:
  std::atomic<int>& count_;
};

}  // namespace

// Life --------------------------------------------------------------------------------------

CHttpFileClient::CHttpFileClient()
    : mNeedClose(0),
      mStopRead(0),
      mFilePos(0),
      mNeedRestart(1),
      mLastRecvTick(0),
      mIntervalStartTick(0),
      mIntervalBytes(0),
      mRealTimeSpeed(0.0),
      mSpeedLimit(0),
      mFileSize(0),
      mAverageSpeed(0.0),
      mClosing(0),
      mWakeEvent(nullptr, 1),
      mTransferEnded(true),
      mReaderServed(false),
      mForkGeneration(qvx::platform::ForkGeneration()) {}

CHttpFileClient::CHttpFileClient(const CHttpFileClient&) : CHttpFileClient() {}

CHttpFileClient& CHttpFileClient::operator=(const CHttpFileClient& other) {
  if (this != &other) CloseFile();
  return *this;
}

CHttpFileClient::~CHttpFileClient() {
  CloseFile();
}

int CHttpFileClient::OpenFile(const char* url, const CBaseBuffer* caCertificate,
                              const char* bearerToken, const char* extraHeader, long authType,
                              const char* userName, const char* password, int useProxy,
                              long proxyType, const char* proxy, const char* proxyUserName,
                              const char* proxyPassword) {
  DbgOutputA(2, "%s: %s\r\n", "CHttpFileClient::OpenFile", url);
  CloseFile();
  int opened = 0;
  {
    CAutoBaseLock reading(&mReaderLock);
    CAutoBaseLock guard(&mFileLock);
    CloseLocked();
    opened =
        OpenHttpFile(GetHttpFileInfo(), url, caCertificate, bearerToken, extraHeader, authType,
                     userName, password, useProxy, proxyType, proxy, proxyUserName, proxyPassword);
    mFileSize.store(mFileInfo.fileSize);
    mNeedClose.store(0);
    mLastRecvTick.store(0);
    Flag(mStopRead).store(0);
    mWakeEvent.Reset();
    ResetOpenState();
  }
  if (opened == 0) CloseFile();
  DbgOutputA(2, "%s: %s, %s\r\n", "CHttpFileClient::OpenFile", url,
             opened != 0 ? "SUCCESS" : "FAILED!");
  return opened;
}

void CHttpFileClient::ResetOpenState() {
  mFilePos.store(0);
  mNeedRestart.store(1);
  mIntervalStartTick = 0;
  mIntervalBytes = 0;
  mRealTimeSpeed.store(0.0);
  mAverageSpeed.store(0.0);
  mSpeedLimit.store(0);
}

void CHttpFileClient::PrepareClose() {
  LogStep("CHttpFileClient::PrepareClose", "+++");
  mNeedClose.store(1);
  mWakeEvent.Set();
  LogStep("CHttpFileClient::PrepareClose", "---");
}

int CHttpFileClient::CloseFile() {
  LogStep("CHttpFileClient::CloseFile", "+++");
  {
    const CountedCall closing(mClosing);
    mNeedClose.store(1);
    Flag(mStopRead).store(1);
    mWakeEvent.Set();
    CAutoBaseLock reading(&mReaderLock);
    StopHttpReadThread();
    CAutoBaseLock guard(&mFileLock);
    CloseLocked();
    ResetOpenState();
  }
  LogStep("CHttpFileClient::CloseFile", "---");
  return 1;
}

// A handle of the process that this one was forked from is left alone: it shares its connection,
// and a thread that vanished may have been inside it.
void CHttpFileClient::CloseLocked() {
  if (!IsOpenLocked()) mFileInfo.curlHandle = nullptr;
  if (mFileInfo.curlHandle != nullptr) CloseHttpFile(GetHttpFileInfo());
  mFileInfo.curlHandle = nullptr;
  mFileInfo.url.Free();
  mFileInfo.fileSize = 0;
  mFileSize.store(0);
  mReadAhead.reset();
  mForkGeneration = qvx::platform::ForkGeneration();
}

tagHTTPFILEINFO* CHttpFileClient::GetHttpFileInfo() {
  return &mFileInfo;
}

bool CHttpFileClient::IsOpenLocked() const {
  return mFileInfo.curlHandle != nullptr && mForkGeneration == qvx::platform::ForkGeneration();
}

// Position and settings ---------------------------------------------------------------------

std::uint64_t CHttpFileClient::GetFileSize() {
  return mFileSize.load();
}

std::uint64_t CHttpFileClient::GetFilePos() {
  return mFilePos.load();
}

std::int64_t CHttpFileClient::SeekFile(std::int64_t offset, int origin) {
  CAutoBaseLock guard(&mFileLock);
  const std::uint64_t size = mFileSize.load();
  std::int64_t target = 0;
  if (origin == 0) target = Shifted(0, offset);
  if (origin == 1) target = Shifted(mFilePos.load(), offset);
  if (origin == 2) target = Shifted(size, offset);
  auto position = static_cast<std::uint64_t>(target);
  if (size != 0) position = std::min(position, size);
  if (mFilePos.exchange(position) != position) mNeedRestart.store(1);
  return static_cast<std::int64_t>(position);
}

void CHttpFileClient::CancelRead() {
  Flag(mStopRead).store(1);
}

bool CHttpFileClient::IsCancelled() {
  return mNeedClose.load() != 0 || Flag(mStopRead).load() != 0;
}

void CHttpFileClient::LimitReadSpeed(std::uint64_t bytesPerSecond) {
  mSpeedLimit.store(bytesPerSecond);
}

double CHttpFileClient::GetTotalAvgDownloadSpeedKBPS() {
  return mAverageSpeed.load();
}

double CHttpFileClient::GetRealTimeDownloadSpeedKBPS() {
  return mRealTimeSpeed.load();
}

void CHttpFileClient::KeepSpeedLimit(unsigned int bytes, std::uint32_t start) {
  const std::uint64_t limit = mSpeedLimit.load();
  if (limit == 0) return;
  const std::uint64_t needed = std::uint64_t{bytes} * 1000 / limit;
  if (needed > MillisecondsSince(start)) qvx::http::Pause(mWakeEvent, needed);
}

// How many of len bytes are left in a file of known size.
unsigned int CHttpFileClient::LeftOf(unsigned int len) const {
  const std::uint64_t size = mFileSize.load();
  const std::uint64_t position = mFilePos.load();
  if (size == 0) return len;
  if (position >= size) return 0;
  return static_cast<unsigned int>(std::min<std::uint64_t>(len, size - position));
}

bool CHttpFileClient::IsReadable(const void* dest, unsigned int len) const {
  return IsOpenLocked() && mClosing.load() == 0 && dest != nullptr && len != 0;
}

// The stream, on the reader's side ----------------------------------------------------------

unsigned int CHttpFileClient::ReadFile_Continue(void* dest, unsigned int len,
                                                std::uint64_t timeoutMs) {
  std::uint32_t start = 0;
  unsigned int count = 0;
  {
    CAutoBaseLock reading(&mReaderLock);
    if (!IsReadable(dest, len) || mNeedClose.load() != 0) return 0;
    const unsigned int left = LeftOf(len);
    if (left == 0) return 0;
    if (left < len) {
      DbgOutputA(2, "%s: curpos=%ld, readlen=%lld\r\n", "CHttpFileClient::ReadFile_Continue",
                 static_cast<long>(mFilePos.load()), static_cast<long long>(left));
    }
    start = MS_GetTime();
    count = ReadStream(dest, left, timeoutMs);
  }
  KeepSpeedLimit(count, start);
  return count;
}

unsigned int CHttpFileClient::ReadStream(void* dest, unsigned int len, std::uint64_t timeoutMs) {
  const bool restart = mNeedRestart.load() != 0;
  if (!restart && Flag(mStopRead).load() != 0 && HasTransfer()) {
    mNeedRestart.store(1);
    return 0;
  }
  Attached attached = restart ? Attached::kNoTransfer : Attach(dest, len);
  if (attached == Attached::kNoTransfer && BeginTransfer(dest, len)) attached = Attached::kWaiting;
  if (attached == Attached::kWaiting) {
    mRoomEvent.Set();
    AwaitServing(timeoutMs == 0 ? kNoLimit : timeoutMs);
  }
  const unsigned int count = Detach();
  mFilePos.fetch_add(count);
  return count;
}

// Whether it may still bring bytes, or has some that were read ahead.
bool CHttpFileClient::HasTransfer() {
  CAutoBaseLock guard(&mBufferLock);
  return !mTransferEnded || !mReadAhead->IsEmpty();
}

// A wake-up that an earlier read no longer waited for lets none go: it waits on.
void CHttpFileClient::AwaitServing(std::uint64_t limit) {
  const std::uint32_t start = MS_GetTime();
  std::uint64_t left = limit;
  while (mDoneEvent.Wait(left) != 0 && !IsServed()) {
    if (limit != kNoLimit) left = limit - std::min<std::uint64_t>(limit, MillisecondsSince(start));
  }
}

bool CHttpFileClient::IsServed() {
  CAutoBaseLock guard(&mBufferLock);
  return mTransferEnded || mReadBuffer.GetLeftSize() == 0;
}

void CHttpFileClient::AttachLocked(void* dest, unsigned int len) {
  mReadBuffer.BindBuffer(dest, len);
  mReadBuffer.SetAvailSize(0);
  mReaderServed = false;
  mDoneEvent.Reset();
}

// Takes what was read ahead, and leaves the rest of the memory to the transfer.
CHttpFileClient::Attached CHttpFileClient::Attach(void* dest, unsigned int len) {
  bool has_room = false;
  {
    CAutoBaseLock guard(&mBufferLock);
    AttachLocked(dest, len);
    const auto ahead =
        static_cast<unsigned int>(mReadAhead->Take(static_cast<unsigned char*>(dest), len));
    mReadBuffer.SetAvailSize(ahead);
    const bool ended = mTransferEnded || mReadThread.IsThreadExit() != 0;
    if (ended && ahead == 0) return Attached::kNoTransfer;
    if (ahead < len && !ended) return Attached::kWaiting;
    has_room = mReadAhead->HasHalfFree();
  }
  if (has_room) mRoomEvent.Set();
  return Attached::kFilled;
}

bool CHttpFileClient::BeginTransfer(void* dest, unsigned int len) {
  StopHttpReadThread();
  if (mReadAhead == nullptr) mReadAhead = std::make_unique<ReadAhead>();
  {
    CAutoBaseLock guard(&mBufferLock);
    mReadAhead->Clear();
    AttachLocked(dest, len);
    mTransferEnded = false;
  }
  mNeedRestart.store(0);
  mLastRecvTick.store(MS_GetTime());
  int started = 0;
  try {
    started = StartHttpReadThread();
  } catch (const std::bad_alloc&) {
    started = 0;
  }
  if (started == 0) mNeedRestart.store(1);
  return started != 0;
}

// The bytes that the memory took. A cancel that ended this read is over with it.
unsigned int CHttpFileClient::Detach() {
  CAutoBaseLock guard(&mBufferLock);
  const unsigned int count = mReadBuffer.GetAvailSize();
  mReadBuffer.Delete();
  if (mTransferEnded && Flag(mStopRead).load() != 0) mNeedRestart.store(1);
  return count;
}

int CHttpFileClient::StartHttpReadThread() {
  Flag(mStopRead).store(0);
  mRoomEvent.Reset();
  mDoneEvent.Reset();
  return mReadThread.StartThread("HttpRead", this, 0, 0, kStackSize, 0);
}

void CHttpFileClient::StopHttpReadThread() {
  Flag(mStopRead).store(1);
  mRoomEvent.Set();
  mReadThread.StopThread();
}

// The stream, on the thread of the transfer -------------------------------------------------

int CHttpFileClient::ThreadLoop(std::uint64_t) {
  mIntervalStartTick = MS_GetTime();
  mIntervalBytes = 0;
  try {
    ReadHttpBodyWithCustomCallback(&mFileInfo, mFilePos.load(), this, 0);
  } catch (const std::bad_alloc&) {
    // Ends this transfer; the reader sees that it came to a stop.
  }
  CAutoBaseLock guard(&mBufferLock);
  mTransferEnded = true;
  mDoneEvent.Set();
  return 0;
}

unsigned int CHttpFileClient::OnHttpDataRecvCallback(const unsigned char* data, unsigned int len,
                                                     std::uint64_t) {
  mIntervalBytes += len;
  unsigned int taken = 0;
  while (mNeedClose.load() == 0 && Flag(mStopRead).load() == 0) {
    taken += TakePiece(data + taken, len - taken);
    if (taken == len) break;
    WakeServedReader();
    mRoomEvent.Wait();
  }
  const std::uint32_t now = MS_GetTime();
  MeasureSpeed(now);
  mLastRecvTick.store(now);
  return len;
}

unsigned int CHttpFileClient::TakePiece(const unsigned char* data, unsigned int len) {
  CAutoBaseLock guard(&mBufferLock);
  const unsigned int direct = std::min(len, mReadBuffer.GetLeftSize());
  if (direct > 0) {
    mReadBuffer.AppendBuffer(data, direct);
    mReaderServed = mReadBuffer.GetLeftSize() == 0;
  }
  return direct + static_cast<unsigned int>(mReadAhead->Put(data + direct, len - direct));
}

// Not at once, but behind all pieces that libcurl received together: what comes with those is read
// ahead, so that the reader's next calls need no other wake-up. And without the lock, which the
// reader takes first of all.
void CHttpFileClient::WakeServedReader() {
  bool served = false;
  {
    CAutoBaseLock guard(&mBufferLock);
    served = std::exchange(mReaderServed, false);
  }
  if (served) mDoneEvent.Set();
}

void CHttpFileClient::MeasureSpeed(std::uint32_t now) {
  const std::uint32_t elapsed = now - static_cast<std::uint32_t>(mIntervalStartTick);
  if (elapsed <= kIntervalMilliseconds) return;
  mRealTimeSpeed.store(static_cast<double>(mIntervalBytes) / elapsed);
  mIntervalStartTick = now;
  mIntervalBytes = 0;
}

int CHttpFileClient::OnHttpDataProgressCallback(std::uint64_t) {
  WakeServedReader();
  if (IsCancelled()) return 1;
  mAverageSpeed.store(GetHttpDownloadSpeedBPS(mFileInfo.curlHandle) * 0.001);
  if (MillisecondsSince(mLastRecvTick.load()) < kStallMilliseconds) return 0;
  LogQuietly([] {
    DbgOutputA(2, "%s: transer timeout....\r\n", "CHttpFileClient::OnHttpDataProgressCallback");
  });
  return 1;
}

// Ranges ------------------------------------------------------------------------------------

unsigned int CHttpFileClient::ReadFile_Part(void* dest, unsigned int len, std::uint64_t timeoutMs) {
  std::uint32_t start = 0;
  unsigned int count = 0;
  {
    CAutoBaseLock reading(&mReaderLock);
    CAutoBaseLock guard(&mFileLock);
    if (!IsReadable(dest, len)) return 0;
    start = MS_GetTime();
    count = ReadRange(dest, len, timeoutMs, start);
  }
  KeepSpeedLimit(count, start);
  return count;
}

// The handle serves one transfer at a time, so the stream ends first.
unsigned int CHttpFileClient::ReadRange(void* dest, unsigned int len, std::uint64_t timeoutMs,
                                        std::uint32_t start) {
  if (mReadThread.GetThreadHandle() != nullptr) {
    StopHttpReadThread();
    mNeedRestart.store(1);
  }
  Flag(mStopRead).store(0);
  if (mClosing.load() != 0) return 0;
  const unsigned int count =
      AskRanges(static_cast<unsigned char*>(dest), LeftOf(len), timeoutMs, start);
  mAverageSpeed.store(GetHttpDownloadSpeedBPS(mFileInfo.curlHandle) * 0.001);
  if (Flag(mStopRead).load() != 0) return 0;
  mFilePos.fetch_add(count);
  if (count > 0) mNeedRestart.store(1);
  const std::uint32_t elapsed = MillisecondsSince(start);
  if (count > 0 && elapsed > 0) mRealTimeSpeed.store(static_cast<double>(count) / elapsed);
  return count;
}

unsigned int CHttpFileClient::AskRanges(unsigned char* dest, unsigned int wanted,
                                        std::uint64_t timeoutMs, std::uint32_t start) {
  const std::uint64_t limit = std::min(timeoutMs, kRequestMilliseconds);
  unsigned int count = 0;
  while (count < wanted && (timeoutMs == 0 || MillisecondsSince(start) <= timeoutMs)) {
    mLastRecvTick.store(MS_GetTime());
    const unsigned int got = ReadHttpBody(GetHttpFileInfo(), mFilePos.load() + count, dest + count,
                                          wanted - count, limit, &mStopRead, nullptr);
    count += got;
    if (got == 0 || Flag(mStopRead).load() != 0) break;
  }
  return count;
}
