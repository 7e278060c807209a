#include "files/extension_filter.h"

#include "platform/path.h"
#include "qvx/base_string.h"

namespace qvx::files {

ExtensionFilter::ExtensionFilter(const char* extensions) {
  if (extensions != nullptr) extensions_ = platform::WidePath(std::string_view(extensions));
}

ExtensionFilter::ExtensionFilter(const char16_t* extensions) {
  if (extensions != nullptr) extensions_ = extensions;
}

bool ExtensionFilter::Takes(std::u16string_view name) const {
  if (TakesAll()) return true;
  const std::size_t point = name.rfind(u'.');
  if (point == std::u16string_view::npos) return false;
  const std::u16string_view extension = name.substr(point);
  const WCHAR* begin = extensions_.data();
  const WCHAR* end = begin + extensions_.size();
  const WCHAR* found = wcsnistr(begin, static_cast<int>(extensions_.size()), extension.data(),
                                static_cast<int>(extension.size()));
  if (found == nullptr) return false;
  const WCHAR* behind = found + extension.size();
  return (found == begin || found[-1] == u';') && (behind == end || *behind == u';');
}

}  // namespace qvx::files
