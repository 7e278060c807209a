// Readable forms of the names that C++ compilers give to symbols.
#pragma once

#include <string>

namespace qvx::diagnostics {

// With types and parameters; the name itself if it is no such name.
std::string UndecorateFull(const std::string& symbol);
// Without result type and parameters.
std::string UndecorateName(const std::string& symbol);

}  // namespace qvx::diagnostics
