#include "archive/zip_output.h"

#include <zlib.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "archive/zip_format.h"
#include "archive/zip_name.h"
#include "platform/utf.h"

namespace qvx::archive {

namespace {

constexpr std::uint16_t kVersion = 20;
constexpr std::uint16_t kVersion64 = 45;
constexpr std::uint32_t kUnixFolder = 040755u << 16;
constexpr std::uint32_t kUnixFile = 0100644u << 16;
constexpr std::size_t kMostText = 0xFFFF;  // name, and extra fields
constexpr std::size_t kZip64Field = 20;    // of a local header
// Deflated data can be longer than what went in, by less than what is left to 4 GiB.
constexpr std::uint64_t kZip64From = 0xF0000000;
constexpr platform::OpenMode kReadWrite{true, true, false, false, false, false};

// Little-endian numbers one behind the other.
class Record {
 public:
  Record& Put(std::uint64_t number, int bytes) {
    for (int i = 0; i < bytes; ++i) bytes_ += static_cast<char>(number >> (8 * i));
    return *this;
  }
  Record& Put16(std::uint64_t number) { return Put(number, 2); }
  Record& Put32(std::uint64_t number) { return Put(number, 4); }
  Record& Put64(std::uint64_t number) { return Put(number, 8); }
  // All ones where the number needs a zip64 record.
  Record& PutCut16(std::uint64_t number) {
    return Put16(std::min<std::uint64_t>(number, kSaturated16));
  }
  Record& PutCut32(std::uint64_t number) {
    return Put32(std::min<std::uint64_t>(number, kSaturated32));
  }
  Record& PutText(const std::string& text) {
    bytes_ += text;
    return *this;
  }
  const std::string& Bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

// The name once more, in a form that unzip prefers: from this host it takes a name that is
// marked as UTF-8 for one of an old code page all the same. ASCII names need none.
std::string UnicodePath(const std::string& name) {
  if (platform::AsciiPrefix(name) == name.size()) return std::string();
  const auto* bytes = reinterpret_cast<const unsigned char*>(name.data());
  Record field;
  field.Put16(kExtraUnicodePath).Put16(name.size() + kUnicodePathHead).Put(1, 1);
  return field.Put32(crc32_z(0, bytes, name.size())).PutText(name).Bytes();
}

}  // namespace

std::unique_ptr<ZipOutput> ZipOutput::Open(const std::string& path, bool append) {
  std::unique_ptr<ZipOutput> output(new ZipOutput);
  const bool behind = append && platform::KindOf(path) != platform::EntryKind::kNone;
  const bool open = behind ? output->OpenBehind(path) : output->OpenNew(path);
  return open ? std::move(output) : nullptr;
}

bool ZipOutput::OpenNew(const std::string& path) {
  replaced_.OpenNative(path, platform::OpenMode::Read());
  if (!pending_.Create(path)) return false;
  stream_ = std::make_unique<ArchiveStream>(pending_.Content(), 0);
  return true;
}

bool ZipOutput::OpenBehind(const std::string& path) {
  path_ = path;
  if (!in_place_.OpenNative(path, kReadWrite)) return false;
  const std::int64_t size = in_place_.Size();
  former_size_ = static_cast<std::uint64_t>(size);
  if (size < 0) in_place_.Close();
  stream_ = std::make_unique<ArchiveStream>(in_place_, former_size_);
  return in_place_.IsOpen();
}

ZipOutput::~ZipOutput() {
  if (in_place_.IsOpen()) in_place_.Resize(former_size_);
}

bool ZipOutput::Holds(const platform::File& file) const {
  return (pending_.IsPending() && file.IsSame(pending_.Content())) ||
         (in_place_.IsOpen() && file.IsSame(in_place_)) ||
         (replaced_.IsOpen() && file.IsSame(replaced_));
}

bool ZipOutput::Write(const std::string& bytes) {
  return stream_->Write(bytes.data(), bytes.size());
}

bool ZipOutput::WriteAt(std::uint64_t position, const std::string& bytes) {
  stream_->Seek(position);
  const bool written = Write(bytes);
  stream_->Seek(stream_->End());
  return written;
}

bool ZipOutput::BeginEntry(const EntryHead& head) {
  std::optional<EncodedName> name = EncodeName(head.name);
  if (!name) return false;
  Entry entry{head, {}, {}, kVersion, 0, head.size >= kZip64From, stream_->End(), 0};
  if (name->utf8) {
    entry.flags = kFlagUtf8;
    entry.extra = UnicodePath(name->bytes);
  }
  if (name->raw) {
    // Read as bytes only from a host that wants attributes of its own.
    entry.made_by = kMadeForRawNames;
    entry.head.attributes |= head.is_folder ? kUnixFolder : kUnixFile;
  }
  entry.name = std::move(name->bytes);
  if (std::max(entry.name.size(), entry.extra.size() + 2 * kZip64Field) > kMostText) return false;
  entry_ = std::move(entry);
  return Write(LocalHeader());
}

std::string ZipOutput::LocalHeader() const {
  Record header;
  header.Put32(kLocalSignature).Put16(entry_.zip64 ? kVersion64 : kVersion).Put16(entry_.flags);
  header.Put16(entry_.head.is_folder ? kMethodStored : kMethodDeflated);
  header.Put32(entry_.head.dos_date).Put32(0).Put32(0).Put32(0).Put16(entry_.name.size());
  header.Put16(entry_.extra.size() + (entry_.zip64 ? kZip64Field : 0));
  header.PutText(entry_.name).PutText(entry_.extra);
  if (entry_.zip64) header.Put16(kExtraZip64).Put16(kZip64Field - 4).Put64(0).Put64(0);
  return header.Bytes();
}

bool ZipOutput::WriteCompressed(const void* data, std::size_t size) {
  entry_.compressed += size;
  return stream_->Write(data, size);
}

bool ZipOutput::EndEntry(std::uint64_t size, std::uint32_t crc) {
  Record sizes;
  sizes.Put32(crc);
  sizes.Put32(entry_.zip64 ? kSaturated32 : entry_.compressed);
  sizes.Put32(entry_.zip64 ? kSaturated32 : size);
  if (!WriteAt(entry_.offset + kLocalSize - 16, sizes.Bytes())) return false;
  if (entry_.zip64) {
    const std::size_t texts = entry_.name.size() + entry_.extra.size();
    const std::string large = Record().Put64(size).Put64(entry_.compressed).Bytes();
    if (!WriteAt(entry_.offset + kLocalSize + texts + 4, large)) return false;
  }
  central_ += CentralRecord(size, crc);
  ++count_;
  return true;
}

std::string ZipOutput::CentralRecord(std::uint64_t size, std::uint32_t crc) const {
  Record large;
  for (const std::uint64_t number : {size, entry_.compressed, entry_.offset}) {
    if (number >= kSaturated32) large.Put64(number);
  }
  const std::size_t large_size = large.Bytes().size();
  Record record;
  record.Put32(kCentralSignature).Put16(entry_.made_by);
  record.Put16(entry_.zip64 || large_size > 0 ? kVersion64 : kVersion).Put16(entry_.flags);
  record.Put16(entry_.head.is_folder ? kMethodStored : kMethodDeflated);
  record.Put32(entry_.head.dos_date).Put32(crc).PutCut32(entry_.compressed).PutCut32(size);
  record.Put16(entry_.name.size());
  record.Put16(entry_.extra.size() + (large_size > 0 ? large_size + 4 : 0));
  record.Put16(0).Put16(0).Put16(0).Put32(entry_.head.attributes).PutCut32(entry_.offset);
  record.PutText(entry_.name).PutText(entry_.extra);
  if (large_size > 0) record.Put16(kExtraZip64).Put16(large_size).PutText(large.Bytes());
  return record.Bytes();
}

std::string ZipOutput::EndRecords(std::uint64_t begin) const {
  const std::uint64_t size = central_.size();
  Record records;
  if (count_ >= kSaturated16 || begin >= kSaturated32 || size >= kSaturated32) {
    records.Put32(kEnd64Signature).Put64(kEnd64Size - 12).Put16(kVersion64).Put16(kVersion64);
    records.Put32(0).Put32(0).Put64(count_).Put64(count_).Put64(size).Put64(begin);
    records.Put32(kLocator64Signature).Put32(0).Put64(begin + size).Put32(1);
  }
  records.Put32(kEndSignature).Put16(0).Put16(0).PutCut16(count_).PutCut16(count_);
  return records.PutCut32(size).PutCut32(begin).Put16(0).Bytes();
}

bool ZipOutput::Finish() {
  const std::string end = EndRecords(stream_->End());
  const bool written = Write(central_) && Write(end) && stream_->Flush();
  if (pending_.IsPending()) return written && pending_.Install();
  if (written && in_place_.Close()) return true;
  // The destructor cuts it off.
  if (!in_place_.IsOpen()) in_place_.OpenNative(path_, kReadWrite);
  return false;
}

}  // namespace qvx::archive
