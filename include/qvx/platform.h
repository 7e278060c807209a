// What this platform adds for hosts: code pages, paths, bitmap objects, last errors.
#pragma once

#include <cstdint>

#include <qvx/base_string.h>
#include <qvx/types.h>

// What a bitmap object holds. The addresses are valid until the object is freed.
struct tagBITMAPDATA {
  const unsigned char* info;  // the info header and the colour table or masks behind it
  unsigned char* pixels;      // may be written to
  std::uint64_t infoSize;     // bytes
  std::uint64_t pixelSize;    // bytes
  std::int32_t width;         // pixels
  std::int32_t height;        // rows; negative where the first row is the top one
  std::int32_t bitCount;      // bits a pixel
  std::uint32_t rowBytes;     // from one row to the next
};

extern "C" {

// Code pages ---------------------------------------------------------------------------------

// Chooses the code page of narrow text for the whole process: 65001 (UTF-8, at load), or a
// single- or double-byte page that holds ASCII and that the system's iconv knows, as 936 or
// 1252. Returns 1, or 0 for any other page, which changes nothing. Thread-safe; a conversion
// under way ends in the page it began with. Throws std::bad_alloc. Takes some milliseconds at
// the first use of a page and keeps 256 KiB for it.
QVX_API int SetAnsiCodePage(unsigned int codePage);
QVX_API unsigned int GetAnsiCodePage();

// Conversions between UTF-16 and UTF-8, whatever the code page and without the limit of two
// bytes a unit. A negative length means up to the NUL; a null text counts as empty. The result
// replaces what *result held. What is not well formed becomes U+FFFD; then, and for a null
// result, the return value is 0, else 1. Throws std::bad_alloc.
QVX_API int WideToUtf8(const WCHAR* text, int len, CBaseStringA* result);
QVX_API int Utf8ToWide(const char* text, int len, CBaseStringW* result);

// Paths --------------------------------------------------------------------------------------

// The library writes C:\a\b for the native /a/b; it accepts / beside \, a drive in either case
// and paths without a drive, which stand against the working directory. C: alone is the root,
// and there is no other drive. Every native name has a library form, so that going there and
// back gives the same bytes: in names \ : * ? are U+F05C U+F03A U+F02A U+F03F, a byte that is no
// UTF-8 is a lone surrogate U+DC80 to U+DCFF (in narrow UTF-8 the three bytes of that number),
// and a name that really holds one of those four code points has its bytes written so.
//
// *result gets the path, of any length, in place of what it held, and is empty after a failure.
// The return value is 1, or 0: for a null or empty path or a null result; to native, for a drive
// that does not exist, a colon or wildcard where none can stand, and a text that is not valid; to
// the narrow form, where the code page has no form of it. Thread-safe. Throws std::bad_alloc.
QVX_API int NativePathToLibraryA(const char* native, CBaseStringA* result);
QVX_API int NativePathToLibraryW(const char* native, CBaseStringW* result);
QVX_API int LibraryPathToNativeA(const char* path, CBaseStringA* result);
QVX_API int LibraryPathToNativeW(const WCHAR* path, CBaseStringA* result);

// Bitmap objects -----------------------------------------------------------------------------

// Looks into an object that CreateHBitmap of bitmap_file.h made, and frees one. Both return 1, or
// 0 for null and for an object that is none or was freed before; *data then stays as it was. A
// null data fails. Thread-safe; the caller keeps an object alive while its blocks are in use.
QVX_API int ReadHBitmap(HBITMAP bitmap, tagBITMAPDATA* data);
QVX_API int FreeHBitmap(HBITMAP bitmap);

// Serial ports -------------------------------------------------------------------------------

// Puts the device at a native path behind the name of a serial port ("COM12", any case), from now
// on and for the whole process, in place of what the name stood for; a null or empty path takes
// the mapping away. 1, or 0 for a null or empty name. Thread-safe. Throws std::bad_alloc.
QVX_API int MapSerialPort(const char* name, const char* path);

// The native path of the device behind the name of a serial port, in place of what *path held.
// 1, or 0 with an empty *path where the name stands for nothing or the result is null. A mapped
// device need not be there. Thread-safe. Throws std::bad_alloc.
QVX_API int SerialPortDevice(const char* name, CBaseStringA* path);

// Single instances ---------------------------------------------------------------------------

// Holds a name for this process, so that CheckSingleInstance of process_util.h finds it, until it
// is released or the process ends, however it ends. A forked child that runs on holds it too.
// Names belong to one user: other users' processes have names of their own. 1 if the name is held
// from now on; 0 if a process holds it already, this one included, for a null or empty name, and
// where no file can be locked. Thread-safe. Throws std::bad_alloc.
QVX_API int HoldInstanceName(const char* name);
QVX_API int HoldInstanceNameW(const WCHAR* name);

// 1, or 0 if this process does not hold the name.
QVX_API int ReleaseInstanceName(const char* name);
QVX_API int ReleaseInstanceNameW(const WCHAR* name);

// Errors -------------------------------------------------------------------------------------

// The code that the last failed call on this thread left, where a function says that it leaves
// one; 0 before that. Successful calls don't clear it.
QVX_API unsigned int GetLastErrorCode();

}  // extern "C"
