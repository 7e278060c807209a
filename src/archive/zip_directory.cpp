#include "archive/zip_directory.h"

#include <zlib.h>

#include <algorithm>
#include <optional>
#include <string_view>

#include "archive/zip_format.h"
#include "archive/zip_name.h"

namespace qvx::archive {

namespace {

constexpr std::size_t kMostComment = 0xFFFF;
constexpr std::size_t kExtraHead = 4;

// Where the directory should be, and what it should hold.
struct Extent {
  std::uint64_t begin = 0;
  std::uint64_t size = 0;
  std::uint64_t count = 0;
  std::uint64_t end = 0;      // where the record behind the directory begins
  bool count_is_cut = false;  // to 16 bits
};

std::string_view Text(const unsigned char* bytes, std::size_t size) {
  return {reinterpret_cast<const char*>(bytes), size};
}

// The last end record whose comment the file holds; one that ends with the file before others.
std::optional<std::uint64_t> FindEnd(ByteSource& source) {
  if (source.Size() < kEndSize) return std::nullopt;
  const std::size_t tail =
      static_cast<std::size_t>(std::min<std::uint64_t>(source.Size(), kEndSize + kMostComment));
  const std::uint64_t begin = source.Size() - tail;
  const unsigned char* bytes = source.At(begin, tail);
  if (bytes == nullptr) return std::nullopt;
  std::optional<std::uint64_t> found;
  for (std::size_t at = tail - kEndSize + 1; at-- > 0;) {
    if (Get32(bytes + at) != kEndSignature) continue;
    const std::size_t end = at + kEndSize + Get16(bytes + at + 20);
    if (end == tail) return begin + at;
    if (end < tail && !found) found = begin + at;
  }
  return found;
}

std::optional<Extent> ReadEnd64(ByteSource& source, std::uint64_t end) {
  if (end < kLocator64Size + kEnd64Size) return std::nullopt;
  const unsigned char* locator = source.At(end - kLocator64Size, kLocator64Size);
  if (locator == nullptr || Get32(locator) != kLocator64Signature) return std::nullopt;
  // The offset is wrong where something stands in front of the archive.
  const std::uint64_t places[] = {Get64(locator + 8), end - kLocator64Size - kEnd64Size};
  for (const std::uint64_t place : places) {
    const unsigned char* record = source.At(place, kEnd64Size);
    if (record == nullptr || Get32(record) != kEnd64Signature || place >= end) continue;
    if (Get32(record + 16) != 0 || Get32(record + 20) != 0) return std::nullopt;
    if (Get64(record + 24) != Get64(record + 32)) return std::nullopt;
    return Extent{Get64(record + 48), Get64(record + 40), Get64(record + 32), place, false};
  }
  return std::nullopt;
}

std::optional<Extent> ReadEnd(ByteSource& source, std::uint64_t end) {
  const unsigned char* record = source.At(end, kEndSize);
  if (record == nullptr) return std::nullopt;
  const bool one_part =
      Get16(record + 4) == Get16(record + 6) && Get16(record + 8) == Get16(record + 10);
  const Extent extent{Get32(record + 16), Get32(record + 12), Get16(record + 10), end, true};
  const bool saturated =
      extent.begin == kSaturated32 || extent.size == kSaturated32 || extent.count == kSaturated16;
  if (saturated) {
    if (const std::optional<Extent> large = ReadEnd64(source, end)) return large;
  }
  return one_part && Get16(record + 4) == 0 ? std::optional<Extent>(extent) : std::nullopt;
}

// How far the whole archive stands behind where its offsets say.
std::optional<std::uint64_t> FindShift(ByteSource& source, const Extent& extent) {
  if (extent.size > extent.end || extent.begin > extent.end - extent.size) return std::nullopt;
  if (extent.count == 0) return extent.size == 0 ? std::optional<std::uint64_t>(0) : std::nullopt;
  const std::uint64_t shifts[] = {extent.end - extent.size - extent.begin, 0};
  for (const std::uint64_t shift : shifts) {
    const unsigned char* first = source.At(shift + extent.begin, kCentralSize);
    if (first != nullptr && Get32(first) == kCentralSignature) return shift;
  }
  return std::nullopt;
}

// The 64-bit numbers that the extra field holds for those that are saturated, in this order.
bool ReadZip64(ZipEntry& entry, const unsigned char* data, std::size_t size) {
  for (std::uint64_t* number : {&entry.size, &entry.compressed_size, &entry.offset}) {
    if (*number != kSaturated32) continue;
    if (size < 8) return false;
    *number = Get64(data);
    data += 8;
    size -= 8;
  }
  return true;
}

// A name in UTF-8 beside one in an older form, valid as long as that was not changed.
void ReadUnicodePath(ZipEntry& entry, const unsigned char* data, std::size_t size) {
  if (size <= kUnicodePathHead || data[0] != 1) return;
  const auto* name = reinterpret_cast<const unsigned char*>(entry.raw_name.data());
  if (crc32_z(0, name, entry.raw_name.size()) != Get32(data + 1)) return;
  entry.name = std::string(Text(data + kUnicodePathHead, size - kUnicodePathHead));
}

bool ReadExtra(ZipEntry& entry, const unsigned char* extra, std::size_t size) {
  while (size >= kExtraHead) {
    const std::size_t length = Get16(extra + 2);
    if (length > size - kExtraHead) return true;  // padding of some writers
    const unsigned char* data = extra + kExtraHead;
    const std::uint16_t id = Get16(extra);
    if (id == kExtraZip64 && !ReadZip64(entry, data, length)) return false;
    if (id == kExtraUnicodePath) ReadUnicodePath(entry, data, length);
    extra += kExtraHead + length;
    size -= kExtraHead + length;
  }
  return true;
}

// One record of the directory; its size, or 0 where it is damaged.
std::size_t ReadEntry(ByteSource& source, std::uint64_t at, std::uint64_t end, ZipEntry& entry) {
  if (end - at < kCentralSize) return 0;
  const unsigned char* head = source.At(at, kCentralSize);
  if (head == nullptr || Get32(head) != kCentralSignature) return 0;
  const std::size_t name_size = Get16(head + 28);
  const std::size_t extra_size = Get16(head + 30);
  const std::size_t comment_size = Get16(head + 32);
  const std::size_t size = kCentralSize + name_size + extra_size + comment_size;
  if (end - at < size) return 0;
  const unsigned char* record = source.At(at, size);
  if (record == nullptr) return 0;
  entry.version = Get16(record + 4);
  entry.version_needed = Get16(record + 6);
  entry.flags = Get16(record + 8);
  entry.method = Get16(record + 10);
  entry.dos_date = Get32(record + 12);
  entry.crc = Get32(record + 16);
  entry.compressed_size = Get32(record + 20);
  entry.size = Get32(record + 24);
  entry.internal_attributes = Get16(record + 36);
  entry.attributes = Get32(record + 38);
  entry.offset = Get32(record + 42);
  const NameSource decoding{(entry.flags & kFlagUtf8) != 0, entry.version == kMadeForRawNames};
  const unsigned char* texts = record + kCentralSize;
  entry.raw_name = std::string(Text(texts, name_size));
  entry.name = DecodeName(entry.raw_name, decoding);
  entry.comment = DecodeName(Text(texts + name_size + extra_size, comment_size), decoding);
  return ReadExtra(entry, texts + name_size, extra_size) ? size : 0;
}

bool ReadEntries(ByteSource& source, const Extent& extent, std::uint64_t shift,
                 std::vector<ZipEntry>& entries) {
  std::uint64_t at = shift + extent.begin;
  const std::uint64_t begin = at;
  const std::uint64_t end = at + extent.size;
  while (at < end) {
    const unsigned char* signature = source.At(at, 4);
    if (signature != nullptr && Get32(signature) == kDigitalSignature) break;
    ZipEntry entry;
    const std::size_t size = ReadEntry(source, at, end, entry);
    if (size == 0) return false;
    // Also keeps the sum below from wrapping.
    if (entry.offset >= begin) return false;
    entry.offset += shift;
    entry.limit = begin;
    if (entry.offset >= begin) return false;
    entries.push_back(std::move(entry));
    at += size;
  }
  const std::uint64_t count = extent.count_is_cut ? entries.size() & 0xFFFF : entries.size();
  return count == extent.count;
}

// Each entry ends where the next one begins, wherever both stand in the list.
void SetLimits(std::vector<ZipEntry>& entries) {
  std::vector<ZipEntry*> by_place;
  by_place.reserve(entries.size());
  for (ZipEntry& entry : entries) by_place.push_back(&entry);
  std::sort(by_place.begin(), by_place.end(), [](const ZipEntry* left, const ZipEntry* right) {
    return left->offset < right->offset;
  });
  for (std::size_t i = 1; i < by_place.size(); ++i) by_place[i - 1]->limit = by_place[i]->offset;
}

}  // namespace

bool ZipEntry::IsFolder() const {
  return EndsInSeparator(name) || (attributes & kAttributeFolder) != 0;
}

bool ReadZipDirectory(ByteSource& source, std::vector<ZipEntry>& entries) {
  entries.clear();
  const std::optional<std::uint64_t> end = FindEnd(source);
  const std::optional<Extent> extent = end ? ReadEnd(source, *end) : std::nullopt;
  if (!extent) return false;
  const std::optional<std::uint64_t> shift = FindShift(source, *extent);
  if (!shift || !ReadEntries(source, *extent, *shift, entries)) return false;
  SetLimits(entries);
  return true;
}

}  // namespace qvx::archive
