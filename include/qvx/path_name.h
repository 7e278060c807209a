// Path and file name text, worked on in the caller's character arrays. Separator is the
// backslash; a path counts as absolute when it holds a ":". Arrays named dest hold 260
// characters: texts are cut to 259 and the terminator. Names ending in A take text in the
// ANSI code page, names ending in W wide text; both do the same unless told.
// No state and no locks: safe from any thread on separate arrays. Only IsDirExist and
// IsFileExist look at the disk, and nothing is logged.
#pragma once

#include "qvx/types.h"

extern "C" {

// Adds a backslash unless the text is empty or ends in one. The array needs room for it.
QVX_API void FixToPathNameA(char* path);
QVX_API void FixToPathNameW(WCHAR* path);

// Removes one trailing backslash, if there is one.
QVX_API void FixToFileNameA(char* path);
QVX_API void FixToFileNameW(WCHAR* path);

// folder, a backslash where it is missing and fits, and as much of name as fits. Either may
// be null: no folder gives the name, no name gives the folder with its backslash. Nothing is
// normalised. dest may be folder or name. Returns 1, or 0 when dest is null.
QVX_API int CombinePathNameA(char* dest, const char* folder, const char* name);
QVX_API int CombinePathNameW(WCHAR* dest, const WCHAR* folder, const WCHAR* name);

// The folder that holds path, without a trailing backslash; one backslash at the end of path is
// ignored. Empty for a path of one element. dest may be path. Returns 1, or 0 when either is
// null.
QVX_API int GetFileParentDirA(char* dest, const char* path);
QVX_API int GetFileParentDirW(WCHAR* dest, const WCHAR* path);

// What follows the last backslash in the first 259 characters of path, or all of them.
// dest may be path. Returns 1, or 0 when either is null.
QVX_API int GetFileShortNameA(char* dest, const char* path);
QVX_API int GetFileShortNameW(WCHAR* dest, const WCHAR* path);

// Puts ext, which brings its own point, in place of the last point of the path and what
// follows; appends it where there is no point; cuts at the point where ext is empty. A point
// in a folder name counts too. The array needs room. Null arguments do nothing.
QVX_API void SetFileExtNameA(char* path, const char* ext);
QVX_API void SetFileExtNameW(WCHAR* path, const WCHAR* ext);

// What follows the last point of path, at most extSize - 1 characters and a terminator; empty
// where there is no point or extSize is below 2. Null arguments do nothing.
QVX_API void GetFileExtNameA(const char* path, char* ext, int extSize);
QVX_API void GetFileExtNameW(const WCHAR* path, WCHAR* ext, int extSize);

// Points behind root, and the backslashes that follow, in path; path itself where it does not
// begin with root. Compares characters, not elements, and ignores the case of ASCII letters.
// A trailing backslash of either counts for nothing. root must not be empty.
QVX_API const char* GetFileRelativePathA(const char* path, const char* root);
QVX_API const WCHAR* GetFileRelativePathW(const WCHAR* path, const WCHAR* root);

// path where it holds a ":", else root joined with path as by CombinePathName.
QVX_API void GetFileAbsolutePathA(char* dest, const char* path, const char* root);
QVX_API void GetFileAbsolutePathW(WCHAR* dest, const WCHAR* path, const WCHAR* root);

// 1 if the path leads to a folder, also by way of a symbolic link. The last element may hold
// the wildcards * and ?; the first match in the folder's order then decides, and links count
// as files. A path that ends in a separator, and null, give 0.
QVX_API int IsDirExistA(const char* path);
QVX_API int IsDirExistW(const WCHAR* path);

// 1 if there is such a file; wildcards and trailing separators as for IsDirExist. FIFOs,
// sockets and devices are none. The narrow form gives 1 for a folder too, the wide form 0.
QVX_API int IsFileExistA(const char* path);
QVX_API int IsFileExistW(const WCHAR* path);

// prefix, number in decimal, and, where ext is not null, a "." unless ext holds one, and ext.
// A null prefix counts as empty; a null dest does nothing.
QVX_API void GetFileNameByNumberA(char* dest, const char* ext, const char* prefix, int number);
QVX_API void GetFileNameByNumberW(WCHAR* dest, const WCHAR* ext, const WCHAR* prefix, int number);

// A name from the local time: prefix, with withDate "YYYY_MM_DD_", "hh_mm_ss", with withMillis
// "_mmm", suffix, and, where ext is not empty, a "." unless ext holds one, and ext. reserved is
// not read. Null texts count as empty; a null dest does nothing.
QVX_API void GetFileNameByDateA(char* dest, const char* ext, const char* prefix, const char* suffix,
                                int reserved, int withDate, int withMillis);
QVX_API void GetFileNameByDateW(WCHAR* dest, const WCHAR* ext, const WCHAR* prefix,
                                const WCHAR* suffix, int reserved, int withDate, int withMillis);

// prefix, length random digits and ASCII letters, and the extension as in GetFileNameByNumber.
// The characters come from the system's random source: two processes, forked ones included,
// do not draw the same. The host's rand is not used.
QVX_API void GetFileNameByRandomA(char* dest, const char* ext, const char* prefix, int length);
QVX_API void GetFileNameByRandomW(WCHAR* dest, const WCHAR* ext, const WCHAR* prefix, int length);

}  // extern "C"
