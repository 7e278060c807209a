// qvx ps, qvx run and qvx cpu: processes by name, a command with its output passed on, and the
// processor.
#include <qvx/process_util.h>
#include <qvx/processor_id.h>
#include <qvx/ptr_array.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "text.h"
#include "words.h"

namespace qvx::tool {
namespace {

constexpr std::size_t kPathArray = 260;

// A bare name in the library's form.
std::u16string LibraryName(const std::string& name) {
  const std::u16string path = LibraryPath("/" + name);
  return path.substr(path.rfind(u'\\') + 1);
}

void ListProcesses(const std::string& name, bool by_path) {
  const std::u16string sought = by_path ? LibraryPath(name) : LibraryName(name);
  CPtrArrayCtrl processes;
  GetPidListByNameW(sought.c_str(), by_path ? 1 : 0, &processes);
  if (processes.IsEmpty()) throw CommandError("no process runs " + name);
  std::printf("%10s %10s  %s\n", "process", "parent", "program");
  for (int i = 0; i < processes.GetCount(); ++i) {
    const auto id = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(processes.GetAt(i)));
    WCHAR path[kPathArray];
    const unsigned parent = GetParentProcessID(id);
    if (GetProgramNameW(id, 1, path) == 0) continue;  // it has ended
    std::printf("%10u %10u  %s\n", id, parent, NativePath(path).c_str());
  }
}

int WriteOut(void*, const char* text, unsigned length) {
  std::fwrite(text, 1, length, stdout);
  return std::fflush(stdout);
}

// Protects a word, so that it arrives as it is.
std::string Quoted(const std::string& word) {
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

void Run(const std::vector<std::string>& words, bool shell) {
  std::string command;
  for (const std::string& word : words) {
    if (!command.empty()) command += ' ';
    command += shell ? word : Quoted(word);
  }
  unsigned code = 0;
  if (do_syscmd_A(&WriteOut, nullptr, shell ? 1 : 0, &code, "%s", command.c_str()) == 0) {
    throw CommandError("cannot run " + words.front());
  }
  if (code != 0) throw CommandError(words.front() + " ended with status " + std::to_string(code));
}

void ShowProcessor() {
  CPUID id;
  CBaseStringA vendor;
  CBaseStringA brand;
  id.GetVID(vendor);
  id.GetBrand(brand);
  std::printf("vendor    %s\nmodel     %s\nfeatures ", vendor.GetString(), brand.GetString());
  const struct {
    const char* name;
    bool (CPUID::*has)();
  } features[] = {{"hyper-threading", &CPUID::IsHyperThreading},
                  {"est", &CPUID::IsEST},
                  {"mmx", &CPUID::IsMMX},
                  {"sse", &CPUID::IsSSE},
                  {"sse2", &CPUID::IsSSE2},
                  {"sse3", &CPUID::IsSSE3},
                  {"sse4.1", &CPUID::IsSSE4_1},
                  {"sse4.2", &CPUID::IsSSE4_2},
                  {"avx2", &CPUID::IsAVX2},
                  {"avx512", &CPUID::IsAVX512}};
  for (const auto& feature : features) {
    if ((id.*feature.has)()) std::printf(" %s", feature.name);
  }
  std::printf("\n");
}

}  // namespace

void AddProcessCommands(CLI::App& app) {
  auto name = std::make_shared<std::string>();
  auto by_path = std::make_shared<bool>(false);
  CLI::App* list = app.add_subcommand("ps", "List the processes that run a program");
  list->add_option("NAME", *name, "File name of the program, in any case")->required();
  list->add_flag("--path", *by_path, "NAME is a whole path");
  list->callback([name, by_path] { ListProcesses(*name, *by_path); });

  auto shell = std::make_shared<bool>(false);
  CLI::App* run = app.add_subcommand("run", "Run a command and show what it writes");
  run->add_flag("--shell", *shell, "Have the shell run it");
  const Words words(*run, "COMMAND", "Program, and its arguments after it, best behind --");
  run->callback([words, shell] { Run(words.Command(), *shell); });

  app.add_subcommand("cpu", "Show what the processor is and can do")->callback(&ShowProcessor);
}

}  // namespace qvx::tool
