// qvx listen and qvx send: the packet server and client at the terminal. Lines that are typed
// go out as packets; packets that come are printed. The server relays between the clients.
#include <qvx/socket_client.h>
#include <qvx/socket_server.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "command.h"
#include "interrupt.h"
#include "line_input.h"
#include "remote.h"

namespace qvx::tool {
namespace {

// Whole lines from several threads.
void PrintLine(const std::string& text) {
  static std::mutex mutex;
  const std::lock_guard<std::mutex> guard(mutex);
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

// Packets are any bytes; what a terminal might act on is shown as a number.
std::string Shown(const unsigned char* data, int size) {
  std::string text;
  for (int i = 0; i < size; ++i) {
    const unsigned char byte = data[i];
    if (byte >= 0x20 && byte != 0x7f) {
      text += static_cast<char>(byte);
    } else {
      char number[8];
      std::snprintf(number, sizeof(number), "\\x%02x", byte);
      text += number;
    }
  }
  return text;
}

std::optional<std::uint64_t> ParseSocket(std::string_view text) {
  std::uint64_t value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || stop != text.data() + text.size()) return std::nullopt;
  return value;
}

// "all", "others", "server" or the number of a client, as a routing code.
std::optional<std::uint64_t> ParseTarget(std::string_view text) {
  if (text == "all") return SOCKET_CODE_ALL_CLIENTS;
  if (text == "others") return SOCKET_CODE_OTHER_CLIENTS;
  if (text == "server") return SOCKET_CODE_TO_SERVER;
  return ParseSocket(text);
}

// A line that begins with "/target " goes there; any other to the target given. The line loses
// what names the target. Nothing where the target is none.
std::optional<std::uint64_t> TakeTarget(std::string& line, std::uint64_t usual) {
  if (line.empty() || line[0] != '/') return usual;
  const std::size_t blank = std::min(line.find(' '), line.size());
  const auto target = ParseTarget(std::string_view(line).substr(1, blank - 1));
  if (target) line.erase(0, blank + 1);
  return target;
}

// --- listen ---------------------------------------------------------------------------------

class RelayServer : public CTCPSocketServer, private IServerSocketListener {
 public:
  explicit RelayServer(std::string address) : address_(std::move(address)) {}
  ~RelayServer() override { Close(); }

  void Start(std::uint16_t port) {
    if (Create(port, 0, 1, this, 0, "qvx") == 1) return;
    throw CommandError("cannot listen on " + address_ + ":" + std::to_string(port));
  }

 protected:
  std::uint64_t SocketCreate(unsigned short port) override {
    return ListenOn(address_.c_str(), port);
  }

 private:
  int OnServerAcceptClient(std::uint64_t, tagCLIENTSOCKETINFO* client) override {
    PrintLine("* client " + std::to_string(client->nSocketFD) + " connected from " +
              client->strIPAddr.GetString() + ":" + std::to_string(client->nPort));
    const std::string greeting = "* you are client " + std::to_string(client->nSocketFD);
    SendData(client->nSocketFD, greeting.data(), static_cast<int>(greeting.size()));
    return 1;
  }

  int OnServerReceiveData(std::uint64_t, tagCLIENTSOCKETINFO* client, const unsigned char* data,
                          int size) override {
    PrintLine("client " + std::to_string(client->nSocketFD) + ": " + Shown(data, size));
    return 1;
  }

  void OnServerCloseClient(std::uint64_t, tagCLIENTSOCKETINFO* client) override {
    PrintLine("* client " + std::to_string(client->nSocketFD) + " disconnected");
  }

