// Files from a web server beside plain libcurl, both from one nginx on 127.0.0.1 that this
// process starts at the first turn and ends with itself. bench/http.sh compares whole programs.
#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "qvx/curl_binding.h"
#include "qvx/http_download.h"
#include "qvx/http_file_client.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr std::size_t kFileBytes = 256u << 20;
constexpr std::size_t kBigBytes = 1024u << 20;
constexpr unsigned int kStreamBlock = 0x10000;
constexpr unsigned int kRangeBytes = 4096;
constexpr std::uint64_t kRangeStep = 1'000'003;

void Require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

class Server {
 public:
  static const Server& The() {
    static const Server server;
    return server;
  }
  const std::string& Url() const { return url_; }
  std::string BigUrl() const { return url_.substr(0, url_.rfind('/')) + "/big"; }
  std::string Target() const { return folder_ + "/target"; }

 private:
  Server() {
    const char* memory = std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp";
    std::string pattern = std::string(memory) + "/qvx_http_bench_XXXXXX";
    Require(mkdtemp(pattern.data()) != nullptr, "no temporary folder");
    folder_ = pattern;
    std::ofstream(folder_ + "/file", std::ios::binary) << std::string(kFileBytes, 'q');
    std::ofstream(folder_ + "/big", std::ios::binary) << std::string(kBigBytes, 'b');
    const std::uint16_t port = FreePort();
    url_ = "http://127.0.0.1:" + std::to_string(port) + "/file";
    WriteSettings(port);
    Start();
    Require(CurlReaches(), "nginx does not serve");
  }
  ~Server() {
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
    std::filesystem::remove_all(folder_);
  }

  static std::uint16_t FreePort() {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    bind(descriptor, reinterpret_cast<sockaddr*>(&address), size);
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
    close(descriptor);
    return ntohs(address.sin_port);
  }

  void WriteSettings(std::uint16_t port) const {
    std::ofstream settings(folder_ + "/conf");
    settings
        << "daemon off; master_process off; pid " << folder_ << "/pid; error_log " << folder_
        << "/log;\nevents {}\nhttp { access_log off; sendfile on; keepalive_requests 1000000000;\n";
    for (const char* use : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
      settings << use << "_temp_path " << folder_ << "/" << use << ";\n";
    }
    settings << "server { listen 127.0.0.1:" << port << "; root " << folder_ << "; } }\n";
  }

  void Start() {
    const std::string conf = folder_ + "/conf";
    const std::string log = folder_ + "/log";
    process_ = fork();
    if (process_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    execlp("nginx", "nginx", "-c", conf.c_str(), "-e", log.c_str(), nullptr);
    _exit(127);
  }

  bool CurlReaches() const {
    for (int i = 0; i < 1000; ++i) {
      CURL* handle = curl_easy_init();
      curl_easy_setopt(handle, CURLOPT_URL, url_.c_str());
      curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
      const CURLcode result = curl_easy_perform(handle);
      curl_easy_cleanup(handle);
      if (result == CURLE_OK) return true;
      usleep(5000);
    }
    return false;
  }

  std::string folder_;
  std::string url_;
  pid_t process_ = -1;
};

// Ours --------------------------------------------------------------------------------------

void Open(CHttpFileClient& client) {
  Require(InitSysLibCURL() != 0, "no libcurl");
  const char* url = Server::The().Url().c_str();
  Require(client.OpenFile(url, nullptr, nullptr, nullptr, 0, nullptr, nullptr, 0, 0, nullptr,
                          nullptr, nullptr) != 0,
          "not opened");
}

void StreamOurs(long long times) {
  std::vector<char> buffer(kStreamBlock);
  for (long long i = 0; i < times; ++i) {
    CHttpFileClient client;
    Open(client);
    std::size_t total = 0;
    while (const unsigned int got = client.ReadFile_Continue(buffer.data(), kStreamBlock, 0)) {
      total += got;
    }
    Require(total == kFileBytes, "bytes are missing");
  }
}

void RangesOurs(long long times) {
  static CHttpFileClient client;
  if (client.GetFileSize() == 0) Open(client);
  char buffer[kRangeBytes];
  for (long long i = 0; i < times; ++i) {
    const std::uint64_t place = static_cast<std::uint64_t>(i) * kRangeStep % (kFileBytes / 2);
    client.SeekFile(static_cast<std::int64_t>(place), 0);
    Require(client.ReadFile_Part(buffer, kRangeBytes, 0) == kRangeBytes, "bytes are missing");
  }
}

void RequireBigTarget() {
  const std::string target = Server::The().Target();
  Require(std::filesystem::file_size(target) == kBigBytes, "bytes are missing");
  std::filesystem::remove(target);
}

void CopyOurs(long long times) {
  Require(InitSysLibCURL() != 0, "no libcurl");
  const std::string url = Server::The().BigUrl();
  for (long long i = 0; i < times; ++i) {
    CHttpFileClient client;
    Require(HttpFileCopyFromServer(&client, url.c_str(), nullptr, nullptr, nullptr, 0, nullptr,
                                   nullptr, 0, 0, nullptr, nullptr, nullptr,
                                   Server::The().Target().c_str(), 0, nullptr, 0) == 1,
            "not copied");
    RequireBigTarget();
  }
}

void CopyByCurl(long long times) {
  const std::string url = Server::The().BigUrl();
  const std::string target = Server::The().Target();
  for (long long i = 0; i < times; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      execlp("curl", "curl", "-sf", "-o", target.c_str(), url.c_str(), nullptr);
      _exit(127);
    }
    waitpid(child, nullptr, 0);
    RequireBigTarget();
  }
}

