// Packets as they stand on the wire, built byte by byte.
#pragma once

#include <cstdint>
#include <string>

namespace qvx::test {

template <typename Number>
std::string LittleEndian(Number value) {
  std::string bytes;
  for (std::size_t i = 0; i < sizeof(value); ++i) {
    bytes += static_cast<char>(static_cast<std::uint64_t>(value) >> (8 * i));
  }
  return bytes;
}

inline std::string HeaderBytes(std::uint32_t tag, std::uint32_t match, std::int64_t code,
                               std::uint32_t length) {
  return LittleEndian(tag) + LittleEndian(match) + LittleEndian(code) + LittleEndian(length);
}

inline std::string PacketBytes(const std::string& payload, std::int64_t code = -3,
                               std::uint32_t match = 0) {
  return HeaderBytes(0xABCDBBBB, match, code, static_cast<std::uint32_t>(payload.size())) + payload;
}

// Text of that size in which neighbouring pieces differ.
inline std::string Pattern(std::size_t size, unsigned int seed = 0) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) {
    text[i] = static_cast<char>((i * 2654435761u + seed * 97u) >> 13);
  }
  return text;
}

}  // namespace qvx::test
