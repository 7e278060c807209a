#include "platform/path.h"

#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/code_page.h"
#include "platform/utf.h"

namespace qvx::platform {

namespace {

constexpr char32_t kEscapeBase = 0xDC00;  // plus the byte, which is 0x80 or above

// The characters that separate, or that a search reads as wildcards, and what stands for
// them in a library name.
struct Special {
  char native;
  char16_t library;
};
constexpr Special kSpecials[] = {{'\\', 0xF05C}, {':', 0xF03A}, {'*', 0xF02A}, {'?', 0xF03F}};

bool IsStandIn(char32_t code) {
  return std::any_of(std::begin(kSpecials), std::end(kSpecials),
                     [code](const Special& special) { return special.library == code; });
}

bool IsEscapedByte(char32_t code) {
  return code >= kEscapeBase + 0x80 && code <= kEscapeBase + 0xFF;
}

void AppendUtf8(char32_t code, std::string& out) {
  char units[4];
  out.append(units, EncodeUtf8(code, units));
}

void AppendUtf16(char32_t code, std::u16string& out) {
  char16_t units[2];
  out.append(units, EncodeUtf16(code, units));
}

void AppendEscaped(std::string_view bytes, std::u16string& out) {
  for (char byte : bytes) {
    out += static_cast<char16_t>(kEscapeBase + static_cast<unsigned char>(byte));
  }
}

// An unpaired surrogate stands for itself here.
Decoded DecodeWide(std::u16string_view text) {
  const Decoded decoded = DecodeUtf16(text);
  return decoded.valid ? decoded : Decoded{text[0], 1, false};
}

// The bytes that a narrow path holds for an escaped byte are let through too.
Decoded DecodeNarrow(std::string_view text) {
  const Decoded decoded = DecodeUtf8(text);
  if (decoded.valid || text.size() < 3 || text[0] != '\xED') return decoded;
  const auto second = static_cast<unsigned char>(text[1]);
  const auto third = static_cast<unsigned char>(text[2]);
  if ((second != 0xB2 && second != 0xB3) || (third & 0xC0) != 0x80) return decoded;
  return {0xD000u | (second & 0x3Fu) << 6 | (third & 0x3Fu), 3, true};
}

char16_t StandInFor(char native) {
  for (const Special& special : kSpecials) {
    if (special.native == native) return special.library;
  }
  return 0;
}

void AppendName(std::string_view native, std::u16string& out) {
  while (!native.empty()) {
    const Decoded decoded = DecodeUtf8(native);
    const auto units = static_cast<std::size_t>(decoded.units);
    if (const char16_t stand_in = StandInFor(native[0])) {
      out += stand_in;
    } else if (!decoded.valid || IsStandIn(decoded.character)) {
      AppendEscaped(native.substr(0, units), out);
    } else {
      AppendUtf16(decoded.character, out);
    }
    native.remove_prefix(units);
  }
}

// False where no name can hold the character.
bool AppendNativeCharacter(char32_t code, std::string& out) {
  for (const Special& special : kSpecials) {
    if (code == static_cast<unsigned char>(special.native) && special.native != '\\') return false;
    if (code == special.library) {
      out += special.native;
      return true;
    }
  }
  if (IsEscapedByte(code)) {
    out += static_cast<char>(code - kEscapeBase);
    return true;
  }
  if (code == 0 || IsHighSurrogate(code) || IsLowSurrogate(code)) return false;
  AppendUtf8(code, out);
  return true;
}

std::optional<std::string> Fail(int error) {
  errno = error;
  return std::nullopt;
}

// Unpaired surrogates get the bytes that their number has.
std::string Utf8FromPath(std::u16string_view path) {
  std::string out;
  out.reserve(path.size());
  while (!path.empty()) {
    const Decoded decoded = DecodeWide(path);
    AppendUtf8(decoded.character, out);
    path.remove_prefix(static_cast<std::size_t>(decoded.units));
  }
  return out;
}

std::u16string PathFromUtf8(std::string_view path) {
  std::u16string out;
  out.reserve(path.size());
  while (!path.empty()) {
    const Decoded decoded = DecodeNarrow(path);
    const auto units = static_cast<std::size_t>(decoded.units);
    if (decoded.valid) {
      AppendUtf16(decoded.character, out);
    } else {
      AppendEscaped(path.substr(0, units), out);
    }
    path.remove_prefix(units);
  }
  return out;
}

template <typename C>
std::optional<std::basic_string<C>> InWidth(std::u16string&& wide);

template <>
std::optional<std::u16string> InWidth<char16_t>(std::u16string&& wide) {
  return std::move(wide);
}

template <>
std::optional<std::string> InWidth<char>(std::u16string&& wide) {
  if (AnsiIsUtf8()) return Utf8FromPath(wide);
  std::optional<std::string> narrow = AnsiFromWide(wide);
  if (!narrow) return Fail(EILSEQ);
  return narrow;
}

}  // namespace

std::u16string WidePath(std::u16string_view path) {
  return std::u16string(path);
}

std::u16string WidePath(std::string_view path) {
  if (AnsiIsUtf8()) return PathFromUtf8(path);
  return WideFromAnsi(path).value_or(std::u16string());
}

std::optional<std::string> ToNativePath(std::u16string_view path) {
  if (path.empty()) return Fail(ENOENT);
  std::string native;
  native.reserve(path.size() + 1);
  if (path.size() >= 2 && path[1] == u':') {
    if (path[0] != u'C' && path[0] != u'c') return Fail(ENODEV);
    path.remove_prefix(2);
    if (path.empty() || !IsSeparator(path[0])) native += '/';
  }
  while (!path.empty()) {
    const Decoded decoded = DecodeWide(path);
    path.remove_prefix(static_cast<std::size_t>(decoded.units));
    if (IsSeparator(decoded.character)) {
      native += '/';
    } else if (!AppendNativeCharacter(decoded.character, native)) {
      return Fail(EINVAL);
    }
  }
  return native;
}

std::optional<std::string> ToNativePath(std::string_view path) {
  if (AnsiIsUtf8()) return ToNativePath(std::u16string_view(PathFromUtf8(path)));
  const std::optional<std::u16string> wide = WideFromAnsi(path);
  if (!wide) return Fail(EILSEQ);
  return ToNativePath(std::u16string_view(*wide));
}

std::optional<std::string> AbsolutePath(std::string_view native) {
  std::string whole(native);
  if (native.empty() || native[0] != '/') {
    char folder[PATH_MAX];
    if (getcwd(folder, sizeof folder) == nullptr) return std::nullopt;
    whole = std::string(folder) + '/' + whole;
  }
  std::string path;
  for (std::size_t begin = 0; begin < whole.size();) {
    const std::size_t end = std::min(whole.find('/', begin), whole.size());
    const std::string_view element(whole.data() + begin, end - begin);
    begin = end + 1;
    if (element == "..") path.resize(path.empty() ? 0 : path.rfind('/'));
    if (!element.empty() && element != "." && element != "..") path.append("/").append(element);
  }
  return path.empty() ? "/" : path;
}

template <typename C>
std::optional<std::basic_string<C>> FromNativePath(std::string_view native) {
  std::u16string wide;
  wide.reserve(native.size() + 2);
  if (!native.empty() && native[0] == '/') wide += u"C:";
  for (;;) {
    const std::size_t end = native.find('/');
    AppendName(native.substr(0, end), wide);
    if (end == std::string_view::npos) break;
    wide += u'\\';
    native.remove_prefix(end + 1);
  }
  return InWidth<C>(std::move(wide));
}

template <typename C>
std::optional<std::basic_string<C>> FromNativeName(std::string_view name) {
  std::u16string wide;
  wide.reserve(name.size());
  AppendName(name, wide);
  return InWidth<C>(std::move(wide));
}

template <typename C>
std::optional<std::basic_string<C>> JoinPath(const C* folder, const C* name) {
  std::basic_string<C> path;
  if (folder != nullptr) path = folder;
  if (!path.empty() && path.back() != C('\\')) path += C('\\');
  if (name != nullptr) path += name;
  if (path.size() <= kPathLimit) return path;
  errno = ENAMETOOLONG;
  return std::nullopt;
}

template std::optional<std::string> FromNativePath<char>(std::string_view);
template std::optional<std::u16string> FromNativePath<char16_t>(std::string_view);
template std::optional<std::string> FromNativeName<char>(std::string_view);
template std::optional<std::u16string> FromNativeName<char16_t>(std::string_view);
template std::optional<std::string> JoinPath<char>(const char*, const char*);
template std::optional<std::u16string> JoinPath<char16_t>(const char16_t*, const char16_t*);

}  // namespace qvx::platform
