// The program: finds the command, runs it, and turns what it throws into one line and exit
// code 1. Everything else is in the files of the commands.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>

#include "command.h"

namespace {

void AddCommands(CLI::App& app) {
  using namespace qvx::tool;
  AddServeCommand(app);
  AddListCommand(app);
  AddGetCommand(app);
  AddPutCommand(app);
  AddRemoveCommand(app);
  AddMakeFolderCommand(app);
  AddMoveCommand(app);
  AddDigestCommand(app);
  AddSizeCommand(app);
  AddDemoCommand(app);
  AddListenCommand(app);
  AddSendCommand(app);
  AddHexdumpCommand(app);
  AddLogCommand(app);
  AddNumberCommand(app);
  AddConfigCommand(app);
  AddGifCommand(app);
  AddSerialCommand(app);
  AddSumCommand(app);
  AddImageCommand(app);
  AddThermalCommand(app);
  AddProcessCommands(app);
  AddStackCommand(app);
  AddZipCommand(app);
  AddUnzipCommand(app);
  AddGzipCommand(app);
  AddGunzipCommand(app);
  AddFetchCommand(app);
  AddCatCommand(app);
  AddPostCommand(app);
}

int Fail(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  std::fflush(stdout);
  std::fprintf(stderr, "qvx: %s\n", text.c_str());
  return 1;
}

int Run(int argc, char** argv) {
  CLI::App app{
      "Files, archives, web, pictures, serial ports and processes, by the functions of QVX_Common.",
      "qvx"};
  app.set_version_flag("--version", std::string("qvx ") + QVX_TOOL_VERSION);
  app.require_subcommand(1);
  AddCommands(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    return Fail(std::string(error.what()) + " (see qvx --help)");
  }
  return std::fflush(stdout) == 0 ? 0 : Fail("cannot write to the output");
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    return Fail(error.what());
  }
}
