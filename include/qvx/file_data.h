// Whole files: into memory and out of it, compared, copied with progress, deleted by folder,
// their times, and byte counts as text. Only regular files are opened, links to them included:
// a folder, FIFO, socket or device fails at once. All functions block while the disk works,
// keep no state and take no locks; another writer of the same file is not guarded against.
#pragma once

#include <cstdint>

#include "qvx/base_string.h"
#include "qvx/types.h"

// Hears of the progress of CopyFileWithCallback, on the thread that copies, without any lock.
class QVX_API IFileCopyProgressListener {
 public:
  IFileCopyProgressListener() = default;
  IFileCopyProgressListener(const IFileCopyProgressListener&) = default;
  IFileCopyProgressListener& operator=(const IFileCopyProgressListener&) = default;
  virtual ~IFileCopyProgressListener();
  // Bytes copied so far, of total. Called first with 0, then after each block of 1 MiB.
  virtual void OnFileCopyProgress(std::uint64_t userData, std::int64_t copied,
                                  std::int64_t total) = 0;
};

extern "C" {

// Reads a file into a new block of exactly its size, without a terminator, and returns the
// bytes read. The caller releases *data with ReleaseFileData. An empty file, a folder and a
// file that can't be opened give 0 and a null *data. A null data gives the size only. A file
// that shrinks meanwhile gives the bytes that were there; one that grows is cut at its size.
// A file that does not fit the memory raises the standard allocation failure.
QVX_API std::uint64_t ReadFileDataA(const char* path, void** data);
QVX_API std::uint64_t ReadFileDataW(const WCHAR* path, void** data);

// Releases a block of ReadFileData; null is ignored.
QVX_API void ReleaseFileData(void* data);

// Writes a block to a file, over its former content or, with append, behind it; the file is
// made where it is missing. Returns 1 when all bytes reached the file and it was closed, else
// 0; a part may then stand there. With size 0 the file is left empty, or with append as it is.
// Null arguments give 0. A file that can't be opened is logged at level 3.
QVX_API int WriteFileDataA(const char* path, const void* data, std::uint64_t size, int append);
QVX_API int WriteFileDataW(const WCHAR* path, const void* data, std::uint64_t size, int append);

// 1 when both files can be read and hold the same bytes.
QVX_API int IsFileDataEqual(const char* path1, const char* path2);

// Copies source over target in blocks of 1 MiB. The listener may be null; it can't stop the
// copy. Returns 1 when all bytes of the size at the start were written and the target closed;
// a part may else stand there. An empty source leaves an empty target, without a call. Source
// and target must not be the same file: that gives 0 and leaves the file as it is.
QVX_API int CopyFileWithCallback(const char* source, const char* target,
                                 IFileCopyProgressListener* listener, std::uint64_t userData);

// Deletes the files in folder whose extension extFilter names (".jpg;.png"; null or empty for
// all), hidden ones included; with recursive also those in all folders below, and with
// removeFolders the folders that then hold nothing. The folder itself stays. Symbolic links
// are deleted as links, and nothing behind one is touched, also where folder is one itself.
// FIFOs, sockets and devices stay. Failures are passed over.
QVX_API void RemoveFileA(const char* folder, const char* extFilter, int removeFolders,
                         int recursive);
QVX_API void RemoveFileW(const WCHAR* folder, const WCHAR* extFilter, int removeFolders,
                         int recursive);

// The times of a file in local time; each output may be null. Creation is the earlier of the
// file's birth and its last write. Returns 1, or 0 with the outputs untouched when the file
// can't be opened for reading.
QVX_API int GetFileSystemTimeA(const char* path, SYSTEMTIME* creation, SYSTEMTIME* lastAccess,
                               SYSTEMTIME* lastWrite);
QVX_API int GetFileSystemTimeW(const WCHAR* path, SYSTEMTIME* creation, SYSTEMTIME* lastAccess,
                               SYSTEMTIME* lastWrite);

// A byte count as text: "1023 " below 1024 (the blank is part of it), then "1.00 K", "1.00 M",
// "1.00 G" and "1.00 T" by powers of 1024. Null is ignored.
QVX_API void FormatFileSizeA(std::uint64_t size, CBaseStringA* text);
QVX_API void FormatFileSizeW(std::uint64_t size, CBaseStringW* text);

}  // extern "C"
