#include "support/debug_lines.h"

#include <algorithm>
#include <mutex>

#include "qvx/debug_output.h"

namespace qvx::test {
namespace {

using Line = std::pair<int, std::string>;

std::mutex mutex;
std::vector<Line> lines;

int Collect(void*, int level, const char* line, int length) {
  const std::string text(line, static_cast<std::size_t>(length));
  const std::size_t message = text.find("=> ");
  std::lock_guard<std::mutex> guard(mutex);
  lines.emplace_back(level, message == std::string::npos ? text : text.substr(message + 3));
  return 0;
}

}  // namespace

DebugLines::DebugLines() {
  {
    std::lock_guard<std::mutex> guard(mutex);
    lines.clear();
  }
  DbgOutputAddCallback(&Collect, nullptr);
}

DebugLines::~DebugLines() {
  DbgOutputDelCallback(&Collect);
}

std::vector<Line> DebugLines::All() const {
  std::lock_guard<std::mutex> guard(mutex);
  return lines;
}

int DebugLines::Count(int level, const std::string& message) const {
  const std::vector<Line> all = All();
  return static_cast<int>(std::count(all.begin(), all.end(), Line(level, message)));
}

}  // namespace qvx::test
