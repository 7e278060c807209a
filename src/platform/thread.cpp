#include "platform/thread.h"

#include <limits.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

#include "platform/clock.h"
#include "platform/futex.h"
#include "platform/seam.h"
#include "platform/stack_memory.h"

namespace qvx::platform {
namespace {

constexpr std::size_t kSmallestStack = 64 * 1024;

// All signals blocked for as long as it lives, but for the faults that a thread raises by
// itself, which reach the host's crash handler, and the question for its stack. A thread made
// meanwhile keeps this mask.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t blocked;
    sigfillset(&blocked);
    for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP}) sigdelset(&blocked, fault);
    sigdelset(&blocked, StackSignal());
    pthread_sigmask(SIG_SETMASK, &blocked, &former_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }

 private:
  sigset_t former_;
};

class Attributes {
 public:
  explicit Attributes(std::size_t stack_size) {
    pthread_attr_init(&attributes_);
    if (stack_size == 0) return;
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t size = std::max(stack_size, kSmallestStack);
    pthread_attr_setstacksize(&attributes_, (size + page - 1) / page * page);
  }
  ~Attributes() { pthread_attr_destroy(&attributes_); }

  const pthread_attr_t* get() const { return &attributes_; }

 private:
  pthread_attr_t attributes_;
};

void ChangeNice(std::uint32_t thread_id, int change) {
  if (change == 0) return;
  const int now = getpriority(PRIO_PROCESS, thread_id);
  setpriority(PRIO_PROCESS, thread_id, std::clamp(now + change, -20, 19));
}

// The system's id of a thread that has not ended. The kernel numbers a thread's clock by the
// complement of this id above three bits of flags, so that nobody waits for the thread to tell.
std::uint32_t IdOf(pthread_t thread) {
  clockid_t clock = 0;
  pthread_getcpuclockid(thread, &clock);
  return static_cast<std::uint32_t>(~(clock >> 3));
}

}  // namespace

// Shared by the starter and the thread. The starter keeps it until the join: were the thread to
// free it, the C library would set up a heap for the thread just for that.
struct NativeThread::Gate {
  std::atomic<std::uint32_t> open{0};
  std::array<char, 16> name{};
  Body body = nullptr;
  void* context = nullptr;
  std::shared_ptr<Gate> self;
};

NativeThread::NativeThread() = default;
NativeThread::~NativeThread() = default;

void* NativeThread::Enter(void* argument) {
  const std::shared_ptr<Gate> gate = std::move(static_cast<Gate*>(argument)->self);
  if (gate->name[0] != '\0') pthread_setname_np(pthread_self(), gate->name.data());
  while (gate->open.load(std::memory_order_acquire) == 0) FutexWait(gate->open, 0, kNoDeadline);
  gate->body(gate->context);
  return nullptr;
}

bool NativeThread::Create(const ThreadOptions& options, Body body, void* context) {
  auto gate = std::make_shared<Gate>();
  std::strncpy(gate->name.data(), options.name, gate->name.size() - 1);
  gate->body = body;
  gate->context = context;
  if (SeamFails(Operation::kThreadCreate)) return false;
  gate->self = gate;
  const Attributes attributes(options.stack_size);
  {
    SignalsBlocked blocked;
    if (pthread_create(&thread_, attributes.get(), &Enter, gate.get()) != 0) {
      gate->self.reset();
      return false;
    }
  }
  id_ = IdOf(thread_);
  ChangeNice(id_, options.nice_change);
  gate_ = std::move(gate);
  return true;
}

void NativeThread::Release() noexcept {
  gate_->open.store(1, std::memory_order_release);
  FutexWake(&gate_->open, 1);
}

void NativeThread::Join() noexcept {
  pthread_join(thread_, nullptr);
  gate_.reset();
}

void NativeThread::Detach() noexcept {
  pthread_detach(thread_);
}

unsigned int UsableProcessors() noexcept {
  cpu_set_t usable;
  if (sched_getaffinity(0, sizeof usable, &usable) != 0) return 1;
  return static_cast<unsigned int>(std::max(1, CPU_COUNT(&usable)));
}

ThreadEndHook::ThreadEndHook(void (*function)(void* context)) noexcept
    : made_(pthread_key_create(&key_, function) == 0) {}

ThreadEndHook::~ThreadEndHook() {
  if (made_) pthread_key_delete(key_);
}

bool ThreadEndHook::Arm(void* context) noexcept {
  return made_ && pthread_setspecific(key_, context) == 0;
}

void* ThreadEndHook::Context() const noexcept {
  return made_ ? pthread_getspecific(key_) : nullptr;
}

}  // namespace qvx::platform
