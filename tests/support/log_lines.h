// Collects the library's debug lines for as long as it lives. One at a time.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace qvx::test {

class LogLines {
 public:
  LogLines();
  ~LogLines();
  LogLines(const LogLines&) = delete;
  LogLines& operator=(const LogLines&) = delete;

  // The level and the message behind "=> " of each line so far.
  std::vector<std::pair<int, std::string>> All() const;
  // How often this very message came at this level.
  int Count(int level, const std::string& message) const;
};

}  // namespace qvx::test
