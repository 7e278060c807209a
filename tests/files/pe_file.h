// Builds the bytes of a PE file with one section, which holds a version resource.
#pragma once

#include <cstdint>
#include <string>

#include "support/packet_bytes.h"

namespace qvx::test {

inline std::string WideBytes(const std::u16string& text) {
  std::string bytes;
  for (const char16_t unit : text) bytes += LittleEndian<std::uint16_t>(unit);
  return bytes;
}

inline std::string PaddedToWords(std::string bytes) {
  bytes.resize((bytes.size() + 3) / 4 * 4);
  return bytes;
}

enum class VersionValue : std::uint16_t { kBytes, kText };

// A block of the resource. The size of a text value counts characters.
inline std::string VersionNode(const std::u16string& key, VersionValue kind,
                               const std::string& value, const std::string& children = {}) {
  const std::size_t size = kind == VersionValue::kText ? value.size() / 2 : value.size();
  std::string bytes = LittleEndian(static_cast<std::uint16_t>(size)) +
                      LittleEndian(static_cast<std::uint16_t>(kind)) + WideBytes(key + u'\0');
  // The length of the whole goes ahead, and counts for the padding.
  bytes = PaddedToWords("??" + bytes) + value;
  if (!children.empty()) bytes = PaddedToWords(bytes) + children;
  return bytes.replace(0, 2, LittleEndian(static_cast<std::uint16_t>(bytes.size())));
}

struct PeOptions {
  bool is_64 = true;
  bool has_translation = true;
  std::u16string version_key = u"FileVersion";
  std::uint32_t name_id = 1;
};

inline std::string VersionResource(const std::u16string& version, const PeOptions& options) {
  constexpr VersionValue kText = VersionValue::kText;
  const std::string texts =
      PaddedToWords(
          VersionNode(u"CompanyName", kText, WideBytes(u"nobody") + std::string(2, '\0'))) +
      VersionNode(options.version_key, kText, WideBytes(version + u'\0'));
  const std::string translation =
      VersionNode(u"Translation", VersionValue::kBytes, LittleEndian<std::uint32_t>(0x04B00409));
  return VersionNode(
      u"VS_VERSION_INFO", VersionValue::kBytes, std::string(52, '\x7f'),
      PaddedToWords(
          VersionNode(u"StringFileInfo", kText, "", VersionNode(u"040904B0", kText, "", texts))) +
          VersionNode(u"VarFileInfo", kText, "", options.has_translation ? translation : ""));
}

// type, name and language, one folder each, and behind them the entry with the data's place.
inline std::string ResourceSection(std::uint32_t address, const std::string& data,
                                   std::uint32_t name_id) {
  constexpr std::uint32_t kFolder = 0x80000000;
  std::string bytes;
  const std::uint32_t ids[] = {16, name_id, 0x409};
  for (std::uint32_t level = 0; level < 3; ++level) {
    bytes += std::string(14, '\0') + LittleEndian<std::uint16_t>(1) + LittleEndian(ids[level]) +
             LittleEndian((level < 2 ? kFolder : 0) | ((level + 1) * 24));
  }
  return bytes + LittleEndian(address + 88) +
         LittleEndian(static_cast<std::uint64_t>(data.size())) + std::string(4, '\0') + data;
}

inline std::string PeFile(const std::u16string& version, const PeOptions& options = {}) {
  constexpr std::uint32_t kAddress = 0x3000;
  constexpr std::uint32_t kOffset = 0x400;
  constexpr std::uint32_t kHeader = 0x98;
  const std::string section =
      ResourceSection(kAddress, VersionResource(version, options), options.name_id);
  const auto size = static_cast<std::uint32_t>(section.size());
  const std::uint16_t optional_size = options.is_64 ? 240 : 224;
  std::string bytes(kOffset, '\0');
  const auto put = [&bytes](std::size_t offset, const std::string& part) {
    bytes.replace(offset, part.size(), part);
  };
  put(0, "MZ");
  put(0x3C, LittleEndian<std::uint32_t>(0x80));
  put(0x80, "PE");
  put(0x84, LittleEndian<std::uint32_t>(options.is_64 ? 0x18664 : 0x1014C));  // one section
  put(0x94, LittleEndian(optional_size) + LittleEndian<std::uint16_t>(0x2022));
  put(kHeader, LittleEndian<std::uint16_t>(options.is_64 ? 0x20B : 0x10B));
  put(kHeader + optional_size - 132, LittleEndian<std::uint32_t>(16));  // directories
  put(kHeader + optional_size - 112, LittleEndian(kAddress) + LittleEndian(size));
  put(kHeader + optional_size, ".rsrc");
  put(kHeader + optional_size + 8,
      LittleEndian(size) + LittleEndian(kAddress) + LittleEndian(size) + LittleEndian(kOffset));
  return bytes + section;
}

}  // namespace qvx::test
