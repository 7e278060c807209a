#include "platform/pipe_signal.h"

#include <time.h>

#include <cerrno>

namespace qvx::platform {
namespace {

bool IsPending() {
  sigset_t pending;
  sigemptyset(&pending);
  sigpending(&pending);
  return sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

// A signal that isn't blocked is never found pending.
PipeSignalGuard::PipeSignalGuard() noexcept {
  sigemptyset(&signal_);
  sigaddset(&signal_, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signal_, &previous_);
  was_blocked_ = sigismember(&previous_, SIGPIPE) == 1;
  was_pending_ = was_blocked_ && IsPending();
}

PipeSignalGuard::~PipeSignalGuard() {
  const timespec at_once = {0, 0};
  while (!was_pending_ && sigtimedwait(&signal_, nullptr, &at_once) < 0 && errno == EINTR) {
  }
  if (!was_blocked_) pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

}  // namespace qvx::platform
