// Before <hwy/foreach_target.h> in a source with wide loops: compiles them for the baseline and
// for AVX2, and chooses at run time. The dispatcher of the Highway library is not used: it would
// bring its shared library along, which spends milliseconds on its timer when it is loaded.
//
//   #include "platform/wide_dispatch.h"
//   #undef HWY_TARGET_INCLUDE
//   #define HWY_TARGET_INCLUDE "FOLDER/NAME.cpp"
//   #include <hwy/foreach_target.h>
//   #include <hwy/highway.h>
//   HWY_BEFORE_NAMESPACE();
//   namespace qvx::FOLDER { namespace { namespace HWY_NAMESPACE {
//   #if !QVX_WIDE_IS_EMULATED
//   ... constexpr Loops kLoops = {...};
//   #endif
//   }}}
//   HWY_AFTER_NAMESPACE();
//   #if HWY_ONCE
//   ... QVX_BEST_TARGET_OR(kLoops, kPlainLoops) inside of qvx::FOLDER
//   #endif
//
// Without byte shuffles, as on the baseline of x86-64, Highway only imitates vectors, one lane
// after the other: there plain loops serve better. Where that makes no difference, leave out the
// question and take QVX_BEST_TARGET(kLoops), which has the imitation too.
#pragma once

#include "platform/processor.h"

#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_SSE4 | HWY_AVX3 | HWY_AVX3_DL)
#include <hwy/detect_targets.h>

// Of the target that is being compiled.
#define QVX_WIDE_IS_EMULATED (HWY_TARGET == HWY_EMU128 || HWY_TARGET == HWY_SCALAR)

#if HWY_STATIC_TARGET == HWY_EMU128 || HWY_STATIC_TARGET == HWY_SCALAR
#define QVX_BASELINE_TARGET_OR(NAME, PLAIN) PLAIN
#else
#define QVX_BASELINE_TARGET_OR(NAME, PLAIN) HWY_STATIC_DISPATCH(NAME)
#endif

#if HWY_TARGETS & HWY_AVX2 && HWY_STATIC_TARGET != HWY_AVX2
#define QVX_BEST_TARGET(NAME) \
  (::qvx::platform::HasAvx2() ? N_AVX2::NAME : HWY_STATIC_DISPATCH(NAME))
#define QVX_BEST_TARGET_OR(NAME, PLAIN) \
  (::qvx::platform::HasAvx2() ? N_AVX2::NAME : QVX_BASELINE_TARGET_OR(NAME, PLAIN))
#else
#define QVX_BEST_TARGET(NAME) HWY_STATIC_DISPATCH(NAME)
#define QVX_BEST_TARGET_OR(NAME, PLAIN) QVX_BASELINE_TARGET_OR(NAME, PLAIN)
#endif
