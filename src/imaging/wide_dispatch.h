// Before <hwy/foreach_target.h> in a source with wide loops: compiles them for the baseline and
// for AVX2, and chooses at run time. The dispatcher of the Highway library is not used: it would
// bring its shared library along, which spends milliseconds on its timer when it is loaded.
//
//   #include "imaging/wide_dispatch.h"
//   #undef HWY_TARGET_INCLUDE
//   #define HWY_TARGET_INCLUDE "imaging/NAME.cpp"
//   #include <hwy/foreach_target.h>
//   #include <hwy/highway.h>
//   HWY_BEFORE_NAMESPACE();
//   namespace qvx::imaging { namespace { namespace HWY_NAMESPACE {
//   ... const Loops kLoops = {...};
//   }}}
//   HWY_AFTER_NAMESPACE();
//   #if HWY_ONCE
//   ... QVX_BEST_TARGET(kLoops) inside of qvx::imaging
//   #endif
//
// The baseline of x86-64 has no byte shuffles: there Highway only imitates vectors, one lane
// after the other (QVX_WIDE_IS_EMULATED), and a plain loop is the better one.
#pragma once

#include "platform/processor.h"

#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_SSE4 | HWY_AVX3 | HWY_AVX3_DL)
#include <hwy/detect_targets.h>

#if HWY_TARGETS & HWY_AVX2 && HWY_STATIC_TARGET != HWY_AVX2
#define QVX_BEST_TARGET(NAME) \
  (::qvx::platform::HasAvx2() ? N_AVX2::NAME : HWY_STATIC_DISPATCH(NAME))
#else
#define QVX_BEST_TARGET(NAME) HWY_STATIC_DISPATCH(NAME)
#endif
