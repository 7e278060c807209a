// References in markup give at most a unit for each byte, and a text without "&#" is converted
// as it stands. Time texts are read within their bounds.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "qvx/url_markup.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

void Resolve(std::string_view text) {
  CBaseStringW out(u"=");
  HtmlCodeToString(text.data(), static_cast<int>(text.size()), &out);
  Require(out.GetString()[0] == u'=');
  Require(static_cast<std::size_t>(out.GetLength()) <= text.size() + 1);
  if (text.find("&#") != text.npos) return;
  const CBaseStringW plain(text.data(), static_cast<int>(text.size()));
  Require(plain.GetLength() + 1 == out.GetLength());
}

void ReadTimes(const std::string& text) {
  SYSTEMTIME narrow{};
  const int count = StringToSystemTimeA(text.c_str(), &narrow);
  Require(count >= -1 && count <= 6);
  const std::u16string wide_text(text.begin(), text.end());
  SYSTEMTIME wide{};
  const bool is_ascii = text.find_first_not_of("0123456789/: \t-+") == text.npos;
  if (!is_ascii) return;
  Require(StringToSystemTimeW(wide_text.c_str(), &wide) == count);
  Require(std::memcmp(&narrow, &wide, sizeof(wide)) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // A block of its own, so that a read behind the text is seen.
  const std::vector<char> text(data, data + size);
  Resolve({text.data(), text.size()});
  const std::string terminated(text.begin(), text.end());
  ReadTimes(terminated.c_str());
  const unsigned int counted = TimeStringToInt_HMS(text.data(), static_cast<int>(size));
  Require(counted == TimeStringToInt_HMS(terminated.c_str(), static_cast<int>(size)));
  TimeStringToInt_MS(text.data(), static_cast<int>(size));
  return 0;
}
