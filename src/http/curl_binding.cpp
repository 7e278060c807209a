#include "qvx/curl_binding.h"

#include <atomic>
#include <memory>

#include "http/curl_functions.h"
#include "platform/dynamic_library.h"
#include "qvx/debug_output.h"

namespace qvx::http {
namespace {

constexpr const char* kLibrary = "libcurl.so.4";

struct Binding {
  platform::DynamicLibrary library;
  CurlFunctions functions{};
};

constinit std::atomic<Binding*> bound{nullptr};

// Binds one function after the other, up to the first that is missing.
class Binder {
 public:
  explicit Binder(const platform::DynamicLibrary& library) : library_(library) {}

  template <typename Function>
  Binder& Bind(const char* name, Function** function) {
    if (!complete_) return *this;
    complete_ = library_.Bind(name, function);
    if (!complete_) DbgOutputA(4, "get function %s failed\r\n", name);
    return *this;
  }

  bool Complete() const { return complete_; }

 private:
  const platform::DynamicLibrary& library_;
  bool complete_ = true;
};

bool BindAll(Binding& binding) {
  Binder binder(binding.library);
  CurlFunctions& curl = binding.functions;
  binder.Bind("curl_version", &curl.version);
  if (binder.Complete()) DbgOutputA(2, "curl_version = (%s)\r\n", curl.version());
  binder.Bind("curl_global_init", &curl.global_init)
      .Bind("curl_global_cleanup", &curl.global_cleanup)
      .Bind("curl_easy_init", &curl.easy_init)
      .Bind("curl_easy_duphandle", &curl.easy_duphandle)
      .Bind("curl_easy_reset", &curl.easy_reset)
      .Bind("curl_easy_cleanup", &curl.easy_cleanup)
      .Bind("curl_easy_setopt", &curl.easy_setopt)
      .Bind("curl_easy_perform", &curl.easy_perform)
      .Bind("curl_easy_getinfo", &curl.easy_getinfo)
      .Bind("curl_easy_strerror", &curl.easy_strerror)
      .Bind("curl_multi_init", &curl.multi_init)
      .Bind("curl_multi_cleanup", &curl.multi_cleanup)
      .Bind("curl_multi_add_handle", &curl.multi_add_handle)
      .Bind("curl_multi_remove_handle", &curl.multi_remove_handle)
      .Bind("curl_multi_perform", &curl.multi_perform)
      .Bind("curl_multi_timeout", &curl.multi_timeout)
      .Bind("curl_multi_fdset", &curl.multi_fdset)
      .Bind("curl_multi_info_read", &curl.multi_info_read)
      .Bind("curl_slist_append", &curl.slist_append)
      .Bind("curl_slist_free_all", &curl.slist_free_all);
  return binder.Complete();
}

void Release(const std::unique_ptr<Binding>& binding) {
  if (binding->functions.global_cleanup != nullptr) binding->functions.global_cleanup();
}

}  // namespace

const CurlFunctions* RequireCurl() {
  const Binding* binding = bound.load(std::memory_order_acquire);
  if (binding != nullptr) return &binding->functions;
  DbgOutputA(3, "MUST Init LibCURL first!\r\n");
  return nullptr;
}

}  // namespace qvx::http

using namespace qvx::http;

extern "C" {

int InitSysLibCURL() {
  if (bound.load() != nullptr) return 1;
  auto binding = std::make_unique<Binding>();
  if (!binding->library.Load(kLibrary, qvx::platform::DynamicLibrary::Unload::kNever)) return 0;
  if (!BindAll(*binding)) {
    Release(binding);
    return 0;
  }
  binding->functions.global_init(CURL_GLOBAL_ALL);
  bound.store(binding.release(), std::memory_order_release);
  return 1;
}

void DeInitSysLibCURL() {
  const std::unique_ptr<Binding> binding(bound.exchange(nullptr));
  if (binding != nullptr) Release(binding);
}

}  // extern "C"
