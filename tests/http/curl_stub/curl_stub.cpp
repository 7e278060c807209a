// Stands in for libcurl in tests: has every function that the binding asks for, counts the calls
// of those that prepare and clean up, and fails where a test tells it to. A transfer brings
// nothing; it only notes the numbers that were set on the handle.
#include <cstdarg>
#include <map>

namespace {

constexpr int kFirstOfPointers = 10000;
constexpr int kKindOfInfo = 0xf00000;
constexpr int kText = 0x100000;

int prepared = 0;
int cleaned = 0;
int handles = 0;
bool has_memory = true;
int transfer_result = 0;
int info_result = 0;
std::map<int, long> options;
std::map<int, long> performed;  // those that stood when the last transfer began

}  // namespace

extern "C" {

int stub_prepared(int) {
  return prepared;
}
int stub_cleaned(int) {
  return cleaned;
}
int stub_handles(int) {
  return handles;
}
int stub_lacks_memory(int lacks) {
  has_memory = lacks == 0;
  return 0;
}
int stub_fails_transfers(int result) {
  transfer_result = result;
  return 0;
}
int stub_fails_infos(int result) {
  info_result = result;
  return 0;
}
int stub_option(int option) {
  const auto found = performed.find(option);
  return found == performed.end() ? -1 : static_cast<int>(found->second);
}

const char* curl_version() {
  return "stub/1.0";
}
int curl_global_init(long flags) {
  prepared += flags == 3 ? 1 : 100;
  return 0;
}
void curl_global_cleanup() {
  ++cleaned;
}
void* curl_easy_init() {
  options.clear();
  return has_memory ? &++handles : nullptr;
}
void curl_easy_cleanup(void*) {
  --handles;
}
int curl_easy_setopt(void*, int option, ...) {
  va_list arguments;
  va_start(arguments, option);
  if (option < kFirstOfPointers) options[option] = va_arg(arguments, long);
  va_end(arguments);
  return 0;
}
int curl_easy_perform(void*) {
  performed = options;
  return transfer_result;
}
int curl_easy_getinfo(void*, int info, ...) {
  return (info & kKindOfInfo) == kText ? 0 : info_result;
}
const char* curl_easy_strerror(int) {
  return "no stub can do that";
}
void* curl_slist_append(void*, const char*) {
  return &prepared;
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
