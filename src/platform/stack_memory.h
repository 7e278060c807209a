// Registers and stacks of threads, and the memory behind them. Nothing here stops a thread for
// longer than it takes to copy.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace qvx::platform {

// In the order of the processor's DWARF numbers (x86-64: rax, rdx, rcx, rbx, rsi, rdi, rbp, rsp,
// r8 to r15, program counter).
inline constexpr std::size_t kRegisterCount = 17;
inline constexpr std::size_t kStackRegister = 7;
inline constexpr std::size_t kCounterRegister = 16;
using Registers = std::array<std::uint64_t, kRegisterCount>;

inline constexpr std::size_t kMostStackBytes = 256 * 1024;

struct ThreadCopy {
  Registers registers{};
  std::uint64_t begin = 0;  // address of the first byte of stack
  std::vector<unsigned char> stack;
};

// The registers of the function that this is inlined into; good for as long as that runs.
[[gnu::always_inline]] inline Registers OwnRegisters() {
  Registers registers{};
#if defined(__x86_64__)
  asm volatile(
      "movq %%rbx, 24(%0)\n\t"
      "movq %%rbp, 48(%0)\n\t"
      "movq %%rsp, 56(%0)\n\t"
      "movq %%r12, 96(%0)\n\t"
      "movq %%r13, 104(%0)\n\t"
      "movq %%r14, 112(%0)\n\t"
      "movq %%r15, 120(%0)\n\t"
      "leaq 1f(%%rip), %%rax\n\t"
      "1: movq %%rax, 128(%0)"
      :
      : "r"(registers.data())
      : "rax", "memory");
#endif
  return registers;
}

// Out of a handler's third parameter. False on other processors.
bool RegistersOfSignal(const void* signal_context, Registers* registers) noexcept;

// Reads memory of a process, this one included, that may not be there. Returns how many bytes
// from the start could be read.
std::size_t ReadMemory(std::uint32_t process, std::uint64_t address, void* buffer,
                       std::size_t size) noexcept;

// Asks another thread of this process by the signal. False if there is no such thread, the
// signal is taken by others, or the thread does not answer within a second. Threads take turns.
bool CopyThread(std::uint32_t thread, ThreadCopy* copy);

// Holds a thread of another process by ptrace for the copy. False if the system forbids it.
bool CopyForeignThread(std::uint32_t process, std::uint32_t thread, ThreadCopy* copy);

// The signal of CopyThread; false if the number is no real-time signal.
bool SetStackSignal(int signal) noexcept;
int StackSignal() noexcept;

}  // namespace qvx::platform
