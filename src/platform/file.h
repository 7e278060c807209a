// Regular files, and single operations on names. All paths are native ones unless a
// parameter says library path. A failing operation sets errno. Interrupted calls are
// repeated, short transfers continued. Objects are for one thread at a time, but ReadAt
// and WriteAt keep no position, so several threads may use them on one open file.
#pragma once

#include <sys/types.h>
#include <time.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace qvx::platform {

struct OpenMode {
  bool read = false;
  bool write = false;
  bool append = false;  // every write goes to the end, whatever its offset
  bool create = false;
  bool truncate = false;
  bool exclusive = false;  // fails if the name exists

  static OpenMode Read() { return {true, false, false, false, false, false}; }
  static OpenMode Write() { return {false, true, false, true, true, false}; }
  static OpenMode Append() { return {true, true, true, true, false, false}; }
  static OpenMode WriteNew() { return {false, true, false, true, false, true}; }
};

// The mode texts of the C library: r, w or a, then +, b or t, and x (only behind w), each at
// most once in any order. Anything else is no mode.
std::optional<OpenMode> ParseOpenMode(std::string_view text);
std::optional<OpenMode> ParseOpenMode(std::u16string_view text);

// What a transfer did: the bytes moved, and why it stopped before the size that was asked
// for: an errno value, or 0 for the end of the file.
struct Transfer {
  std::size_t count = 0;
  int error = 0;
};

class File {
 public:
  File() = default;
  ~File();
  File(File&& other) noexcept;
  File& operator=(File&& other) noexcept;

  // Opens a regular file, never waiting for anyone: folders (EISDIR), FIFOs, sockets and
  // devices (EINVAL) fail. The descriptor is closed on exec. A file open before is closed.
  bool OpenNative(const std::string& path, const OpenMode& mode, mode_t permissions = 0666);
  // The same relative to an open folder; with follow false a link as last element fails.
  bool OpenAt(int folder, const std::string& name, const OpenMode& mode, mode_t permissions,
              bool follow);
  // A library path, which may be null (EINVAL).
  bool Open(const char* path, const OpenMode& mode);
  bool Open(const char16_t* path, const OpenMode& mode);
  // A library path and a mode text, either of which may be wrong or null (EINVAL).
  bool Open(const char* path, const char* mode);
  bool Open(const char16_t* path, const char16_t* mode);

  bool IsOpen() const { return descriptor_ >= 0; }
  // For sendfile and the like; -1 when closed. The object goes on owning it.
  int Descriptor() const { return descriptor_; }
  // Closed afterwards; the descriptor is the caller's.
  int Release() { return std::exchange(descriptor_, -1); }

  // Whether the library path leads to this very file.
  bool IsAlso(const char* path) const;
  // Whether both are open on one file.
  bool IsSame(const File& other) const;

  // Bytes, or -1.
  std::int64_t Size() const;
  Transfer ReadAt(std::uint64_t offset, void* data, std::size_t size) const;
  Transfer WriteAt(std::uint64_t offset, const void* data, std::size_t size) const;
  // Cuts the file, or lengthens it by zeros.
  bool Resize(std::uint64_t size) const;
  // False if what was written may not have reached the file (a full disk seen late). The file
  // is closed in any case. True for a file that is not open.
  bool Close();

 private:
  bool Adopt(int descriptor);

  int descriptor_ = -1;
};

// What an element of a folder is; links are files, whatever they lead to, except for links to
// FIFOs, sockets and devices.
enum class EntryKind { kNone, kFile, kFolder, kSpecial };

// The kind of the name itself: a link is kFile, or kSpecial.
EntryKind KindAt(int folder, const char* name);
// The kind of what a path leads to; a link to a folder is a folder, a dangling link a file.
EntryKind KindOf(const std::string& path);

// Attribute bits: 0x10 folder, 0x1 not writable, 0x2 name with a leading point, 0x20 if none
// of these. kNoAttributes where the path leads to nothing, or to no file or folder.
inline constexpr std::uint32_t kNoAttributes = 0xFFFFFFFF;
std::uint32_t AttributesOf(const std::string& path);
std::uint32_t AttributesAt(int folder, const std::string& name);

struct FileTimes {
  timespec creation;  // the earlier of birth and last write
  timespec access;
  timespec write;
};
std::optional<FileTimes> TimesOf(const File& file);
// Seconds of the system's calendar clock; the time of last access stays.
bool SetWriteTime(const File& file, std::int64_t seconds);

// Deletes a file or a link (never what it leads to); folders and special files fail.
bool DeleteName(const std::string& path);
bool MakeFolder(const std::string& path);
// Fails if it holds anything.
bool RemoveEmptyFolder(const std::string& path);

// Renames a file, link or folder; fails with EEXIST over anything, without a gap between look
// and move. Across file systems a file is copied through a temporary and then deleted, a link
// made anew, and a folder fails (EXDEV).
bool MoveWithoutOverwrite(const std::string& from, const std::string& to);

// Renames a file or link within one file system, over what stands there.
bool MoveOver(const std::string& from, const std::string& to);

// A name in a folder that is open, or a path where folder is AT_FDCWD.
struct Place {
  int folder;
  std::string name;
};

// Copies the content of a file, its permissions and its time of last write. The target gets
// its name when all is there and closed; what it named before, also a link, is replaced.
// A link to a file is copied as the file it leads to.
bool CopyFileContent(const Place& from, const Place& to);
bool CopyFileContent(const std::string& from, const std::string& to);
// Makes the same link under another name, replacing what stood there.
bool CopyLink(const Place& from, const Place& to);

// Makes an empty file that nothing else holds, beside the given path, and opens it for
// writing. Returns its path, or an empty text.
std::string MakeTemporaryBeside(const Place& target, File& file, mode_t permissions);

}  // namespace qvx::platform
