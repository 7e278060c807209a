// A text of extensions with their points, separated by ";", that chooses files by name.
#pragma once

#include <string>
#include <string_view>

namespace qvx::files {

class ExtensionFilter {
 public:
  // Null or empty takes all.
  explicit ExtensionFilter(const char* extensions);
  explicit ExtensionFilter(const char16_t* extensions);

  bool TakesAll() const { return extensions_.empty(); }
  // The name's extension, from its last point on, must stand in the filter between separators
  // where it is first found there, the case of ASCII letters ignored.
  bool Takes(std::u16string_view name) const;

 private:
  std::u16string extensions_;
};

}  // namespace qvx::files
