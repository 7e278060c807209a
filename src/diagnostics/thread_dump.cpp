// Dumps of whole processes and figures of threads.
#include "platform/clock.h"
#include "platform/stack_memory.h"
#include "platform/thread_info.h"
#include "qvx/debug_output.h"
#include "qvx/stack_walker.h"

namespace {

using qvx::platform::FiguresOfThread;

void DumpThread(StackWalker& walker, std::uint32_t thread) {
  const auto figures = FiguresOfThread(thread);
  if (!figures) return;
  DbgOutputA(2, "THREAD ID=0x%08X, base priority=%d, delta priority=%d\r\n", thread,
             figures->priority, figures->nice);
  walker.ShowCallstack(thread, nullptr, nullptr, nullptr);
  DbgOutputA(2, "THREAD ID=0x%08X dump complete\r\n\r\n", thread);
}

}  // namespace

void DumpThreadStack() {
  StackWalker walker;
  walker.ShowCallstack(qvx::platform::CurrentThreadId(), nullptr, nullptr, nullptr);
}

void DumpAllThreadsStack(const WCHAR* outputFile) {
  const std::uint32_t process = qvx::platform::CurrentProcessId();
  const auto threads = qvx::platform::ThreadIds(process);
  if (threads.empty()) return;
  StackWalker walker(outputFile, process, nullptr);
  DbgOutputA(2, "dump thread callstack...\r\n\r\n");
  for (std::uint32_t thread : threads) DumpThread(walker, thread);
}

int GetThreadRunTimeInfoIn_Win32(void* thread, std::uint64_t* kernelMs, std::uint64_t* userMs) {
  if (kernelMs == nullptr || userMs == nullptr) return 0;
  *kernelMs = 0;
  *userMs = 0;
  const auto figures =
      FiguresOfThread(static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(thread)));
  if (!figures) return 0;
  *kernelMs = figures->kernel_ms;
  *userMs = figures->user_ms;
  return 1;
}

int GetSignalContext(const void* signalContext, CONTEXT* context) {
  qvx::platform::Registers r{};
  if (signalContext == nullptr || context == nullptr) return 0;
  if (!qvx::platform::RegistersOfSignal(signalContext, &r)) return 0;
  *context = {0x10000B, r[0], r[2],  r[1],  r[3],  r[7],  r[6],  r[4],  r[5],
              r[8],     r[9], r[10], r[11], r[12], r[13], r[14], r[15], r[16]};
  return 1;
}

int SetStackDumpSignal(int signal) {
  return qvx::platform::SetStackSignal(signal) ? 1 : 0;
}
