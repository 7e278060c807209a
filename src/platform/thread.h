// Threads of the operating system. They block all signals, so that the host's handlers never
// run on them. Creation passes through the seam (kThreadCreate).
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace qvx::platform {

struct ThreadOptions {
  const char* name = "";       // the system gets its first 15 characters
  std::size_t stack_size = 0;  // 0: the system's default; at least 64 KiB else
  int nice_change = 0;         // applied where the system allows it
};

// One thread. Not thread-safe itself; the owner must join or detach a thread that was started.
// Neither may be done in a forked child whose parent started the thread.
class NativeThread {
 public:
  using Body = void (*)(void* context);

  NativeThread();
  ~NativeThread();
  NativeThread(const NativeThread&) = delete;
  NativeThread& operator=(const NativeThread&) = delete;

  // Makes a thread that waits for Release. False if there is none to be had. Throws
  // std::bad_alloc.
  bool Create(const ThreadOptions& options, Body body, void* context);
  // Lets the body begin.
  void Release() noexcept;
  void Join() noexcept;
  void Detach() noexcept;

  // The system's id, known from Create on.
  std::uint32_t Id() const { return id_; }

 private:
  struct Gate;

  static void* Enter(void* gate);

  pthread_t thread_{};
  std::uint32_t id_ = 0;
  std::shared_ptr<Gate> gate_;
};

// How many processors this process may use, at least 1.
unsigned int UsableProcessors() noexcept;

// Runs a function on each thread that asked for it, when that thread ends. Not for the thread
// that leaves the process, and for none any more once this object is gone.
class ThreadEndHook {
 public:
  explicit ThreadEndHook(void (*function)(void* context)) noexcept;
  ~ThreadEndHook();
  ThreadEndHook(const ThreadEndHook&) = delete;
  ThreadEndHook& operator=(const ThreadEndHook&) = delete;

  // For the calling thread; null cancels. False if the system has no room for it.
  bool Arm(void* context) noexcept;
  // What Arm was given on this thread.
  void* Context() const noexcept;

 private:
  pthread_key_t key_{};
  bool made_;
};

}  // namespace qvx::platform
