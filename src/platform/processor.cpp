#include "platform/processor.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace qvx::platform {
namespace {

#if defined(__x86_64__)
constexpr unsigned kFma = 1u << 12;
constexpr unsigned kOsKeepsRegisters = 1u << 27;
constexpr unsigned kAvx = 1u << 28;
constexpr unsigned kAvx2AndBmi = 1u << 3 | 1u << 5 | 1u << 8;
constexpr unsigned kVectorRegisters = 6;

unsigned RegistersKeptBySystem() {
  unsigned low = 0;
  unsigned high = 0;
  asm("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return low;
}

bool AskForAvx2() {
  constexpr unsigned kNeeded = kFma | kOsKeepsRegisters | kAvx;
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
  unsigned d = 0;
  if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & kNeeded) != kNeeded) return false;
  if ((RegistersKeptBySystem() & kVectorRegisters) != kVectorRegisters) return false;
  return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & kAvx2AndBmi) == kAvx2AndBmi;
}
#else
bool AskForAvx2() {
  return false;
}
#endif

}  // namespace

// Asked at the first use and not at load: in a virtual machine each question takes microseconds.
bool HasAvx2() noexcept {
  static const bool has = AskForAvx2();
  return has;
}

}  // namespace qvx::platform
