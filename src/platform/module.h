// The file that this library was loaded from.
#pragma once

#include <string>

namespace qvx::platform {

// Native and absolute. In a program that holds the library's objects itself it is the program.
// Empty if the system doesn't tell.
std::string ModulePath();

}  // namespace qvx::platform
