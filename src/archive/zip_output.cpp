#include "archive/zip_output.h"

#include <zlib.h>

#include <optional>
#include <utility>

#include "archive/zip_format.h"
#include "archive/zip_name.h"
#include "platform/utf.h"

namespace qvx::archive {

namespace {

constexpr unsigned int kVersion = 20;
constexpr std::uint32_t kUnixFolder = 040755u << 16;
constexpr std::uint32_t kUnixFile = 0100644u << 16;
// Deflated data can be longer than what went in, by less than this.
constexpr std::uint64_t kZip64From = 0xF0000000;
constexpr platform::OpenMode kReadWrite{true, true, false, false, false, false};

// The name once more, in a form that unzip prefers: from this host it takes a name that is
// marked as UTF-8 for one of an old code page all the same. ASCII names need none.
std::string UnicodePath(const std::string& name) {
  if (platform::AsciiPrefix(name) == name.size()) return std::string();
  const auto crc = static_cast<std::uint32_t>(
      crc32_z(0, reinterpret_cast<const unsigned char*>(name.data()), name.size()));
  std::string field;
  const auto put = [&field](std::uint32_t number, int bytes) {
    for (int i = 0; i < bytes; ++i) field += static_cast<char>(number >> (8 * i));
  };
  put(kExtraUnicodePath, 2);
  put(static_cast<std::uint32_t>(name.size() + kUnicodePathHead), 2);
  put(1, 1);
  put(crc, 4);
  return field + name;
}

ArchiveStream* StreamOf(void* stream) {
  return static_cast<ArchiveStream*>(stream);
}

void* OpenStream(void* opaque, const void*, int) {
  return opaque;
}
uLong ReadNothing(void*, void*, void*, uLong) {
  return 0;
}
uLong WriteStream(void*, void* stream, const void* data, uLong size) {
  return StreamOf(stream)->Write(data, size) ? size : 0;
}
ZPOS64_T TellStream(void*, void* stream) {
  return StreamOf(stream)->Position();
}
long SeekStream(void*, void* stream, ZPOS64_T offset, int origin) {
  std::uint64_t base = 0;
  if (origin == ZLIB_FILEFUNC_SEEK_CUR) base = StreamOf(stream)->Position();
  if (origin == ZLIB_FILEFUNC_SEEK_END) base = StreamOf(stream)->End();
  StreamOf(stream)->Seek(base + offset);
  return 0;
}
int CloseStream(void*, void* stream) {
  return StreamOf(stream)->Flush() ? 0 : -1;
}
int StreamError(void*, void* stream) {
  return StreamOf(stream)->Failed() ? 1 : 0;
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
  return pending_.Create(path) && Start(pending_.Content(), 0);
}

bool ZipOutput::OpenBehind(const std::string& path) {
  path_ = path;
  if (!in_place_.OpenNative(path, kReadWrite)) return false;
  const std::int64_t size = in_place_.Size();
  former_size_ = static_cast<std::uint64_t>(size);
  return size >= 0 && Start(in_place_, former_size_);
}

bool ZipOutput::Start(const platform::File& file, std::uint64_t position) {
  stream_ = std::make_unique<ArchiveStream>(file, position);
  zlib_filefunc64_def functions{OpenStream, ReadNothing, WriteStream, TellStream,
                                SeekStream, CloseStream, StreamError, stream_.get()};
  zip_ = zipOpen2_64("", APPEND_STATUS_CREATE, nullptr, &functions);
  return zip_ != nullptr;
}

ZipOutput::~ZipOutput() {
  if (zip_ != nullptr) zipClose(zip_, nullptr);
  if (in_place_.IsOpen()) in_place_.Resize(former_size_);
}

bool ZipOutput::Holds(const platform::File& file) const {
  return (pending_.IsPending() && file.IsSame(pending_.Content())) ||
         (in_place_.IsOpen() && file.IsSame(in_place_)) ||
         (replaced_.IsOpen() && file.IsSame(replaced_));
}

bool ZipOutput::BeginEntry(const EntryHead& head) {
  const std::optional<EncodedName> name = EncodeName(head.name);
  if (!name || !IsSound()) return false;
  const unsigned int version = name->raw ? kMadeForRawNames : kVersion;
  const std::string extra = name->utf8 ? UnicodePath(name->bytes) : std::string();
  const auto extra_size = static_cast<unsigned int>(extra.size());
  zip_fileinfo info{};
  info.dosDate = head.dos_date;
  info.external_fa = head.attributes;
  if (name->raw) info.external_fa |= head.is_folder ? kUnixFolder : kUnixFile;
  const int method = head.is_folder ? kMethodStored : kMethodDeflated;
  return zipOpenNewFileInZip4_64(zip_, name->bytes.c_str(), &info, extra.data(), extra_size,
                                 extra.data(), extra_size, nullptr, method, Z_DEFAULT_COMPRESSION,
                                 1, -MAX_WBITS, DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY, nullptr, 0,
                                 version, name->utf8 ? kFlagUtf8 : 0,
                                 head.size >= kZip64From ? 1 : 0) == ZIP_OK;
}

bool ZipOutput::WriteCompressed(const void* data, std::size_t size) {
  return zipWriteInFileInZip(zip_, data, static_cast<unsigned int>(size)) == ZIP_OK;
}

bool ZipOutput::EndEntry(std::uint64_t size, std::uint32_t crc) {
  return zipCloseFileInZipRaw64(zip_, size, crc) == ZIP_OK;
}

bool ZipOutput::Finish() {
  const bool written = zipClose(std::exchange(zip_, nullptr), nullptr) == ZIP_OK && IsSound();
  if (pending_.IsPending()) return written && pending_.Install();
  if (written && in_place_.Close()) return true;
  // The destructor cuts it off.
  if (!in_place_.IsOpen()) in_place_.OpenNative(path_, kReadWrite);
  return false;
}

}  // namespace qvx::archive
