// Three texts that end at a NUL, attribute, separator and value, and then the entries. What was
// found stands in the text, and what was added is found again unless it holds the separator.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "qvx/process_util.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

std::string Take(std::string& text) {
  const std::size_t end = text.find('\0');
  const std::string taken = text.substr(0, end);
  text.erase(0, end == text.npos ? end : end + 1);
  return taken;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  const std::string attribute = Take(text);
  const std::string separator = Take(text);
  const std::string value = Take(text);
  CBaseStringA config(text.data(), static_cast<int>(text.size()));
  CBaseStringA old_value;
  const bool was_there =
      GetAttrValueFromConfig(&config, separator.c_str(), attribute.c_str(), &old_value) != 0;
  if (was_there) {
    const std::string entry = attribute + old_value.GetString();
    Require(text.find(entry) != text.npos);
  }
  SetAttrValueToConfig(&config, separator.c_str(), attribute.c_str(), value.c_str());
  CBaseStringA new_value;
  const bool is_new = !was_there && !attribute.empty() && text.find('\0') == text.npos;
  const std::string added = attribute + value;
  if (is_new && added.find(separator) == added.npos && separator.size() == 1) {
    Require(GetAttrValueFromConfig(&config, separator.c_str(), attribute.c_str(), &new_value) != 0);
    Require(new_value.GetString() == value);
  }
  return 0;
}
