// Lists of what a folder holds, searches for a name, and making and copying folder trees.
// A list is a CPtrCtrl of zero-terminated texts, one block each, which the list's holder
// releases with FreeFileListA or FreeFileListW. Its order is the file system's.
// Symbolic links are listed as files and never descended into. FIFOs, sockets, devices and
// links to them are left out. A name that begins with a point is hidden. A path that would be
// longer than 259 characters is left out, never cut.
// The functions block while the disk works, keep no state and take no locks.
#pragma once

#include <cstdint>

#include "qvx/types.h"

class CPtrCtrl;

// Why an entry was left out of a list or a copy.
enum {
  kSkippedHidden = 1,        // hidden, and hidden entries were not wanted
  kSkippedSpecial = 2,       // a FIFO, socket or device, or a link to one
  kSkippedTooLong = 3,       // its path is longer than 259 characters
  kSkippedNoNarrowForm = 4,  // the ANSI code page has no form of its name
  kSkippedFailed = 5         // it could not be read or written
};

// Hears what lists and copies leave out, on the thread that they run on, without any lock.
class QVX_API ISkippedEntryListener {
 public:
  virtual ~ISkippedEntryListener();
  // path is the whole path of the entry, as long as it may be; it lives for the call only.
  // reason is one of the values above.
  virtual void OnEntrySkipped(std::uint64_t userData, const WCHAR* path, int reason) = 0;
};

extern "C" {

// Sets who hears what the calling thread's own calls leave out; null for nobody, as at first.
// Entries that a list's caller did not ask for (a null list, the filter) are not told.
QVX_API void SetSkippedEntryListener(ISkippedEntryListener* listener, std::uint64_t userData);
// The calling thread's listener, or null, and its user data where userData is not null: for code
// that sets another for a while and puts this one back.
QVX_API ISkippedEntryListener* GetSkippedEntryListener(std::uint64_t* userData);
// Tells the calling thread's listener, if there is one. For code that joins paths itself.
QVX_API void ReportSkippedEntry(const WCHAR* folder, const WCHAR* name, int reason);

// Lists one folder into folderList and fileList; either may be null. Both are emptied first
// without freeing what they held. extFilter keeps files by extension (".jpg;.png", ASCII case
// ignored; null or empty for all); only the first place where the extension stands in it
// counts. With includeHidden 0 hidden entries are left out. fullPath 0 gives bare names, else
// folder joined with the name. A folder that can't be read, or null, gives empty lists; an
// empty text is the working directory.
QVX_API void GetLocalFolderFileListA(const char* folder, CPtrCtrl* folderList, CPtrCtrl* fileList,
                                     const char* extFilter, int includeHidden, int fullPath);
QVX_API void GetLocalFolderFileListW(const WCHAR* folder, CPtrCtrl* folderList, CPtrCtrl* fileList,
                                     const WCHAR* extFilter, int includeHidden, int fullPath);

// Adds the files of rootFolder joined with subFolder to fileList, which is not emptied first,
// by full paths; with recursive those of all folders below come ahead of them. A null
// fileList does nothing.
QVX_API void GetSubFolderFileListA(const char* rootFolder, const char* subFolder,
                                   CPtrCtrl* fileList, const char* extFilter, int includeHidden,
                                   int recursive);
QVX_API void GetSubFolderFileListW(const WCHAR* rootFolder, const WCHAR* subFolder,
                                   CPtrCtrl* fileList, const WCHAR* extFilter, int includeHidden,
                                   int recursive);

// Frees every text of a list and empties it. Null is ignored.
QVX_API void FreeFileListA(CPtrCtrl* list);
QVX_API void FreeFileListW(CPtrCtrl* list);

// 1 when the folder holds a file or folder of this very name, without wildcards, with case.
// Null arguments give 0.
QVX_API int FindFileInFolderA(const char* folder, const char* name, int includeHidden);
QVX_API int FindFileInFolderW(const WCHAR* folder, const WCHAR* name, int includeHidden);

// The same for rootFolder joined with subFolder and, with recursive, for the folders below it,
// each level before those below. foundPath may be null; it holds 260 characters and receives
// the full path, and is untouched where the result is 0.
QVX_API int FindFileInSubFolderA(const char* rootFolder, const char* subFolder, const char* name,
                                 int includeHidden, int recursive, char* foundPath);
QVX_API int FindFileInSubFolderW(const WCHAR* rootFolder, const WCHAR* subFolder, const WCHAR* name,
                                 int includeHidden, int recursive, WCHAR* foundPath);

// Makes a folder and those above it that are missing. Null, empty and a drive alone do
// nothing. Test the outcome with IsDirExist.
QVX_API void RecursiveCreateDirectoryA(const char* path);
QVX_API void RecursiveCreateDirectoryW(const WCHAR* path);

// Copies what source holds, hidden entries included, into target, which is made where it is
// missing. A file replaces one of the same name, through a temporary, so that a failed copy
// leaves the old one. A link to a file becomes a file with that content; a link to a folder or
// to nothing is made anew as a link. A link in target where a folder should be is not written
// through, and a target inside source is not copied into itself. Failures are passed over.
QVX_API void RecursiveCopyDirectoryA(const char* source, const char* target);
QVX_API void RecursiveCopyDirectoryW(const WCHAR* source, const WCHAR* target);

}  // extern "C"
