// A file that closes itself.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace qvx::tool {

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// Native path; a mode of std::fopen. Throws CommandError with the reason of a failure.
Stream OpenStream(const std::string& path, const char* mode);

}  // namespace qvx::tool
