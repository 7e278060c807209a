// Numbers of a chosen width to text and back: single values, flat arrays, and arrays of groups.
// Nothing here holds state; any number of threads may call.
//
// A type code says what a value is in memory:
//   0 unsigned byte   3 signed 16 bits     2, 5, 6 32-bit integer    9 32-bit float
//   1 signed byte     4 unsigned 16 bits   7, 8    64-bit integer   10 64-bit float
// Values in memory need no alignment. Other codes, 11 included, convert nothing.
//
// Reading: a negative length means that the text ends at its NUL; no terminator is needed
// otherwise. Codes 0 to 8 read as atoi does, in 32 bits, which 7 and 8 extend by their sign; but
// a text that holds "0x" or "0X" anywhere is read as hexadecimal digits from its third character
// on, in the full width. Codes 9 and 10 read as atof does, always with a point. A text that holds
// nothing readable is 0. Nothing reports an error.
//
// Writing: the format is that of CBaseStringT::AppendFormat and must suit the type: an int for
// codes 0 to 6 ("%d", "%u", "%x"), 64 bits for 7 and 8 ("%lld"), a double for 9 and 10 ("%g").
#pragma once

#include "qvx/base_string.h"
#include "qvx/types.h"

extern "C" {

// The bytes of a value, by type code; 1 for code 11, for which there is no conversion.
QVX_API extern const int gDigitalTypeSize[12];

// Read one value into gDigitalTypeSize[type] bytes. A null text or value does nothing.
QVX_API void DigtalStringToValueA(const char* text, int length, void* value, int type);
QVX_API void DigtalStringToValueW(const WCHAR* text, int length, void* value, int type);

// Append one value. A null argument does nothing.
QVX_API void DigtalValueToStringA(CBaseStringA* out, const char* format, int type,
                                  const void* value);
QVX_API void DigtalValueToStringW(CBaseStringW* out, const WCHAR* format, int type,
                                  const void* value);

// Appends count values with the separator between any two. A count below 1 does nothing.
QVX_API void AppendDigitalArrayValueA(CBaseStringA* out, const char* format, int type,
                                      const void* values, int count, const char* separator);

// Append groupCount groups of perGroup values each, with valueSeparator between the values of a
// group and groupSeparator between groups. Groups begin groupStride values apart. The result
// means nothing.
QVX_API int AppendDigitalGroupArrayValueA(CBaseStringA* out, const char* format, int type,
                                          const void* values, int groupCount, int perGroup,
                                          int groupStride, const char* groupSeparator,
                                          const char* valueSeparator);
QVX_API int AppendDigitalGroupArrayValueW(CBaseStringW* out, const WCHAR* format, int type,
                                          const void* values, int groupCount, int perGroup,
                                          int groupStride, const WCHAR* groupSeparator,
                                          const WCHAR* valueSeparator);

// Cut the text into fields, as DevideStringByCharListA does with these separators, skipEmpty
// and, above 0, maxCount, read each field into the next value, and return the number of fields.
// values has room for all of them; null just counts. The last of maxCount fields takes the whole
// rest and is read as one value. 0 for a null or empty text.
QVX_API int ParseDigitalArrayValueA(const char* text, int length, int type, void* values,
                                    int maxCount, const char* separators, int separatorCount,
                                    int skipEmpty);
QVX_API int ParseDigitalArrayValueW(const WCHAR* text, int length, int type, void* values,
                                    int maxCount, const WCHAR* separators, int separatorCount,
                                    int skipEmpty);

// The same in two steps: the text into at most maxGroups groups, and each group into at most
// perGroup values, which begin at element perGroup times the group's number. Elements that a
// short group has no field for are left untouched; with a perGroup below 1 all are. Return the
// number of groups.
QVX_API int ParseDigitalGroupArrayValueA(const char* text, int length, int type, void* values,
                                         int maxGroups, int perGroup, const char* groupSeparators,
                                         int groupSeparatorCount, int skipEmptyGroups,
                                         const char* valueSeparators, int valueSeparatorCount,
                                         int skipEmptyValues);
QVX_API int ParseDigitalGroupArrayValueW(const WCHAR* text, int length, int type, void* values,
                                         int maxGroups, int perGroup, const WCHAR* groupSeparators,
                                         int groupSeparatorCount, int skipEmptyGroups,
                                         const WCHAR* valueSeparators, int valueSeparatorCount,
                                         int skipEmptyValues);

}  // extern "C"
