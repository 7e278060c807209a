#include "terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace qvx::tool {

TerminalSize SizeOfTerminal() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return {80, 24};
  return {size.ws_col, size.ws_row == 0 ? 24 : size.ws_row};
}

bool OutputIsTerminal() {
  return isatty(STDOUT_FILENO) == 1;
}

RawInput::RawInput() : is_terminal_(tcgetattr(STDIN_FILENO, &former_) == 0) {
  if (!is_terminal_) return;
  termios raw = former_;
  cfmakeraw(&raw);
  tcsetattr(STDIN_FILENO, TCSADRAIN, &raw);
}

RawInput::~RawInput() {
  if (is_terminal_) tcsetattr(STDIN_FILENO, TCSADRAIN, &former_);
}

}  // namespace qvx::tool
