#include "archive/entry_reader.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "archive/zip_format.h"

namespace qvx::archive {

namespace {

constexpr std::size_t kInput = 128 * 1024;

// A local header may leave a number to its zip64 record, which says what the directory says.
bool Agrees(std::uint32_t local, std::uint64_t wanted) {
  return local == wanted || local == kSaturated32;
}

}  // namespace

EntryReader::~EntryReader() {
  if (ready_) inflateEnd(&stream_);
}

bool EntryReader::Open(const ZipEntry& entry) {
  entry_ = &entry;
  compressed_ = done_ = 0;
  crc_ = 0;
  if ((entry.flags & kFlagEncrypted) != 0) return false;
  if (entry.method != kMethodStored && entry.method != kMethodDeflated) return false;
  if (entry.method == kMethodStored && entry.compressed_size != entry.size) return false;
  return FindData() && (entry.method == kMethodStored || StartStream());
}

bool EntryReader::FindData() {
  const ZipEntry& entry = *entry_;
  const unsigned char* header = source_.At(entry.offset, kLocalSize);
  if (header == nullptr || !HeaderAgrees(header)) return false;
  const std::size_t name_size = Get16(header + 26);
  data_ = entry.offset + kLocalSize + name_size + Get16(header + 28);
  const unsigned char* name = source_.At(entry.offset + kLocalSize, name_size);
  if (name == nullptr || name_size != entry.raw_name.size()) return false;
  if (std::memcmp(name, entry.raw_name.data(), name_size) != 0) return false;
  return data_ <= entry.limit && entry.compressed_size <= entry.limit - data_;
}

bool EntryReader::HeaderAgrees(const unsigned char* header) const {
  if (Get32(header) != kLocalSignature || Get16(header + 8) != entry_->method) return false;
  const std::uint16_t flags = Get16(header + 6);
  if (((flags ^ entry_->flags) & kFlagEncrypted) != 0) return false;
  if ((flags & kFlagDescriptor) != 0) return true;
  return Get32(header + 14) == entry_->crc && Agrees(Get32(header + 18), entry_->compressed_size) &&
         Agrees(Get32(header + 22), entry_->size);
}

bool EntryReader::StartStream() {
  stream_over_ = false;
  stream_.next_in = nullptr;
  stream_.avail_in = 0;
  if (ready_) return inflateReset(&stream_) == Z_OK;
  if (inflateInit2(&stream_, -MAX_WBITS) != Z_OK) throw std::bad_alloc();
  ready_ = true;
  return true;
}

bool EntryReader::Read(unsigned char* out, std::size_t size, std::size_t& got) {
  got = static_cast<std::size_t>(std::min<std::uint64_t>(size, entry_->size - done_));
  const bool filled = entry_->method == kMethodStored ? Copy(out, got) : Inflate(out, got);
  if (!filled) return false;
  crc_ = static_cast<std::uint32_t>(crc32_z(crc_, out, got));
  done_ += got;
  return got == size || EndsHere();
}

bool EntryReader::Copy(unsigned char* out, std::size_t wanted) {
  while (wanted > 0) {
    const std::size_t step = std::min(wanted, kInput);
    const unsigned char* bytes = source_.At(data_ + compressed_, step);
    if (bytes == nullptr) return false;
    std::memcpy(out, bytes, step);
    compressed_ += step;
    out += step;
    wanted -= step;
  }
  return true;
}

bool EntryReader::Inflate(unsigned char* out, std::size_t wanted) {
  stream_.next_out = out;
  stream_.avail_out = static_cast<unsigned int>(wanted);
  while (stream_.avail_out > 0) {
    if (stream_over_ || (stream_.avail_in == 0 && !MoreInput())) return false;
    const unsigned int before = stream_.avail_in;
    const int result = inflate(&stream_, Z_NO_FLUSH);
    compressed_ += before - stream_.avail_in;
    if (result == Z_MEM_ERROR) throw std::bad_alloc();
    if (result != Z_OK && result != Z_STREAM_END) return false;
    stream_over_ = result == Z_STREAM_END;
  }
  return true;
}

bool EntryReader::MoreInput() {
  const std::uint64_t left = entry_->compressed_size - compressed_;
  const auto step = static_cast<std::size_t>(std::min<std::uint64_t>(left, kInput));
  const unsigned char* bytes = step == 0 ? nullptr : source_.At(data_ + compressed_, step);
  if (bytes == nullptr) return false;
  stream_.next_in = const_cast<unsigned char*>(bytes);
  stream_.avail_in = static_cast<unsigned int>(step);
  return true;
}

// Behind the last byte a stream may still hold its end, but no data.
bool EntryReader::EndsHere() {
  if (entry_->method == kMethodDeflated) {
    while (!stream_over_) {
      unsigned char none;
      if (stream_.avail_in == 0 && !MoreInput()) return false;
      const unsigned int before = stream_.avail_in;
      stream_.next_out = &none;
      stream_.avail_out = 1;
      const int result = inflate(&stream_, Z_NO_FLUSH);
      compressed_ += before - stream_.avail_in;
      if (stream_.avail_out == 0 || (result != Z_OK && result != Z_STREAM_END)) return false;
      stream_over_ = result == Z_STREAM_END;
    }
  }
  return compressed_ == entry_->compressed_size && crc_ == entry_->crc;
}

}  // namespace qvx::archive
