// Named values inside a string.
#include <cstring>
#include <memory>

#include "core/string_access.h"
#include "qvx/process_util.h"
#include "qvx/ptr_array.h"
#include "qvx/string_split.h"

int GetAttrValueFromConfig(const CBaseStringA* config, const char* separator, const char* attribute,
                           CBaseStringA* value) {
  if (config == nullptr || separator == nullptr || attribute == nullptr || value == nullptr) {
    return 0;
  }
  CPtrArrayCtrl entries;
  const std::unique_ptr<char, void (*)(void*)> copy(
      DevideStringByStringListA(config->GetString(), config->GetLength(), &separator, 1, &entries),
      &Internal_DelArrayA);
  const std::size_t length = std::strlen(attribute);
  for (int i = 0; i < entries.GetCount(); ++i) {
    const auto* entry = static_cast<const char*>(entries.GetAt(i));
    if (*entry == '\0' || std::strncmp(entry, attribute, length) != 0) continue;
    CBaseStringA found(entry + length);
    qvx::core::StringAccess::Swap(*value, found);  // Set keeps a text that is equal but for case
    return 1;
  }
  return 0;
}

void SetAttrValueToConfig(CBaseStringA* config, const char* separator, const char* attribute,
                          const char* value) {
  if (config == nullptr || separator == nullptr || attribute == nullptr || value == nullptr) return;
  CBaseStringA old_value;
  if (GetAttrValueFromConfig(config, separator, attribute, &old_value) == 0) {
    config->AppendFormat("%s%s%s", separator, attribute, value);
    return;
  }
  CBaseStringA from;
  CBaseStringA to;
  from.Format("%s%s", attribute, old_value.GetString());
  to.Format("%s%s", attribute, value);
  config->Replace(from.GetString(), -1, to.GetString(), -1, 1);
}
