// Names of entries in their three forms: as bytes of an archive, as texts of the library, and
// as own text, which stands between the two. Own text is UTF-8, with raw bytes where a name is
// none, holds a name's own characters (no stand-ins for : * ?), and has U+F05C for a backslash
// inside a name, since "\" and "/" both separate.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvx::archive {

// Of a library path or a part of one; separators and a drive stay. Nothing for a text that no
// native name can have.
std::optional<std::string> OwnFromLibrary(std::string_view text);
// Of one native name.
std::string OwnFromNative(std::string_view name);

struct EncodedName {
  std::string bytes;
  bool utf8 = false;  // to be marked as UTF-8
  bool raw = false;   // of no code page
};
// Nothing where the code page has no form of the name.
std::optional<EncodedName> EncodeName(const std::string& own);

// What says how the name and comment of an entry are to be read.
struct NameSource {
  bool marked_utf8;
  bool raw;  // stored by a program that knows no code page
};
std::string DecodeName(std::string_view bytes, const NameSource& source);

// In the code page, at most limit bytes, cut between characters; "?" for what it lacks.
std::string NarrowFromOwn(const std::string& own, std::size_t limit);

bool EndsInSeparator(std::string_view own);
// What follows the last separator.
std::string_view BareName(std::string_view own);
// What follows the last point of the bare name; empty where there is none.
std::string_view ExtensionOf(std::string_view own);

// Whether any element of the name is "..".
bool ClimbsUp(std::string_view own);
// The native names that lead to the entry, without "." and empty ones. Nothing for a name that
// must not be unpacked: empty, or with a drive, a leading separator, a ".." or a NUL.
std::optional<std::vector<std::string>> ElementsBelow(std::string_view own);

// Whatever the case of ASCII letters.
bool EqualTexts(std::string_view left, std::string_view right);
bool BeginsWith(std::string_view text, std::string_view prefix);

}  // namespace qvx::archive
