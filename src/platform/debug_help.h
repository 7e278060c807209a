// Symbols, source lines, modules and frames of a process, by elfutils' libdw, which is loaded at
// run time. Only local files are looked at: the images that the process has mapped, and debug
// files found by build id or by the image's own link. For one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/stack_memory.h"

namespace qvx::platform {

struct DebugSymbol {
  std::string name;
  std::uint64_t offset = 0;  // of the address from the symbol
};

struct DebugLine {
  std::string file;
  std::uint32_t line = 0;
  std::uint32_t offset = 0;  // of the address from the line's first one
};

enum class ModuleSymbols { kNone, kTable, kDebugData, kNotLoaded };

struct DebugModule {
  std::string name;
  std::string image;  // native path
  std::uint64_t base = 0;
  std::uint64_t size = 0;
  ModuleSymbols symbols = ModuleSymbols::kNotLoaded;
};

// Where the walk reads, and what it finds.
class WalkSink {
 public:
  virtual ~WalkSink() = default;
  virtual bool ReadWord(std::uint64_t address, std::uint64_t* word) = 0;
  // exact: the thread stands at the counter; else it is a return address. False ends the walk.
  virtual bool OnFrame(std::uint64_t counter, bool exact) = 0;
};

enum class WalkEnd { kComplete, kFailed, kStopped };

struct DebugBinding;

class DebugHelp {
 public:
  DebugHelp();
  ~DebugHelp();
  DebugHelp(const DebugHelp&) = delete;
  DebugHelp& operator=(const DebugHelp&) = delete;

  // A name for the system's loader or a native path. False if it can't be loaded or lacks a
  // function other than those for source lines.
  bool Load(const char* library);
  bool IsLoaded() const;
  bool HasLines() const;

  // Begins with a process, whose debug files may also lie in these folders (native paths).
  // False with LastError.
  bool Open(std::uint32_t process, std::vector<std::string> folders);
  // Finds the modules of the process, by its memory map or, for this process, by the loader's
  // own list.
  std::vector<DebugModule> FindModules();

  // Of the address that a thread stands at or, if not exact, returns to.
  bool FindSymbol(std::uint64_t address, bool exact, DebugSymbol* symbol);
  bool FindLine(std::uint64_t address, bool exact, DebugLine* line);
  bool FindModule(std::uint64_t address, DebugModule* module);

  WalkEnd Walk(std::uint32_t thread, const Registers& registers, WalkSink& sink);

  // The library's code for the last failure on this thread.
  std::uint32_t LastError() const;

 private:
  std::unique_ptr<DebugBinding> binding_;
};

}  // namespace qvx::platform
