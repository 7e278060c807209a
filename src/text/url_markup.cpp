#include "qvx/url_markup.h"

#include <array>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "core/string_access.h"
#include "qvx/hex_text.h"
#include "text/read_number.h"
#include "text/text_length.h"
#include "text/url_codec.h"

using qvx::core::StringAccess;
using qvx::text::GivenView;
using qvx::text::ReadInteger;

namespace {

// A text whose length of -1 is measured; another negative length is empty.
std::string_view Given(const char* text, int length) {
  return length < -1 ? std::string_view() : GivenView(text, length);
}

const std::uint8_t* Bytes(std::string_view text) {
  return reinterpret_cast<const std::uint8_t*>(text.data());
}

std::uint8_t* Bytes(char* text) {
  return reinterpret_cast<std::uint8_t*>(text);
}

// The unit of a reference's text between "&#" and ";".
WCHAR Referenced(std::string_view reference) {
  if (!reference.empty() && reference[0] == 'x') {
    const std::string_view digits = reference.substr(1);
    return static_cast<WCHAR>(HexStringToUint32A(digits.data(), static_cast<int>(digits.size())));
  }
  return static_cast<WCHAR>(ReadInteger(reference));
}

void AppendResolved(std::string_view text, CBaseStringW& out) {
  constexpr std::string_view kOpening = "&#";
  while (!text.empty()) {
    const std::size_t opening = text.find(kOpening);
    const std::string_view before = text.substr(0, opening);
    out.Append(before.data(), static_cast<int>(before.size()));
    if (opening == text.npos) return;
    text.remove_prefix(opening + kOpening.size());
    const std::size_t closing = text.find(';');
    if (closing == text.npos) return;
    out.Append(Referenced(text.substr(0, closing)));
    text.remove_prefix(closing + 1);
  }
}

int ReadTime(const char* text, SYSTEMTIME& time) {
  std::array<short, 6> read{};
  // NOLINTNEXTLINE(cert-err34-c): what is out of range is cut to 16 bits
  const int count = std::sscanf(text, "%04hd/%02hd/%02hd %02hd:%02hd:%02hd", &read[0], &read[1],
                                &read[2], &read[3], &read[4], &read[5]);
  std::uint16_t* const fields[] = {&time.wYear, &time.wMonth,  &time.wDay,
                                   &time.wHour, &time.wMinute, &time.wSecond};
  for (std::size_t i = 0; static_cast<int>(i) < count; ++i) {
    *fields[i] = static_cast<std::uint16_t>(read[i]);
  }
  return count;
}

// As far as it is ASCII: nothing behind is part of a time.
std::string AsciiPart(const WCHAR* text) {
  std::string part;
  for (; *text != 0 && *text < 0x80; ++text) part.push_back(static_cast<char>(*text));
  return part;
}

// The milliseconds of one to three digits; nothing for any other number of characters.
std::optional<int> FractionMilliseconds(std::string_view fraction) {
  constexpr int kWeights[] = {100, 10, 1};
  if (fraction.empty() || fraction.size() > 3) return std::nullopt;
  return ReadInteger(fraction) * kWeights[fraction.size() - 1];
}

// Reads count numbers with ":" between them, each worth 60 of the next, and the fraction of the
// last, which is sought behind either separator, in their order.
unsigned int ReadMilliseconds(std::string_view text, int count, std::string_view separators) {
  unsigned int seconds = static_cast<unsigned int>(ReadInteger(text));
  for (int i = 1; i < count; ++i) {
    const std::size_t colon = text.find(':');
    if (colon == text.npos) return 0;
    text.remove_prefix(colon + 1);
    seconds = seconds * 60 + static_cast<unsigned int>(ReadInteger(text));
  }
  std::size_t point = text.find(separators[0]);
  if (point == text.npos) point = text.find(separators[1]);
  if (point == text.npos) return seconds * 1000;
  const std::optional<int> fraction = FractionMilliseconds(text.substr(point + 1));
  return fraction ? seconds * 1000 + static_cast<unsigned int>(*fraction) : 0;
}

}  // namespace

void EncodeURL(const char* text, int length, CBaseStringA* out) {
  const std::string_view given = Given(text, length);
  if (given.empty() || out == nullptr) return;
  const std::size_t size = qvx::text::EncodedUrlSize(Bytes(given), given.size());
  StringAccess::AppendFilled(*out, size, [&](char* place) {
    qvx::text::EncodeUrl(Bytes(given), given.size(), Bytes(place));
    return size;
  });
}

void DecodeURL(const char* text, int length, CBaseStringA* out) {
  const std::string_view given = Given(text, length);
  if (given.empty() || out == nullptr) return;
  StringAccess::AppendFilled(*out, given.size(), [&](char* place) {
    const std::uint8_t* end = qvx::text::DecodeUrl(Bytes(given), given.size(), Bytes(place));
    return static_cast<std::size_t>(end - Bytes(place));
  });
}

void HtmlCodeToString(const char* text, int length, CBaseStringW* out) {
  const std::string_view given = Given(text, length);
  if (given.empty() || out == nullptr) return;
  CBaseStringW resolved;
  AppendResolved(given, resolved);
  out->Append(resolved.GetString(), resolved.GetLength());
}

int StringToSystemTimeA(const char* text, SYSTEMTIME* time) {
  return text != nullptr && time != nullptr ? ReadTime(text, *time) : 0;
}

int StringToSystemTimeW(const WCHAR* text, SYSTEMTIME* time) {
  return text != nullptr && time != nullptr ? ReadTime(AsciiPart(text).c_str(), *time) : 0;
}

unsigned int TimeStringToInt_HMS(const char* text, int length) {
  return ReadMilliseconds(GivenView(text, length), 3, ",.");
}

unsigned int TimeStringToInt_MS(const char* text, int length) {
  return ReadMilliseconds(GivenView(text, length), 2, ".,");
}
