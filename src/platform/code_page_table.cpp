#include "platform/code_page_table.h"

#include <errno.h>
#include <iconv.h>
#include <stdio.h>

namespace qvx::platform {
namespace {

struct PageName {
  unsigned int code_page;
  const char* name;
};

// Pages that iconv knows under another name than CP and the number.
constexpr PageName kNames[] = {
    {949, "UHC"},           {1361, "JOHAB"},       {20127, "US-ASCII"},   {20866, "KOI8-R"},
    {21866, "KOI8-U"},      {20936, "GB2312"},     {28591, "ISO-8859-1"}, {28592, "ISO-8859-2"},
    {28593, "ISO-8859-3"},  {28594, "ISO-8859-4"}, {28595, "ISO-8859-5"}, {28596, "ISO-8859-6"},
    {28597, "ISO-8859-7"},  {28598, "ISO-8859-8"}, {28599, "ISO-8859-9"}, {28603, "ISO-8859-13"},
    {28605, "ISO-8859-15"}, {51936, "EUC-CN"},     {51949, "EUC-KR"},
};

// One direction of iconv, used for one character at a time.
class Converter {
 public:
  Converter(const char* to, const char* from) : handle_(iconv_open(to, from)) {}
  ~Converter() {
    if (IsOpen()) iconv_close(handle_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  bool IsOpen() const { return handle_ != reinterpret_cast<iconv_t>(-1); }

  enum class Result { kDone, kIncomplete, kInvalid };

  // Writes what the whole input stands for, and how many bytes that are.
  Result Convert(const char* input, std::size_t size, char* out, std::size_t* out_size) {
    iconv(handle_, nullptr, nullptr, nullptr, nullptr);
    char* in = const_cast<char*>(input);
    char* end = out;
    std::size_t left = *out_size;
    std::size_t converted = iconv(handle_, &in, &size, &end, &left);
    const bool incomplete = converted == kFailed && errno == EINVAL;
    if (converted == 0) converted = iconv(handle_, nullptr, nullptr, &end, &left);
    *out_size = static_cast<std::size_t>(end - out);
    if (converted == 0) return Result::kDone;
    return incomplete ? Result::kIncomplete : Result::kInvalid;
  }

 private:
  static constexpr std::size_t kFailed = static_cast<std::size_t>(-1);

  iconv_t handle_;
};

// The one wide unit that a byte sequence stands for; 0 for none.
char16_t OneUnit(Converter& converter, const char* bytes, std::size_t size, bool* incomplete) {
  unsigned char out[16];
  std::size_t out_size = sizeof(out);
  const auto result = converter.Convert(bytes, size, reinterpret_cast<char*>(out), &out_size);
  *incomplete = result == Converter::Result::kIncomplete;
  if (result != Converter::Result::kDone || out_size != 2) return 0;
  return static_cast<char16_t>(out[0] | (out[1] << 8));
}

// Code of a wide unit; 0 where the page lacks it or needs more than two bytes, as for a letter with
// two marks.
std::uint16_t OneCode(Converter& converter, unsigned int unit) {
  const char input[2] = {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
  unsigned char out[16];
  std::size_t size = sizeof(out);
  const auto result = converter.Convert(input, 2, reinterpret_cast<char*>(out), &size);
  if (result != Converter::Result::kDone || size == 0 || size > 2) return 0;
  return static_cast<std::uint16_t>(size == 1 ? out[0] : (out[0] << 8) | out[1]);
}

}  // namespace

std::unique_ptr<CodePageTable> CodePageTable::Load(unsigned int code_page) {
  std::unique_ptr<CodePageTable> table(new CodePageTable());
  if (!table->Fill(code_page)) return nullptr;
  return table;
}

bool CodePageTable::Fill(unsigned int code_page) {
  code_page_ = code_page;
  char number[16];
  snprintf(number, sizeof(number), "CP%u", code_page);
  const char* name = number;
  for (const PageName& entry : kNames) {
    if (entry.code_page == code_page) name = entry.name;
  }
  return FillDecoding(name) && FillEncoding(name);
}

bool CodePageTable::FillDecoding(const char* name) {
  Converter converter("UTF-16LE", name);
  if (!converter.IsOpen()) return false;
  for (unsigned int lead = 0; lead < 256; ++lead) {
    char bytes[2] = {static_cast<char>(lead), 0};
    decode_[lead] = OneUnit(converter, bytes, 1, &lead_[lead]);
    if (lead < 0x80 && decode_[lead] != lead) return false;
    for (unsigned int trail = 1; lead_[lead] && trail < 256; ++trail) {
      bytes[1] = static_cast<char>(trail);
      bool longer = false;
      decode_[lead * 256 + trail] = OneUnit(converter, bytes, 2, &longer);
      if (longer) return false;
    }
  }
  return true;
}

bool CodePageTable::FillEncoding(const char* name) {
  Converter converter(name, "UTF-16LE");
  if (!converter.IsOpen()) return false;
  for (unsigned int unit = 1; unit < 0x10000; ++unit) {
    if (IsHighSurrogate(unit) || IsLowSurrogate(unit)) continue;
    encode_[unit] = OneCode(converter, unit);
  }
  return true;
}

Decoded CodePageTable::Decode(std::string_view text) const noexcept {
  const auto lead = static_cast<unsigned char>(text[0]);
  if (!lead_[lead]) {
    const char16_t unit = decode_[lead];
    return unit != 0 || lead == 0 ? Decoded{unit, 1, true} : Decoded{kReplacement, 1, false};
  }
  if (text.size() < 2) return {kReplacement, 1, false};
  const auto trail = static_cast<unsigned char>(text[1]);
  const char16_t unit = decode_[lead * 256u + trail];
  if (unit != 0) return {unit, 2, true};
  return {kReplacement, trail < 0x80 ? 1 : 2, false};
}

}  // namespace qvx::platform
