#include <cerrno>
#include <memory>

#include "http/easy_handle.h"
#include "platform/file.h"
#include "platform/last_error.h"
#include "qvx/debug_output.h"
#include "qvx/http_download.h"

namespace qvx::http {

namespace {

constexpr unsigned int kBlockBytes = 0x80000;

// Closes the client however the copy ends.
class ClosedAtEnd {
 public:
  explicit ClosedAtEnd(CHttpFileClient& client) : client_(client) {}
  ~ClosedAtEnd() { client_.CloseFile(); }
  ClosedAtEnd(const ClosedAtEnd&) = delete;
  ClosedAtEnd& operator=(const ClosedAtEnd&) = delete;

 private:
  CHttpFileClient& client_;
};

}  // namespace

// One copy of a whole file.
class CopyJob {
 public:
  CopyJob(CHttpFileClient& client, std::uint64_t timeout, INetFileCopyProgressListener* listener,
          std::uint64_t user_data)
      : client_(client), timeout_(timeout), listener_(listener), user_data_(user_data) {}

  bool Run(const Connection& from, const char* to);

 private:
  bool Transfer(const Connection& from, const char* to);
  bool Open(const Connection& from);
  bool CopyBlocks(const platform::File& file);
  bool CopyBlock(const platform::File& file, void* buffer);
  bool Report(unsigned int bytes, std::uint32_t start);

  CHttpFileClient& client_;
  std::uint64_t timeout_;
  INetFileCopyProgressListener* listener_;
  std::uint64_t user_data_;
  std::uint64_t size_ = 0;
  std::uint64_t copied_ = 0;
};

bool CopyJob::Run(const Connection& from, const char* to) {
  const std::uint32_t start = MS_GetTime();
  const bool complete = Transfer(from, to);
  const std::uint32_t elapsed = MS_GetTime() - start;
  if (elapsed != 0) {
    DbgOutputA(2, "download file %s, used %lldms, speed is %.2f K/s!!\r\n", from.url,
               static_cast<long long>(elapsed), static_cast<double>(copied_) / elapsed);
  }
  return complete;
}

bool CopyJob::Transfer(const Connection& from, const char* to) {
  const ClosedAtEnd closed(client_);
  platform::File file;
  if (!file.Open(to, platform::OpenMode::Write())) {
    DbgOutputA(2, "local file(%s) open failed, err is:%s\r\n", to,
               platform::SystemErrorText(errno));
    return false;
  }
  const bool complete = Open(from) && CopyBlocks(file);
  return file.Close() && complete;
}

bool CopyJob::Open(const Connection& from) {
  const int opened =
      client_.OpenFile(from.url, from.ca_certificate, from.bearer_token, from.extra_header,
                       from.auth_type, from.user_name, from.password, from.use_proxy,
                       from.proxy_type, from.proxy, from.proxy_user_name, from.proxy_password);
  if (opened == 0) DbgOutputA(2, "NetFile(%s) open failed\r\n", from.url);
  return opened != 0;
}

bool CopyJob::CopyBlocks(const platform::File& file) {
  size_ = client_.GetFileSize();
  DbgOutputA(2, "net file size is %llu\r\n", static_cast<unsigned long long>(size_));
  const auto buffer = std::make_unique_for_overwrite<unsigned char[]>(kBlockBytes);
  const std::uint32_t start = MS_GetTime();
  while (size_ == 0 || copied_ < size_) {
    if (timeout_ != 0 && MS_GetTime() - start > timeout_) return false;
    if (client_.IsCancelled() || !CopyBlock(file, buffer.get())) return false;
  }
  return true;
}

bool CopyJob::CopyBlock(const platform::File& file, void* buffer) {
  const std::uint32_t start = MS_GetTime();
  const unsigned int bytes = client_.ReadFile_Continue(buffer, kBlockBytes, timeout_);
  if (bytes == 0) {
    DbgOutputA(2, "Read Net File return == 0!!\r\n");
    return false;
  }
  const std::size_t written = file.WriteAt(copied_, buffer, bytes).count;
  copied_ += written;
  return written == bytes && Report(bytes, start);
}

bool CopyJob::Report(unsigned int bytes, std::uint32_t start) {
  if (listener_ == nullptr) return true;
  const std::uint32_t elapsed = MS_GetTime() - start;
  const double speed = elapsed == 0 ? 0.0 : static_cast<double>(bytes) / elapsed;
  std::uint64_t limit = 0;
  if (listener_->OnNetFileCopyProgress(user_data_, copied_, size_, speed, &limit) == 0) {
    return false;
  }
  client_.LimitReadSpeed(limit);
  return true;
}

}  // namespace qvx::http

extern "C" int HttpFileCopyFromServer(
    CHttpFileClient* client, const char* url, const CBaseBuffer* caCertificate,
    const char* bearerToken, const char* extraHeader, long authType, const char* userName,
    const char* password, int useProxy, long proxyType, const char* proxy,
    const char* proxyUserName, const char* proxyPassword, const char* localPath,
    std::uint64_t timeoutMs, INetFileCopyProgressListener* listener, std::uint64_t userData) {
  if (client == nullptr || localPath == nullptr) return 0;
  qvx::http::CopyJob job(*client, timeoutMs, listener, userData);
  const bool complete =
      job.Run({url, caCertificate, bearerToken, extraHeader, authType, userName, password, useProxy,
               proxyType, proxy, proxyUserName, proxyPassword},
              localPath);
  return complete ? 1 : 0;
}
