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

PipeSignalGuard::PipeSignalGuard() noexcept {
  sigemptyset(&signal_);
  sigaddset(&signal_, SIGPIPE);
  was_pending_ = IsPending();
  blocked_ = pthread_sigmask(SIG_BLOCK, &signal_, &previous_) == 0;
}

PipeSignalGuard::~PipeSignalGuard() {
  const timespec at_once = {0, 0};
  while (!was_pending_ && IsPending() && sigtimedwait(&signal_, nullptr, &at_once) < 0 &&
         errno == EINTR) {
  }
  if (blocked_) pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

}  // namespace qvx::platform
