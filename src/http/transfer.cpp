#include "http/transfer.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <new>

#include "core/quiet_log.h"
#include "qvx/debug_output.h"
#include "qvx/sync.h"

namespace qvx::http {
namespace {

constexpr unsigned int kMostBytes = std::numeric_limits<unsigned int>::max();

bool IsStopAsked(const HttpWriteContext& context) {
  return context.stopFlag != nullptr && std::atomic_ref<int>(*context.stopFlag).load() != 0;
}

// The capacity doubles: growing by each piece would copy the body again and again.
bool Append(HttpWriteContext& context, const void* data, std::size_t size) {
  CBaseBuffer& buffer = *context.buffer;
  if (size > kMostBytes - buffer.GetAvailSize()) return false;
  const auto needed = buffer.GetAvailSize() + static_cast<unsigned int>(size);
  try {
    if (needed > buffer.GetBufSize()) {
      const unsigned int half = std::min(buffer.GetBufSize(), kMostBytes / 2);
      buffer.SetBufferSize(std::max(needed, half * 2));
    }
    buffer.AppendBuffer(data, static_cast<unsigned int>(size));
    return true;
  } catch (const std::bad_alloc&) {
    context.outOfMemory = true;
    return false;
  }
}

std::size_t StoreWithinCapacity(const HttpWriteContext& context, const void* data,
                                std::size_t size) {
  CBaseBuffer& buffer = *context.buffer;
  const std::size_t taken = std::min<std::size_t>(size, buffer.GetLeftSize());
  buffer.AppendBuffer(data, static_cast<unsigned int>(taken));
  if (taken < size) {
    core::LogQuietly([&] {
      DbgOutputA(2, "%s: recv data len %lu, write data len %lu, buffer left=%lu, need stop=%s\r\n",
                 "curl_write_cbuffer_func", static_cast<unsigned long>(size),
                 static_cast<unsigned long>(taken),
                 static_cast<unsigned long>(buffer.GetLeftSize()),
                 IsStopAsked(context) ? "TRUE" : "FALSE");
    });
  }
  return taken;
}

std::size_t curl_write_cbuffer_func(char* data, std::size_t size, std::size_t count,
                                    void* user) noexcept {
  const std::size_t bytes = size * count;
  auto* context = static_cast<HttpWriteContext*>(user);
  if (context == nullptr) return bytes;
  context->lastRecvTick = MS_GetTime();
  if (context->buffer == nullptr) return bytes;
  if (context->growable == 0) return StoreWithinCapacity(*context, data, bytes);
  return Append(*context, data, bytes) ? bytes : 0;
}

int curl_progress_func(void* user, double, double, double, double) noexcept {
  const auto* context = static_cast<const HttpWriteContext*>(user);
  if (context == nullptr) return 0;
  if (IsStopAsked(*context)) {
    core::LogQuietly([] { DbgOutputA(2, "%s: stop transfer....\r\n", "curl_progress_func"); });
    return 1;
  }
  const auto start = static_cast<std::uint32_t>(context->startTick);
  if (context->timeoutMs == 0 || MS_GetTime() - start <= context->timeoutMs) return 0;
  core::LogQuietly([&] {
    DbgOutputA(2, "%s: transer timeout, startTime is %lld, last recv time is %lld....\r\n",
               "curl_progress_func", static_cast<long long>(context->startTick),
               static_cast<long long>(context->lastRecvTick));
  });
  return 1;
}

// Lets the receiver's own failed allocation end the transfer.
template <typename Call, typename Result>
Result CallBack(HttpCallbackContext* context, Result without, Result failed, Call call) noexcept {
  if (context == nullptr || context->callback == nullptr) return without;
  try {
    return call(*context->callback, context->userData);
  } catch (const std::bad_alloc&) {
    context->outOfMemory = true;
    return failed;
  }
}

std::size_t WriteTrampoline(char* data, std::size_t size, std::size_t count, void* user) noexcept {
  const std::size_t bytes = size * count;
  return CallBack(static_cast<HttpCallbackContext*>(user), bytes, std::size_t{0},
                  [&](IHttpDataCallback& callback, std::uint64_t user_data) -> std::size_t {
                    return callback.OnHttpDataRecvCallback(
                        reinterpret_cast<const unsigned char*>(data),
                        static_cast<unsigned int>(bytes), user_data);
                  });
}

int ProgressTrampoline(void* user, double, double, double, double) noexcept {
  return CallBack(static_cast<HttpCallbackContext*>(user), 0, 1,
                  [](IHttpDataCallback& callback, std::uint64_t user_data) {
                    return callback.OnHttpDataProgressCallback(user_data);
                  });
}

using WriteFunction = std::size_t (*)(char*, std::size_t, std::size_t, void*);
using ProgressFunction = int (*)(void*, double, double, double, double);

void Set(const CurlFunctions& curl, CURL* handle, WriteFunction write, ProgressFunction progress,
         void* context) {
  curl.easy_setopt(handle, CURLOPT_WRITEFUNCTION, write);
  curl.easy_setopt(handle, CURLOPT_WRITEDATA, context);
  curl.easy_setopt(handle, CURLOPT_TIMEOUT_MS, 0L);
  curl.easy_setopt(handle, CURLOPT_PROGRESSFUNCTION, progress);
  curl.easy_setopt(handle, CURLOPT_PROGRESSDATA, context);
  curl.easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
}

}  // namespace

void SetCallbacks(const CurlFunctions& curl, CURL* handle, HttpWriteContext* context) {
  Set(curl, handle, curl_write_cbuffer_func, curl_progress_func, context);
}

void SetCallbacks(const CurlFunctions& curl, CURL* handle, HttpCallbackContext* context) {
  Set(curl, handle, WriteTrampoline, ProgressTrampoline, context);
}

}  // namespace qvx::http
