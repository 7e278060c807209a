#include "qvx/processor_id.h"

#include <cstring>

#include "qvx/debug_output.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace {

enum Register { kEax, kEbx, kEcx, kEdx };

constexpr unsigned long kFeatures = 1;
constexpr unsigned long kMoreFeatures = 7;
constexpr unsigned long kFirstOfBrand = 0x80000002;
constexpr int kLeavesOfBrand = 3;

}  // namespace

void CPUID::Executecpuid(unsigned long leaf) {
#if defined(__x86_64__)
  __cpuid_count(static_cast<unsigned>(leaf), 0, regs[kEax], regs[kEbx], regs[kEcx], regs[kEdx]);
#else
  static_cast<void>(leaf);
  std::memset(regs, 0, sizeof(regs));
#endif
}

void CPUID::GetVID(CBaseStringA& vendor) {
  Executecpuid(0);
  const unsigned int words[] = {regs[kEbx], regs[kEdx], regs[kEcx]};
  char text[sizeof(words) + 1] = {};
  std::memcpy(text, words, sizeof(words));
  vendor.Set(text);
  DbgOutputA(2, "CPU_VID:%s\r\n", vendor.GetString());
}

void CPUID::GetBrand(CBaseStringA& brand) {
  char text[kLeavesOfBrand * sizeof(regs) + 1] = {};
  for (int i = 0; i < kLeavesOfBrand; ++i) {
    Executecpuid(kFirstOfBrand + static_cast<unsigned long>(i));
    std::memcpy(text + static_cast<std::size_t>(i) * sizeof(regs), regs, sizeof(regs));
  }
  brand.Set(text);
  DbgOutputA(2, "CPU_Brand:%s\r\n", brand.GetString());
}

bool CPUID::AskFor(unsigned long leaf, int which, int bit, const char* name) {
  Executecpuid(leaf);
  const bool has = (regs[which] >> bit & 1) != 0;
  DbgOutputA(2, has ? "support %s\r\n" : "don't support %s\r\n", name);
  return has;
}

bool CPUID::IsHyperThreading() {
  return AskFor(kFeatures, kEdx, 28, "HyperThreading");
}

bool CPUID::IsEST() {
  return AskFor(kFeatures, kEcx, 7, "EST");
}

bool CPUID::IsMMX() {
  return AskFor(kFeatures, kEdx, 23, "MMX");
}

bool CPUID::IsSSE() {
  return AskFor(kFeatures, kEdx, 25, "SSE");
}

bool CPUID::IsSSE2() {
  return AskFor(kFeatures, kEdx, 26, "SSE2");
}

bool CPUID::IsSSE3() {
  return AskFor(kFeatures, kEcx, 0, "SSE3");
}

bool CPUID::IsSSE4_1() {
  return AskFor(kFeatures, kEcx, 19, "SSE4.1");
}

bool CPUID::IsSSE4_2() {
  return AskFor(kFeatures, kEcx, 20, "SSE4.2");
}

bool CPUID::IsAVX2() {
  return AskFor(kMoreFeatures, kEbx, 5, "AVX2");
}

bool CPUID::IsAVX512() {
  return AskFor(kMoreFeatures, kEbx, 16, "AVX512");
}
