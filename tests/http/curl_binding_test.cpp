// The binding, and what no real libcurl shows or does at will, beside a stub of libcurl, in
// processes of their own; the real one serves all the other tests of this folder.
#include "qvx/curl_binding.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <functional>

#include "http/curl_functions.h"
#include "http/curl_stub/curl_stub.h"
#include "http/http_fixture.h"
#include "support/debug_lines.h"
#include "support/own_process.h"
#include "support/temp_folder.h"

namespace {

using namespace qvx::test;

constexpr const char* kFunctions[] = {
    "curl_version",         "curl_global_init",      "curl_global_cleanup",
    "curl_easy_init",       "curl_easy_duphandle",   "curl_easy_reset",
    "curl_easy_cleanup",    "curl_easy_setopt",      "curl_easy_perform",
    "curl_easy_getinfo",    "curl_easy_strerror",    "curl_multi_init",
    "curl_multi_cleanup",   "curl_multi_add_handle", "curl_multi_remove_handle",
    "curl_multi_perform",   "curl_multi_timeout",    "curl_multi_fdset",
    "curl_multi_info_read", "curl_slist_append",     "curl_slist_free_all"};

// The state of the stub that this process has loaded; null without one.
CurlStub* Stub() {
  void* library = dlopen("libcurl.so.4", RTLD_NOW | RTLD_NOLOAD);
  if (library == nullptr) return nullptr;
  auto* const stub = static_cast<CurlStub*>(dlsym(library, "curl_stub"));
  dlclose(library);  // the binding keeps it
  return stub;
}

TEST(CurlBinding, WithAStubAndWithoutALibrary) {
  for (const std::string test : {"LoadsOnceAndAfreshAfterUnloading", "LimitsAndFailures"}) {
    EXPECT_EQ(RunWithLibraries(QVX_CURL_STUB, "CurlBinding.DISABLED_" + test), 0);
  }
  const TempFolder folder;
  folder.Write("libcurl.so.4", "no library");
  EXPECT_EQ(RunWithLibraries(folder.Path(), "CurlBinding.DISABLED_FailsWithoutTheLibrary"), 0);
}

TEST(CurlBinding, DISABLED_LoadsOnceAndAfreshAfterUnloading) {
  DebugLines log;
  EXPECT_EQ(InitSysLibCURL(), 1);
  EXPECT_EQ(InitSysLibCURL(), 1);
  EXPECT_EQ(Stub()->prepared, 1);
  EXPECT_EQ(log.Count(2, "curl_version = (stub/1.0)\r\n"), 1);
  tagHTTPFILEINFO info;
  EXPECT_EQ(Web{"http://stub/"}.Open(&info), 1);
  DeInitSysLibCURL();
  DeInitSysLibCURL();
  EXPECT_EQ(Stub()->cleaned, 1);
  EXPECT_EQ(Web{"http://other/"}.Open(&info), 0);
  EXPECT_EQ(info.curlHandle, nullptr);
  EXPECT_STREQ(info.url.GetString(), "http://other/");
  EXPECT_EQ(GetHttpFileMD5("http://127.0.0.1/", nullptr), 0);
  CloseHttpFile(&info);
  EXPECT_EQ(GetHttpDownloadSpeedBPS(&info), 0.0);
  EXPECT_EQ(log.Count(3, "MUST Init LibCURL first!\r\n"), 3);
  EXPECT_EQ(InitSysLibCURL(), 1);
  EXPECT_EQ(Stub()->prepared, 2);
  DeInitSysLibCURL();
}

// One copy of the stub for each function, in which the function has another name.
TEST(CurlBinding, RefusesALibraryThatLacksAnyOneFunction) {
  const std::string stub = ReadWhole(QVX_CURL_STUB "/libcurl.so.4");
  for (const std::string name : kFunctions) {
    std::string lacking = stub;
    const std::string entry = '\0' + name + '\0';
    for (std::size_t at = 0; (at = lacking.find(entry, at)) != std::string::npos; ++at) {
      lacking[at + name.size()] = 'X';
    }
    const TempFolder folder;
    folder.Write("libcurl.so.4", lacking);
    EXPECT_EQ(RunWithLibraries(folder.Path(), "CurlBinding.DISABLED_Refuses", "QVX_LACKS=" + name),
              0)
        << name;
  }
}

TEST(CurlBinding, DISABLED_Refuses) {
  const char* lacking = getenv("QVX_LACKS");
  ASSERT_NE(lacking, nullptr);
  const std::string name = lacking;
  DebugLines log;
  EXPECT_EQ(InitSysLibCURL(), 0);
  EXPECT_EQ(log.Count(4, "get function " + name + " failed\r\n"), 1);
  const int stages = name == "curl_version" || name == "curl_global_init" ? 0 : 1;
  EXPECT_EQ(Stub()->prepared, 0);
  EXPECT_EQ(Stub()->cleaned, name == "curl_global_cleanup" ? 0 : stages);
  CBaseBuffer answer;
  EXPECT_EQ(Web{"http://127.0.0.1/"}.Get(&answer), 0);
  EXPECT_EQ(log.Count(3, "MUST Init LibCURL first!\r\n"), 1);
}

TEST(CurlBinding, DISABLED_FailsWithoutTheLibrary) {
  DebugLines log;
  EXPECT_EQ(InitSysLibCURL(), 0);
  EXPECT_TRUE(log.All().empty());
}

TEST(CurlBinding, DISABLED_LimitsAndFailures) {
  ASSERT_EQ(InitSysLibCURL(), 1);
  CurlStub& stub = *Stub();
  const Web web{"http://stub/", nullptr, "token"};
  const CBaseBuffer data;
  CBaseBuffer response;
  OpenedFile file(web);
  const auto stream = [&] { ReadHttpBodyWithCustomCallback(&file, 0, nullptr, 0); };
  const char* const kNotOpened = "<http://stub/> open failed: no stub can do that\r\n";
  const struct {
    const char* name;
    std::function<bool()> succeeds;
    long limit;  // of the whole transfer, in milliseconds
    const char* without_memory;
    const char* failed;
    const char* without_infos;
  } kOperations[] = {
      {"open", [&] { return OpenedFile(web).opened == 1; }, 10000, "gfnCurlEasyInit failed\r\n",
       kNotOpened, "GetFileSize failed: no stub can do that\r\n"},
      {"get", [&] { return web.Get(&response) == 1; }, 10000, "gfnCurlEasyInit failed\r\n",
       kNotOpened, nullptr},
      {"post", [&] { return web.Post(&data, &response) == 1; }, 10000, "curl_easy_init failed\r\n",
       kNotOpened, nullptr},
      {"read", [&] { return file.Read(0, 4).empty() && file.timed_out == 0; }, 0, nullptr,
       "readfile failed, read count=0: no stub can do that\r\n", nullptr},
      {"stream", [&] { return stream(), true; }, 0, nullptr,
       "ReadHttpBodyWithCustomCallback failed, res=28: no stub can do that\r\n", nullptr},
  };
  for (const auto& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    const auto tells = [&](const char* line) {
      DebugLines log;
      operation.succeeds();
      return line == nullptr || log.Count(2, line) == 1;
    };
    EXPECT_TRUE(operation.succeeds());
    EXPECT_EQ(stub.performed[CURLOPT_CONNECTTIMEOUT_MS], 10000);
    EXPECT_EQ(stub.performed[CURLOPT_TIMEOUT_MS], operation.limit);
    EXPECT_EQ(stub.performed[CURLOPT_NOSIGNAL], 1);
    stub.lacks_memory = true;
    EXPECT_TRUE(tells(operation.without_memory));
    stub.lacks_memory = false;
    stub.transfer_result = CURLE_OPERATION_TIMEDOUT;
    EXPECT_TRUE(tells(operation.failed));
    stub.transfer_result = CURLE_OK;
    stub.info_result = CURLE_UNKNOWN_OPTION;
    EXPECT_TRUE(tells(operation.without_infos));
    stub.info_result = CURLE_OK;
    EXPECT_EQ(stub.handles, 1);  // the one that stays open
  }
  stub.transfer_result = CURLE_OPERATION_TIMEDOUT;
  EXPECT_EQ(file.Read(0, 4), "");
  EXPECT_EQ(file.timed_out, 1);
  DebugLines log;
  stub.transfer_result = CURLE_ABORTED_BY_CALLBACK;
  stream();
  EXPECT_TRUE(log.All().empty());
}

}  // namespace
