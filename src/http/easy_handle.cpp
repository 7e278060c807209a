#include "http/easy_handle.h"

#include <new>
#include <string>

#include "platform/pipe_signal.h"

namespace qvx::http {
namespace {

constexpr long kReceiveBuffer = 0x40000;
constexpr long kMostRedirects = 30;

bool HasText(const char* text) {
  return text != nullptr && *text != '\0';
}

// False if memory ran out; the list is then as long as it came.
bool AppendHeader(const CurlFunctions& curl, curl_slist** list, const char* line) {
  curl_slist* longer = curl.slist_append(*list, line);
  if (longer != nullptr) *list = longer;
  return longer != nullptr;
}

bool BuildHeaders(const CurlFunctions& curl, const Connection& connection, curl_slist** list) {
  if (HasText(connection.bearer_token)) {
    const std::string line = std::string("Authorization:Bearer ") + connection.bearer_token;
    if (!AppendHeader(curl, list, line.c_str()) || !AppendHeader(curl, list, "Expect:")) {
      return false;
    }
  }
  return connection.extra_header == nullptr || AppendHeader(curl, list, connection.extra_header);
}

// libcurl keeps no copy of the list, so it lives as long as the handle, which remembers it.
bool SetHeaders(const CurlFunctions& curl, CURL* handle, const Connection& connection) {
  curl_slist* list = nullptr;
  const bool complete = BuildHeaders(curl, connection, &list);
  curl.easy_setopt(handle, CURLOPT_PRIVATE, list);
  curl.easy_setopt(handle, CURLOPT_HTTPHEADER, list);
  return complete;
}

void SetText(const CurlFunctions& curl, CURL* handle, CURLoption option, const char* text) {
  if (text != nullptr) curl.easy_setopt(handle, option, text);
}

void SetProxy(const CurlFunctions& curl, CURL* handle, const Connection& connection) {
  if (connection.use_proxy == 0) return;
  curl.easy_setopt(handle, CURLOPT_PROXYTYPE, connection.proxy_type);
  curl.easy_setopt(handle, CURLOPT_PROXY, connection.proxy);
  SetText(curl, handle, CURLOPT_PROXYUSERNAME, connection.proxy_user_name);
  SetText(curl, handle, CURLOPT_PROXYPASSWORD, connection.proxy_password);
}

void SetAuthentication(const CurlFunctions& curl, CURL* handle, const Connection& connection) {
  if (connection.auth_type == 0) return;
  curl.easy_setopt(handle, CURLOPT_HTTPAUTH, connection.auth_type);
  SetText(curl, handle, CURLOPT_USERNAME, connection.user_name);
  SetText(curl, handle, CURLOPT_PASSWORD, connection.password);
}

void SetServerChecks(const CurlFunctions& curl, CURL* handle, const CBaseBuffer* certificate) {
  const bool check = certificate != nullptr && certificate->GetAvailSize() > 0;
  curl.easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, check ? 1L : 0L);
  curl.easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, check ? 2L : 0L);
  if (!check) return;
  curl_blob blob;
  blob.data = const_cast<unsigned char*>(certificate->GetBuffer());
  blob.len = certificate->GetAvailSize();
  blob.flags = CURL_BLOB_COPY;
  curl.easy_setopt(handle, CURLOPT_CAINFO_BLOB, &blob);
  // The certificates in the system's folder would count beside it.
  const char* none = nullptr;
  curl.easy_setopt(handle, CURLOPT_CAPATH, none);
}

// libcurl also speaks other protocols and reads local files, which no URL shall reach.
void KeepToTheWeb(const CurlFunctions& curl, CURL* handle) {
  const long web = CURLPROTO_HTTP | CURLPROTO_HTTPS;
  curl.easy_setopt(handle, CURLOPT_PROTOCOLS, web);
  curl.easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS, web);
}

}  // namespace

EasyHandle::EasyHandle(const CurlFunctions& curl, const Connection& connection)
    : curl_(curl), handle_(curl.easy_init()) {
  if (handle_ == nullptr) return;
  try {
    Set(CURLOPT_URL, connection.url);
    if (!SetHeaders(curl, handle_, connection)) throw std::bad_alloc();
    SetProxy(curl, handle_, connection);
    SetAuthentication(curl, handle_, connection);
    SetServerChecks(curl, handle_, connection.ca_certificate);
    KeepToTheWeb(curl, handle_);
    Set(CURLOPT_MAXREDIRS, kMostRedirects);
    Set(CURLOPT_BUFFERSIZE, kReceiveBuffer);
  } catch (const std::bad_alloc&) {
    FreeHandle(curl, handle_);
    throw;
  }
}

EasyHandle::~EasyHandle() {
  FreeHandle(curl_, handle_);
}

void FreeHandle(const CurlFunctions& curl, CURL* handle) noexcept {
  if (handle == nullptr) return;
  const platform::PipeSignalGuard guard;
  curl_slist* list = nullptr;
  curl.easy_getinfo(handle, CURLINFO_PRIVATE, &list);
  curl.easy_cleanup(handle);
  if (list != nullptr) curl.slist_free_all(list);
}

CURLcode Perform(const CurlFunctions& curl, CURL* handle) {
  const platform::PipeSignalGuard guard;
  return curl.easy_perform(handle);
}

long ResponseCode(const CurlFunctions& curl, CURL* handle) {
  long code = 200;
  if (curl.easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &code) != CURLE_OK) return 200;
  return code;
}

}  // namespace qvx::http
