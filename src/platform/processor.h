// What the processor of this machine can do, as far as the library's wide loops ask.
#pragma once

namespace qvx::platform {

// Whether code for AVX2 may run, with BMI1, BMI2 and FMA, which compilers use beside it: the
// processor has them and the system keeps the registers.
bool HasAvx2() noexcept;

}  // namespace qvx::platform
