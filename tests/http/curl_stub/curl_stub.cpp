// Stands in for libcurl in tests: has every function that the binding asks for, and counts the
// calls of those that prepare and clean up.
namespace {
int prepared = 0;
int cleaned = 0;
}  // namespace

extern "C" {

int stub_prepared() {
  return prepared;
}
int stub_cleaned() {
  return cleaned;
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

#define NEVER_CALLED(name) \
  void name() {            \
    __builtin_trap();      \
  }
NEVER_CALLED(curl_easy_init)
NEVER_CALLED(curl_easy_duphandle)
NEVER_CALLED(curl_easy_reset)
NEVER_CALLED(curl_easy_cleanup)
NEVER_CALLED(curl_easy_setopt)
NEVER_CALLED(curl_easy_perform)
NEVER_CALLED(curl_easy_getinfo)
NEVER_CALLED(curl_easy_strerror)
NEVER_CALLED(curl_multi_init)
NEVER_CALLED(curl_multi_cleanup)
NEVER_CALLED(curl_multi_add_handle)
NEVER_CALLED(curl_multi_remove_handle)
NEVER_CALLED(curl_multi_perform)
NEVER_CALLED(curl_multi_timeout)
NEVER_CALLED(curl_multi_fdset)
NEVER_CALLED(curl_multi_info_read)
NEVER_CALLED(curl_slist_append)
NEVER_CALLED(curl_slist_free_all)
#undef NEVER_CALLED

}  // extern "C"
