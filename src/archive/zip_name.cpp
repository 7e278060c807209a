#include "archive/zip_name.h"

#include <algorithm>
#include <utility>

#include "core/raw_text.h"
#include "platform/code_page.h"
#include "platform/path.h"
#include "platform/utf.h"

namespace qvx::archive {

namespace {

using platform::IsSeparator;

constexpr std::string_view kInnerBackslash = "\xEF\x81\x9C";  // U+F05C

// The code page 437 from 0x80 on.
constexpr char16_t kCodePage437[] =
    u"\u00C7\u00FC\u00E9\u00E2\u00E4\u00E0\u00E5\u00E7\u00EA\u00EB\u00E8\u00EF\u00EE\u00EC\u00C4"
    u"\u00C5\u00C9\u00E6\u00C6\u00F4\u00F6\u00F2\u00FB\u00F9\u00FF\u00D6\u00DC\u00A2\u00A3\u00A5"
    u"\u20A7\u0192\u00E1\u00ED\u00F3\u00FA\u00F1\u00D1\u00AA\u00BA\u00BF\u2310\u00AC\u00BD\u00BC"
    u"\u00A1\u00AB\u00BB\u2591\u2592\u2593\u2502\u2524\u2561\u2562\u2556\u2555\u2563\u2551\u2557"
    u"\u255D\u255C\u255B\u2510\u2514\u2534\u252C\u251C\u2500\u253C\u255E\u255F\u255A\u2554\u2569"
    u"\u2566\u2560\u2550\u256C\u2567\u2568\u2564\u2565\u2559\u2558\u2552\u2553\u256B\u256A\u2518"
    u"\u250C\u2588\u2584\u258C\u2590\u2580\u03B1\u00DF\u0393\u03C0\u03A3\u03C3\u00B5\u03C4\u03A6"
    u"\u0398\u03A9\u03B4\u221E\u03C6\u03B5\u2229\u2261\u00B1\u2265\u2264\u2320\u2321\u00F7\u2248"
    u"\u00B0\u2219\u00B7\u221A\u207F\u00B2\u25A0\u00A0";
static_assert(std::size(kCodePage437) == 128 + 1);

std::string FromCodePage437(std::string_view bytes) {
  std::u16string wide;
  wide.reserve(bytes.size());
  for (const char byte : bytes) {
    const auto code = static_cast<unsigned char>(byte);
    wide += code < 0x80 ? static_cast<char16_t>(code) : kCodePage437[code - 0x80];
  }
  return platform::Utf16ToUtf8(wide);
}

void ReplaceAll(std::string& text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

bool HasDrive(std::string_view own) {
  return own.size() >= 2 && core::IsAsciiLetter(own[0]) && own[1] == ':';
}

std::size_t FindSeparator(std::string_view text, std::size_t from) {
  return std::min(text.find_first_of("\\/", from), text.size());
}

// Calls take with each element, the empty ones between separators included, until it gives
// false.
template <typename Take>
bool ForEachElement(std::string_view text, Take take) {
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = FindSeparator(text, begin);
    if (!take(text.substr(begin, end - begin))) return false;
    begin = end + 1;
  }
  return true;
}

bool IsValidUtf8(std::string_view bytes) {
  bool exact = true;
  platform::Utf8ToUtf16(bytes, &exact);
  return exact;
}

}  // namespace

// In a double-byte code page a backslash may be the second half of a character, so that the
// text is only cut in its wide form.
std::optional<std::string> OwnFromLibrary(std::string_view text) {
  const std::u16string wide = platform::WidePath(text);
  std::string own;
  for (std::size_t begin = 0; begin <= wide.size();) {
    const std::size_t end = std::min(wide.find_first_of(u"\\/", begin), wide.size());
    const std::u16string_view element(wide.data() + begin, end - begin);
    const bool drive = element.size() == 2 && element[1] == u':';
    if (drive) {
      own += platform::Utf16ToUtf8(element);
    } else if (!element.empty()) {
      const std::optional<std::string> native = platform::ToNativePath(element);
      if (!native) return std::nullopt;
      own += OwnFromNative(*native);
    }
    if (end < wide.size()) own += static_cast<char>(wide[end]);
    begin = end + 1;
  }
  return own;
}

std::string OwnFromNative(std::string_view name) {
  std::string own(name);
  ReplaceAll(own, "\\", kInnerBackslash);
  return own;
}

std::optional<EncodedName> EncodeName(const std::string& own) {
  bool exact = true;
  const std::u16string wide = platform::Utf8ToUtf16(own, &exact);
  if (!exact) return EncodedName{own, false, true};
  if (platform::AnsiIsUtf8()) return EncodedName{own, true, false};
  std::optional<std::string> narrow = platform::AnsiFromWide(wide);
  if (!narrow) return std::nullopt;
  return EncodedName{std::move(*narrow), false, false};
}

std::string DecodeName(std::string_view bytes, const NameSource& source) {
  if (source.marked_utf8 || source.raw) return std::string(bytes);
  if (platform::AnsiIsUtf8()) {
    return IsValidUtf8(bytes) ? std::string(bytes) : FromCodePage437(bytes);
  }
  const std::optional<std::u16string> wide = platform::WideFromAnsi(bytes);
  return wide ? platform::Utf16ToUtf8(*wide) : FromCodePage437(bytes);
}

std::string NarrowFromOwn(const std::string& own, std::size_t limit) {
  if (platform::AnsiIsUtf8()) {
    std::size_t end = std::min(own.size(), limit);
    while (end < own.size() && end > 0 && (static_cast<unsigned char>(own[end]) & 0xC0) == 0x80) {
      --end;
    }
    return own.substr(0, end);
  }
  const std::u16string wide = platform::Utf8ToUtf16(own);
  const int units = platform::WidePrefixForAnsi(wide.c_str(), static_cast<int>(limit));
  std::string narrow(limit, '\0');
  const std::u16string_view prefix(wide.data(), static_cast<std::size_t>(units));
  const int size = platform::WideToAnsi(prefix, narrow.data(), static_cast<int>(limit));
  narrow.resize(static_cast<std::size_t>(size));
  return narrow;
}

bool EndsInSeparator(std::string_view own) {
  return !own.empty() && IsSeparator(own.back());
}

std::string_view BareName(std::string_view own) {
  const std::size_t separator = own.find_last_of("\\/");
  return separator == std::string_view::npos ? own : own.substr(separator + 1);
}

std::string_view ExtensionOf(std::string_view own) {
  const std::string_view name = BareName(own);
  const std::size_t point = name.rfind('.');
  return point == std::string_view::npos ? std::string_view() : name.substr(point + 1);
}

bool ClimbsUp(std::string_view own) {
  return !ForEachElement(own, [](std::string_view element) { return element != ".."; });
}

std::optional<std::vector<std::string>> ElementsBelow(std::string_view own) {
  if (own.empty() || IsSeparator(own[0]) || HasDrive(own)) return std::nullopt;
  if (own.find('\0') != std::string_view::npos || ClimbsUp(own)) return std::nullopt;
  std::vector<std::string> elements;
  ForEachElement(own, [&elements](std::string_view element) {
    if (element.empty() || element == ".") return true;
    elements.emplace_back(element);
    ReplaceAll(elements.back(), kInnerBackslash, "\\");
    return true;
  });
  return elements;
}

bool EqualTexts(std::string_view left, std::string_view right) {
  return left.size() == right.size() && BeginsWith(left, right);
}

bool BeginsWith(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && core::MatchAll(text.data(), prefix.data(), prefix.size());
}

}  // namespace qvx::archive
