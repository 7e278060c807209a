// Random characters for the names of temporary files, drawn from the system, so that no two
// processes draw the same, forked ones included. The host's rand is left alone.
#pragma once

#include <cstddef>
#include <string>

namespace qvx::platform {

// count characters; each is a digit with the odds of 1 in 7, a lower-case and an upper-case
// ASCII letter with 3 in 7 each.
std::string RandomName(std::size_t count);

}  // namespace qvx::platform
