// Any bytes as a gzip file: reading ends, never gives more than was asked for, and a second
// reading from the start gives the same.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "qvx/zip_file.h"

namespace {

constexpr std::size_t kMost = 1 << 22;

void Require(bool holds) {
  if (!holds) std::abort();
}

std::string ReadSome(CZipFile& file) {
  std::string text;
  char block[3000];
  int count;
  while (text.size() < kMost && (count = file.Read(block, sizeof block)) > 0) {
    Require(count <= static_cast<int>(sizeof block));
    text.append(block, static_cast<std::size_t>(count));
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const int descriptor = memfd_create("gzip", MFD_CLOEXEC);
  Require(write(descriptor, data, size) == static_cast<ssize_t>(size));
  CZipFile file;
  const std::string path = "C:\\proc\\self\\fd\\" + std::to_string(descriptor);
  Require(file.Open(path.c_str(), "rb") == 1);
  const std::string first = ReadSome(file);
  if (file.Seek(0, 0) == 0) Require(ReadSome(file) == first);
  file.Close();
  close(descriptor);
  return 0;
}
