// qvx stack: the call stacks of all threads of a process.
#include <qvx/stack_walker.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "command.h"

namespace qvx::tool {
namespace {

struct Options {
  std::uint32_t process = 0;
  bool self_test = false;
};

// Frames go to the output.
class Printer : public StackWalker {
 public:
  explicit Printer(std::uint32_t process) : StackWalker(nullptr, process, nullptr) {}

  void OnCallstackEntry(CallstackEntryType type, CallstackEntry& entry) override {
    if (type != LastEntry) ++frames_;
    found_own_ = found_own_ || std::strstr(entry.name, "SelfTest") != nullptr;
    StackWalker::OnCallstackEntry(type, entry);
  }
  void OnOutput(const char* text) override { std::fputs(text, stdout); }

  int Frames() const { return frames_; }
  bool FoundOwn() const { return found_own_; }

 private:
  int frames_ = 0;
  bool found_own_ = false;
};

std::vector<std::uint32_t> ThreadsOf(std::uint32_t process) {
  std::vector<std::uint32_t> threads;
  std::error_code error;
  const std::filesystem::path folder("/proc/" + std::to_string(process) + "/task");
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    const std::string name = entry.path().filename().string();
    std::uint32_t id = 0;
    std::from_chars(name.data(), name.data() + name.size(), id);
    threads.push_back(id);
  }
  std::sort(threads.begin(), threads.end());
  return threads;
}

void ShowProcess(std::uint32_t process) {
  const std::string name = "process " + std::to_string(process);
  const auto threads = ThreadsOf(process);
  if (threads.empty()) throw CommandError("there is no " + name);
  Printer printer(process);
  if (printer.LoadModules() == 0)
    throw CommandError("cannot look at " + name + ": libdw is missing, or it is not permitted");
  int shown = 0;
  for (std::uint32_t thread : threads)
    shown += printer.ShowCallstack(thread, nullptr, nullptr, nullptr);
  if (shown == 0) throw CommandError("no thread of " + name + " can be looked at");
}

// Walks the own stack and looks for this very function in it.
[[gnu::noinline]] void RunSelfTest() {
  Printer printer(static_cast<std::uint32_t>(getpid()));
  const int shown =
      printer.ShowCallstack(static_cast<unsigned long>(gettid()), nullptr, nullptr, nullptr);
  if (shown == 0) throw CommandError("the walk failed; is libdw installed?");
  if (!printer.FoundOwn()) throw CommandError("the walk did not find the function that ran it");
  std::printf("%d frames, all well\n", printer.Frames());
}

void Run(const Options& options) {
  if (options.self_test) return RunSelfTest();
  if (options.process == 0) throw CommandError("name a process, or --self-test");
  ShowProcess(options.process);
}

}  // namespace

void AddStackCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("stack", "Show the call stacks of a process's threads");
  command->add_option("PID", options->process, "The process");
  command->add_flag("--self-test", options->self_test, "Walk the tool's own stack instead");
  command->callback([options] { Run(*options); });
}

}  // namespace qvx::tool
