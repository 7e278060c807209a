// What the tests of web files share.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "qvx/base_buffer.h"
#include "qvx/curl_binding.h"
#include "qvx/http_file.h"
#include "support/packet_bytes.h"
#include "support/web_servers.h"

namespace qvx::test {

constexpr std::int64_t kSecond = 1'000'000'000;

// The twelve connection arguments.
struct Web {
  std::string url;
  const CBaseBuffer* authority = nullptr;
  const char* token = nullptr;
  const char* header = nullptr;
  long auth = 0;
  const char* user = nullptr;
  const char* password = nullptr;
  int use_proxy = 0;
  long proxy_type = 0;
  const char* proxy = nullptr;
  const char* proxy_user = nullptr;
  const char* proxy_password = nullptr;

  template <typename Call>
  auto Use(Call call) const {
    return call(url.c_str(), authority, token, header, auth, user, password, use_proxy, proxy_type,
                proxy, proxy_user, proxy_password);
  }
  int Open(tagHTTPFILEINFO* info) const {
    return Use([&](auto... arguments) { return OpenHttpFile(info, arguments...); });
  }
  int Get(CBaseBuffer* response) const {
    return Use([&](auto... arguments) { return PerformHttpGetCommand(arguments..., response); });
  }
  int Post(const CBaseBuffer* data, CBaseBuffer* response) const {
    return Use(
        [&](auto... arguments) { return PerformHttpPostCommand(arguments..., data, response); });
  }
};

// Loads libcurl, and keeps the machine's own proxies out.
class HttpTest : public testing::Test {
 protected:
  HttpTest() {
    for (const char* name :
         {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
      unsetenv(name);
    }
    EXPECT_EQ(InitSysLibCURL(), 1);
  }
};

// A file of this size on a real server.
struct ServedFile {
  explicit ServedFile(std::size_t size) : content(Pattern(size)), nginx(folder.Path()) {
    folder.Write("file", content);
  }
  std::string Url() const { return nginx.Url("file"); }

  TempFolder folder;
  std::string content;
  Nginx nginx;
};

inline CBaseBuffer Buffer(const std::string& text) {
  CBaseBuffer buffer;
  buffer.SetBuffer(text.data(), static_cast<unsigned int>(text.size()));
  return buffer;
}

inline std::string Text(const CBaseBuffer& buffer) {
  return std::string(reinterpret_cast<const char*>(buffer.GetBuffer()), buffer.GetAvailSize());
}

// An open file that closes itself.
struct OpenedFile : tagHTTPFILEINFO {
  explicit OpenedFile(const Web& web) : opened(web.Open(this)) {}
  ~OpenedFile() { CloseHttpFile(this); }

  std::string Read(std::uint64_t start, unsigned int size, std::uint64_t limit = 0,
                   int* stop = nullptr) {
    std::string text(size, '\0');
    text.resize(ReadHttpBody(this, start, text.data(), size, limit, stop, &timed_out));
    return text;
  }

  int opened;
  int timed_out = -1;
};

}  // namespace qvx::test
