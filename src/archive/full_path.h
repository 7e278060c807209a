// Paths of archives, worked on in their native form, in which a separator is never half of a
// character.
#pragma once

#include <optional>
#include <string>

namespace qvx::archive {

// The native form of a library path, absolute, without "." and ".." elements and without a
// separator at its end. Nothing where there is none, or where the library form of the result is
// longer than the library's paths.
std::optional<std::string> FullPath(const char* path);

// Up to the last separator, which is included.
std::string FolderPart(const std::string& native);
// Without the last point of the last element and what follows.
std::string WithoutExtension(const std::string& native);
std::string WithoutSeparators(std::string native);

// In the library's form; empty where the code page has no such text.
std::string LibraryForm(const std::string& native);

}  // namespace qvx::archive
