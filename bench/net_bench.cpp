// Packets through our client and server, against bare sockets with one thread on each side.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "qvx/socket_client.h"
#include "qvx/socket_server.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr int kMessage = 64;

// --- Ours -------------------------------------------------------------------------------

class EchoServer : public CTCPSocketServer, public IServerSocketListener {
 public:
  EchoServer() {
    if (Create(0, 0, 1, this, 0, "bench") == 0) throw std::runtime_error("no server");
  }
  ~EchoServer() override { Close(); }

  int OnServerReceiveData(std::uint64_t, tagCLIENTSOCKETINFO* client, const unsigned char* data,
                          int size) override {
    return SendData(client->nSocketFD, data, size);
  }

 protected:
  std::uint64_t SocketCreate(unsigned short port) override { return ListenOn("127.0.0.1", port); }
};

// Sends each answer back until it has seen as many as asked for.
class Bouncer : public IClientSocketListener {
 public:
  explicit Bouncer(CSocketClient& client) : client_(client) {}

  void Run(long long times) {
    left_ = times;
    done_ = false;
    const unsigned char message[kMessage] = {};
    client_.SendData(SOCKET_CODE_TO_SERVER, message, kMessage);
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return done_; });
  }

  int OnClientReceiveData(std::uint64_t, std::uint64_t, const unsigned char* data,
                          int size) override {
    if (--left_ > 0) return client_.SendData(SOCKET_CODE_TO_SERVER, data, size);
    std::lock_guard<std::mutex> guard(mutex_);
    done_ = true;
    changed_.notify_one();
    return 1;
  }

 private:
  CSocketClient& client_;
  std::mutex mutex_;
  std::condition_variable changed_;
  long long left_ = 0;
  bool done_ = false;
};

void Connect(CSocketClient& client, IClientSocketListener& listener, EchoServer& server) {
  if (client.Create("127.0.0.1", server.GetServerPort(), 0, 1, &listener, 0, "bench") == 0) {
    throw std::runtime_error("no connection");
  }
}

// One client that stays connected.
struct Connection {
  EchoServer server;
  CTCPSocketClient client;
  Bouncer bouncer{client};

  Connection() { Connect(client, bouncer, server); }
  ~Connection() { client.Close(); }
};

void RoundTripOurs(long long times) {
  static Connection connection;
  connection.bouncer.Run(times);
}

void FirstAnswerOurs(long long times) {
  static EchoServer server;
  for (long long i = 0; i < times; ++i) {
    CTCPSocketClient client;
    Bouncer bouncer(client);
    Connect(client, bouncer, server);
    bouncer.Run(1);
  }
}

// The median time from the call of Create to the first answer.
double MeasureFirstAnswer() {
  static EchoServer server;
  std::vector<double> times;
  for (int i = 0; i < 101; ++i) {
    CTCPSocketClient client;
    Bouncer bouncer(client);
    const auto start = std::chrono::steady_clock::now();
    Connect(client, bouncer, server);
    bouncer.Run(1);
    const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - start;
    times.push_back(taken.count());
  }
  std::nth_element(times.begin(), times.begin() + 50, times.end());
  return times[50];
}

// --- Bare sockets -----------------------------------------------------------------------

int BareSocket() {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  return descriptor;
}

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = port;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool ReadMessage(int descriptor, char* message) {
  return recv(descriptor, message, kMessage, MSG_WAITALL) == kMessage;
}

// Answers one connection after the other on one thread.
class BareServer {
 public:
  BareServer() : listener_(BareSocket()), address_(Loopback(0)) {
    socklen_t size = sizeof(address_);
    if (bind(listener_, reinterpret_cast<const sockaddr*>(&address_), size) != 0 ||
        listen(listener_, SOMAXCONN) != 0) {
      throw std::runtime_error("no listener");
    }
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address_), &size);
    thread_ = std::thread([this] { Serve(); });
  }
  ~BareServer() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
  }
  BareServer(const BareServer&) = delete;
  BareServer& operator=(const BareServer&) = delete;

  int Connect() const {
    const int descriptor = BareSocket();
    const auto* address = reinterpret_cast<const sockaddr*>(&address_);
    if (connect(descriptor, address, sizeof(address_)) != 0) {
      throw std::runtime_error("no connection");
    }
    return descriptor;
  }

 private:
  void Serve() const {
    for (;;) {
      const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (client < 0) return;
      char message[kMessage];
      while (ReadMessage(client, message)) send(client, message, kMessage, MSG_NOSIGNAL);
      close(client);
    }
  }

  const int listener_;
  sockaddr_in address_;
  std::thread thread_;
};

void PingPong(int descriptor, long long times) {
  char message[kMessage] = {};
  for (long long i = 0; i < times; ++i) {
    send(descriptor, message, kMessage, MSG_NOSIGNAL);
    ReadMessage(descriptor, message);
  }
}

void RoundTripBare(long long times) {
  // Neither is closed before the program ends.
  static BareServer& server = *new BareServer;
  static const int descriptor = server.Connect();
  PingPong(descriptor, times);
}

void FirstAnswerBare(long long times) {
  static BareServer server;
  for (long long i = 0; i < times; ++i) {
    const int descriptor = server.Connect();
    PingPong(descriptor, 1);
    close(descriptor);
  }
}

const bool kRoundTrip =
    AddPair({"packet round trip, 64 bytes", 2.5, &RoundTripOurs, &RoundTripBare});
// The bound of the ratio is loose, since a client starts a thread and ends it.
const bool kFirstAnswer =
    AddPair({"connect to first answer", 40.0, &FirstAnswerOurs, &FirstAnswerBare});
const bool kFirstAnswerTime = AddFigure({"connect to first answer", 2e6, &MeasureFirstAnswer});

}  // namespace
}  // namespace qvx::bench
