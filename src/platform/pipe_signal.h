// Keeps the signal of a broken pipe from the host while code of others writes to sockets and
// pipes on the calling thread.
#pragma once

#include <signal.h>

namespace qvx::platform {

// Blocked while it lives; one that was raised in between is taken back at the end. On one
// thread, the last one made ends first.
class PipeSignalGuard {
 public:
  PipeSignalGuard() noexcept;
  ~PipeSignalGuard();
  PipeSignalGuard(const PipeSignalGuard&) = delete;
  PipeSignalGuard& operator=(const PipeSignalGuard&) = delete;

 private:
  sigset_t signal_;
  sigset_t previous_;
  bool was_blocked_;
  bool was_pending_;
};

}  // namespace qvx::platform