// Plain libcurl -----------------------------------------------------------------------------

// Fills one buffer again and again, as a reader does who uses up each block.
struct Refilled {
  std::vector<char> buffer;
  std::size_t used = 0;
  std::size_t total = 0;

  static std::size_t Write(char* data, std::size_t size, std::size_t count, void* user) {
    auto& self = *static_cast<Refilled*>(user);
    std::size_t left = size * count;
    self.total += left;
    while (left > 0) {
      const std::size_t step = std::min(left, self.buffer.size() - self.used);
      std::memcpy(self.buffer.data() + self.used, data, step);
      self.used = (self.used + step) % self.buffer.size();
      data += step;
      left -= step;
    }
    return size * count;
  }
};

class PlainHandle {
 public:
  PlainHandle() : handle_(curl_easy_init()) {
    curl_easy_setopt(handle_, CURLOPT_URL, Server::The().Url().c_str());
    curl_easy_setopt(handle_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle_, CURLOPT_BUFFERSIZE, 0x40000L);
  }
  ~PlainHandle() { curl_easy_cleanup(handle_); }

  std::size_t Fetch(const char* range, Refilled& into) {
    into.total = 0;
    curl_easy_setopt(handle_, CURLOPT_RANGE, range);
    curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &Refilled::Write);
    curl_easy_setopt(handle_, CURLOPT_WRITEDATA, &into);
    Require(curl_easy_perform(handle_) == CURLE_OK, "libcurl failed");
    return into.total;
  }

 private:
  CURL* handle_;
};

void StreamPlain(long long times) {
  for (long long i = 0; i < times; ++i) {
    PlainHandle handle;
    Refilled into{std::vector<char>(kStreamBlock)};
    Require(handle.Fetch(nullptr, into) == kFileBytes, "bytes are missing");
  }
}

void RangesPlain(long long times) {
  static PlainHandle handle;
  Refilled into{std::vector<char>(kRangeBytes)};
  for (long long i = 0; i < times; ++i) {
    const std::uint64_t place = static_cast<std::uint64_t>(i) * kRangeStep % (kFileBytes / 2);
    const std::string range = std::to_string(place) + "-" + std::to_string(place + kRangeBytes - 1);
    Require(handle.Fetch(range.c_str(), into) == kRangeBytes, "bytes are missing");
  }
}

const bool kStream = AddPair({"http/stream 256 MiB by 64 KiB", 1 / 0.9, StreamOurs, StreamPlain});
const bool kCopy = AddPair({"http/copy 1 GiB, curl -o", 1 / 0.95, CopyOurs, CopyByCurl});
const bool kRanges = AddPair({"http/range of 4 KiB", 1.15, RangesOurs, RangesPlain});

}  // namespace
}  // namespace qvx::bench
