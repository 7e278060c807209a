// Packs files and folders into zip archives (PKWARE APPNOTE.TXT 6.3). Paths are library paths
// in the ANSI code page, separated by backslashes; stored names keep the backslash, and say
// that they are UTF-8 where the code page is. Dates are local times to 2 seconds. An entry of
// 4 GiB or near it, and an archive of that size or of more than 65,535 entries, uses zip64.
//
// An object is closed or has one archive open. While an archive is packed it stands under a
// temporary name in its folder, and takes the place of what bears its name when CloseZip
// succeeds. Calls block until their data is written; a folder and a large file are compressed
// by several threads, which end before the call returns. No lock is taken: an object is for one
// thread at a time. A failed allocation passes through; the archive then can't be completed.
#pragma once

#include <cstdint>
#include <string>

#include "qvx/types.h"

class IArchiveProgressListener;

// What was added to an archive since it was opened.
struct Z_FileInfo {
  int fileCount;                   // files whose entry was begun
  int folderCount;                 // folders visited
  std::uint32_t uncompressedSize;  // bytes read from files, modulo 2^32
};

class QVX_API CZipper {
 public:
  using Z_FileInfo = ::Z_FileInfo;

  CZipper();
  // As OpenZip, unless zipPath is null.
  explicit CZipper(const char* zipPath, const char* rootFolder = nullptr, bool append = false);
  // As CloseZip, with the result lost.
  virtual ~CZipper();
  // A copy gets the texts and numbers, but is closed. Assigning keeps the archive of this object.
  CZipper(const CZipper& other);
  CZipper& operator=(const CZipper& other);

  // Closes the archive that is open and begins another. rootFolder is what stored names are
  // relative to: null for the folder of the archive, empty for none. With append, and where the
  // file exists, the new archive is written behind the content that it has, at once and in
  // place; it does not hold the entries of an archive there. False, with the object closed, for
  // a null or empty zipPath, one above 259 characters, and a file that can't be made.
  bool OpenZip(const char* zipPath, const char* rootFolder, bool append = false);

  // Completes the archive and gives it its name. False if it could not be written; what bore
  // the name then stands as before. True when nothing was open. The object is closed and its
  // numbers are 0 in either case.
  bool CloseZip();

  // As CloseZip, but leaves no archive: what bore the name stands as before.
  void DiscardZip();

  void GetFileInfo(Z_FileInfo& fileInfo);

  // Adds one regular file, also by a link. A path without ":" stands below the root folder. The
  // stored name is the bare name with ignoreFilePath, else the path below the root folder, whose
  // case is not looked at, or a relative path as it stands, without a ".\" before it. False for
  // a path that is outside the root folder or would leave it by "..", for a file that can't be
  // opened or is the archive itself, and for an archive that can't be written. The file is cut at
  // the size that it has when it is opened; one that gets shorter, or that can't be read to its
  // end, leaves a short entry. Logs at level 2.
  bool AddFileToZip(const char* filePath, bool ignoreFilePath = false);

  // The same with the bare name stored below relFolderPath, which must not hold a ":"; null for
  // the top. Logs nothing.
  bool AddFileToZip(const char* filePath, const char* relFolderPath);

  // Adds a folder, with an entry of its own, and all below it, as AddFileToZip does. Names that
  // begin with a point are left out, and so is what is no file or can't be read; links to
  // folders are not entered. With ignoreFilePath all entries bear bare names, those of folders
  // without what follows a last point. True also where something below was left out, and for a
  // path that leads to no folder, whose entry stands alone; false for a closed object, a folder
  // outside the root folder, a stop by the listener and an archive that can't be written.
  bool AddFolderToZip(const char* folderPath, bool ignoreFilePath = false);

  // Packs one file into an archive beside it that bears its name with the extension "zip".
  // False if the file can't be added or the archive can't be written; none is then left.
  static bool ZipFile(const char* filePath);
  // The same for a folder; the archive stands beside it.
  static bool ZipFolder(const char* folderPath, bool ignoreFilePath = false);

  // Hears of what is added from now on; null for none. Not owned.
  void SetProgressListener(IArchiveProgressListener* listener);

 protected:
  // Puts the root folder in front of a path without ":", in place: path is a writable array of
  // 261 characters. A text that does not fit becomes empty.
  void PrepareSourcePath(const char* path);

 private:
  std::string SourcePath(const char* path) const;

  void* zipHandle;
  char rootFolder[261];
  Z_FileInfo info;
  IArchiveProgressListener* mListener;
};
