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
  const std::size_t arrow = text.find("=> ");
  std::string message = arrow == std::string::npos ? text : text.substr(arrow + 3);
  // The library's own thread starts when the library is loaded and tells so when it comes to it,
  // which may be in the middle of a test.
  if (message.starts_with("thread information, name=DelayMsg,")) return 0;
  const std::lock_guard guard(mutex);
  lines.emplace_back(level, std::move(message));
  return 0;
}

}  // namespace

DebugLines::DebugLines() {
  {
    const std::lock_guard guard(mutex);
    lines.clear();
  }
  DbgOutputAddCallback(&Collect, nullptr);
}

DebugLines::~DebugLines() {
  DbgOutputDelCallback(&Collect);
}

std::vector<Line> DebugLines::All() const {
  const std::lock_guard guard(mutex);
  return lines;
}

int DebugLines::Count(int level, const std::string& message) const {
  const std::vector<Line> all = All();
  return static_cast<int>(std::count(all.begin(), all.end(), Line(level, message)));
}

}  // namespace qvx::test
