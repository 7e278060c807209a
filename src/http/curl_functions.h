// The functions of libcurl, bound at run time: the only way from here to that library.
#pragma once

// The progress callback and the average speed in their older forms do all that is needed here.
#define CURL_DISABLE_DEPRECATION
#include <curl/curl.h>

namespace qvx::http {

struct CurlFunctions {
  decltype(&::curl_version) version;
  decltype(&::curl_global_init) global_init;
  decltype(&::curl_global_cleanup) global_cleanup;
  decltype(&::curl_easy_init) easy_init;
  decltype(&::curl_easy_duphandle) easy_duphandle;
  decltype(&::curl_easy_reset) easy_reset;
  decltype(&::curl_easy_cleanup) easy_cleanup;
  decltype(&::curl_easy_setopt) easy_setopt;
  decltype(&::curl_easy_perform) easy_perform;
  decltype(&::curl_easy_getinfo) easy_getinfo;
  decltype(&::curl_easy_strerror) easy_strerror;
  decltype(&::curl_multi_init) multi_init;
  decltype(&::curl_multi_cleanup) multi_cleanup;
  decltype(&::curl_multi_add_handle) multi_add_handle;
  decltype(&::curl_multi_remove_handle) multi_remove_handle;
  decltype(&::curl_multi_perform) multi_perform;
  decltype(&::curl_multi_timeout) multi_timeout;
  decltype(&::curl_multi_fdset) multi_fdset;
  decltype(&::curl_multi_info_read) multi_info_read;
  decltype(&::curl_slist_append) slist_append;
  decltype(&::curl_slist_free_all) slist_free_all;
};

// Null, and a line in the log, while the binding does not stand. Valid until DeInitSysLibCURL.
const CurlFunctions* RequireCurl();

}  // namespace qvx::http
