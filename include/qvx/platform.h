// What this platform adds for hosts: code pages, paths, last errors.
#pragma once

#include <qvx/base_string.h>
#include <qvx/types.h>

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

// Errors -------------------------------------------------------------------------------------

// The code that the last failed call on this thread left, where a function says that it leaves
// one; 0 before that. Successful calls don't clear it.
QVX_API unsigned int GetLastErrorCode();

}  // extern "C"
