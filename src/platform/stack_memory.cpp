#include "platform/stack_memory.h"

#include <errno.h>
#include <sched.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>

#include "platform/clock.h"
#include "platform/futex.h"
#include "platform/lock.h"

namespace qvx::platform {
namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kRedZone = 128;
constexpr std::uint64_t kLongestWait = 1000;  // milliseconds
// A thread mostly stops within microseconds; to yield costs far more where others want to run.
constexpr int kImmediateLooks = 100;
constexpr int kQuickLooks = 1000;

constinit std::atomic<int> stack_signal{0};

// The one place that the handler writes to. state leads from asked over copying to done; an
// asker who gives up takes it back to idle, unless the copying has begun.
enum State : std::uint32_t { kIdle, kAsked, kCopying, kDone };

struct Request {
  std::atomic<std::uint32_t> state{kIdle};
  std::atomic<std::uint32_t> thread{0};
  bool usable = false;
  Registers registers{};
  std::uint64_t begin = 0;
  std::size_t size = 0;
  std::array<unsigned char, kMostStackBytes> stack;
};

constinit std::atomic<Request*> request{nullptr};
constinit LeafLock one_at_a_time;

// In pages, so that the end of the stack only cuts the copy short.
std::size_t ReadPages(std::uint32_t process, std::uint64_t address, unsigned char* buffer,
                      std::size_t size) noexcept {
  constexpr std::size_t kPieces = kMostStackBytes / kPage + 2;
  iovec pieces[kPieces];
  std::size_t count = 0;
  for (std::size_t done = 0; done < size && count < kPieces; ++count) {
    const std::size_t step = std::min(size - done, kPage - (address + done) % kPage);
    pieces[count] = {reinterpret_cast<void*>(address + done), step};
    done += step;
  }
  const iovec target{buffer, size};
  const ssize_t read = process_vm_readv(static_cast<pid_t>(process), &target, 1, pieces, count, 0);
  return read < 0 ? 0 : static_cast<std::size_t>(read);
}

std::uint64_t StackBegin(const Registers& registers) {
  return registers[kStackRegister] - kRedZone;
}

void FillIn(Request& asked, const void* context) {
  asked.usable = RegistersOfSignal(context, &asked.registers);
  if (!asked.usable) return;
  asked.begin = StackBegin(asked.registers);
  asked.size = ReadPages(static_cast<std::uint32_t>(getpid()), asked.begin, asked.stack.data(),
                         asked.stack.size());
}

void OnStackSignal(int, siginfo_t*, void* context) {
  const int saved = errno;
  Request* asked = request.load(std::memory_order_acquire);
  std::uint32_t expected = kAsked;
  if (asked != nullptr &&
      asked->thread.load(std::memory_order_relaxed) ==
          static_cast<std::uint32_t>(syscall(SYS_gettid)) &&
      asked->state.compare_exchange_strong(expected, kCopying, std::memory_order_acq_rel)) {
    FillIn(*asked, context);
    asked->state.store(kDone, std::memory_order_release);
    FutexWake(&asked->state, 1);
  }
  errno = saved;
}

bool InstallHandler(int signal) {
  struct sigaction present;
  if (sigaction(signal, nullptr, &present) != 0) return false;
  if ((present.sa_flags & SA_SIGINFO) != 0 && present.sa_sigaction == &OnStackSignal) return true;
  if ((present.sa_flags & SA_SIGINFO) != 0 || present.sa_handler != SIG_DFL) return false;
  struct sigaction ours {};
  ours.sa_sigaction = &OnStackSignal;
  ours.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
  sigfillset(&ours.sa_mask);
  return sigaction(signal, &ours, nullptr) == 0;
}

Request* PreparedRequest() {
  Request* prepared = request.load(std::memory_order_relaxed);
  if (prepared == nullptr) {
    prepared = new Request;
    request.store(prepared, std::memory_order_release);
  }
  return prepared;
}

bool AwaitAnswer(Request& asked) {
  const Deadline deadline = DeadlineAfterMilliseconds(kLongestWait);
  for (;;) {
    const std::uint32_t state = asked.state.load(std::memory_order_acquire);
    if (state == kDone) return true;
    if (state == kAsked && DeadlineReached(deadline)) {
      std::uint32_t expected = kAsked;
      if (asked.state.compare_exchange_strong(expected, kIdle)) return false;
      continue;
    }
    FutexWait(asked.state, state, state == kAsked ? deadline : kNoDeadline);
  }
}

#if defined(__x86_64__)
Registers FromUser(const user_regs_struct& user) {
  return {user.rax, user.rdx, user.rcx, user.rbx, user.rsi, user.rdi, user.rbp, user.rsp, user.r8,
          user.r9,  user.r10, user.r11, user.r12, user.r13, user.r14, user.r15, user.rip};
}
#endif

// A thread of another process that stands still until the object goes.
class HeldThread {
 public:
  explicit HeldThread(std::uint32_t thread) : thread_(static_cast<pid_t>(thread)) {
    held_ = ptrace(PTRACE_SEIZE, thread_, nullptr, nullptr) == 0;
    if (held_) ptrace(PTRACE_INTERRUPT, thread_, nullptr, nullptr);
  }
  ~HeldThread() {
    if (held_) ptrace(PTRACE_DETACH, thread_, nullptr, nullptr);
  }
  HeldThread(const HeldThread&) = delete;
  HeldThread& operator=(const HeldThread&) = delete;

