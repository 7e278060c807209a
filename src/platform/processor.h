// What the processor of this machine can do, as far as the library's wide loops ask.
#pragma once

namespace qvx::platform {

// Whether code for AVX2 may run, with BMI1, BMI2 and FMA, which compilers use beside it: the
// processor has them and the system keeps the registers.
bool HasAvx2() noexcept;

// The widest registers whose 64-bit halves may be multiplied without carries: k128 comes with
// SSE4.1, k256 with AVX2, k512 with AVX-512 F.
enum class CarrylessMultiply { kNone, k128, k256, k512 };
CarrylessMultiply WidestCarrylessMultiply() noexcept;

}  // namespace qvx::platform
