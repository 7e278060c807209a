// Any bytes as a zip archive: they are refused or listed, and what unpacks keeps to the sizes
// and checksums of its entry and to names below the output folder.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "archive/byte_source.h"
#include "archive/entry_reader.h"
#include "archive/zip_directory.h"
#include "archive/zip_name.h"
#include "qvx/unzipper.h"

namespace {

namespace archive = qvx::archive;

constexpr std::uint64_t kMost = 1 << 22;  // bytes of one input, so that it takes no time

void Require(bool holds) {
  if (!holds) std::abort();
}

class MemoryFile {
 public:
  MemoryFile(const std::uint8_t* data, std::size_t size)
      : descriptor_(memfd_create("archive", MFD_CLOEXEC)) {
    Require(write(descriptor_, data, size) == static_cast<ssize_t>(size));
  }
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::string Path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

void CheckName(const archive::ZipEntry& entry) {
  const auto elements = archive::ElementsBelow(entry.name);
  if (!elements) return;
  for (const std::string& element : *elements) {
    Require(!element.empty() && element != "." && element != "..");
    Require(element.find('/') == std::string::npos && element.find('\0') == std::string::npos);
  }
}

void ReadEntry(archive::EntryReader& reader, const archive::ZipEntry& entry) {
  std::vector<unsigned char> block(5000);
  std::uint64_t total = 0;
  std::size_t got = block.size();
  if (!reader.Open(entry)) return;
  while (got == block.size()) {
    if (!reader.Read(block.data(), block.size(), got)) return;
    total += got;
  }
  Require(total == entry.size);
}

void ReadArchive(const std::string& path) {
  archive::ByteSource source;
  std::vector<archive::ZipEntry> entries;
  Require(source.Open(path));
  if (!archive::ReadZipDirectory(source, entries)) return;
  archive::EntryReader reader(source);
  std::uint64_t left = kMost;
  for (const archive::ZipEntry& entry : entries) {
    CheckName(entry);
    if (entry.size > left) continue;
    left -= entry.size;
    ReadEntry(reader, entry);
  }
}

void ListArchive(std::string path) {
  std::replace(path.begin(), path.end(), '/', '\\');
  CUnzipper unzipper(("C:" + path).c_str());
  UZ_FileInfo info;
  for (bool more = unzipper.GotoFirstFile(); more; more = unzipper.GotoNextFile()) {
    Require(unzipper.GetFileInfo(info));
    Require(std::string(info.fileName).find('/') == std::string::npos);
  }
  unzipper.GotoFile("a", true);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const MemoryFile file(data, size);
  ReadArchive(file.Path());
  ListArchive(file.Path());
  return 0;
}
