#include "qvx/digital_text.h"

#include <cstdint>
#include <cstring>
#include <string_view>

#include "qvx/hex_text.h"
#include "text/field_splitter.h"
#include "text/read_number.h"
#include "text/text_length.h"

using qvx::text::CharacterSet;
using qvx::text::GivenView;
using qvx::text::SplitRule;

const int gDigitalTypeSize[12] = {1, 1, 4, 2, 2, 4, 4, 8, 8, 4, 8, 1};

namespace {

enum Type {
  kUnsigned8 = 0,
  kSigned8 = 1,
  kSigned16 = 3,
  kUnsigned16 = 4,
  kFirst64 = 7,
  kSecond64 = 8,
  kFloat = 9,
  kDouble = 10
};

template <typename T>
using View = std::basic_string_view<T>;

bool IsConvertible(int type) {
  return type >= kUnsigned8 && type <= kDouble;
}

std::size_t SizeOf(int type) {
  return static_cast<std::size_t>(gDigitalTypeSize[type]);
}

// Reading --------------------------------------------------------------------------------------

std::uint64_t ReadHex(std::string_view text) {
  return HexStringToUint64A(text.data(), static_cast<int>(text.size()));
}

std::uint64_t ReadHex(std::u16string_view text) {
  return HexStringToUint64W(text.data(), static_cast<int>(text.size()));
}

template <typename T>
bool HoldsHexPrefix(View<T> text) {
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i - 1] == T('0') && (text[i] == T('x') || text[i] == T('X'))) return true;
  }
  return false;
}

template <typename T>
View<T> UpToNul(View<T> text) {
  return text.substr(0, text.find(T()));
}

template <typename T>
std::uint64_t ReadIntegral(View<T> text) {
  std::size_t end = 0;
  const int value = qvx::text::ReadInteger(text, &end);
  if (end < text.size() && HoldsHexPrefix(UpToNul(text))) return ReadHex(text.substr(2));
  return static_cast<std::uint64_t>(std::int64_t{value});
}

template <typename Value>
void Store(Value value, void* out) {
  std::memcpy(out, &value, sizeof(value));
}

template <typename T>
void ReadValue(View<T> text, void* value, int type) {
  if (type == kFloat) {
    Store(static_cast<float>(qvx::text::ReadDouble(text)), value);
  } else if (type == kDouble) {
    Store(qvx::text::ReadDouble(text), value);
  } else {
    const std::uint64_t bits = ReadIntegral(text);
    std::memcpy(value, &bits, SizeOf(type));
  }
}

template <typename T>
void ReadGiven(const T* text, int length, void* value, int type) {
  if (text == nullptr || value == nullptr || !IsConvertible(type)) return;
  ReadValue(GivenView(text, length), value, type);
}

// Reads fields into values of one type, one behind the other; without values, or for a type
// without a conversion, just counts.
template <typename T>
int ReadFields(View<T> text, const CharacterSet<T>& separators, SplitRule rule, void* values,
               int type) {
  auto* value = IsConvertible(type) ? static_cast<std::uint8_t*>(values) : nullptr;
  const std::size_t size = value != nullptr ? SizeOf(type) : 0;
  int count = 0;
  qvx::text::SplitAtCharacters(text, separators, rule, [&](std::size_t start, std::size_t end) {
    ++count;
    if (value == nullptr) return;
    ReadValue(text.substr(start, end - start), value, type);
    value += size;
  });
  return count;
}

template <typename T>
int ParseArray(const T* text, int length, int type, void* values, int maxCount, const T* separators,
               int separatorCount, int skipEmpty) {
  const CharacterSet<T> set(GivenView(separators, separatorCount));
  return ReadFields(GivenView(text, length), set, {skipEmpty != 0, maxCount, 0}, values, type);
}

// How a text of groups is cut.
template <typename T>
struct GroupRules {
  CharacterSet<T> group_separators;
  SplitRule groups;
  CharacterSet<T> value_separators;
  SplitRule values;
};

template <typename T>
int ParseGroups(View<T> text, const GroupRules<T>& rules, void* values, int type) {
  auto* first = IsConvertible(type) && rules.values.max_count > 0
                    ? static_cast<std::uint8_t*>(values)
                    : nullptr;
  const std::size_t size =
      first != nullptr ? SizeOf(type) * static_cast<std::size_t>(rules.values.max_count) : 0;
  int count = 0;
  const auto read = [&](std::size_t start, std::size_t end) {
    ++count;
    if (first == nullptr) return;
    const View<T> group = UpToNul(text.substr(start, end - start));
    ReadFields(group, rules.value_separators, rules.values, first, type);
    first += size;
  };
  qvx::text::SplitAtCharacters(text, rules.group_separators, rules.groups, read);
  return count;
}

// Writing --------------------------------------------------------------------------------------

