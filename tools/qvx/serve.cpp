// qvx serve: the file server at the terminal, until SIGINT or SIGTERM.
#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "file_service.h"
#include "interrupt.h"
#include "remote.h"

namespace qvx::tool {
namespace {

struct Options {
  std::uint16_t port = kDefaultPort;
  std::string address = "127.0.0.1";
  std::vector<std::string> folders;
  bool verbose = false;
};

void PrintLine(const std::string& text) {
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

// Clients of the service may run elsewhere: its folders are told as whole paths.
std::map<std::int32_t, std::string> ParseFolders(const std::vector<std::string>& texts) {
  std::map<std::int32_t, std::string> folders;
  for (const std::string& text : texts) {
    const std::size_t equal = text.find('=');
    std::int32_t number = -1;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || number < 0 || stop != text.data() + equal)
      throw CommandError("--folder wants NUMBER=PATH, not \"" + text + "\"");
    const std::string path = std::filesystem::absolute(text.substr(equal + 1)).lexically_normal();
    if (!std::filesystem::is_directory(path)) throw CommandError("no such folder: " + path);
    folders[number] = path;
  }
  return folders;
}

void Serve(const Options& options) {
  BlockInterrupts();
  ServiceRules rules;
  rules.address = options.address;
  rules.port = options.port;
  rules.folders = ParseFolders(options.folders);
  rules.tells_requests = options.verbose;
  rules.tell = &PrintLine;
  FileService service(rules);
  service.Start();
  PrintLine("serving on " + options.address + ":" + std::to_string(service.GetServerPort()));
  WaitForInterrupt();
  service.Close();
  PrintLine("stopped");
}

}  // namespace

void AddServeCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "serve", "Serve files until interrupted; whoever can connect may read and write them");
  command->add_option("--port", options->port, "Port to listen on; 0 takes a free one")
      ->capture_default_str();
  command->add_option("--listen", options->address, "Local address; 0.0.0.0 is all of them")
      ->check(CLI::ValidIPV4)
      ->capture_default_str();
  command->add_option("--folder", options->folders, "NUMBER=PATH that clients may ask for");
  command->add_flag("-v,--verbose", options->verbose, "One line per request, too");
  command->callback([options] { Serve(*options); });
}

}  // namespace qvx::tool
