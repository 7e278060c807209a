// Handles of libcurl's easy interface, as opens and commands use them.
#pragma once

#include <utility>

#include "http/curl_functions.h"
#include "qvx/base_buffer.h"

namespace qvx::http {

// The twelve arguments that every open and command takes; see qvx/http_file.h.
struct Connection {
  const char* url;
  const CBaseBuffer* ca_certificate;
  const char* bearer_token;
  const char* extra_header;
  long auth_type;
  const char* user_name;
  const char* password;
  int use_proxy;
  long proxy_type;
  const char* proxy;
  const char* proxy_user_name;
  const char* proxy_password;
};

inline constexpr long kLimitMilliseconds = 10000;  // of connecting, and of a whole command

// Owns a handle, and the header list that belongs to it.
class EasyHandle {
 public:
  // A fresh handle with all that the connection says; none where libcurl has no memory for it.
  EasyHandle(const CurlFunctions& curl, const Connection& connection);
  ~EasyHandle();
  EasyHandle(const EasyHandle&) = delete;
  EasyHandle& operator=(const EasyHandle&) = delete;

  bool IsMade() const { return handle_ != nullptr; }
  CURL* Get() const { return handle_; }
  // The caller owns the handle from now on, and ends it with FreeHandle.
  CURL* Release() { return std::exchange(handle_, nullptr); }

  template <typename Value>
  void Set(CURLoption option, Value value) const {
    curl_.easy_setopt(handle_, option, value);
  }

 private:
  const CurlFunctions& curl_;
  CURL* handle_;
};

// Frees a handle with its header list. Null is ignored.
void FreeHandle(const CurlFunctions& curl, CURL* handle) noexcept;

// Runs the transfer. No signal of a broken pipe reaches the host.
CURLcode Perform(const CurlFunctions& curl, CURL* handle);

// The status of the last answer; 200 where there is none to be had.
long ResponseCode(const CurlFunctions& curl, CURL* handle);

}  // namespace qvx::http
