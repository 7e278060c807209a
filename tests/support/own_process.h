// Disabled cases of this test binary that run in a process of their own.
#pragma once

#include <string>

namespace qvx::test {

// Runs the case "Suite.DISABLED_Name" in a process that looks for libraries in the folder first,
// with one more entry of the environment. Its wait status: 0 if the case passed.
int RunWithLibraries(const std::string& folder, const std::string& test,
                     const std::string& more = std::string());

}  // namespace qvx::test
