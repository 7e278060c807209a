// Any bytes as a server's answer to a read. The first byte chooses the kind of read and how the
// answer is cut into pieces; the rest is the answer, behind which the server ends. A bounded read
// never stores beyond its memory, and what a client reads is never longer than what was sent.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

#include "qvx/curl_binding.h"
#include "qvx/http_file_client.h"

namespace {

constexpr unsigned int kRoom = 24;

void Require(bool holds) {
  if (!holds) std::abort();
}

class Server {
 public:
  Server() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    Require(bind(listener_, reinterpret_cast<sockaddr*>(&address), size) == 0);
    Require(listen(listener_, 64) == 0);
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/file";
    std::thread([this] { Accept(); }).detach();
  }

  const char* Url() const { return url_.c_str(); }
  void SetAnswer(const std::string& answer, std::size_t piece) {
    std::lock_guard<std::mutex> guard(mutex_);
    answer_ = answer;
    piece_ = piece;
  }

 private:
  void Accept() {
    for (;;) {
      const int descriptor = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (descriptor < 0) continue;
      std::thread([this, descriptor] { Serve(descriptor); }).detach();
    }
  }

  void Serve(int descriptor) {
    std::string request;
    char block[4096];
    for (;;) {
      const ssize_t got = recv(descriptor, block, sizeof(block), 0);
      if (got <= 0) break;
      request.append(block, static_cast<std::size_t>(got));
      if (request.find("\r\n\r\n") == std::string::npos) continue;
      const bool head = request.rfind("HEAD", 0) == 0;
      request.clear();
      Send(descriptor, head ? "HTTP/1.1 200 OK\r\nContent-Length: 64\r\n\r\n" : std::string());
      if (!head) break;
    }
    shutdown(descriptor, SHUT_RDWR);
    close(descriptor);
  }

  // The answer that was set where there is no text.
  void Send(int descriptor, std::string text) {
    std::size_t piece = text.size();
    if (text.empty()) {
      std::lock_guard<std::mutex> guard(mutex_);
      text = answer_;
      piece = piece_;
    }
    for (std::size_t at = 0; at < text.size(); at += piece) {
      const std::size_t size = std::min(piece, text.size() - at);
      if (send(descriptor, text.data() + at, size, MSG_NOSIGNAL) <= 0) return;
    }
  }

  int listener_;
  std::string url_;
  std::mutex mutex_;
  std::string answer_;
  std::size_t piece_ = 1;
};

Server& TheServer() {
  static auto* server = new Server;
  return *server;
}

// Of a header line. libcurl 7.88 itself reads freed memory when the first line of the second
// answer on a handle goes on like this.
bool HasContinuation(const std::string& answer) {
  return answer.find("\n ") != std::string::npos || answer.find("\n\t") != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0 || InitSysLibCURL() == 0) return 0;
  const std::string answer(reinterpret_cast<const char*>(data + 1), size - 1);
  if (HasContinuation(answer)) return 0;
  TheServer().SetAnswer(answer, data[0] % 64u + 1);
  CHttpFileClient client;
  Require(client.OpenFile(TheServer().Url(), nullptr, nullptr, nullptr, 0, nullptr, nullptr, 0, 0,
                          nullptr, nullptr, nullptr) == 1);
  client.SeekFile(data[0] / 64u * 8, 0);
  unsigned char memory[kRoom + 8];
  std::memset(memory, 0xA5, sizeof(memory));
  const unsigned int got = (data[0] & 1) != 0 ? client.ReadFile_Part(memory, kRoom, 1000)
                                              : client.ReadFile_Continue(memory, kRoom, 1000);
  Require(got <= kRoom && client.GetFilePos() <= 64);
  for (unsigned int i = kRoom; i < sizeof(memory); ++i) Require(memory[i] == 0xA5);
  return 0;
}
