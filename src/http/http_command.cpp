#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "http/easy_handle.h"
#include "http/transfer.h"
#include "qvx/debug_output.h"
#include "qvx/hex_text.h"
#include "qvx/http_file.h"
#include "qvx/sync.h"

namespace qvx::http {
namespace {

constexpr std::uint64_t kCommandMilliseconds = 30000;
constexpr unsigned int kMd5Bytes = 16;

// Without any size libcurl would take the body from the standard input.
void SetPostData(const EasyHandle& handle, const CBaseBuffer& data) {
  const unsigned int size = data.GetAvailSize();
  const unsigned char* bytes = data.GetBuffer();
  handle.Set(CURLOPT_POSTFIELDS, size > 0 ? reinterpret_cast<const char*>(bytes) : "");
  handle.Set(CURLOPT_POSTFIELDSIZE, static_cast<long>(size));
}

bool RunCommand(const CurlFunctions& curl, const EasyHandle& handle, const char* url,
                CBaseBuffer* response) {
  HttpWriteContext context{response, 1, nullptr, MS_GetTime(), 0, kCommandMilliseconds};
  SetCallbacks(curl, handle.Get(), &context);
  handle.Set(CURLOPT_CONNECTTIMEOUT_MS, kLimitMilliseconds);
  handle.Set(CURLOPT_TIMEOUT_MS, kLimitMilliseconds);
  const CURLcode result = Perform(curl, handle.Get());
  if (context.outOfMemory) throw std::bad_alloc();
  if (result != CURLE_OK) {
    DbgOutputA(2, "<%s> open failed: %s\r\n", url, curl.easy_strerror(result));
    return false;
  }
  const long code = ResponseCode(curl, handle.Get());
  if (code >= 400) DbgOutputA(2, "<%s> response: %ld\r\n", url, code);
  return code < 400;
}

// A POST where there is data for one.
int Command(const Connection& connection, const CBaseBuffer* post_data, CBaseBuffer* response) {
  const CurlFunctions* curl = RequireCurl();
  if (curl == nullptr || connection.url == nullptr || *connection.url == '\0' ||
      response == nullptr) {
    return 0;
  }
  const EasyHandle handle(*curl, connection);
  if (!handle.IsMade()) {
    DbgOutputA(2, "%s failed\r\n", post_data != nullptr ? "curl_easy_init" : "gfnCurlEasyInit");
    return 0;
  }
  if (post_data != nullptr) handle.Set(CURLOPT_POST, 1L);
  handle.Set(CURLOPT_FOLLOWLOCATION, 1L);
  handle.Set(CURLOPT_NOSIGNAL, 1L);
  if (post_data != nullptr) SetPostData(handle, *post_data);
  return RunCommand(*curl, handle, connection.url, response) ? 1 : 0;
}

void DecodeMd5(const CBaseBuffer& text, unsigned char* md5) {
  CBaseBuffer digest;
  const unsigned int length =
      std::min<unsigned int>(text.GetAvailSize(), std::numeric_limits<int>::max());
  HexStringToBufferA(reinterpret_cast<const char*>(text.GetBuffer()), static_cast<int>(length),
                     &digest);
  const unsigned int count = std::min(digest.GetAvailSize(), kMd5Bytes);
  if (count > 0) std::memcpy(md5, digest.GetBuffer(), count);
}

}  // namespace
}  // namespace qvx::http

using namespace qvx::http;

extern "C" {

int PerformHttpGetCommand(const char* url, const CBaseBuffer* caCertificate,
                          const char* bearerToken, const char* extraHeader, long authType,
                          const char* userName, const char* password, int useProxy, long proxyType,
                          const char* proxy, const char* proxyUserName, const char* proxyPassword,
                          CBaseBuffer* response) {
  return Command({url, caCertificate, bearerToken, extraHeader, authType, userName, password,
                  useProxy, proxyType, proxy, proxyUserName, proxyPassword},
                 nullptr, response);
}

int PerformHttpPostCommand(const char* url, const CBaseBuffer* caCertificate,
                           const char* bearerToken, const char* extraHeader, long authType,
                           const char* userName, const char* password, int useProxy, long proxyType,
                           const char* proxy, const char* proxyUserName, const char* proxyPassword,
                           const CBaseBuffer* postData, CBaseBuffer* response) {
  if (postData == nullptr) {
    RequireCurl();
    return 0;
  }
  return Command({url, caCertificate, bearerToken, extraHeader, authType, userName, password,
                  useProxy, proxyType, proxy, proxyUserName, proxyPassword},
                 postData, response);
}

int GetHttpFileMD5(const char* url, unsigned char* md5) {
  CBaseBuffer text;
  Connection connection{};
  connection.url = url;
  if (md5 == nullptr || Command(connection, nullptr, &text) == 0) return 0;
  DecodeMd5(text, md5);
  return 1;
}

}  // extern "C"
