#include "text/read_number.h"

#include <cstdlib>
#include <string>

#include "platform/c_locale.h"

namespace qvx::text {

double ReadDouble(std::string_view text) {
  const std::string terminated(text);
  const platform::CLocaleScope scope;
  return std::strtod(terminated.c_str(), nullptr);
}

double ReadDouble(std::u16string_view text) {
  std::string narrow;
  for (const char16_t unit : text) {
    if (unit == 0 || unit >= 0x80) break;
    narrow.push_back(static_cast<char>(unit));
  }
  return ReadDouble(narrow);
}

}  // namespace qvx::text
