// A packet server and two clients in one process: one asks the server, both hear the answer.
#include <qvx/base_string.h>
#include <qvx/socket_client.h>
#include <qvx/socket_server.h>
#include <qvx/sync.h>

#include <cstdio>

namespace {

// Answers each packet to all clients. Called on the server's dispatch thread.
class Answerer : public IServerSocketListener {
 public:
  explicit Answerer(CTCPSocketServer& server) : server_(server) {}

  int OnServerReceiveData(std::uint64_t, tagCLIENTSOCKETINFO* client, const unsigned char* data,
                          int size) override {
    CBaseStringA answer;
    answer.Format("%s asked: %s", client->strIPAddr.GetString(),
                  CBaseStringA(reinterpret_cast<const char*>(data), size).GetString());
    server_.BroadcastData(QVX_INVALID_SOCKET, answer.GetString(), answer.GetLength());
    return 1;
  }

 private:
  CTCPSocketServer& server_;
};

// Keeps the packet that came. Called on the client's receiving thread.
class Hearer : public IClientSocketListener {
 public:
  int OnClientReceiveData(std::uint64_t, std::uint64_t, const unsigned char* data,
                          int size) override {
    text_.Set(reinterpret_cast<const char*>(data), size);
    heard_.Set();
    return 1;
  }
  bool WaitFor(const char* text) { return heard_.Wait(10000) != 0 && text_.Equal(text) == 1; }

 private:
  CBaseStringA text_;
  CBaseEvent heard_;
};

// This machine only, on a free port.
class LocalServer : public CTCPSocketServer {
 public:
  ~LocalServer() override { Close(); }

 protected:
  std::uint64_t SocketCreate(unsigned short port) override { return ListenOn("127.0.0.1", port); }
};

}  // namespace

int main() {
  LocalServer server;
  Answerer answerer(server);
  if (server.Create(0, 0, 1, &answerer, 0, "example") != 1) return 1;

  Hearer first_hearer;
  Hearer second_hearer;
  CTCPSocketClient first;
  CTCPSocketClient second;
  const unsigned short port = server.GetServerPort();
  if (first.Create("127.0.0.1", port, 0, 1, &first_hearer, 0, "first") != 1) return 1;
  if (second.Create("127.0.0.1", port, 0, 1, &second_hearer, 0, "second") != 1) return 1;

  // The clients are accepted in their order, so the second's question finds both.
  second.SendData(SOCKET_CODE_TO_SERVER, "what time is it", 15);
  const char* expected = "127.0.0.1 asked: what time is it";
  const bool heard = first_hearer.WaitFor(expected) && second_hearer.WaitFor(expected);
  std::printf("%s\n", heard ? "both clients heard the answer" : "no answer");
  first.Close();
  second.Close();
  server.Close();
  return heard ? 0 : 1;
}
