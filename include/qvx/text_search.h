// Searches in raw memory and text. Results point into the memory, or are null. Nothing here
// holds state or allocates; any number of threads may call.
//
// Where case is ignored, two characters match if they are equal or the two cases of one ASCII
// letter; a wide character beyond that matches only itself.
#pragma once

#include "qvx/types.h"

extern "C" {

// The first of count elements that equals value. A null memory or a count below 1 gives null.
QVX_API const char* MemFindChrA(const char* memory, char value, int count);
QVX_API const WCHAR* MemFindChrW(const WCHAR* memory, WCHAR value, int count);

// The first place where the pattern stands, byte for byte. A negative length is measured up to
// the NUL; NULs inside counted lengths are bytes like others. An empty pattern gives the
// memory; a null memory or pattern gives null. Text and random bytes pass at the speed of
// memory; only a pattern that nearly fits everywhere takes length times patternLength steps.
QVX_API const char* MemFindBufA(const char* memory, int length, const char* pattern,
                                int patternLength);
// The same with lengths in wide characters. The search still runs over bytes, so the result
// may lie in the middle of a wide character: compare it, or go back to bytes, before reading.
QVX_API const WCHAR* MemFindBufW(const WCHAR* memory, int length, const WCHAR* pattern,
                                 int patternLength);

// Fill the failure table of a pattern (Knuth, Morris and Pratt 1977, with the places left out
// that would fail on the same character): next has room for length entries, and for one at
// least, which is all that a length below 2 writes. A null next, or a null pattern of more than
// one character, does nothing. The result means nothing.
QVX_API int CreateKMPPatternA(int* next, const char* pattern, int length);
QVX_API int CreateKMPPatternW(int* next, const WCHAR* pattern, int length);
QVX_API int CreateKMPPatternNoCaseA(int* next, const char* pattern, int length);
QVX_API int CreateKMPPatternNoCaseW(int* next, const WCHAR* pattern, int length);

// The first place of the pattern, in a time that grows with textLength alone. next is the table
// of this pattern from the function of the same kind above; one table serves any number of
// searches. A pattern longer than the text gives null without a look at the table; an empty one
// gives the text. Lengths are counted: below 0 counts as 0. A null text, pattern or table gives
// null unless the pattern is empty.
QVX_API const char* BufFindPatternA(const char* text, int textLength, const char* pattern,
                                    int patternLength, const int* next);
QVX_API const WCHAR* BufFindPatternW(const WCHAR* text, int textLength, const WCHAR* pattern,
                                     int patternLength, const int* next);
QVX_API const char* BufFindPatternNoCaseA(const char* text, int textLength, const char* pattern,
                                          int patternLength, const int* next);
QVX_API const WCHAR* BufFindPatternNoCaseW(const WCHAR* text, int textLength, const WCHAR* pattern,
                                           int patternLength, const int* next);

// The most characters that agree in any way of laying the second text against the first, which
// both end at their NUL. With ignoreCase 0 only characters in a row count, so that the result is
// the length of the longest common substring; otherwise unequal pairs are passed over. Takes
// time in proportion to the product of the lengths. 0 if a text is null or empty.
QVX_API int StrMaxSameLengthA(const char* first, const char* second, int ignoreCase);
QVX_API int StrMaxSameLengthW(const WCHAR* first, const WCHAR* second, int ignoreCase);

}  // extern "C"
