// The first four bytes choose a type, the limits and whether empty fields count; the rest is
// the text. Values are read where the fields are, as many as the splitter finds, in both widths.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qvx/digital_text.h"
#include "qvx/ptr_array.h"
#include "qvx/string_split.h"

namespace {

constexpr int kTypes = 11;

void Require(bool holds) {
  if (!holds) std::abort();
}

struct Choice {
  int type;
  int most;
  int per_group;
  int skip;
};

void ParseArray(const std::vector<char>& text, const Choice& choice) {
  const int length = static_cast<int>(text.size());
  CPtrArrayCtrl fields;
  char* block =
      DevideStringByCharListA(text.data(), length, ",;", 2, choice.skip, &fields, choice.most);
  const auto size = static_cast<std::size_t>(gDigitalTypeSize[choice.type]);
  const auto count = static_cast<std::size_t>(fields.GetCount());
  std::vector<char> values(size * count);
  Require(ParseDigitalArrayValueA(text.data(), length, choice.type, values.data(), choice.most,
                                  ",;", 2, choice.skip) == fields.GetCount());
  for (std::size_t i = 0; i < count; ++i) {
    char value[8];
    DigtalStringToValueA(static_cast<const char*>(fields.GetAt(static_cast<int>(i))), -1, value,
                         choice.type);
    Require(std::memcmp(value, &values[i * size], size) == 0);
  }
  Internal_DelArrayA(block);

  const std::u16string wide(text.begin(), text.end());
  std::vector<char> wide_values(size * count);
  Require(ParseDigitalArrayValueW(wide.data(), length, choice.type, wide_values.data(), choice.most,
                                  u",;", 2, choice.skip) == fields.GetCount());
  Require(wide_values == values);
}

void ParseGroups(const std::vector<char>& text, const Choice& choice) {
  const int length = static_cast<int>(text.size());
  const auto parse = [&](void* values) {
    return ParseDigitalGroupArrayValueA(text.data(), length, choice.type, values, choice.most,
                                        choice.per_group, ";", 1, choice.skip, ",", 1, choice.skip);
  };
  const int groups = parse(nullptr);
  std::vector<char> values(static_cast<std::size_t>(groups * choice.per_group) *
                           static_cast<std::size_t>(gDigitalTypeSize[choice.type]));
  Require(parse(values.data()) == groups);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 4) return 0;
  const Choice choice{data[0] % kTypes, data[1] % 8, data[2] % 8, data[3] % 2};
  const std::vector<char> text(data + 4, data + size);
  // Floating text holds values that no number equals; they are only compared as bytes.
  ParseArray(text, choice);
  ParseGroups(text, choice);
  return 0;
}
