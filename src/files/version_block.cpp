#include "files/version_block.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "core/raw_text.h"

namespace qvx::files {
namespace {

constexpr std::uint32_t kVersionType = 16;
constexpr std::uint32_t kVersionName = 1;
constexpr std::size_t kLongestBlock = 0x10000;  // its own length field has 16 bits

// The whole of a number type at a place of the file, little-endian as all numbers of the format.
template <typename T>
std::optional<T> ReadNumber(const ReadBytes& read, std::uint64_t offset) {
  unsigned char bytes[sizeof(T)];
  if (!read(offset, bytes, sizeof(bytes))) return std::nullopt;
  T number = 0;
  for (std::size_t i = sizeof(T); i-- > 0;) number = static_cast<T>(number << 8 | bytes[i]);
  return number;
}

struct Section {
  std::uint32_t address;  // in memory
  std::uint32_t size;     // in the file
  std::uint32_t offset;   // in the file
};

// The headers of a PE file, as far as the resources need them.
class Image {
 public:
  explicit Image(const ReadBytes& read) : read_(read) {}

  bool Open() {
    const auto mark = ReadNumber<std::uint16_t>(read_, 0);
    const auto header = ReadNumber<std::uint32_t>(read_, 0x3C);
    if (mark != 0x5A4D || !header) return false;
    if (ReadNumber<std::uint32_t>(read_, *header) != 0x4550u) return false;
    const std::uint64_t file_header = std::uint64_t{*header} + 4;
    const auto sections = ReadNumber<std::uint16_t>(read_, file_header + 2);
    const auto optional_size = ReadNumber<std::uint16_t>(read_, file_header + 16);
    if (!sections || !optional_size) return false;
    const std::uint64_t optional_header = file_header + 20;
    return FindResources(optional_header) &&
           ReadSections(optional_header + *optional_size, *sections);
  }

  std::uint32_t Resources() const { return resources_; }

  // Where in the file a range of memory comes from.
  std::optional<std::uint64_t> OffsetOf(std::uint64_t address, std::uint64_t size) const {
    for (const Section& section : sections_) {
      if (address < section.address) continue;
      const std::uint64_t inside = address - section.address;
      if (inside + size <= section.size) return section.offset + inside;
    }
    return std::nullopt;
  }

 private:
  // The third of the data directories, whose place depends on the kind of the header.
  bool FindResources(std::uint64_t header) {
    const int kind = ReadNumber<std::uint16_t>(read_, header).value_or(0);
    if (kind != 0x10B && kind != 0x20B) return false;
    const std::uint64_t directories = header + (kind == 0x10B ? 96 : 112);
    const auto count = ReadNumber<std::uint32_t>(read_, directories - 4);
    const auto address = ReadNumber<std::uint32_t>(read_, directories + 16);
    if (!count || *count < 3 || !address || *address == 0) return false;
    resources_ = *address;
    return true;
  }

  bool ReadSections(std::uint64_t table, std::uint16_t count) {
    constexpr std::uint64_t kEntry = 40;
    for (std::uint64_t i = 0; i < count; ++i) {
      const auto address = ReadNumber<std::uint32_t>(read_, table + i * kEntry + 12);
      const auto size = ReadNumber<std::uint32_t>(read_, table + i * kEntry + 16);
      const auto offset = ReadNumber<std::uint32_t>(read_, table + i * kEntry + 20);
      if (!address || !size || !offset) return false;
      sections_.push_back({*address, *size, *offset});
    }
    return true;
  }

  const ReadBytes& read_;
  std::uint32_t resources_ = 0;
  std::vector<Section> sections_;
};

// The tree of resources: type, name, language, then an entry that tells where the data is.
class Resources {
 public:
  Resources(const ReadBytes& read, const Image& image) : read_(read), image_(image) {}

  std::vector<unsigned char> Version() const {
    const auto names = Child(0, kVersionType);
    if (!names) return {};
    auto languages = Child(*names & kOffset, kVersionName);
    if (!languages) languages = FirstChild(*names & kOffset);
    if (!languages) return {};
    const auto entry = FirstChild(*languages & kOffset);
    return entry ? Data(*entry) : std::vector<unsigned char>();
  }

 private:
  static constexpr std::uint32_t kOffset = 0x7FFFFFFF;  // the top bit says that it is a folder
  static constexpr std::uint64_t kHeader = 16;
  static constexpr std::uint64_t kEntry = 8;

  std::optional<std::uint32_t> Number(std::uint64_t place) const {
    const auto offset = image_.OffsetOf(image_.Resources() + place, sizeof(std::uint32_t));
    return offset ? ReadNumber<std::uint32_t>(read_, *offset) : std::nullopt;
  }

