// The binding, and what no real libcurl shows or does at will, beside a stub of libcurl, in
// processes of their own; the real one serves all the other tests of this folder.
#include "qvx/curl_binding.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <functional>

#include "http/curl_functions.h"
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

int AskStub(const char* question, int about = 0) {
  void* library = dlopen("libcurl.so.4", RTLD_NOW | RTLD_NOLOAD);
  if (library == nullptr) return -1;
  const auto ask = reinterpret_cast<int (*)(int)>(dlsym(library, question));
  const int answer = ask != nullptr ? ask(about) : -1;
  dlclose(library);
  return answer;
}

TEST(CurlBinding, LoadsOnceAndAfreshAfterUnloading) {
  EXPECT_EQ(RunWithLibraries(QVX_CURL_STUB, "CurlBinding.DISABLED_Loads"), 0);
}

TEST(CurlBinding, DISABLED_Loads) {
  DebugLines log;
  EXPECT_EQ(InitSysLibCURL(), 1);
  EXPECT_EQ(InitSysLibCURL(), 1);
  EXPECT_EQ(AskStub("stub_prepared"), 1);
  EXPECT_EQ(log.Count(2, "curl_version = (stub/1.0)\r\n"), 1);
  DeInitSysLibCURL();
  DeInitSysLibCURL();
  EXPECT_EQ(AskStub("stub_cleaned"), 1);
  tagHTTPFILEINFO info;
  EXPECT_EQ(GetHttpFileMD5("http://127.0.0.1/", nullptr), 0);
  CloseHttpFile(&info);
  EXPECT_EQ(GetHttpDownloadSpeedBPS(&info), 0.0);
  EXPECT_GE(log.Count(3, "MUST Init LibCURL first!\r\n"), 2);
  EXPECT_EQ(InitSysLibCURL(), 1);
  EXPECT_EQ(AskStub("stub_prepared"), 2);
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
  EXPECT_EQ(AskStub("stub_prepared"), 0);
  EXPECT_EQ(AskStub("stub_cleaned"), name == "curl_global_cleanup" ? 0 : stages);
  CBaseBuffer answer;
  EXPECT_EQ(PerformHttpGetCommand("http://127.0.0.1/", nullptr, nullptr, nullptr, 0, nullptr,
                                  nullptr, 0, 0, nullptr, nullptr, nullptr, &answer),
            0);
  EXPECT_EQ(log.Count(3, "MUST Init LibCURL first!\r\n"), 1);
}

TEST(CurlBinding, WithoutTheLibraryItOnlyFails) {
  const TempFolder folder;
  folder.Write("libcurl.so.4", "no library");
  EXPECT_EQ(RunWithLibraries(folder.Path(), "CurlBinding.DISABLED_Absent"), 0);
}

TEST(CurlBinding, DISABLED_Absent) {
  DebugLines log;
  EXPECT_EQ(InitSysLibCURL(), 0);
  EXPECT_TRUE(log.All().empty());
}

TEST(CurlBinding, LimitsAndFailuresOfTheLibrary) {
  EXPECT_EQ(RunWithLibraries(QVX_CURL_STUB, "CurlBinding.DISABLED_LimitsAndFailures"), 0);
}

TEST(CurlBinding, DISABLED_LimitsAndFailures) {
  ASSERT_EQ(InitSysLibCURL(), 1);
  const Web web{"http://stub/", nullptr, "token"};
  const CBaseBuffer data;
  CBaseBuffer response;
  OpenedFile file(web);
  const struct {
    const char* name;
    std::function<int()> run;
    long limit;  // of the whole transfer, in milliseconds
    const char* without_memory;
    const char* failed;
    const char* without_infos;
  } kOperations[] = {
      {"open", [&] { return OpenedFile(web).opened; }, 10000, "gfnCurlEasyInit failed\r\n",
       "<http://stub/> open failed: no stub can do that\r\n",
       "GetFileSize failed: no stub can do that\r\n"},
      {"get", [&] { return web.Get(&response); }, 10000, "gfnCurlEasyInit failed\r\n",
       "<http://stub/> open failed: no stub can do that\r\n", nullptr},
      {"post", [&] { return web.Post(&data, &response); }, 10000, "curl_easy_init failed\r\n",
       "<http://stub/> open failed: no stub can do that\r\n", nullptr},
      {"read", [&] { return file.Read(0, 4).empty() && file.timed_out == 0 ? 1 : 0; }, 0, nullptr,
       "readfile failed, read count=0: no stub can do that\r\n", nullptr},
      {"stream",
       [&] {
         ReadHttpBodyWithCustomCallback(&file, 0, nullptr, 0);
         return 1;
       },
       0, nullptr, "ReadHttpBodyWithCustomCallback failed, res=28: no stub can do that\r\n",
       nullptr},
  };
  for (const auto& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    const auto line_of = [&](const char* switch_name, int value, const char* line) {
      DebugLines log;
      AskStub(switch_name, value);
      operation.run();
      AskStub(switch_name, 0);
      EXPECT_EQ(line == nullptr ? 1 : log.Count(2, line), 1) << switch_name;
    };
    EXPECT_EQ(operation.run(), 1);
    EXPECT_EQ(AskStub("stub_option", CURLOPT_CONNECTTIMEOUT_MS), 10000);
    EXPECT_EQ(AskStub("stub_option", CURLOPT_TIMEOUT_MS), operation.limit);
    EXPECT_EQ(AskStub("stub_option", CURLOPT_NOSIGNAL), 1);
    line_of("stub_lacks_memory", 1, operation.without_memory);
    line_of("stub_fails_transfers", CURLE_OPERATION_TIMEDOUT, operation.failed);
    line_of("stub_fails_infos", CURLE_UNKNOWN_OPTION, operation.without_infos);
    EXPECT_EQ(AskStub("stub_handles"), 1);  // the one that stays open
  }
  AskStub("stub_fails_transfers", CURLE_OPERATION_TIMEDOUT);
  EXPECT_EQ(file.Read(0, 4), "");
  EXPECT_EQ(file.timed_out, 1);
  DebugLines log;
  AskStub("stub_fails_transfers", CURLE_ABORTED_BY_CALLBACK);
  ReadHttpBodyWithCustomCallback(&file, 0, nullptr, 0);
  EXPECT_TRUE(log.All().empty());
}

}  // namespace
