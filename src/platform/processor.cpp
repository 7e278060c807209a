#include "platform/processor.h"

#if defined(__x86_64__)
#include <sys/platform/x86.h>
#endif

namespace qvx::platform {

// What the C library found at start is read. Asking the processor takes microseconds in a
// virtual machine, for each question, and would be done whenever the library is loaded.
bool HasAvx2() noexcept {
#if defined(__x86_64__)
  return CPU_FEATURE_ACTIVE(AVX2) && CPU_FEATURE_ACTIVE(BMI1) && CPU_FEATURE_ACTIVE(BMI2) &&
         CPU_FEATURE_ACTIVE(FMA);
#else
  return false;
#endif
}

}  // namespace qvx::platform
