// Paths and numbers between the user and the library. The user sees native paths, the library
// takes wide paths of its own form.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qvx::tool {

// The library's form of a native path, without separators at its end. Throws CommandError
// where it does not fit the library's 259 characters or is empty.
std::u16string LibraryPath(const std::string& native);
std::string NativePath(std::u16string_view path);

// folder and name joined, both native; a "/" between them where one is needed.
std::string JoinNative(const std::string& folder, const std::string& name);
// What follows the last "/", separators at the end not counted; empty for "/".
std::string BaseName(const std::string& native);

// The pieces of a list of names joined by ";".
std::vector<std::u16string> SplitList(std::u16string_view list);

// The bytes of the files in a folder and below, without hidden ones, as far as they are known.
std::uint64_t FolderBytes(const std::string& native);

std::string SizeText(std::uint64_t bytes);                      // "12.34 MiB"
std::string RateText(std::uint64_t bytes, double seconds);      // "98.70 MiB/s"
std::string DurationText(double seconds);                       // "1:02:03", "0:07"
std::string DigestText(const unsigned char* digest);            // 32 hexadecimal digits
std::string CountText(std::uint64_t count, const char* thing);  // "1 file", "2 files"

}  // namespace qvx::tool