  // Entries with a name come first, then those with an id; both counts in one number.
  std::uint32_t Count(std::uint32_t folder) const {
    const std::uint32_t both = Number(std::uint64_t{folder} + 12).value_or(0);
    return (both & 0xFFFF) + (both >> 16);
  }

  std::optional<std::uint32_t> FirstChild(std::uint32_t folder) const {
    if (Count(folder) == 0) return std::nullopt;
    return Number(folder + kHeader + 4);
  }

  std::optional<std::uint32_t> Child(std::uint32_t folder, std::uint32_t id) const {
    const std::uint32_t count = Count(folder);
    for (std::uint64_t i = 0; i < count; ++i) {
      const std::uint64_t place = folder + kHeader + i * kEntry;
      const auto found = Number(place);
      if (!found) return std::nullopt;
      if (*found == id) return Number(place + 4);
    }
    return std::nullopt;
  }

  std::vector<unsigned char> Data(std::uint32_t entry) const {
    const auto address = Number(entry);
    const auto claimed = Number(std::uint64_t{entry} + 4);
    if (!address || !claimed || *claimed == 0) return {};
    std::vector<unsigned char> data(std::min<std::size_t>(*claimed, kLongestBlock));
    const auto offset = image_.OffsetOf(*address, data.size());
    if (!offset || !read_(*offset, data.data(), data.size())) return {};
    return data;
  }

  const ReadBytes& read_;
  const Image& image_;
};

using Bytes = std::span<const unsigned char>;

std::uint16_t Word(Bytes bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

std::size_t RoundUp(std::size_t size) {
  return (size + 3) & ~std::size_t{3};
}

// Characters up to a NUL or the end.
std::u16string Text(Bytes bytes) {
  std::u16string text;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    const char16_t unit = Word(bytes, i);
    if (unit == 0) break;
    text += unit;
  }
  return text;
}

bool SameKey(std::u16string_view left, std::u16string_view right) {
  return left.size() == right.size() && core::MatchAll(left.data(), right.data(), left.size());
}

// One block of the resource: a key, a value, and blocks inside it.
struct Node {
  std::size_t length = 0;  // of the whole block
  std::u16string key;
  Bytes value;
  Bytes children;
};

std::optional<Node> ReadNode(Bytes bytes) {
  constexpr std::size_t kHeader = 6;
  if (bytes.size() < kHeader) return std::nullopt;
  Node node;
  node.length = Word(bytes, 0);
  if (node.length < kHeader || node.length > bytes.size()) return std::nullopt;
  bytes = bytes.first(node.length);
  const bool is_text = Word(bytes, 4) == 1;
  const std::size_t claimed = std::size_t{Word(bytes, 2)} * (is_text ? 2 : 1);
  node.key = Text(bytes.subspan(kHeader));
  const std::size_t start = RoundUp(kHeader + 2 * (node.key.size() + 1));
  if (start >= bytes.size()) return node;
  node.value = bytes.subspan(start, std::min(claimed, bytes.size() - start));
  const std::size_t end = RoundUp(start + node.value.size());
  if (end < bytes.size()) node.children = bytes.subspan(end);
  return node;
}

std::optional<Node> FindChild(const Node& parent, std::u16string_view key) {
  Bytes rest = parent.children;
  while (auto child = ReadNode(rest)) {
    if (SameKey(child->key, key)) return child;
    rest = rest.subspan(std::min(rest.size(), RoundUp(child->length)));
  }
  return std::nullopt;
}

std::u16string HexWord(std::uint16_t word) {
  std::u16string text;
  for (int shift = 12; shift >= 0; shift -= 4) text += u"0123456789abcdef"[word >> shift & 15];
  return text;
}

// The first language and code page, as the tables of texts are called.
std::optional<std::u16string> FirstTranslation(const Node& block) {
  const auto info = FindChild(block, u"VarFileInfo");
  const auto translation = info ? FindChild(*info, u"Translation") : std::nullopt;
  if (!translation || translation->value.size() < 4) return std::nullopt;
  return HexWord(Word(translation->value, 0)) + HexWord(Word(translation->value, 2));
}

}  // namespace

std::optional<std::u16string> FileVersionOf(const ReadBytes& read) {
  Image image(read);
  if (!image.Open()) return std::nullopt;
  const std::vector<unsigned char> data = Resources(read, image).Version();
  const auto block = ReadNode(data);
  const auto language = block ? FirstTranslation(*block) : std::nullopt;
  if (!language) return std::nullopt;
  const auto texts = FindChild(*block, u"StringFileInfo");
  const auto table = texts ? FindChild(*texts, *language) : std::nullopt;
  const auto version = table ? FindChild(*table, u"FileVersion") : std::nullopt;
  return version ? Text(version->value) : std::u16string();
}

}  // namespace qvx::files
