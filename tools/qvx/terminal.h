// The terminal behind the standard input and output.
#pragma once

#include <termios.h>

namespace qvx::tool {

struct TerminalSize {
  int columns;
  int rows;
};

// 80 by 24 where the output is none.
TerminalSize SizeOfTerminal();

bool OutputIsTerminal();

// While it lives, the standard input gives every key at once and shows none. Does nothing where
// the input is no terminal.
class RawInput {
 public:
  RawInput();
  ~RawInput();
  RawInput(const RawInput&) = delete;
  RawInput& operator=(const RawInput&) = delete;

  bool IsTerminal() const { return is_terminal_; }

 private:
  termios former_{};
  bool is_terminal_;
};

}  // namespace qvx::tool
