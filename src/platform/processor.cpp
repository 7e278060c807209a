#include "platform/processor.h"

#include <algorithm>
#include <atomic>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace qvx::platform {
namespace {

constinit std::atomic<Vectors> widest_allowed{Vectors::kAvx512};

#if defined(__x86_64__)
// Leaf 1, register c.
constexpr unsigned kCarrylessMultiply = 1u << 1;
constexpr unsigned kSse41 = 1u << 9 | 1u << 19;  // with SSSE3
constexpr unsigned kFma = 1u << 12;
constexpr unsigned kOsKeepsRegisters = 1u << 27;
constexpr unsigned kAvx = 1u << 28;
// Leaf 7, registers b and c.
constexpr unsigned kFastStringMove = 1u << 9;
constexpr unsigned kAvx2AndBmi = 1u << 3 | 1u << 5 | 1u << 8;
constexpr unsigned kAvx512 = 1u << 16 | 1u << 30;    // F and BW
constexpr unsigned kAvx512Vbmi = 1u << 1 | 1u << 6;  // and VBMI2
constexpr unsigned kWideCarrylessMultiply = 1u << 10;
// What the system keeps of each thread.
constexpr unsigned kVectorRegisters = 6;
constexpr unsigned kVector512Registers = kVectorRegisters | 0xE0;

struct Leaf {
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
  unsigned d = 0;
};

// All zeros where the processor does not know the leaf.
Leaf Ask(unsigned number) {
  Leaf leaf;
  if (__get_cpuid_count(number, 0, &leaf.a, &leaf.b, &leaf.c, &leaf.d) == 0) return {};
  return leaf;
}

bool SystemKeeps(unsigned registers) {
  if ((Ask(1).c & kOsKeepsRegisters) == 0) return false;
  unsigned low = 0;
  unsigned high = 0;
  asm("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return (low & registers) == registers;
}

bool HasAll(unsigned flags, unsigned needed) {
  return (flags & needed) == needed;
}

Vectors AskForVectors() {
  if (!HasAll(Ask(1).c, kFma | kAvx) || !SystemKeeps(kVectorRegisters)) return Vectors::kBaseline;
  const Leaf leaf = Ask(7);
  if (!HasAll(leaf.b, kAvx2AndBmi)) return Vectors::kBaseline;
  const bool is_512 =
      HasAll(leaf.b, kAvx512) && HasAll(leaf.c, kAvx512Vbmi) && SystemKeeps(kVector512Registers);
  return is_512 ? Vectors::kAvx512 : Vectors::kAvx2;
}

CarrylessMultiply AskForCarrylessMultiply() {
  if (!HasAll(Ask(1).c, kCarrylessMultiply | kSse41)) return CarrylessMultiply::kNone;
  const Leaf leaf = Ask(7);
  if (!HasAvx2() || !HasAll(leaf.c, kWideCarrylessMultiply)) return CarrylessMultiply::k128;
  const bool is_512 = HasAll(leaf.b, kAvx512) && SystemKeeps(kVector512Registers);
  return is_512 ? CarrylessMultiply::k512 : CarrylessMultiply::k256;
}
bool AskForFastStringMove() {
  return HasAll(Ask(7).b, kFastStringMove);
}
#else
Vectors AskForVectors() {
  return Vectors::kBaseline;
}

CarrylessMultiply AskForCarrylessMultiply() {
  return CarrylessMultiply::kNone;
}

bool AskForFastStringMove() {
  return false;
}
#endif

}  // namespace

// Asked at the first use and not at load: in a virtual machine each question takes microseconds.
Vectors WidestVectors() noexcept {
  static const Vectors widest = AskForVectors();
  return std::min(widest, widest_allowed.load(std::memory_order_relaxed));
}

bool HasAvx2() noexcept {
  return WidestVectors() >= Vectors::kAvx2;
}

CarrylessMultiply WidestCarrylessMultiply() noexcept {
  if (widest_allowed == Vectors::kBaseline) return CarrylessMultiply::kNone;
  static const CarrylessMultiply widest = AskForCarrylessMultiply();
  return widest;
}

bool HasFastStringMove() noexcept {
  static const bool is_fast = AskForFastStringMove();
  return is_fast && widest_allowed != Vectors::kBaseline;
}

VectorLimit::VectorLimit(Vectors widest) noexcept {
  widest_allowed = widest;
}

VectorLimit::~VectorLimit() {
  widest_allowed = Vectors::kAvx512;
}

}  // namespace qvx::platform
