#include "qvx/http_download.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>
#include <new>

#include "core/quiet_log.h"
#include "http/pause.h"
#include "platform/file.h"
#include "platform/last_error.h"
#include "qvx/debug_output.h"

using qvx::platform::File;
using qvx::platform::OpenMode;
using qvx::platform::SystemErrorText;

namespace {

constexpr unsigned int kBlockBytes = 0x80000;
constexpr std::uint64_t kReadMilliseconds = 10000;
constexpr std::uint64_t kRetryMilliseconds = 5000;
constexpr int kStackSize = 0x200000;

std::uint64_t Needed(const tagMTDOWNLOAD_BLOCK& block) {
  return block.endPos - block.startPos;
}

bool IsComplete(const tagMTDOWNLOAD_BLOCK& block) {
  return block.copiedSize.load() == Needed(block);
}

bool OpenRemote(CHttpFileClient& client, const tagMTDOWNLOAD_BLOCK& block) {
  const int opened = client.OpenFile(
      block.url.GetString(), &block.caCertificate, block.bearerToken.GetString(),
      block.extraHeader.GetString(), block.authType, block.userName.GetString(),
      block.password.GetString(), block.useProxy, block.proxyType, block.proxy.GetString(),
      block.proxyUserName.GetString(), block.proxyPassword.GetString());
  if (opened == 0) DbgOutputA(2, "NetFile(%s) open failed\r\n", block.url.GetString());
  return opened != 0;
}

bool OpenLocal(File& file, const tagMTDOWNLOAD_BLOCK& block) {
  const char* path = block.localPath.GetString();
  OpenMode mode;
  mode.read = mode.write = true;
  if (!file.Open(path, mode)) {
    DbgOutputA(2, "local file(%s) open failed, err is:%s\r\n", path, SystemErrorText(errno));
    return false;
  }
  constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
  if (block.startPos + block.copiedSize.load() <= kMost) return true;
  DbgOutputA(2, "local file(%s) seek failed, err is:%s\r\n", path, SystemErrorText(EINVAL));
  return false;
}

}  // namespace

IMultiThreadDownloadFailedListener::~IMultiThreadDownloadFailedListener() = default;

// Life --------------------------------------------------------------------------------------

CMultiThreadDownload::CMultiThreadDownload()
    : mDownloading(0),
      mReadBlockSize(kBlockBytes),
      mStopDownload(0),
      mPauseEvent(nullptr, 1),
      mProgressListener(nullptr),
      mFailedListener(nullptr),
      mUserData(0) {}

CMultiThreadDownload::CMultiThreadDownload(const CMultiThreadDownload&) : CMultiThreadDownload() {}

CMultiThreadDownload& CMultiThreadDownload::operator=(const CMultiThreadDownload& other) {
  if (this != &other) CancelDownload();
  return *this;
}

CMultiThreadDownload::~CMultiThreadDownload() {
  CancelDownload();
}

void CMultiThreadDownload::DownloadFile(int waitEnd, tagMTDOWNLOAD_BLOCK* block,
                                        unsigned int readBlockSize,
                                        INetFileCopyProgressListener* progressListener,
                                        IMultiThreadDownloadFailedListener* failedListener,
                                        std::uint64_t userData) {
  CAutoBaseLock guard(&mLifecycleLock);
  CancelDownload();
  mDownloading.store(1);
  mReadBlockSize.store(readBlockSize != 0 ? readBlockSize : kBlockBytes);
  mStopDownload.store(0);
  mPauseEvent.Set();
  mRetryEvent.Reset();
  mUserData.store(userData);
  mProgressListener.store(progressListener);
  mFailedListener.store(failedListener);
  mThreadInfo[0].block.store(block);
  const int started = mThreadInfo[0].thread.StartThread(
      "MT_ONEBLOCK", this, reinterpret_cast<std::uint64_t>(&mThreadInfo[0]), 0, kStackSize, 0);
  if (started == 0) mDownloading.store(0);
  if (waitEnd != 0) WaitForDownloadEnd();
}

void CMultiThreadDownload::WaitForDownloadEnd() {
  mThreadInfo[0].client.CloseFile();
  mThreadInfo[0].thread.StopThread();
  mDownloading.store(0);
}

// The listeners go first, so that none of them is called with another's user data.
void CMultiThreadDownload::AskToStop() {
  mStopDownload.store(1);
  mProgressListener.store(nullptr);
  mFailedListener.store(nullptr);
  mUserData.store(0);
  mPauseEvent.Set();
  mRetryEvent.Set();
}

// Asks twice: at once, for a thread that holds the lock while it waits for the end, and again
// for a job that began meanwhile.
void CMultiThreadDownload::CancelDownload() {
  qvx::core::LogQuietly([] { DbgOutputA(2, "CancelDownload +++!!\r\n"); });
  AskToStop();
  {
    CAutoBaseLock guard(&mLifecycleLock);
    AskToStop();
    WaitForDownloadEnd();
  }
  qvx::core::LogQuietly([] { DbgOutputA(2, "CancelDownload ---!!\r\n"); });
}

