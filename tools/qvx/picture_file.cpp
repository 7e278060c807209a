#include "picture_file.h"

#include <qvx/bitmap_file.h>
#include <qvx/platform.h>
#include <strings.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include "command.h"
#include "stream.h"

namespace qvx::tool {
namespace {

CommandError Failure(const char* what, const std::string& native, int error) {
  return CommandError("cannot " + std::string(what) + " " + native + ": " + std::strerror(error));
}

// Which file stands under a name; 0 for none.
ino_t FileNumber(const std::string& native) {
  struct stat status;
  return lstat(native.c_str(), &status) == 0 ? status.st_ino : 0;
}

void WriteBmp(const Picture& picture, const char* path) {
  const unsigned char* bytes = picture.bytes.data();
  const int width = picture.width;
  const int height = picture.height;
  switch (picture.layout) {
    case Layout::kRgb888:
      return SaveRgbBufferToBmpFile(bytes, width, height, 24, 3 * width, nullptr, 0, path);
    case Layout::kRgb565:
      return SaveRgb565BufferToBmpFile(bytes, width, -height, 2 * width, path);
    case Layout::kRgb555:
      return SaveRgbBufferToBmpFile(bytes, width, height, 16, 2 * width, nullptr, 0, path);
    case Layout::kArgb32:
      return SaveRgbBufferToBmpFileV5(bytes, width, -height, 32, 4 * width, 0xFF0000, 0xFF00, 0xFF,
                                      0xFF000000, nullptr, 0, path);
    default:
      throw CommandError("a BMP file can't hold " + std::string(LayoutName(picture.layout)) +
                         "; name a file that does not end in .bmp for raw pixels");
  }
}

// A file that is removed unless it gets its name.
class Part {
 public:
  explicit Part(const std::string& native)
      : path_(native + "." + std::to_string(getpid()) + ".part") {}
  ~Part() { std::remove(path_.c_str()); }
  Part(const Part&) = delete;
  Part& operator=(const Part&) = delete;

  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

// The failure names the file that the user asked for.
void WriteAll(const std::vector<unsigned char>& bytes, const std::string& path,
              const std::string& asked) {
  Stream stream(std::fopen(path.c_str(), "wbe"), &std::fclose);
  if (!stream) throw Failure("write", asked, errno);
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), stream.get()) == bytes.size();
  if (std::fclose(stream.release()) != 0 || !written) throw Failure("write", asked, errno);
}

}  // namespace

std::uint64_t FileSize(const std::string& native) {
  std::error_code error;
  const std::uint64_t size = std::filesystem::file_size(native, error);
  if (error) throw Failure("read", native, error.value());
  return size;
}

std::vector<unsigned char> ReadPiece(const std::string& native, std::uint64_t offset,
                                     std::size_t size) {
  const Stream stream = OpenStream(native, "rbe");
  std::vector<unsigned char> bytes(size);
  if (fseeko(stream.get(), static_cast<off_t>(offset), SEEK_SET) != 0 ||
      std::fread(bytes.data(), 1, size, stream.get()) != size) {
    throw CommandError("cannot read " + native);
  }
  return bytes;
}

std::string ReadText(const std::string& native) {
  const Stream stream = OpenStream(native, "rbe");
  std::string text;
  char block[65536];
  while (const std::size_t count = std::fread(block, 1, sizeof(block), stream.get())) {
    text.append(block, count);
  }
  if (std::ferror(stream.get())) throw CommandError("cannot read " + native);
  return text;
}

bool IsBmpName(const std::string& native) {
  return native.size() >= 4 && strcasecmp(native.c_str() + native.size() - 4, ".bmp") == 0;
}

// The library tells nothing; a file that it wrote is another one than what stood there.
void SaveBmp(const Picture& picture, const std::string& native) {
  CBaseStringA path;
  NativePathToLibraryA(native.c_str(), &path);
  const ino_t before = FileNumber(native);
  WriteBmp(picture, path.GetString());
  const ino_t after = FileNumber(native);
  if (after == 0 || after == before) throw CommandError("cannot write " + native);
}

// A device or a pipe is written to; a file is replaced.
void SaveRaw(const std::vector<unsigned char>& bytes, const std::string& native) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(native, error);
  const bool replaces = !std::filesystem::exists(status) || is_regular_file(status);
  if (!replaces) return WriteAll(bytes, native, native);
  const Part part(native);
  WriteAll(bytes, part.Path(), native);
  if (std::rename(part.Path().c_str(), native.c_str()) != 0) throw Failure("write", native, errno);
}

}  // namespace qvx::tool