  // The stop is waited for by the registers themselves: a wait of the host's own for any of its
  // children may take the news of it.
  bool Read(Registers* registers) const {
#if defined(__x86_64__)
    user_regs_struct user{};
    const Deadline deadline = DeadlineAfterMilliseconds(kLongestWait);
    for (int looks = 0; held_ && ptrace(PTRACE_GETREGS, thread_, nullptr, &user) != 0; ++looks) {
      if (DeadlineReached(deadline) || kill(thread_, 0) != 0) return false;
      waitpid(thread_, nullptr, __WALL | WNOHANG);
      if (looks >= kQuickLooks) {
        SleepMilliseconds(1);
      } else if (looks >= kImmediateLooks) {
        sched_yield();
      }
    }
    *registers = FromUser(user);
    return held_;
#else
    static_cast<void>(registers);
    return false;
#endif
  }

 private:
  pid_t thread_;
  bool held_;
};

}  // namespace

bool SetStackSignal(int signal) noexcept {
  if (signal < SIGRTMIN || signal > SIGRTMAX) return false;
  stack_signal.store(signal);
  return true;
}

int StackSignal() noexcept {
  const int set = stack_signal.load(std::memory_order_relaxed);
  return set != 0 ? set : SIGRTMAX - 2;
}

bool RegistersOfSignal(const void* signal_context, Registers* registers) noexcept {
#if defined(__x86_64__)
  const auto& machine = static_cast<const ucontext_t*>(signal_context)->uc_mcontext.gregs;
  constexpr int kOrder[kRegisterCount] = {REG_RAX, REG_RDX, REG_RCX, REG_RBX, REG_RSI, REG_RDI,
                                          REG_RBP, REG_RSP, REG_R8,  REG_R9,  REG_R10, REG_R11,
                                          REG_R12, REG_R13, REG_R14, REG_R15, REG_RIP};
  for (std::size_t i = 0; i < kRegisterCount; ++i)
    (*registers)[i] = static_cast<std::uint64_t>(machine[kOrder[i]]);
  return true;
#else
  static_cast<void>(signal_context);
  static_cast<void>(registers);
  return false;
#endif
}

std::size_t ReadMemory(std::uint32_t process, std::uint64_t address, void* buffer,
                       std::size_t size) noexcept {
  auto* bytes = static_cast<unsigned char*>(buffer);
  std::size_t done = 0;
  while (done < size) {
    const std::size_t step = std::min(size - done, kMostStackBytes);
    const std::size_t read = ReadPages(process, address + done, bytes + done, step);
    done += read;
    if (read != step) break;
  }
  return done;
}

bool CopyThread(std::uint32_t thread, ThreadCopy* copy) {
  std::lock_guard<LeafLock> guard(one_at_a_time);
  const int signal = StackSignal();
  if (!InstallHandler(signal)) return false;
  Request& asked = *PreparedRequest();
  asked.thread.store(thread, std::memory_order_relaxed);
  asked.state.store(kAsked, std::memory_order_release);
  const bool sent = syscall(SYS_tgkill, getpid(), thread, signal) == 0;
  const bool answered = sent && AwaitAnswer(asked) && asked.usable;
  asked.state.store(kIdle, std::memory_order_release);
  if (!answered) return false;
  copy->registers = asked.registers;
  copy->begin = asked.begin;
  copy->stack.assign(asked.stack.data(), asked.stack.data() + asked.size);
  return true;
}

bool CopyForeignThread(std::uint32_t process, std::uint32_t thread, ThreadCopy* copy) {
  const HeldThread held(thread);
  if (!held.Read(&copy->registers)) return false;
  copy->begin = StackBegin(copy->registers);
  copy->stack.resize(kMostStackBytes);
  copy->stack.resize(ReadPages(process, copy->begin, copy->stack.data(), copy->stack.size()));
  return true;
}

}  // namespace qvx::platform
