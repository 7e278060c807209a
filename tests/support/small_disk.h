// A disk that is soon full: a tmpfs in a mount namespace of a child process.
#pragma once

#include <functional>
#include <string>

namespace qvx::test {

// What OnSmallDisk returns where the machine allows no such mount.
inline const char* const kNoSmallDisk = "this machine allows no tmpfs in a mount namespace";

// Runs body in a child process with the path of an empty tmpfs of that size, and returns what
// body returned there.
std::string OnSmallDisk(int kibibytes, const std::function<std::string(const std::string&)>& body);

// Writes a file by its native path; an empty content where that fails.
void WriteFile(const std::string& native_path, const std::string& content);

}  // namespace qvx::test
