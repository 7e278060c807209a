// The seam of the platform layer: every operation that can fail or be short asks
// here first, so that a test can make the n-th call of it fail. Without a hook the
// cost is one relaxed load. Any thread may ask; the hook must be thread-safe.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace qvx::platform {

enum class Operation {
  kSocket,  // making a socket
  kConnect,
  kAccept,
  kPoll,
  kSend,     // stream and datagram sends; limit shortens
  kReceive,  // stream and datagram receives; limit shortens
  kFileOpen,
  kFileRead,   // limit shortens
  kFileWrite,  // limit shortens
  kFileClose,
  kFileRename,
  kFileSize,
  kAllocate,  // asked by the tests' own operator new
  kThreadCreate,
  kFork,   // starting a child process
  kClock,  // value: nanoseconds to report instead of the clock's own
  kSleep,  // value: nanoseconds asked for; a failing answer skips the sleep
  kSerialOpen,
  kSerialSetup,  // value: the terminal's control flags, and its input flags shifted by 32
  kSerialRead,   // limit shortens
  kSerialWrite,  // limit shortens
  kCount
};

struct SeamCall {
  Operation operation;
  int error = 0;                 // errno to fail with; 0 lets the call go on
  std::size_t limit = SIZE_MAX;  // most bytes that this call may move
  std::int64_t value = 0;        // see kClock and kSleep
};

// Fills in what shall happen to the call. Called on the thread that makes the call.
using SeamHook = void (*)(SeamCall& call);

namespace detail {
extern std::atomic<SeamHook> seam_hook;
}

// Installs a hook, or removes it with null. For tests only.
void SetSeamHook(SeamHook hook) noexcept;

// What a test wants of this call; the defaults where no hook is installed.
inline SeamCall AskSeam(Operation operation, std::int64_t value = 0) {
  SeamCall call{operation, 0, SIZE_MAX, value};
  if (SeamHook hook = detail::seam_hook.load(std::memory_order_acquire)) hook(call);
  return call;
}

// True if the call shall fail; errno is then set to the error that the test chose.
bool SeamFails(Operation operation) noexcept;

// As SeamFails, and cuts size to what the test allows (never below 1 for size above 0).
bool SeamFailsOrShortens(Operation operation, std::size_t& size) noexcept;

}  // namespace qvx::platform
