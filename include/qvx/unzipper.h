// Lists zip archives and unpacks them: entries stored or deflated (RFC 1951), with and without
// zip64, without encryption, in archives of one part. Paths are library paths in the ANSI code
// page. Names of entries may be separated by "/" or by backslashes; they are UTF-8 where they
// say so or have that form, else of the code page 437, or of the process's code page where that
// isn't UTF-8.
//
// Unpacking stays below its folder: an entry whose name has a drive, a leading separator or a
// ".." element fails, and no link below the folder is followed. A file gets its name when it
// is complete and its checksum right, in place of a file or link of that name. An entry that
// overlaps another, or whose sizes, checksum or local header don't hold, fails. So does, before
// anything is written, an archive that would unpack beyond the size limit.
//
// An object is closed or has one archive open with a current entry, at first the first one.
// Calls block while the disk works; nothing is logged. No lock is taken: an object is for one
// thread at a time. Another writer of the archive is not guarded against, beyond failing.
#pragma once

#include <cstdint>

#include "qvx/types.h"

class IArchiveProgressListener;

// One entry. Numbers are cut to 32 bits.
struct UZ_FileInfo {
  char fileName[261];  // as stored, at most 260 characters, with backslashes for every "/"
  char comment[256];   // at most 255 characters
  std::uint32_t version;
  std::uint32_t versionNeeded;
  std::uint32_t flags;
  std::uint32_t compressionMethod;
  std::uint32_t dosDate;  // date in the high half, time in the low half
  std::uint32_t crc;
  std::uint32_t compressedSize;
  std::uint32_t uncompressedSize;
  std::uint32_t internalAttrib;
  std::uint32_t externalAttrib;
  bool isFolder;  // the name ends in a separator, or externalAttrib has the bit 0x10
};

class QVX_API CUnzipper {
 public:
  using UZ_FileInfo = ::UZ_FileInfo;

  // As OpenZip; null leaves the object closed.
  explicit CUnzipper(const char* zipPath = nullptr);
  // As CloseZip.
  virtual ~CUnzipper();
  // A copy gets the output folder and the settings, but is closed. Assigning keeps the archive
  // of this object.
  CUnzipper(const CUnzipper& other);
  CUnzipper& operator=(const CUnzipper& other);

  // Closes the archive that is open and opens another. The output folder becomes the archive's
  // path without its extension. False for a null or empty path, one above 259 characters, and a
  // file that is no zip archive or whose list of entries is damaged.
  bool OpenZip(const char* zipPath);
  // True when an archive was open. Empties the output folder.
  bool CloseZip();

  // Where Unzip puts files; made where it is missing. False if it is no folder, can't be made or
  // is above 260 characters; the setting stays for what exists and is no folder, and for a path
  // that is too long.
  bool SetOutputFolder(const char* folder);

  int GetFileCount();

  // The current entry. False, with info zeroed, where there is none.
  bool GetFileInfo(UZ_FileInfo& info);
  // Makes the entry of this number, from 0, the current one.
  bool GetFileInfo(int index, UZ_FileInfo& info);

  // The uncompressed size of the current entry, not cut; 0 where there is none. GetTotalSize is
  // that of all entries but folders together.
  std::uint64_t GetFileSize();
  std::uint64_t GetTotalSize();

  // Move to the first entry, or the one behind the current, whose extension is ext, without its
  // point and whatever the case of ASCII letters; to any with null or empty. Where there is none
  // the last entry stays current.
  bool GotoFirstFile(const char* ext = nullptr);
  bool GotoNextFile(const char* ext = nullptr);
  bool GotoFile(int index);
  // By the whole stored name, of fewer than 256 characters, whatever the case of ASCII letters;
  // with ignoreFilePath else by the bare name. Whole names are compared as the archive holds
  // them, with its separators. The first match counts.
  bool GotoFile(const char* fileName, bool ignoreFilePath = false);

  // Unpacks the current entry below folder, which is made where it is missing; null for the
  // output folder. With ignoreFilePath a file gets its bare name, and a folder is not made.
  // Files get the entry's date. False if that fails.
  bool UnzipFile(const char* folder = nullptr, bool ignoreFilePath = false);
  bool UnzipFile(int index, const char* folder = nullptr, bool ignoreFilePath = false);

  // Unpack all entries in their order, and stop at the first that fails; those before it stay.
  // False also for an archive without entries.
  bool UnzipTo(const char* folder, bool ignoreFilePath = false);
  bool Unzip(bool ignoreFilePath = false);
  static bool Unzip(const char* zipPath, const char* folder, bool ignoreFilePath = false);

  // The most bytes that one call may unpack, by the sizes that the entries claim and keep to.
  // 0, as at first, stands for 16 GiB or 100 times the size of the archive, whichever is more;
  // all ones for no limit.
  void SetSizeLimit(std::uint64_t bytes);
  // What holds for the open archive, or the setting where none is open.
  std::uint64_t GetSizeLimit();

  // Hears of what is unpacked from now on; null for none. Not owned.
  void SetProgressListener(IArchiveProgressListener* listener);

 protected:
  // Makes a folder and those above it. True when it exists then, and for a missing folder given
  // without a backslash, which is not made.
  static bool CreateFolder(const char* path);
  // The same for the folder that a path with a backslash stands in.
  static bool CreateFilePath(const char* filePath);
  // Sets the last write time to a DOS date, taken as local time; the time of last access stays.
  static bool SetFileModTime(const char* filePath, unsigned long dosDate);

 private:
  void* unzHandle;
  char outputFolder[261];
  std::uint64_t mSizeLimit;
  IArchiveProgressListener* mListener;
};
