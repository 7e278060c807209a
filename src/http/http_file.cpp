#include "qvx/http_file.h"

#include <cstdio>
#include <new>

#include "core/string_access.h"
#include "http/easy_handle.h"
#include "http/transfer.h"
#include "qvx/debug_output.h"
#include "qvx/sync.h"

namespace qvx::http {
namespace {

// False, and a line in the log, for a server that can't be reached or has no such file.
bool AskForHead(const CurlFunctions& curl, const EasyHandle& handle, const char* url) {
  handle.Set(CURLOPT_FOLLOWLOCATION, 1L);
  handle.Set(CURLOPT_NOSIGNAL, 1L);
  handle.Set(CURLOPT_NOBODY, 1L);
  handle.Set(CURLOPT_CONNECTTIMEOUT_MS, kLimitMilliseconds);
  handle.Set(CURLOPT_TIMEOUT_MS, kLimitMilliseconds);
  const CURLcode result = Perform(curl, handle.Get());
  if (result != CURLE_OK) {
    DbgOutputA(2, "<%s> open failed: %s\r\n", url, curl.easy_strerror(result));
    return false;
  }
  const long code = ResponseCode(curl, handle.Get());
  if (code >= 400) DbgOutputA(2, "<%s> response: %ld\r\n", url, code);
  return code < 400;
}

bool AskSize(const CurlFunctions& curl, const EasyHandle& handle, curl_off_t* size) {
  const CURLcode result = curl.easy_getinfo(handle.Get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, size);
  if (result == CURLE_OK) return true;
  DbgOutputA(2, "GetFileSize failed: %s\r\n", curl.easy_strerror(result));
  return false;
}

void TurnToReading(const EasyHandle& handle) {
  handle.Set(CURLOPT_NOBODY, 0L);
  handle.Set(CURLOPT_CONNECTTIMEOUT_MS, kLimitMilliseconds);
  handle.Set(CURLOPT_TIMEOUT_MS, kLimitMilliseconds);
  handle.Set(CURLOPT_TCP_KEEPALIVE, 1L);
  handle.Set(CURLOPT_TCP_KEEPIDLE, 120L);
  handle.Set(CURLOPT_TCP_KEEPINTVL, 60L);
}

// A handle that is ready to read, or null.
CURL* Open(const CurlFunctions& curl, const Connection& connection, curl_off_t* size) {
  EasyHandle handle(curl, connection);
  if (!handle.IsMade()) {
    DbgOutputA(2, "gfnCurlEasyInit failed\r\n");
    return nullptr;
  }
  if (!AskForHead(curl, handle, connection.url) || !AskSize(curl, handle, size)) return nullptr;
  TurnToReading(handle);
  return handle.Release();
}

int OpenFile(tagHTTPFILEINFO* info, const Connection& connection) {
  const CurlFunctions* curl = RequireCurl();
  if (info == nullptr) return 0;
  CBaseStringA url(connection.url);
  info->curlHandle = nullptr;
  info->fileSize = 0;
  curl_off_t size = -1;
  if (curl != nullptr) info->curlHandle = Open(*curl, connection, &size);
  core::StringAccess::Swap(info->url, url);  // not before: the argument may be the record's own
  const bool opened = info->curlHandle != nullptr;
  if (opened && size > 0) info->fileSize = static_cast<std::uint64_t>(size);
  DbgOutputA(2, "%s: %lld\r\n", "OpenHttpFile", static_cast<long long>(info->fileSize));
  return opened ? 1 : 0;
}

// Each kind of read clears what the other left on the handle.
void SetRange(const CurlFunctions& curl, CURL* handle, std::uint64_t start, unsigned int size) {
  char range[48];
  std::snprintf(range, sizeof(range), "%llu-%llu", static_cast<unsigned long long>(start),
                static_cast<unsigned long long>(start + size - 1));
  curl.easy_setopt(handle, CURLOPT_RESUME_FROM_LARGE, curl_off_t{0});
  curl.easy_setopt(handle, CURLOPT_FAILONERROR, 0L);
  curl.easy_setopt(handle, CURLOPT_RANGE, range);
}

// An error page must not pass for the file's content.
void SetStart(const CurlFunctions& curl, CURL* handle, std::uint64_t start) {
  curl.easy_setopt(handle, CURLOPT_RANGE, nullptr);
  curl.easy_setopt(handle, CURLOPT_FAILONERROR, 1L);
  curl.easy_setopt(handle, CURLOPT_RESUME_FROM_LARGE, static_cast<curl_off_t>(start));
}

unsigned int ReadInto(const CurlFunctions& curl, CURL* handle, HttpWriteContext& context,
                      int* timed_out) {
  SetCallbacks(curl, handle, &context);
  const CURLcode result = Perform(curl, handle);
  if (context.outOfMemory) throw std::bad_alloc();
  const unsigned int count = context.buffer->GetAvailSize();
  if (result == CURLE_OK) return count;
  if (result == CURLE_OPERATION_TIMEDOUT && timed_out != nullptr) *timed_out = 1;
  DbgOutputA(2, "readfile failed, read count=%ld: %s\r\n", static_cast<long>(count),
             curl.easy_strerror(result));
  return count;
}

}  // namespace
}  // namespace qvx::http

