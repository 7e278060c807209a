#include "qvx/zip_file.h"

#include <zlib.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/file.h"

namespace {

namespace platform = qvx::platform;

constexpr unsigned int kReadBlock = 128 * 1024;

gzFile Stream(void* handle) {
  return static_cast<gzFile>(handle);
}

// The last of the letters that choose a direction counts, as with zlib.
std::optional<platform::OpenMode> OpenModeOf(std::string_view text) {
  if (text.find('+') != std::string_view::npos) return std::nullopt;
  const std::size_t last = text.find_last_of("rwa");
  if (last == std::string_view::npos) return std::nullopt;
  platform::OpenMode mode = platform::OpenMode::Read();
  if (text[last] == 'w') mode = platform::OpenMode::Write();
  if (text[last] == 'a') mode = {false, true, true, true, false, false};
  if (mode.write) mode.exclusive = text.find('x') != std::string_view::npos;
  return mode;
}

}  // namespace

CZipFile::CZipFile() : gzHandle(nullptr) {}

CZipFile::~CZipFile() {
  Close();
}

CZipFile::CZipFile(const CZipFile&) : gzHandle(nullptr) {}

CZipFile& CZipFile::operator=(const CZipFile&) {
  return *this;
}

int CZipFile::Open(const char* path, const char* mode) {
  Close();
  if (mode == nullptr) return 0;
  const std::optional<platform::OpenMode> open_mode = OpenModeOf(mode);
  platform::File file;
  if (!open_mode || !file.Open(path, *open_mode)) return 0;
  const gzFile stream = gzdopen(file.Descriptor(), mode);
  if (stream == nullptr) return 0;
  file.Release();
  // A writer's pieces are compressed where they stand only if they fill the buffer: it stays small.
  if (!open_mode->write) gzbuffer(stream, kReadBlock);
  gzHandle = stream;
  return 1;
}

void CZipFile::Close() {
  Finish();
}

int CZipFile::Finish() {
  if (gzHandle == nullptr) return 0;
  return gzclose(Stream(std::exchange(gzHandle, nullptr))) == Z_OK ? 1 : 0;
}

int CZipFile::IsOpen() {
  return gzHandle != nullptr ? 1 : 0;
}

int CZipFile::Read(void* buffer, int len) {
  if (gzHandle == nullptr) return 0;
  return gzread(Stream(gzHandle), buffer, static_cast<unsigned int>(len));
}

int CZipFile::Write(const void* buffer, int len) {
  if (gzHandle == nullptr) return 0;
  return gzwrite(Stream(gzHandle), buffer, static_cast<unsigned int>(len));
}

long CZipFile::Seek(long offset, int origin) {
  return gzseek(Stream(gzHandle), offset, origin);
}

int CZipFile::Eof() {
  return gzHandle == nullptr || gzeof(Stream(gzHandle)) != 0 ? 1 : 0;
}

void* CZipFile::GetZipFileHandle() {
  return gzHandle;
}
