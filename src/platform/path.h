// Paths of the library and paths of this system. The library writes C:\a\b for /a/b,
// accepts / beside \, and takes a path without a drive against the working directory.
// Every native name has a library form, and going there and back gives the same bytes:
//   \ : * ?               U+F05C U+F03A U+F02A U+F03F
//   a byte that is no UTF-8  a lone surrogate, U+DC80 to U+DCFF
//   a name that really holds one of the four code points above: their bytes, each escaped
// Narrow texts are in the ANSI code page. With UTF-8 a lone surrogate is the three bytes
// that its number would have, and a raw byte that is no UTF-8 is accepted as itself.
// No state; safe from any thread. A failing function sets errno.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace qvx::platform {

// Most characters of a path that the library joins itself, without the terminator.
inline constexpr std::size_t kPathLimit = 259;

// The native path of a library path. Fails for an empty text (ENOENT), a drive that does not
// exist (ENODEV), and characters that no name can hold: a wildcard, a colon that is not the
// drive's, a lone surrogate that is no escape (EINVAL). C: and C:\ give "/".
std::optional<std::string> ToNativePath(std::u16string_view path);
std::optional<std::string> ToNativePath(std::string_view path);

// The library form of a native path; an absolute one gets the drive. With C = char it fails
// where the ANSI code page has no form of the text (EILSEQ); with char16_t it never fails.
template <typename C>
std::optional<std::basic_string<C>> FromNativePath(std::string_view native);
// The same for one element of a path.
template <typename C>
std::optional<std::basic_string<C>> FromNativeName(std::string_view name);

// A library text as wide text, whatever its width.
std::u16string WidePath(std::u16string_view path);
std::u16string WidePath(std::string_view path);

// A native path made absolute by the working directory, without empty, "." and ".." elements,
// which are worked out by name alone. Nothing where the working directory is gone.
std::optional<std::string> AbsolutePath(std::string_view native);

template <typename C>
constexpr bool IsSeparator(C character) {
  return character == C('\\') || character == C('/');
}

// folder, a backslash where it needs one, name; null texts count as empty. Nothing where the
// result is longer than kPathLimit: such a path must not be cut and used (ENAMETOOLONG).
template <typename C>
std::optional<std::basic_string<C>> JoinPath(const C* folder, const C* name);

}  // namespace qvx::platform
