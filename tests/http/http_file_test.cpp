#include "qvx/http_file.h"

#include <sys/mount.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "http/http_fixture.h"
#include "http/odd_server.h"
#include "support/debug_lines.h"
#include "support/failing_new.h"
#include "support/fault_plan.h"
#include "support/small_disk.h"

namespace {

using namespace qvx::test;

using HttpFile = HttpTest;

// Collects a stream, up to a number of bytes.
struct Collector : IHttpDataCallback {
  unsigned int OnHttpDataRecvCallback(const unsigned char* data, unsigned int len,
                                      std::uint64_t userData) override {
    EXPECT_EQ(userData, 77u);
    text.append(reinterpret_cast<const char*>(data), len);
    return text.size() >= most ? 0 : len;
  }
  int OnHttpDataProgressCallback(std::uint64_t) override { return stop; }

  std::string text;
  std::size_t most = SIZE_MAX;
  int stop = 0;
};

std::string Stream(tagHTTPFILEINFO* info, std::uint64_t start) {
  Collector collector;
  ReadHttpBodyWithCustomCallback(info, start, &collector, 77);
  return collector.text;
}

TEST_F(HttpFile, RealServersTakeEveryKindOfConnection) {
  const ServedFile served(100'000);
  const std::string& content = served.content;
  const Nginx& nginx = served.nginx;
  const ApacheDigest apache(served.folder.Path());
  const Tinyproxy tinyproxy;
  const std::string proxy = tinyproxy.Address();
  const CBaseBuffer right = Buffer(nginx.Authority());
  const CBaseBuffer wrong = Buffer(nginx.OtherAuthority());
  const CBaseBuffer empty;
  const struct {
    const char* name;
    int opened;
    Web web;
  } kCases[] = {
      {"plain", 1, {nginx.Url("file")}},
      {"missing", 0, {nginx.Url("nothing")}},
      {"no scheme of the web", 0, {"file://" + served.folder.Path("file")}},
      {"redirect", 1, {nginx.Url("moved/file")}},
      {"right authority", 1, {nginx.SecureUrl("file"), &right}},
      {"wrong authority", 0, {nginx.SecureUrl("file"), &wrong}},
      {"empty authority", 1, {nginx.SecureUrl("file"), &empty}},
      {"no authority", 1, {nginx.SecureUrl("file")}},
      {"basic", 1, {nginx.Url("private/file"), {}, {}, {}, 1, "user", "secret"}},
      {"basic wrong", 0, {nginx.Url("private/file"), {}, {}, {}, 1, "user", "other"}},
      {"basic not asked", 0, {nginx.Url("private/file"), {}, {}, {}, 0, "user", "secret"}},
      {"digest", 1, {apache.Url("file"), {}, {}, {}, 2, "user", "secret"}},
      {"digest wrong", 0, {apache.Url("file"), {}, {}, {}, 2, "user", "other"}},
      {"proxy",
       1,
       {nginx.Url("file"), {}, {}, {}, 0, {}, {}, 1, 0, proxy.c_str(), "user", "secret"}},
      {"proxy wrong",
       0,
       {nginx.Url("file"), {}, {}, {}, 0, {}, {}, 1, 0, proxy.c_str(), "user", "other"}},
      {"proxy not asked", 1, {nginx.Url("file"), {}, {}, {}, 0, {}, {}, 0, 0, "127.0.0.1:1"}},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    OpenedFile file(test.web);
    EXPECT_EQ(file.opened, test.opened);
    EXPECT_EQ(file.fileSize, test.opened != 0 ? content.size() : 0);
    EXPECT_EQ(file.curlHandle != nullptr, test.opened != 0);
    EXPECT_EQ(file.url.GetString(), test.web.url);
    CBaseBuffer whole;
    EXPECT_EQ(test.web.Get(&whole), test.opened);
    if (test.opened == 0) continue;
    EXPECT_TRUE(Text(whole) == content);
    EXPECT_TRUE(file.Read(50'000, 1000) == content.substr(50'000, 1000));
    EXPECT_TRUE(Stream(&file, 99'000) == content.substr(99'000));
    EXPECT_GT(GetHttpDownloadSpeedBPS(file.curlHandle), 0.0);
  }
}

// On a system whose own certificates would lead to the server: curl takes those besides.
TEST_F(HttpFile, NoAuthorityCountsButTheCallers) {
  const ServedFile served(7);
  const std::string url = served.nginx.SecureUrl("file");
  const std::string other = served.nginx.OtherAuthority();
  const std::string command =
      "curl -sf --cacert " + served.folder.Write("other", other) + " " + url;
  EXPECT_NE(std::system(command.c_str()), 0);
  const std::string told = OnSmallDisk(64, [&](const std::string& disk) -> std::string {
    WriteFile(disk + "/authority.pem", served.nginx.Authority());
    if (std::system(("openssl rehash " + disk).c_str()) != 0 ||
        mount(disk.c_str(), "/etc/ssl/certs", nullptr, MS_BIND, nullptr) != 0 ||
        std::system((command + " >/dev/null").c_str()) != 0) {
      return "the system does not trust the server";
    }
    const CBaseBuffer authority = Buffer(other);
    return OpenedFile({url, &authority}).opened != 0 ? "opened" : "refused";
  });
  if (told == kNoSmallDisk) GTEST_SKIP() << told;
  EXPECT_EQ(told, "refused");
}

TEST_F(HttpFile, OpenJudgesTheAnswerToHead) {
  const struct {
    std::string answer;
    int opened;
    std::uint64_t size;
  } kCases[] = {
      {OddHead(200, "Content-Length: 12\r\n"), 1, 12},
      {OddHead(200), 1, 0},
      {OddHead(399, "Content-Length: 5\r\n"), 1, 5},
      {OddHead(400, "Content-Length: 5\r\n"), 0, 0},
      {OddHead(200, "Content-Length: -7\r\n"), 0, 0},
      {OddHead(200, "Long: " + std::string(0x100000, 'x') + "\r\n"), 0, 0},
      {OddHead(302, "Location: ftp://127.0.0.1/\r\n"), 0, 0},
      {"no web at all\r\n\r\n", 0, 0},
      {"", 0, 0},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.answer.substr(0, 60));
    DebugLines log;
    OddServer server([&](const OddRequest& request, const RawPeer& connection) {
      EXPECT_EQ(request.Method(), "HEAD");
      connection.Send(test.answer);
      return false;
    });
    OpenedFile file({server.Url()});
    EXPECT_EQ(file.opened, test.opened);
    EXPECT_EQ(file.fileSize, test.size);
    EXPECT_EQ(log.Count(2, "OpenHttpFile: " + std::to_string(test.size) + "\r\n"), 1);
    const bool refused = log.Count(2, "<" + server.Url() + "> response: 400\r\n") == 1;
    EXPECT_EQ(refused, test.answer.find(" 400 ") != std::string::npos);
  }
}

TEST_F(HttpFile, OpensAgainByTheUrlOfTheRecord) {
  OddServer server([](const OddRequest&, const RawPeer& connection) {
    return connection.Send(OddHead(200, "Content-Length: 12\r\n"));
  });
  OpenedFile file({server.Url()});
  CloseHttpFile(&file);
  file.url.Set(server.Url().c_str());
  const char* const url = file.url.GetString();
  EXPECT_EQ(OpenHttpFile(&file, url, nullptr, nullptr, nullptr, 0, nullptr, nullptr, 0, 0, nullptr,
                         nullptr, nullptr),
            1);
  EXPECT_EQ(file.url.GetString(), server.Url());
}

// A bounded read takes what comes, byte by byte; a stream takes nothing but the file.
TEST_F(HttpFile, ReadsJudgeTheAnswer) {
  const char* const kTooMuch =
      "curl_write_cbuffer_func: recv data len 10, write data len 4, buffer left=0, "
      "need stop=FALSE\r\n";
  const struct {
    const char* name;
    std::uint64_t start;
    std::string answer;
    std::string bounded;  // of 4 bytes
    std::string streamed;
    const char* log = nullptr;
  } kCases[] = {
      {"whole", 0, OddAnswer(200, "0123456789"), "0123", "0123456789", kTooMuch},
      {"range", 4, OddAnswer(206, "4567", "Content-Range: bytes 4-7/10\r\n"), "4567", "4567"},
      {"ranges ignored", 4, OddAnswer(200, "0123456789"), "0123", "", kTooMuch},
      {"starts elsewhere", 4, OddAnswer(206, "6789", "Content-Range: bytes 6-9/10\r\n"), "6789",
       ""},
      {"cut", 0, OddHead(200, "Content-Length: 10\r\n") + "01", "01", "01"},
      {"no length", 4, OddHead(206, "Content-Range: bytes 4-9/10\r\n") + "456", "456", "456"},
      {"error page", 0, OddAnswer(500, "gone"), "gone", ""},
      {"behind the end", 40, OddAnswer(416, "gone"), "gone", ""},
      {"not the web", 4, "nonsense", "", ""},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    DebugLines log;
    OddServer server([&](const OddRequest& request, const RawPeer& connection) {
      const bool head = request.Method() == "HEAD";
      const std::string answer = head ? OddHead(200, "Content-Length: 20\r\n") : test.answer;
      const std::size_t piece = test.log == nullptr ? 1 : answer.size();
      for (std::size_t at = 0; at < answer.size(); at += piece) {
        connection.Send(answer.substr(at, piece));
      }
      return head;
    });
    OpenedFile file({server.Url()});
    EXPECT_EQ(file.Read(test.start, 4), test.bounded);
    EXPECT_EQ(file.timed_out, 0);
    EXPECT_EQ(test.log == nullptr ? 1 : log.Count(2, test.log), 1);
    EXPECT_EQ(Stream(&file, test.start), test.streamed);
  }
}

TEST_F(HttpFile, KindsOfReadNeverSeeEachOthersRange) {
  std::mutex mutex;
  std::string ranges;
  OddServer server([&](const OddRequest& request, const RawPeer& connection) {
    std::lock_guard<std::mutex> guard(mutex);
    const std::size_t at = request.head.find("Range: bytes=");
    if (at != std::string::npos) {
      ranges += request.head.substr(at + 13, request.head.find('\r', at) - at - 13);
    }
    ranges += ' ';
    const std::string place = "Content-Range: bytes " + std::to_string(request.RangeStart());
    return connection.Send(
        OddAnswer(206, request.Method() == "HEAD" ? "" : "data", place + "-9/10\r\n"));
  });
  OpenedFile file({server.Url()});
  file.Read(5, 4);
  Stream(&file, 0);
  Stream(&file, 7);
  file.Read(0, 4);
  Stream(&file, 0);
  std::lock_guard<std::mutex> guard(mutex);
  EXPECT_EQ(ranges, " 5-8  7- 0-3  ");
  EXPECT_EQ(server.Connections(), 1);
}

TEST_F(HttpFile, HeaderLinesAreThoseOfTheArguments) {
  const struct {
    Web web;
    bool token;
    bool extra;
  } kCases[] = {{{"", nullptr, "t0ken"}, true, false},
                {{"", nullptr, nullptr, "X-Extra: 1"}, false, true},
                {{"", nullptr, "t0ken", "X-Extra: 1"}, true, true},
                {{"", nullptr, "", ""}, false, false}};
  for (auto test : kCases) {
    OddServer server([&](const OddRequest& request, const RawPeer& connection) {
      EXPECT_EQ(request.Has("Authorization:Bearer t0ken\r\n"), test.token);
      EXPECT_EQ(request.Has("X-Extra: 1\r\n"), test.extra);
      EXPECT_FALSE(request.Has("Expect:"));
      return connection.Send(OddAnswer(200, ""));
    });
    test.web.url = server.Url();
    EXPECT_EQ(OpenedFile(test.web).opened, 1);
    // So large that libcurl asks first, but for a request with a token.
    const CBaseBuffer data = Buffer(Pattern(test.token ? 0x180000 : 10));
    CBaseBuffer response;
    EXPECT_EQ(test.web.Post(&data, &response), 1);
  }
}

TEST_F(HttpFile, StopsByFlagLimitAndCallback) {
  FaultPlan plan;
  DebugLines log;
  plan.FakeClock(100 * kSecond);
  std::function<void()> on_request = [] {};
  OddServer server([&](const OddRequest& request, const RawPeer& connection) {
    if (request.Method() == "HEAD") return connection.Send(OddHead(200, "Content-Length: 20\r\n"));
    connection.Send(OddHead(200, "Content-Length: 20\r\n") + "0123");
    on_request();
    connection.SeesEnd();
    return false;
  });
  OpenedFile file({server.Url()});
  int stop = 0;
  on_request = [&] { std::atomic_ref<int>(stop).store(1); };
  EXPECT_LE(file.Read(0, 20, 0, &stop).size(), 4u);
  EXPECT_EQ(log.Count(2, "curl_progress_func: stop transfer....\r\n"), 1);
  on_request = [&] { plan.FakeClock(106 * kSecond); };
  EXPECT_LE(file.Read(0, 20, 5999).size(), 4u);
  EXPECT_EQ(file.timed_out, 0);
  plan.FakeClock(200 * kSecond);
  on_request = [&] { plan.FakeClock(231 * kSecond); };
  CBaseBuffer response;
  EXPECT_EQ(Web{server.Url()}.Get(&response), 0);
  int limits = 0;
  for (const auto& [level, line] : log.All()) {
    limits += line.find("curl_progress_func: transer timeout, startTime is ") == 0 ? 1 : 0;
  }
  EXPECT_EQ(limits, 2);
  Collector collector;
  collector.stop = 1;
  ReadHttpBodyWithCustomCallback(&file, 0, &collector, 77);
  EXPECT_LE(collector.text.size(), 4u);
}

TEST_F(HttpFile, EndlessBodyEndsWithTheReader) {
  OddServer server([&](const OddRequest& request, const RawPeer& connection) {
    if (!connection.Send(OddHead(200))) return false;
    while (request.Method() == "GET" && connection.Send(Pattern(0x10000))) {
    }
    return false;
  });
  OpenedFile file({server.Url()});
  EXPECT_EQ(file.Read(0, 0x18000).size(), 0x18000u);
  Collector collector;
  collector.most = 0x100000;
  ReadHttpBodyWithCustomCallback(&file, 0, &collector, 77);
  EXPECT_GE(collector.text.size(), 0x100000u);
}

// The echo of the request, reached through a redirect that keeps the method.
TEST_F(HttpFile, CommandsSendAndAppend) {
  OddServer server([&](const OddRequest& request, const RawPeer& connection) {
    if (request.head.find(" /moved ") != std::string::npos) {
      return connection.Send(OddAnswer(307, "", "Location: /echo\r\n"));
    }
    const int status = request.body == "bad" ? 400 : 200;
    const bool sized = request.Has("Content-Length: " + std::to_string(request.body.size()));
    return connection.Send(
        OddAnswer(status, request.Method() + (sized ? "+" : "-") + request.body));
  });
  const std::string big = Pattern(1'000'000);
  const struct {
    const char* name;
    std::string data;
    int result;
  } kCases[] = {{"echo", "hello", 1},
                {"echo", "", 1},
                {"moved", "hello", 1},
                {"echo", "bad", 0},
                {"moved", big, 1}};
  for (const auto& test : kCases) {
    const CBaseBuffer data = Buffer(test.data);
    CBaseBuffer response = Buffer("before ");
    EXPECT_EQ(Web{server.Url(test.name)}.Post(&data, &response), test.result) << test.name;
    EXPECT_TRUE(Text(response) == "before POST+" + test.data) << Text(response).substr(0, 40);
  }
  CBaseBuffer response;
  const CBaseBuffer nothing;
  EXPECT_EQ(Web{server.Url("moved")}.Get(&response), 1);
  EXPECT_EQ(Text(response), "GET-");
  EXPECT_EQ(Web{""}.Get(&response), 0);
  EXPECT_EQ(Web{server.Url()}.Get(nullptr), 0);
  EXPECT_EQ(Web{server.Url()}.Post(nullptr, &response), 0);
  EXPECT_EQ(Web{server.Url()}.Post(&nothing, nullptr), 0);
}

TEST_F(HttpFile, PublishedMd5IsDecoded) {
  const struct {
    const char* body;
    int count;
  } kCases[] = {{"000102030405060708090a0b0c0d0e0f", 16},
                {"000102030405060708090A0B0C0D0E0F  name\n", 16},
                {"0001020", 3},
                {"", 0}};
  for (const auto& test : kCases) {
    OddServer server([&](const OddRequest&, const RawPeer& connection) {
      return connection.Send(OddAnswer(200, test.body));
    });
    unsigned char md5[16];
    std::memset(md5, 0xff, sizeof(md5));
    EXPECT_EQ(GetHttpFileMD5(server.Url().c_str(), md5), 1);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(md5[i], i < test.count ? i : 0xff) << test.body;
  }
}

// Whatever allocation fails, nothing leaks, and only the standard exception comes out.
TEST_F(HttpFile, FailingAllocationsEndTheOperation) {
  OddServer server([&](const OddRequest& request, const RawPeer& connection) {
    return connection.Send(OddAnswer(200, request.Method() == "HEAD" ? "" : "body"));
  });
  const Web web{server.Url(), nullptr, "token"};
  int failed = 0;
  for (int first = 1;; ++first) {
    CBaseBuffer response;
    FailingAllocations failing(first);
    try {
      OpenedFile file(web);
      Stream(&file, 0);
      web.Get(&response);
    } catch (const std::bad_alloc&) {
      ++failed;
    }
    if (failing.Seen() < first) break;
  }
  EXPECT_GT(failed, 5);
}

}  // namespace
