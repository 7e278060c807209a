// A program that is linked with the shared library, and is not position independent, so that
// the exported engine stands in the program's own data. It sends itself a delayed message,
// forks without exec, and does the same in both processes. Exits with 0 if all came.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "qvx/delay_message.h"
#include "qvx/message_queue.h"

namespace {

bool SendsItselfAMessage() {
  const HWND window = CreateMessageWindow();
  gDelayPostMsgEngine.DelayPostMsg(1, nullptr, window, 5, 6, 7, nullptr, 0);
  tagWINDOWMESSAGE found{};
  const bool came = GetWindowMessage(&found, window, 60'000) != 0 && found.wParam == 6;
  DestroyMessageWindow(window);
  return came;
}

}  // namespace

int main() {
  if (!SendsItselfAMessage()) return 1;
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    std::exit(SendsItselfAMessage() ? 0 : 1);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) return 2;
#endif
  return SendsItselfAMessage() ? 0 : 3;
}
