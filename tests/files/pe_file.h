// Builds the bytes of a PE file with one section, which holds a version resource.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qvx::test {

inline void Put(std::string& bytes, std::uint64_t value, int size) {
  for (int i = 0; i < size; ++i) bytes += static_cast<char>(value >> 8 * i);
}

inline void Pad(std::string& bytes, std::size_t size) {
  bytes.resize(size, '\0');
}

inline void PadToWords(std::string& bytes) {
  Pad(bytes, (bytes.size() + 3) / 4 * 4);
}

inline std::string WideBytes(const std::u16string& text) {
  std::string bytes;
  for (const char16_t unit : text) Put(bytes, unit, 2);
  return bytes;
}

// A block of the resource. The size of a text value counts characters.
inline std::string VersionNode(const std::u16string& key, const std::string& value, bool is_text,
                               const std::vector<std::string>& children) {
  std::string bytes(2, '\0');
  Put(bytes, is_text ? value.size() / 2 : value.size(), 2);
  Put(bytes, is_text ? 1 : 0, 2);
  bytes += WideBytes(key) + std::string(2, '\0');
  PadToWords(bytes);
  bytes += value;
  for (const std::string& child : children) {
    PadToWords(bytes);
    bytes += child;
  }
  bytes[0] = static_cast<char>(bytes.size());
  bytes[1] = static_cast<char>(bytes.size() >> 8);
  return bytes;
}

struct PeOptions {
  bool is_64 = true;
  bool has_translation = true;
  std::u16string version_key = u"FileVersion";
  std::uint32_t name_id = 1;
};

inline std::string VersionResource(const std::u16string& version, const PeOptions& options) {
  const std::string text = WideBytes(version) + std::string(2, '\0');
  const std::string company =
      VersionNode(u"CompanyName", WideBytes(u"nobody") + std::string(2, '\0'), true, {});
  const std::string table = VersionNode(
      u"040904B0", "", true, {company, VersionNode(options.version_key, text, true, {})});
  std::string translation;
  Put(translation, 0x04B00409, 4);
  const std::string names = VersionNode(
      u"VarFileInfo", "", true,
      options.has_translation
          ? std::vector<std::string>{VersionNode(u"Translation", translation, false, {})}
          : std::vector<std::string>{});
  return VersionNode(u"VS_VERSION_INFO", std::string(52, '\x7f'), false,
                     {VersionNode(u"StringFileInfo", "", true, {table}), names});
}

// type, name and language, one folder each, and behind them the entry with the data's place.
inline std::string ResourceSection(std::uint32_t address, const std::string& data,
                                   std::uint32_t name_id) {
  constexpr std::uint32_t kFolder = 0x80000000;
  std::string bytes;
  const std::uint32_t ids[] = {16, name_id, 0x409};
  for (std::uint32_t level = 0; level < 3; ++level) {
    Put(bytes, 0, 8);
    Put(bytes, 0, 4);
    Put(bytes, 0, 2);
    Put(bytes, 1, 2);
    Put(bytes, ids[level], 4);
    Put(bytes, (level < 2 ? kFolder : 0) | ((level + 1) * 24), 4);
  }
  Put(bytes, address + 88, 4);
  Put(bytes, data.size(), 4);
  Put(bytes, 0, 8);
  return bytes + data;
}

inline std::string PeFile(const std::u16string& version, const PeOptions& options = {}) {
  constexpr std::uint32_t kAddress = 0x3000;
  constexpr std::uint32_t kOffset = 0x400;
  const std::string section =
      ResourceSection(kAddress, VersionResource(version, options), options.name_id);
  const std::uint32_t optional_size = options.is_64 ? 240 : 224;
  std::string bytes = "MZ";
  Pad(bytes, 0x3C);
  Put(bytes, 0x80, 4);
  Pad(bytes, 0x80);
  bytes += std::string("PE\0\0", 4);
  Put(bytes, options.is_64 ? 0x8664 : 0x14C, 2);
  Put(bytes, 1, 2);
  Pad(bytes, bytes.size() + 12);
  Put(bytes, optional_size, 2);
  Put(bytes, 0x2022, 2);
  const std::size_t header = bytes.size();
  Put(bytes, options.is_64 ? 0x20B : 0x10B, 2);
  Pad(bytes, header + (options.is_64 ? 108 : 92));
  Put(bytes, 16, 4);
  Pad(bytes, bytes.size() + 16);
  Put(bytes, kAddress, 4);
  Put(bytes, section.size(), 4);
  Pad(bytes, header + optional_size);
  bytes += std::string(".rsrc\0\0\0", 8);
  Put(bytes, section.size(), 4);
  Put(bytes, kAddress, 4);
  Put(bytes, section.size(), 4);
  Put(bytes, kOffset, 4);
  Pad(bytes, kOffset);
  return bytes + section;
}

}  // namespace qvx::test