  const std::string address_;
};

struct ListenOptions {
  std::uint16_t port = 0;
  std::string address = "127.0.0.1";
};

void SendFromServer(RelayServer& server, std::string line) {
  const auto target = TakeTarget(line, SOCKET_CODE_ALL_CLIENTS);
  if (line.empty()) return;
  const int size = static_cast<int>(line.size());
  if (target == SOCKET_CODE_ALL_CLIENTS) {
    server.BroadcastData(UINT64_MAX, line.data(), size);
  } else if (!target || server.SendData(*target, line.data(), size) != 1) {
    PrintLine("* not sent: no such client");
  }
}

void Listen(const ListenOptions& options) {
  BlockInterrupts();
  RelayServer server(options.address);
  server.Start(options.port);
  PrintLine("* listening on " + options.address + ":" + std::to_string(server.GetServerPort()));
  LineInput input;
  std::string line;
  for (;;) {
    const LineInput::Event event = input.Next(line);
    if (event == LineInput::Event::kInterrupt) break;
    if (event == LineInput::Event::kLine) SendFromServer(server, line);
  }
  server.Close();
  PrintLine("* stopped");
}

// --- send -----------------------------------------------------------------------------------

class RelayClient : public CTCPSocketClient, private IClientSocketListener {
 public:
  explicit RelayClient(const LineInput& input) : input_(input) {}
  ~RelayClient() override { Close(); }

  void Connect(const HostPort& server) {
    if (Create(server.host.c_str(), server.port, 0, 1, this, 0, "qvx") == 1) return;
    throw CommandError("cannot connect to " + server.host + ":" + std::to_string(server.port));
  }

 private:
  int OnClientReceiveData(std::uint64_t, std::uint64_t, const unsigned char* data,
                          int size) override {
    PrintLine(Shown(data, size));
    return 1;
  }

  void OnClientDisconnectFromServer(std::uint64_t, std::uint64_t) override { input_.Wake(); }

  const LineInput& input_;
};

struct SendOptions {
  std::string server;
  std::string target = "others";
};

void SendFromClient(RelayClient& client, std::string line, std::uint64_t usual) {
  const auto target = TakeTarget(line, usual);
  if (!target) {
    PrintLine("* not sent: write /all, /others, /server or /NUMBER before the text");
  } else if (!line.empty()) {
    client.SendData(*target, line.data(), static_cast<int>(line.size()));
  }
}

void Send(const SendOptions& options) {
  const HostPort server = ParseHostPort(options.server);
  const auto target = ParseTarget(options.target);
  if (!target) throw CommandError("--to wants all, others, server or the number of a client");
  BlockInterrupts();
  LineInput input;
  RelayClient client(input);
  client.Connect(server);
  std::string line;
  for (;;) {
    switch (input.Next(line)) {
      case LineInput::Event::kLine:
        SendFromClient(client, line, *target);
        break;
      case LineInput::Event::kWake:
        throw CommandError("the server closed the connection");
      case LineInput::Event::kEnd:
      case LineInput::Event::kInterrupt:
        return;
    }
  }
}

}  // namespace

void AddListenCommand(CLI::App& app) {
  auto options = std::make_shared<ListenOptions>();
  CLI::App* command = app.add_subcommand(
      "listen",
      "Relay packets between clients; lines typed here go to all, \"/NUMBER text\" to one");
  command->add_option("PORT", options->port, "Port to listen on; 0 takes a free one")->required();
  command->add_option("--listen", options->address, "Local address; 0.0.0.0 is all of them")
      ->check(CLI::ValidIPV4)
      ->capture_default_str();
  command->callback([options] { Listen(*options); });
}

void AddSendCommand(CLI::App& app) {
  auto options = std::make_shared<SendOptions>();
  CLI::App* command = app.add_subcommand(
      "send", "Send typed lines as packets and print what comes, until the end of the input");
  command->add_option("SERVER", options->server, "host:port of a qvx listen")->required();
  command
      ->add_option("--to", options->target,
                   "all, others, server or a client's number; \"/others text\" and its like choose "
                   "for one line")
      ->capture_default_str();
  command->callback([options] { Send(*options); });
}

}  // namespace qvx::tool
