// What the process was started with. Texts are as the system has them, in UTF-8.
#pragma once

#include <optional>
#include <string>

namespace qvx::platform {

// None if the variable is missing, and in programs with raised rights.
std::optional<std::string> EnvironmentText(const char* name);
// Native path of the current directory; empty if it is gone.
std::string CurrentFolder();
// Name of the user that the process runs as; the number where there is none.
std::string UserName();

}  // namespace qvx::platform
