// What the processor of this machine can do, as far as the library's wide loops ask.
#pragma once

namespace qvx::platform {

// Code that may run: the processor has it and the system keeps the registers. kAvx2 comes with
// BMI1, BMI2 and FMA, which compilers use beside it; kAvx512 has AVX-512 F, BW, VBMI and
// VBMI2.
enum class Vectors { kBaseline, kAvx2, kAvx512 };
Vectors WidestVectors() noexcept;
bool HasAvx2() noexcept;

// Whether the instruction that moves a string of bytes is as quick as the best loop; no for a
// processor that counts as one of the baseline.
bool HasFastStringMove() noexcept;

#if defined(__x86_64__)
// Before functions that only run where the vectors are kAvx512. Small ones become part of callers
// that have it too.
#define QVX_AVX512_TARGET __attribute__((target("avx512f,avx512bw,avx512vbmi,avx512vbmi2")))
#endif

// The widest registers whose 64-bit halves may be multiplied without carries: k128 comes with
// SSE4.1, k256 with AVX2, k512 with AVX-512 F.
enum class CarrylessMultiply { kNone, k128, k256, k512 };
CarrylessMultiply WidestCarrylessMultiply() noexcept;

// While it lives, the processor counts as one with no wider vectors, and as one that cannot
// multiply without carries if they are those of the baseline: tests try the loops of other
// processors with it. One at a time.
class VectorLimit {
 public:
  explicit VectorLimit(Vectors widest) noexcept;
  ~VectorLimit();
  VectorLimit(const VectorLimit&) = delete;
  VectorLimit& operator=(const VectorLimit&) = delete;
};

}  // namespace qvx::platform
