// The codes of URLs. The plain forms are the rule; the others give the same by wide loops, chosen
// for the processor at run time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvx::text {

// How many characters EncodeUrl writes.
std::size_t EncodedUrlSize(const std::uint8_t* text, std::size_t size);

// Returns the end of what it has written.
std::uint8_t* EncodeUrl(const std::uint8_t* text, std::size_t size, std::uint8_t* out);
std::uint8_t* EncodeUrlPlain(const std::uint8_t* text, std::size_t size, std::uint8_t* out);

// Needs room for size characters, all of which may be overwritten, and returns the end of the
// result.
std::uint8_t* DecodeUrl(const std::uint8_t* text, std::size_t size, std::uint8_t* out);
std::uint8_t* DecodeUrlPlain(const std::uint8_t* text, std::size_t size, std::uint8_t* out);

}  // namespace qvx::text
