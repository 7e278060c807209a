// Reads lines from the standard input while something else may end the wait.
#pragma once

#include <string>

#include "descriptor.h"

namespace qvx::tool {

class LineInput {
 public:
  enum class Event { kLine, kEnd, kInterrupt, kWake };

  // Takes SIGINT and SIGTERM for itself; they must be blocked in every thread.
  LineInput();

  // Waits for the next line (without its line end), the end of the input, an interrupt, or a
  // call of Wake. The end of the input is told once; after that only the other two come.
  Event Next(std::string& line);
  // Callable from any thread.
  void Wake() const;

 private:
  bool TakeLine(std::string& line);
  void ReadSome();

  Descriptor signals_;
  Descriptor wake_;
  std::string pending_;
  bool at_end_ = false;
  bool end_told_ = false;
};

}  // namespace qvx::tool
