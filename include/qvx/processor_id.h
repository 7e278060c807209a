// Who the processor is and what it can do, by its CPUID instruction. Each call executes the
// instruction anew and logs one line at level 2. The answers are those of the processor, by the
// tables that its makers publish; the operating system may have switched a feature off.
//
// One thread at a time uses an object; separate objects are independent. On processors other
// than x86 the texts are empty and no feature is supported.
#pragma once

#include "qvx/base_string.h"
#include "qvx/types.h"

class QVX_API CPUID {
 public:
  // The maker's name of 12 characters, and the model's of up to 48. A string that holds the same
  // text in other case keeps it.
  void GetVID(CBaseStringA& vendor);
  void GetBrand(CBaseStringA& brand);

  bool IsHyperThreading();
  bool IsEST();  // steps of speed
  bool IsMMX();
  bool IsSSE();
  bool IsSSE2();
  bool IsSSE3();
  bool IsSSE4_1();
  bool IsSSE4_2();
  bool IsAVX2();
  bool IsAVX512();  // its foundation set

 private:
  void Executecpuid(unsigned long leaf);
  bool AskFor(unsigned long leaf, int which, int bit, const char* name);

  unsigned int regs[4] = {};  // EAX, EBX, ECX and EDX of the last call
};
