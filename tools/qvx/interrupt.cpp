#include "interrupt.h"

#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <utility>

namespace qvx::tool {
namespace {

// Ends the wait of a guard whose work is done.
constexpr int kWakeSignal = SIGUSR1;
constexpr timespec kPatience{2, 0};

sigset_t Interrupts(bool with_wake) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  if (with_wake) sigaddset(&signals, kWakeSignal);
  return signals;
}

}  // namespace

void BlockInterrupts() {
  const sigset_t signals = Interrupts(true);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void WaitForInterrupt() {
  const sigset_t signals = Interrupts(false);
  int signal = 0;
  while (sigwait(&signals, &signal) != 0) continue;
}

bool WaitForInterrupt(int milliseconds) {
  const sigset_t signals = Interrupts(false);
  const timespec time{milliseconds / 1000, milliseconds % 1000 * 1000000L};
  return sigtimedwait(&signals, nullptr, &time) >= 0;
}

InterruptGuard::InterruptGuard(std::function<void()> give_up) : give_up_(std::move(give_up)) {
  BlockInterrupts();
  thread_ = std::thread([this] { Watch(); });
}

InterruptGuard::~InterruptGuard() {
  over_.store(true);
  pthread_kill(thread_.native_handle(), kWakeSignal);
  thread_.join();
}

void InterruptGuard::Watch() {
  const sigset_t signals = Interrupts(true);
  int signal = 0;
  while (sigwait(&signals, &signal) != 0) continue;
  if (over_.load()) return;
  interrupted_.store(true);
  sigtimedwait(&signals, nullptr, &kPatience);
  if (over_.load()) return;
  give_up_();
}

}  // namespace qvx::tool
