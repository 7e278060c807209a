// The functions of libdw and what one session of it holds; for debug_help only.
#pragma once

#include <elfutils/libdwfl.h>
#include <stdlib.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/debug_help.h"
#include "platform/dynamic_library.h"

namespace qvx::platform {

struct DebugWalk;

struct DebugBinding {
  decltype(&dwfl_begin) begin;
  decltype(&dwfl_end) end;
  decltype(&dwfl_errno) error;
  decltype(&dwfl_report_begin) report_begin;
  decltype(&dwfl_report_end) report_end;
  decltype(&dwfl_report_elf) report_elf;
  decltype(&dwfl_linux_proc_report) report_process;
  decltype(&dwfl_getmodules) get_modules;
  decltype(&dwfl_module_info) module_info;
  decltype(&dwfl_module_build_id) build_id;
  decltype(&dwfl_module_getsymtab) symbol_table;
  decltype(&dwfl_module_getdwarf) debug_data;
  decltype(&dwfl_module_addrinfo) address_info;
  decltype(&dwfl_addrmodule) module_at;
  decltype(&dwfl_attach_state) attach_state;
  decltype(&dwfl_getthread_frames) thread_frames;
  decltype(&dwfl_thread_state_registers) state_registers;
  decltype(&dwfl_frame_pc) frame_counter;
  decltype(&elf_version) version;
  decltype(&elf_memory) elf_of_memory;
  // May be missing.
  decltype(&dwfl_module_getsrc) source;
  decltype(&dwfl_lineinfo) line_info;

  bool usable = false;
  Dwfl* session = nullptr;
  bool attached = false;
  DebugWalk* walk = nullptr;  // the one that runs
  std::uint32_t process = 0;
  std::vector<std::string> folders;
  std::vector<std::unique_ptr<char[]>> memory_images;  // outlive the session
  DynamicLibrary library;

  DebugBinding() = default;
  ~DebugBinding();
  DebugBinding(const DebugBinding&) = delete;
  DebugBinding& operator=(const DebugBinding&) = delete;

  bool BindAll();
  DebugModule Describe(Dwfl_Module* module) const;
  ModuleSymbols SymbolsOf(Dwfl_Module* module) const;

  // Each gives a descriptor, or -1; the path goes into *found, to be freed.
  int OpenImage(const char* name, char** found) const;
  int OpenDebugFile(Dwfl_Module* module, const char* image, const char* link, char** found) const;
  Elf* ImageInMemory(std::uint64_t base);

 private:
  int TryFolder(std::string_view folder, const std::string& name, char** found) const;
};

// One walk, as libdw's callbacks see it.
struct DebugWalk {
  DebugBinding& binding;
  const Registers& registers;
  WalkSink& sink;
  std::uint64_t highest_read = 0;
  std::uint64_t former_highest = 0;
  int steps_back = 0;
  bool stopped = false;
  bool astray = false;

  bool IsAstray();
};

extern const Dwfl_Callbacks kModuleCallbacks;
extern const Dwfl_Thread_Callbacks kThreadCallbacks;

// For dwfl_getthread_frames.
int OnDebugFrame(Dwfl_Frame* frame, void* walk);

}  // namespace qvx::platform
