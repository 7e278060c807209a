// The records of a zip archive, as PKWARE's APPNOTE.TXT 6.3 gives them, and numbers in them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvx::archive {

inline constexpr std::uint32_t kLocalSignature = 0x04034B50;
inline constexpr std::uint32_t kCentralSignature = 0x02014B50;
inline constexpr std::uint32_t kDigitalSignature = 0x05054B50;
inline constexpr std::uint32_t kEndSignature = 0x06054B50;
inline constexpr std::uint32_t kEnd64Signature = 0x06064B50;
inline constexpr std::uint32_t kLocator64Signature = 0x07064B50;

// Bytes of each record without the texts behind it.
inline constexpr std::size_t kLocalSize = 30;
inline constexpr std::size_t kCentralSize = 46;
inline constexpr std::size_t kEndSize = 22;
inline constexpr std::size_t kEnd64Size = 56;
inline constexpr std::size_t kLocator64Size = 20;

inline constexpr std::uint16_t kFlagEncrypted = 0x0001;
inline constexpr std::uint16_t kFlagDescriptor = 0x0008;  // sizes and CRC behind the data
inline constexpr std::uint16_t kFlagUtf8 = 0x0800;

inline constexpr std::uint16_t kMethodStored = 0;
inline constexpr std::uint16_t kMethodDeflated = 8;

inline constexpr std::uint16_t kExtraZip64 = 0x0001;
inline constexpr std::uint16_t kExtraUnicodePath = 0x7075;

inline constexpr std::uint16_t kSaturated16 = 0xFFFF;      // the number stands in a
inline constexpr std::uint32_t kSaturated32 = 0xFFFFFFFF;  // zip64 record instead

inline constexpr std::size_t kUnicodePathHead = 5;  // version and CRC of the other name

// "Version made by" of zip 3.0 on Unix, which stores the bytes of a name as they are.
inline constexpr std::uint16_t kMadeForRawNames = 3 << 8 | 30;

inline constexpr std::uint32_t kAttributeFolder = 0x10;

inline std::uint16_t Get16(const unsigned char* bytes) {
  return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}
inline std::uint32_t Get32(const unsigned char* bytes) {
  return Get16(bytes) | static_cast<std::uint32_t>(Get16(bytes + 2)) << 16;
}
inline std::uint64_t Get64(const unsigned char* bytes) {
  return Get32(bytes) | static_cast<std::uint64_t>(Get32(bytes + 4)) << 32;
}

}  // namespace qvx::archive
