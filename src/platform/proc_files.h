// What the files below /proc have in common. A process or thread may end while it is read; then
// there is nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvx::platform {

// The whole text as a number.
std::optional<std::uint32_t> ProcNumber(std::string_view text);

// The entries of a folder whose names are numbers, in the system's order.
std::vector<std::uint32_t> ProcIds(const std::string& folder);

// The fields of a "stat" file from the state on, each behind one blank. They stand behind the
// name, which may hold blanks and brackets of its own. Empty if the file can't be read.
std::string ProcStatFields(const std::string& path);

}  // namespace qvx::platform
