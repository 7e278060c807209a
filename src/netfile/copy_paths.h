// Names that the copies make up: temporary files beside a destination, and children of a
// folder. All in the library's form. No state.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qvx::netfile {

// A fresh name for a temporary file in the folder of a destination; a destination without a
// folder has it in the working folder. Nothing where it does not fit the longest path.
std::optional<std::u16string> TemporaryBeside(std::u16string_view destination);

// A name below a folder; nothing where the path gets too long.
std::optional<std::u16string> ChildPath(const std::u16string& folder, const std::u16string& name);

// False for a name that would leave its folder: one with separators or a drive, "." or "..".
bool IsPlainName(std::u16string_view name);

bool FitsPath(std::u16string_view path);

}  // namespace qvx::netfile
