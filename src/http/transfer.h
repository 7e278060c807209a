// What libcurl calls back during a transfer. All of it lives on the stack of the function that
// runs the transfer; the callbacks come on that thread. No exception passes through libcurl: a
// failed allocation ends the transfer and is thrown when that is over.
#pragma once

#include <cstddef>
#include <cstdint>

#include "http/curl_functions.h"
#include "qvx/base_buffer.h"
#include "qvx/http_file.h"

namespace qvx::http {

// A body that goes into a buffer.
struct HttpWriteContext {
  CBaseBuffer* buffer;
  int growable;             // 0: within the buffer's capacity; else append all
  int* stopFlag;            // may be null; another thread sets it atomically
  std::uint64_t startTick;  // of the whole operation
  std::uint64_t lastRecvTick;
  std::uint64_t timeoutMs;  // on the whole operation; 0: none
  bool outOfMemory = false;
};

// A body that goes to a callback.
struct HttpCallbackContext {
  IHttpDataCallback* callback;
  std::uint64_t userData;
  bool outOfMemory = false;
};

// Makes the handle call back into the context, with no time limit of libcurl's own.
void SetCallbacks(const CurlFunctions& curl, CURL* handle, HttpWriteContext* context);
void SetCallbacks(const CurlFunctions& curl, CURL* handle, HttpCallbackContext* context);

}  // namespace qvx::http
