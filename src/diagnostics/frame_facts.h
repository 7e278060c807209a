// What the debug data tell of an address in code. Asking is slow, and the threads of a process
// mostly stand and return at the same few addresses, so a walker keeps the answers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include "platform/debug_help.h"

namespace qvx::diagnostics {

// Each fact or the library's code for the failure.
struct FrameFacts {
  std::optional<platform::DebugSymbol> symbol;
  std::uint32_t symbol_error = 0;
  std::string undecorated;
  std::string undecorated_full;
  std::optional<platform::DebugLine> line;
  std::uint32_t line_error = 0;
  std::optional<platform::DebugModule> module;
  std::uint32_t module_error = 0;
  std::string image;  // a library path
};

// The answers of one session, whose modules do not change.
class KnownFrames {
 public:
  // exact: the thread stands at the counter; else it returns to it. The reference holds until
  // the next call.
  const FrameFacts& Of(platform::DebugHelp& help, std::uint64_t counter, bool exact);

 private:
  std::unordered_map<std::uint64_t, FrameFacts> standing_;
  std::unordered_map<std::uint64_t, FrameFacts> returning_;
};

std::string LibraryPath(const std::string& native);

}  // namespace qvx::diagnostics
