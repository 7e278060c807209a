// The debugger output. It goes where the environment variable QVX_DEBUG_OUTPUT named when the
// library was loaded: "stderr", "syslog", "fd:N" or the native path of a file, which is made or
// appended to. Without it, in programs with raised rights, and for a target that can't be had,
// it goes nowhere.
//
// Usable from any thread and at any moment, also before static objects are built, after they
// are gone, and in a forked child. Takes no lock and never waits: what the target does not take
// at once is dropped. Raises no SIGPIPE.
#pragma once

#include <string_view>

namespace qvx::platform {

// Writes text as it stands; syslog gets it without its line end, with the severity of level
// (1 debug, 2 info, 3 warning, 4 error). errno is kept.
void WriteDebugOutput(int level, std::string_view text) noexcept;

// Whether the debugger output goes anywhere at all.
bool HasDebugOutput() noexcept;

}  // namespace qvx::platform
