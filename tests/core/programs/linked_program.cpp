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

[[noreturn, maybe_unused]] void EndChild(bool good) {
#if defined(__SANITIZE_ADDRESS__)
  _exit(good ? 0 : 1);  // the parent's threads and what they own count as leaked here
#else
  std::exit(good ? 0 : 1);
#endif
}

}  // namespace

int main() {
  if (!SendsItselfAMessage()) return 1;
#if !defined(__SANITIZE_THREAD__)
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    EndChild(SendsItselfAMessage());
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) return 2;
#endif
  return SendsItselfAMessage() ? 0 : 3;
}