void CMultiThreadDownload::PauseDownload() {
  if (mDownloading.load() == 0) return;
  mPauseEvent.Reset();
  if (mStopDownload.load() != 0) mPauseEvent.Set();  // a cancel must not lose its wake-up
}

void CMultiThreadDownload::ResumeDownload() {
  if (mDownloading.load() != 0) mPauseEvent.Set();
}

int CMultiThreadDownload::IsDownloadingStart() {
  return mDownloading.load();
}

// The thread --------------------------------------------------------------------------------

int CMultiThreadDownload::ThreadLoop(std::uint64_t context) {
  return DownloadOneBlock(reinterpret_cast<tagMTDOWNLOAD_THREADINFO*>(context));
}

int CMultiThreadDownload::DownloadOneBlock(tagMTDOWNLOAD_THREADINFO* info) {
  tagMTDOWNLOAD_BLOCK* block = info != nullptr ? info->block.load() : nullptr;
  if (block == nullptr || IsComplete(*block)) return 0;
  bool success = false;
  try {
    success = Attempt(info->client, *block);
  } catch (const std::bad_alloc&) {
    success = false;
  }
  info->client.CloseFile();
  block->speedKBPS.store(0.0);
  if (mStopDownload.load() == 0) ReportEnd(success);
  if (success) return 0;
  qvx::http::Pause(mRetryEvent, kRetryMilliseconds);
  return mStopDownload.load() == 0 ? 1 : 0;
}

// Where the file can't be closed, nobody knows what of this attempt is on disk.
bool CMultiThreadDownload::Attempt(CHttpFileClient& client, tagMTDOWNLOAD_BLOCK& block) {
  File file;
  if (IsStopping() || !OpenRemote(client, block) || !OpenLocal(file, block)) return false;
  const std::uint64_t before = block.copiedSize.load();
  const bool success = Transfer(client, block, file);
  if (file.Close()) return success;
  block.copiedSize.store(before);
  return false;
}

bool CMultiThreadDownload::Transfer(CHttpFileClient& client, tagMTDOWNLOAD_BLOCK& block,
                                    const File& file) {
  const std::uint64_t copied = block.copiedSize.load();
  DbgOutputA(2, "StartPos = %lld, Copied Size = %lld, total need=%lld!!\r\n",
             static_cast<long long>(block.startPos), static_cast<long long>(copied),
             static_cast<long long>(Needed(block)));
  const auto buffer = std::make_unique_for_overwrite<unsigned char[]>(mReadBlockSize.load());
  client.SeekFile(static_cast<std::int64_t>(block.startPos + copied), 0);
  std::uint32_t tick = MS_GetTime();
  while (block.copiedSize.load() < Needed(block) && !IsStopping()) {
    const unsigned int bytes = CopyPiece(client, block, file, buffer.get());
    if (bytes == 0 || IsStopping()) break;
    const std::uint32_t now = MS_GetTime();
    if (now != tick) block.speedKBPS.store(static_cast<double>(bytes) / (now - tick));
    tick = now;
    ReportProgress(client, block);
    mPauseEvent.Wait();
  }
  return IsComplete(block);
}

// The bytes of the piece, or 0 if it did not come or the file did not take all of it.
unsigned int CMultiThreadDownload::CopyPiece(CHttpFileClient& client, tagMTDOWNLOAD_BLOCK& block,
                                             const File& file, void* buffer) {
  const std::uint64_t copied = block.copiedSize.load();
  const auto wanted = static_cast<unsigned int>(
      std::min<std::uint64_t>(Needed(block) - copied, mReadBlockSize.load()));
  const unsigned int bytes = client.ReadFile_Continue(buffer, wanted, kReadMilliseconds);
  if (bytes == 0) DbgOutputA(2, "Read Net File return == 0!!\r\n");
  const std::size_t written = file.WriteAt(block.startPos + copied, buffer, bytes).count;
  block.copiedSize.fetch_add(written);
  return written == bytes ? bytes : 0;
}

bool CMultiThreadDownload::IsStopping() const {
  const bool stopping = mStopDownload.load() != 0;
  if (stopping) DbgOutputA(2, "force stopping!!\r\n");
  return stopping;
}

void CMultiThreadDownload::ReportProgress(CHttpFileClient& client,
                                          const tagMTDOWNLOAD_BLOCK& block) {
  const std::uint64_t user_data = mUserData.load();
  INetFileCopyProgressListener* listener = mProgressListener.load();
  if (listener == nullptr) return;
  std::uint64_t limit = 0;
  listener->OnNetFileCopyProgress(user_data, block.copiedSize.load(), Needed(block),
                                  block.speedKBPS.load(), &limit);
  client.LimitReadSpeed(limit);
}

void CMultiThreadDownload::ReportEnd(bool success) {
  const std::uint64_t user_data = mUserData.load();
  IMultiThreadDownloadFailedListener* listener = mFailedListener.load();
  if (listener != nullptr) listener->OnDownloadBlockEnd(user_data, success ? 1 : 0);
}
