// Where debug files and the debug library are looked for.
#pragma once

#include <string>
#include <vector>

namespace qvx::diagnostics {

// The search path as one text, each element followed by ";". given: the caller's own, or null.
std::string SymbolPath(const char* given);

// The folders of a search path as native paths; elements that are no folders are left out.
std::vector<std::string> NativeFolders(const std::string& path);

// The names under which the debug library is tried, in this order.
std::vector<std::string> DebugLibraryNames();

}  // namespace qvx::diagnostics
