// The terminal behind the standard output.
#pragma once

namespace qvx::tool {

struct TerminalSize {
  int columns;
  int rows;
};

// 80 by 24 where the output is none.
TerminalSize SizeOfTerminal();

bool OutputIsTerminal();

}  // namespace qvx::tool
