// What the commands of the tool share: how they join the program and how they fail.
#pragma once

#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace qvx::tool {

// Ends a command with exit code 1 and this text as the one line on the error output.
class CommandError : public std::runtime_error {
 public:
  explicit CommandError(const std::string& text) : std::runtime_error(text) {}
};

// Each adds one command, with its options and what it does, to the program.
void AddServeCommand(CLI::App& app);
void AddListCommand(CLI::App& app);
void AddGetCommand(CLI::App& app);
void AddPutCommand(CLI::App& app);
void AddRemoveCommand(CLI::App& app);
void AddMakeFolderCommand(CLI::App& app);
void AddMoveCommand(CLI::App& app);
void AddDigestCommand(CLI::App& app);
void AddSizeCommand(CLI::App& app);
void AddDemoCommand(CLI::App& app);
void AddListenCommand(CLI::App& app);
void AddSendCommand(CLI::App& app);
void AddHexdumpCommand(CLI::App& app);
void AddLogCommand(CLI::App& app);
void AddNumberCommand(CLI::App& app);
void AddConfigCommand(CLI::App& app);
void AddGifCommand(CLI::App& app);
void AddSerialCommand(CLI::App& app);
void AddSumCommand(CLI::App& app);
void AddImageCommand(CLI::App& app);
void AddThermalCommand(CLI::App& app);
void AddProcessCommands(CLI::App& app);
void AddStackCommand(CLI::App& app);
void AddZipCommand(CLI::App& app);
void AddUnzipCommand(CLI::App& app);
void AddGzipCommand(CLI::App& app);
void AddGunzipCommand(CLI::App& app);
void AddFetchCommand(CLI::App& app);
void AddCatCommand(CLI::App& app);
void AddPostCommand(CLI::App& app);

}  // namespace qvx::tool
