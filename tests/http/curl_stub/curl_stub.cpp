// Stands in for libcurl in tests: has every function that the binding asks for. A transfer brings
// nothing; it only notes the numbers that were set on the handle.
#include "curl_stub.h"

#include <cstdarg>

namespace {

constexpr int kFirstOfPointers = 10000;
constexpr int kKindOfInfo = 0xf00000;
constexpr int kText = 0x100000;

}  // namespace

extern "C" {

qvx::test::CurlStub curl_stub;

const char* curl_version() {
  return "stub/1.0";
}
int curl_global_init(long flags) {
  curl_stub.prepared += flags == 3 ? 1 : 100;
  return 0;
}
void curl_global_cleanup() {
  ++curl_stub.cleaned;
}
void* curl_easy_init() {
  curl_stub.options.clear();
  return curl_stub.lacks_memory ? nullptr : &++curl_stub.handles;
}
void curl_easy_cleanup(void*) {
  --curl_stub.handles;
}
int curl_easy_setopt(void*, int option, ...) {
  va_list arguments;
  va_start(arguments, option);
  if (option < kFirstOfPointers) curl_stub.options[option] = va_arg(arguments, long);
  va_end(arguments);
  return 0;
}
int curl_easy_perform(void*) {
  curl_stub.performed = curl_stub.options;
  return curl_stub.transfer_result;
}
int curl_easy_getinfo(void*, int info, ...) {
  return (info & kKindOfInfo) == kText ? 0 : curl_stub.info_result;
}
const char* curl_easy_strerror(int) {
  return "no stub can do that";
}
void* curl_slist_append(void*, const char*) {
  return &curl_stub;
}
void curl_slist_free_all(void*) {}

#define NEVER_CALLED(name) \
  void name() {            \
    __builtin_trap();      \
  }
NEVER_CALLED(curl_easy_duphandle)
NEVER_CALLED(curl_easy_reset)
NEVER_CALLED(curl_multi_init)
NEVER_CALLED(curl_multi_cleanup)
NEVER_CALLED(curl_multi_add_handle)
NEVER_CALLED(curl_multi_remove_handle)
NEVER_CALLED(curl_multi_perform)
NEVER_CALLED(curl_multi_timeout)
NEVER_CALLED(curl_multi_fdset)
NEVER_CALLED(curl_multi_info_read)
#undef NEVER_CALLED

}  // extern "C"