using namespace qvx::http;

IHttpDataCallback::~IHttpDataCallback() = default;

extern "C" {

int OpenHttpFile(tagHTTPFILEINFO* info, const char* url, const CBaseBuffer* caCertificate,
                 const char* bearerToken, const char* extraHeader, long authType,
                 const char* userName, const char* password, int useProxy, long proxyType,
                 const char* proxy, const char* proxyUserName, const char* proxyPassword) {
  return OpenFile(info, {url, caCertificate, bearerToken, extraHeader, authType, userName, password,
                         useProxy, proxyType, proxy, proxyUserName, proxyPassword});
}

void CloseHttpFile(tagHTTPFILEINFO* info) {
  const CurlFunctions* curl = RequireCurl();
  if (curl == nullptr || info == nullptr) return;
  FreeHandle(*curl, info->curlHandle);
  info->curlHandle = nullptr;
  info->url.Free();
  info->fileSize = 0;
}

unsigned int ReadHttpBody(tagHTTPFILEINFO* info, std::uint64_t startPos, void* dest,
                          unsigned int size, std::uint64_t timeoutMs, int* stopFlag,
                          int* timedOut) {
  if (timedOut != nullptr) *timedOut = 0;
  const CurlFunctions* curl = RequireCurl();
  if (curl == nullptr || info == nullptr || info->curlHandle == nullptr) return 0;
  if (dest == nullptr || size == 0) return 0;
  CBaseBuffer buffer;
  buffer.BindBuffer(dest, size);
  buffer.SetAvailSize(0);
  HttpWriteContext context{&buffer, 0, stopFlag, MS_GetTime(), 0, timeoutMs};
  SetRange(*curl, info->curlHandle, startPos, size);
  return ReadInto(*curl, info->curlHandle, context, timedOut);
}

void ReadHttpBodyWithCustomCallback(tagHTTPFILEINFO* info, std::uint64_t startPos,
                                    IHttpDataCallback* callback, std::uint64_t userData) {
  const CurlFunctions* curl = RequireCurl();
  if (curl == nullptr || info == nullptr || info->curlHandle == nullptr) return;
  HttpCallbackContext context{callback, userData};
  SetStart(*curl, info->curlHandle, startPos);
  SetCallbacks(*curl, info->curlHandle, &context);
  const CURLcode result = Perform(*curl, info->curlHandle);
  if (context.outOfMemory) throw std::bad_alloc();
  if (result == CURLE_OK || result == CURLE_ABORTED_BY_CALLBACK) return;
  DbgOutputA(2, "ReadHttpBodyWithCustomCallback failed, res=%ld: %s\r\n", static_cast<long>(result),
             curl->easy_strerror(result));
}

double GetHttpDownloadSpeedBPS(void* curlHandle) {
  const CurlFunctions* curl = RequireCurl();
  double speed = 0.0;
  if (curl == nullptr || curlHandle == nullptr) return 0.0;
  const CURLcode result = curl->easy_getinfo(curlHandle, CURLINFO_SPEED_DOWNLOAD, &speed);
  return result == CURLE_OK ? speed : 0.0;
}

}  // extern "C"
