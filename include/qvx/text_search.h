// Searches in raw memory. Results point into the memory, or are null. Nothing here holds
// state or allocates; any number of threads may call.
#pragma once

#include "qvx/types.h"

extern "C" {

// The first of count elements that equals value. A null memory or a count below 1 gives null.
QVX_API const char* MemFindChrA(const char* memory, char value, int count);
QVX_API const WCHAR* MemFindChrW(const WCHAR* memory, WCHAR value, int count);

// The first place where the pattern stands, byte for byte. A negative length is measured up to
// the NUL; NULs inside counted lengths are bytes like others. An empty pattern gives the
// memory; a null memory or pattern gives null.
QVX_API const char* MemFindBufA(const char* memory, int length, const char* pattern,
                                int patternLength);
// The same with lengths in wide characters. The search still runs over bytes, so the result
// may lie in the middle of a wide character: compare it, or go back to bytes, before reading.
QVX_API const WCHAR* MemFindBufW(const WCHAR* memory, int length, const WCHAR* pattern,
                                 int patternLength);

}  // extern "C"
