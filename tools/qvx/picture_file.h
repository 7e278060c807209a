// Files of the picture commands: parts of files in, whole files out. All throw CommandError.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "pixel_layout.h"

namespace qvx::tool {

// A piece of exactly this size.
std::vector<unsigned char> ReadPiece(const std::string& native, std::uint64_t offset,
                                     std::size_t size);
// All of it, text or not.
std::string ReadText(const std::string& native);
std::uint64_t FileSize(const std::string& native);

// Whether the name ends in .bmp.
bool IsBmpName(const std::string& native);

// Of an RGB layout, row 0 at the top.
void SaveBmp(const Picture& picture, const std::string& native);

// The bytes as they are, under the name only when all are written.
void SaveRaw(const std::vector<unsigned char>& bytes, const std::string& native);

}  // namespace qvx::tool
