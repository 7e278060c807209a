// Cuts text into fields, turns numbers into words and back, formats text on the heap, and
// releases the text blocks that functions of the library hand over. Nothing here holds state;
// any number of threads may call. Containers and strings passed in are the caller's.
//
// A negative length means that the text ends at its NUL, unless told otherwise. Integers in
// text are read as atoi reads them: blanks, a sign, digits, up to the first other character.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "qvx/base_string.h"
#include "qvx/ptr_ctrl.h"
#include "qvx/types.h"

extern "C" {

// Copies the text (a negative length: up to its NUL), cuts the copy at every character that
// occurs in separators and adds a pointer to each field, NUL-terminated inside the copy, to
// out. Returns the copy, which the caller releases with Internal_DelArrayA, or
// Internal_DelArrayW, when it has finished with the fields. Null, with out untouched, if text
// or out is null.
//
// skipEmpty non-zero leaves empty fields out. A separator at the very end starts no further
// field, one at the start ends an empty one. With a maxCount above 0 the field that would be
// entry number maxCount of out takes the whole rest; out should be empty at the call.
// After a failed allocation, which raises std::bad_alloc, out holds what it held before.
QVX_API char* DevideStringByCharListA(const char* text, int length, const char* separators,
                                      int separatorCount, int skipEmpty, CPtrCtrl* out,
                                      int maxCount);
QVX_API WCHAR* DevideStringByCharListW(const WCHAR* text, int length, const WCHAR* separators,
                                       int separatorCount, int skipEmpty, CPtrCtrl* out,
                                       int maxCount);

// The same, but cuts at whole strings: at each place the longest of those that stand there. Null
// and empty separators are ignored; with none the whole text is one field. A separator at the
// very end starts no further field; every other field is added, the empty ones too.
//
// Wide text is searched byte by byte: a separator may be found in the middle of a wide character,
// and the fields behind it then stand at odd addresses. Copy them out by bytes.
QVX_API char* DevideStringByStringListA(const char* text, int length, const char** separators,
                                        int separatorCount, CPtrCtrl* out);
QVX_API WCHAR* DevideStringByStringListW(const WCHAR* text, int length, const WCHAR** separators,
                                         int separatorCount, CPtrCtrl* out);

// 1 if the first place of word in the text is a whole field: between two of the separators, or
// an end of the text. Later places are not looked at. 0 for an empty or null text or word. With
// ignoreCase non-zero ASCII letters match in both cases, and wide text is searched by
// characters; otherwise by bytes.
QVX_API int FindStringFromStringWithSepratorA(const char* text, int textLength, const char* word,
                                              int wordLength, const char* separators,
                                              int separatorCount, int ignoreCase);
QVX_API int FindStringFromStringWithSepratorW(const WCHAR* text, int textLength, const WCHAR* word,
                                              int wordLength, const WCHAR* separators,
                                              int separatorCount, int ignoreCase);

// 1 plus the number of line feeds among the first length characters; 1 for a null text or a
// length below 1.
QVX_API int GetStringLinesA(const char* text, int length);
QVX_API int GetStringLinesW(const WCHAR* text, int length);

// Reads integers separated by "," into values, at most maxCount, and returns how many. An empty
// field is 0; a "," at the end adds none. 0 for a null argument, an empty text, or a maxCount
// below 1.
QVX_API int ParseIntValues(const char* text, int* values, int maxCount);

// Reads "left,top,width,height" from the first 31 characters; empty fields vanish, and a fifth
// is ignored. 1 with four fields; else 0 with rect zeroed. 0 with rect untouched for a null
// argument.
QVX_API int ParseRectFromString(const char* text, RECT* rect);

// Places a box of width by height in area and returns out. direct is a sum of: 1 centred
// across, else 2 flush right, else flush left; 4 centred down, else 8 flush bottom, else flush
// top. What lies outside the area is cut off. A null argument gives null.
QVX_API RECT* GetTextRectByDirect(const RECT* area, int width, int height, char direct, RECT* out);

// Append the digits 0 to 9, A to Z of value to base 36, lowest first, and then reverse the whole
// string: out should be empty. A null out does nothing.
QVX_API void ConvertNumberToRadix36StringA(std::uint64_t value, CBaseStringA* out);
QVX_API void ConvertNumberToRadix36StringW(std::uint64_t value, CBaseStringW* out);

// The value of a text to base 36, in 64 bits with wrap-around. Letters count in either case, any
// other character as the digit 0. 0 for a null or empty text.
QVX_API std::uint64_t ConvertRadix36StringToNumberA(const char* text, int length);
QVX_API std::uint64_t ConvertRadix36StringToNumberW(const WCHAR* text, int length);

// Write a number in Chinese words and a NUL to out, which has room for outCount characters; what
// does not fit is cut off. A null out, or an outCount below 1, writes nothing. The result means
// nothing.
//
// The wide form writes the zero U+96F6 for places left out inside the number, and says 10 to 19
// without the one U+4E00 in front. The narrow form, always in GB2312 bytes and never cut inside
// a word, writes no zero inside and never a one before the tens. Zeros at the end are not
// spoken; ten thousands are counted up to 9999 (100000 is U+4E00 U+5341 U+4E07) and hundred
// millions up to 21; a negative number begins with U+8D1F.
QVX_API int ConvertNumberToChineseNumberA(int value, char* out, int outCount);
QVX_API int ConvertNumberToChineseNumberW(int value, WCHAR* out, int outCount);

// Build a text of any length, in the language of CBaseStringT::Format, and return its block, which
// the caller releases with FreeFormatStringA or FreeFormatStringW. length, where not null,
// receives the number of characters. After an error in the format the block holds what came
// before it, as far as 1,023 characters, and length is not written.
QVX_API char* FormatStringA(int* length, const char* format, ...) QVX_PRINTF(2, 3);
QVX_API WCHAR* FormatStringW(int* length, const WCHAR* format, ...);
QVX_API char* FormatStringValistA(int* length, const char* format, va_list args) QVX_PRINTF(2, 0);
QVX_API WCHAR* FormatStringValistW(int* length, const WCHAR* format, va_list args);

// Release a block that a function of the library handed over; null is allowed. The four do the
// same: the block was made by new[] of characters or bytes.
QVX_API void FreeFormatStringA(void* block);
QVX_API void FreeFormatStringW(void* block);
QVX_API void Internal_DelArrayA(void* block);
QVX_API void Internal_DelArrayW(void* block);

}  // extern "C"
