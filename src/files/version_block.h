// The version resource inside PE files. Every number in the file is a claim: what lies outside
// the file, or what it stands in, does not exist. Reading is by small pieces, whatever sizes the
// file claims.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace qvx::files {

// Fills size bytes from an offset of the file; false if they are not all there.
using ReadBytes = std::function<bool(std::uint64_t offset, void* out, std::size_t size)>;

// The text of "FileVersion" in the first language that the resource names; empty if it holds
// none. Nothing if the file has no version resource, or the resource names no language.
std::optional<std::u16string> FileVersionOf(const ReadBytes& read);

}  // namespace qvx::files
