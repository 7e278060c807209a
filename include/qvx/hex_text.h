// Hexadecimal and binary text: bytes to text and back, number readers, bit fields in a byte
// array. Hex digits are read in either case; upperCase non-zero writes A to F.
//
// Text ends at its NUL if its length is negative, unless told otherwise. A prefix is a 0
// followed by x or X at the start of a text of at least two characters. Strings that hold
// results are set with CBaseStringT::Set, so a string that already holds the same text but
// for case keeps it. Results and texts are the caller's; nothing here holds state, and any
// number of threads may call.
#pragma once

#include <cstdint>

#include "qvx/base_buffer.h"
#include "qvx/base_string.h"
#include "qvx/types.h"

extern "C" {

// Writes the two digits of value to out, without a terminator. The result means nothing. A
// null out is ignored.
QVX_API int ByteToHexA(unsigned char value, char* out, int upperCase);
QVX_API int ByteToHexW(unsigned char value, WCHAR* out, int upperCase);

// Sets out to two digits a byte, with spaced non-zero to two digits and a blank, also behind
// the last byte. A length of 0 empties out; a null data or out or a negative length does
// nothing.
QVX_API void BufferToHexStringA(const void* data, int length, int upperCase, int spaced,
                                CBaseStringA* out);
QVX_API void BufferToHexStringW(const void* data, int length, int upperCase, int spaced,
                                CBaseStringW* out);

// Sets out to a dump of perLine bytes a line (below 1: all in one line): digits with a blank
// between bytes and "\r\n" between lines, neither at the end. A null data or out or a length
// below 1 does nothing.
QVX_API void FormatBufferToHexStringA(const void* data, int length, int perLine, int upperCase,
                                      CBaseStringA* out);
QVX_API void FormatBufferToHexStringW(const void* data, int length, int perLine, int upperCase,
                                      CBaseStringW* out);

// Logs a dump at level 2: the address, then lines of perLine bytes with their offsets. A null
// data, or a length or perLine below 1, does nothing.
QVX_API void PrintHexBuffer(const void* data, int length, int perLine);

// Writes the last width digits of value in radix (2 to 36) with leading zeros, and a NUL at
// out[width]. Digits above 9 are A upward. Returns width, or 0 for a null out.
QVX_API int ConvertLongToCharA(unsigned int value, char* out, int width, int radix);
QVX_API int ConvertLongToCharW(unsigned int value, WCHAR* out, int width, int radix);

// Read digits up to the first character that is none, behind a prefix. The value is cut to the
// result's width; a text that holds nothing readable gives 0.
QVX_API std::uint8_t HexStringToByteA(const char* text, int length);
QVX_API std::uint8_t HexStringToByteW(const WCHAR* text, int length);
QVX_API std::uint32_t HexStringToUint32A(const char* text, int length);
QVX_API std::uint32_t HexStringToUint32W(const WCHAR* text, int length);
QVX_API std::uint64_t HexStringToUint64A(const char* text, int length);
QVX_API std::uint64_t HexStringToUint64W(const WCHAR* text, int length);

// Read a byte from each pair of characters, behind a prefix; an odd last character is ignored.
// A pair 0x or 0X is the byte 0. Any other pair ends at a character that is no digit: such a
// byte is what was read so far, 0 or one digit. There are always as many bytes as pairs. text
// may lie inside out's own block. A null text or out does nothing.
QVX_API void HexStringToBufferA(const char* text, int length, CBaseBuffer* out);
QVX_API void HexStringToBufferW(const WCHAR* text, int length, CBaseBuffer* out);
QVX_API void HexStringToStringA(const char* text, int length, CBaseStringA* out);
QVX_API void HexStringToStringW(const WCHAR* text, int length, CBaseStringA* out);

// The same into out, which takes length / 2 bytes and gets no terminator; a prefix is a pair
// like others. An odd length, or one below 2 other than -1, does nothing.
QVX_API void StringFromHexA(const char* text, int length, char* out);

// 1 for a hex digit, else 0.
QVX_API int IsHexCharA(char character);
QVX_API int IsHexCharW(WCHAR character);

// 1 if all characters are hex digits, or there is none. A prefix is skipped only from a length
// of 3 on. Null gives 0.
QVX_API int IsHexStringA(const char* text, int length);
QVX_API int IsHexStringW(const WCHAR* text, int length);

// The value of binary digits: for each character, twice the value so far plus the character
// less 48, cut to the result's width. A length below 1 gives 0.
QVX_API std::uint8_t BinStringToByteA(const char* text, int length);
QVX_API std::uint8_t BinStringToByteW(const WCHAR* text, int length);
QVX_API std::uint64_t BinStringToUINT64A(const char* text, int length);
QVX_API std::uint64_t BinStringToUINT64W(const WCHAR* text, int length);

// Bits firstBit to lastBit, inclusive, of a buffer of bufferSize bytes: bit n is bit n % 8,
// counted from the lowest, of byte n / 8; firstBit holds the lowest bit of the value. A field
// has at most 32 bits. Bits outside the buffer are not written and read as 0; lastBit below
// firstBit does nothing and gives 0.
QVX_API void SetBufferValueByBit(unsigned char* buffer, int bufferSize, int firstBit, int lastBit,
                                 unsigned int value);
QVX_API unsigned int GetBufferValueByBit(const unsigned char* buffer, int bufferSize, int firstBit,
                                         int lastBit);

}  // extern "C"
