// Conversions between UTF-16, UTF-8 and the process's ANSI code page, which is UTF-8 unless
// SetAnsiCodePage chose a single- or double-byte page. Thread-safe and without locks.
//
// From UTF-8 and the code page, each byte that can't be decoded becomes U+FFFD. To UTF-8, a
// surrogate without its partner becomes U+FFFD; to a code page, what it lacks becomes '?'.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qvx::platform {

// 65001 or a page as said above; false, without any change, for all others.
bool SetAnsiCodePage(unsigned int code_page);
unsigned int AnsiCodePage() noexcept;
bool AnsiIsUtf8() noexcept;
// Whether a text that is not empty begins with a double-byte character of the code page, whose
// second byte may look like ASCII. Never in UTF-8.
bool BeginsWithDoubleByte(std::string_view text) noexcept;

// All of text into out, or nothing where it needs more than capacity units. Returns the units
// written; no terminator.
int AnsiToWide(std::string_view text, char16_t* out, int capacity) noexcept;
int WideToAnsi(std::u16string_view text, char* out, int capacity) noexcept;

// How many bytes (units) at the start of a text, which ends at its NUL or earlier, make at most
// max_units units (max_bytes bytes) of the other width without splitting a character. Reads no
// byte behind the last one that it needs.
int AnsiPrefixForWide(const char* text, int max_units) noexcept;
int WidePrefixForAnsi(const char16_t* text, int max_bytes) noexcept;

// Without any limit; nothing where a character is not well formed or has no counterpart.
std::optional<std::u16string> WideFromAnsi(std::string_view text);
std::optional<std::string> AnsiFromWide(std::u16string_view text);

// Without any limit. *exact, where given, tells whether the text was well formed.
std::u16string Utf8ToUtf16(std::string_view text, bool* exact = nullptr);
std::string Utf16ToUtf8(std::u16string_view text, bool* exact = nullptr);

}  // namespace qvx::platform
