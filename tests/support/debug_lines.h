// Collects the library's debug lines for as long as it lives. One at a time.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace qvx::test {

class DebugLines {
 public:
  DebugLines();
  ~DebugLines();
  DebugLines(const DebugLines&) = delete;
  DebugLines& operator=(const DebugLines&) = delete;

  // The level and the message behind "=> " of each line so far.
  std::vector<std::pair<int, std::string>> All() const;
  // How often this very message came at this level.
  int Count(int level, const std::string& message) const;
};

}  // namespace qvx::test