template <typename Value>
Value Load(const void* value) {
  Value loaded;
  std::memcpy(&loaded, value, sizeof(loaded));
  return loaded;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename T>
void AppendValue(CBaseStringT<T>& out, const T* format, int type, const void* value) {
  switch (type) {
    case kUnsigned8:
      return out.AppendFormat(format, int{Load<std::uint8_t>(value)});
    case kSigned8:
      return out.AppendFormat(format, int{Load<std::int8_t>(value)});
    case kSigned16:
      return out.AppendFormat(format, int{Load<std::int16_t>(value)});
    case kUnsigned16:
      return out.AppendFormat(format, int{Load<std::uint16_t>(value)});
    case kFirst64:
    case kSecond64:
      return out.AppendFormat(format, Load<std::int64_t>(value));
    case kFloat:
      return out.AppendFormat(format, double{Load<float>(value)});
    case kDouble:
      return out.AppendFormat(format, Load<double>(value));
    default:
      return out.AppendFormat(format, Load<std::int32_t>(value));
  }
}
#pragma GCC diagnostic pop

template <typename T>
bool CanWrite(const CBaseStringT<T>* out, const T* format, int type, const void* values) {
  return out != nullptr && format != nullptr && values != nullptr && IsConvertible(type);
}

template <typename T>
void WriteValue(CBaseStringT<T>* out, const T* format, int type, const void* value) {
  if (CanWrite(out, format, type, value)) AppendValue(*out, format, type, value);
}

template <typename T>
void WriteValues(CBaseStringT<T>& out, const T* format, int type, const void* values,
                 std::int64_t first, int count, const T* separator) {
  const auto size = static_cast<std::ptrdiff_t>(gDigitalTypeSize[type]);
  const auto* value = static_cast<const std::uint8_t*>(values) + first * size;
  for (int i = 0; i < count; ++i, value += size) {
    if (i > 0) out.Append(separator);
    AppendValue(out, format, type, value);
  }
}

template <typename T>
int WriteGroups(CBaseStringT<T>* out, const T* format, int type, const void* values, int groupCount,
                int perGroup, int groupStride, const T* groupSeparator, const T* valueSeparator) {
  if (!CanWrite(out, format, type, values)) return 0;
  CBaseStringT<T> written;
  for (int group = 0; group < groupCount; ++group) {
    if (group > 0) written.Append(groupSeparator);
    const std::int64_t first = std::int64_t{group} * groupStride;
    WriteValues(written, format, type, values, first, perGroup, valueSeparator);
  }
  out->Append(written.GetString(), written.GetLength());
  return 1;
}

}  // namespace

void DigtalStringToValueA(const char* text, int length, void* value, int type) {
  ReadGiven(text, length, value, type);
}

void DigtalStringToValueW(const WCHAR* text, int length, void* value, int type) {
  ReadGiven(text, length, value, type);
}

void DigtalValueToStringA(CBaseStringA* out, const char* format, int type, const void* value) {
  WriteValue(out, format, type, value);
}

void DigtalValueToStringW(CBaseStringW* out, const WCHAR* format, int type, const void* value) {
  WriteValue(out, format, type, value);
}

void AppendDigitalArrayValueA(CBaseStringA* out, const char* format, int type, const void* values,
                              int count, const char* separator) {
  WriteGroups<char>(out, format, type, values, 1, count, 0, nullptr, separator);
}

int AppendDigitalGroupArrayValueA(CBaseStringA* out, const char* format, int type,
                                  const void* values, int groupCount, int perGroup, int groupStride,
                                  const char* groupSeparator, const char* valueSeparator) {
  return WriteGroups(out, format, type, values, groupCount, perGroup, groupStride, groupSeparator,
                     valueSeparator);
}

int AppendDigitalGroupArrayValueW(CBaseStringW* out, const WCHAR* format, int type,
                                  const void* values, int groupCount, int perGroup, int groupStride,
                                  const WCHAR* groupSeparator, const WCHAR* valueSeparator) {
  return WriteGroups(out, format, type, values, groupCount, perGroup, groupStride, groupSeparator,
                     valueSeparator);
}

int ParseDigitalArrayValueA(const char* text, int length, int type, void* values, int maxCount,
                            const char* separators, int separatorCount, int skipEmpty) {
  return ParseArray(text, length, type, values, maxCount, separators, separatorCount, skipEmpty);
}

int ParseDigitalArrayValueW(const WCHAR* text, int length, int type, void* values, int maxCount,
                            const WCHAR* separators, int separatorCount, int skipEmpty) {
  return ParseArray(text, length, type, values, maxCount, separators, separatorCount, skipEmpty);
}

int ParseDigitalGroupArrayValueA(const char* text, int length, int type, void* values,
                                 int maxGroups, int perGroup, const char* groupSeparators,
                                 int groupSeparatorCount, int skipEmptyGroups,
                                 const char* valueSeparators, int valueSeparatorCount,
                                 int skipEmptyValues) {
  const GroupRules<char> rules = {
      CharacterSet<char>(GivenView(groupSeparators, groupSeparatorCount)),
      {skipEmptyGroups != 0, maxGroups, 0},
      CharacterSet<char>(GivenView(valueSeparators, valueSeparatorCount)),
      {skipEmptyValues != 0, perGroup, 0}};
  return ParseGroups(GivenView(text, length), rules, values, type);
}

int ParseDigitalGroupArrayValueW(const WCHAR* text, int length, int type, void* values,
                                 int maxGroups, int perGroup, const WCHAR* groupSeparators,
                                 int groupSeparatorCount, int skipEmptyGroups,
                                 const WCHAR* valueSeparators, int valueSeparatorCount,
                                 int skipEmptyValues) {
  const GroupRules<WCHAR> rules = {
      CharacterSet<WCHAR>(GivenView(groupSeparators, groupSeparatorCount)),
      {skipEmptyGroups != 0, maxGroups, 0},
      CharacterSet<WCHAR>(GivenView(valueSeparators, valueSeparatorCount)),
      {skipEmptyValues != 0, perGroup, 0}};
  return ParseGroups(GivenView(text, length), rules, values, type);
}
