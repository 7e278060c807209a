// Text in escaped form, and short time texts. Nothing here holds state; any number of threads
// may call. Results are appended to the caller's string, which is not emptied first and is as
// it was after a failed allocation. A null text or string does nothing.
#pragma once

#include "qvx/base_string.h"
#include "qvx/types.h"

extern "C" {

// Appends the text with ASCII letters, digits, "." and "/" as they are, a blank as "+", and every
// other byte as "%" and two upper-case hexadecimal digits. A length of -1 means up to the NUL;
// another length below 1 does nothing. The text may be part of out.
QVX_API void EncodeURL(const char* text, int length, CBaseStringA* out);

// The way back: "%" with two characters behind it is the byte that strtoul reads from these two
// to base 16, so 0 where the first is no digit; a "%" with less behind it drops the rest; "+" is
// a blank. Lengths as above. The text may be part of out.
QVX_API void DecodeURL(const char* text, int length, CBaseStringA* out);

// Appends narrow text (in the ANSI code page) with its numeric references resolved: "&#", decimal
// digits, or a lower-case x and hexadecimal digits, and ";". The value is cut to 16 bits and
// stands for one wide unit. A reference without a ";" drops the rest; named references are plain
// text. A length of -1 means up to the NUL; another length below 1 does nothing.
QVX_API void HtmlCodeToString(const char* text, int length, CBaseStringW* out);

// Read "year/month/day hour:minute:second" (as sscanf does with "%04hd/%02hd/%02hd
// %02hd:%02hd:%02hd") and return how many of the six were read, or -1 if the text ends before the
// first. Fields that were not reached, wDayOfWeek and wMilliseconds stay as they were. 0 for a
// null argument.
QVX_API int StringToSystemTimeA(const char* text, SYSTEMTIME* time);
QVX_API int StringToSystemTimeW(const WCHAR* text, SYSTEMTIME* time);

// Milliseconds of "hours:minutes:seconds" and of "minutes:seconds", each with an optional
// fraction of one to three digits behind "," or ".". 0 for a text without its colons or with
// another fraction. A negative length means up to the NUL. Values beyond 32 bits wrap around.
QVX_API unsigned int TimeStringToInt_HMS(const char* text, int length);
QVX_API unsigned int TimeStringToInt_MS(const char* text, int length);

}  // extern "C"
