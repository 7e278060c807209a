#include "qvx/processor_id.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "support/debug_lines.h"

namespace qvx::test {
namespace {

// The value of the first line with this name in the system's own list.
std::string SystemsAnswer(const std::string& name) {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    if (line.compare(0, name.size(), name) != 0) continue;
    const std::size_t colon = line.find(": ");
    return colon == std::string::npos ? "" : line.substr(colon + 2);
  }
  return "";
}

std::string WithoutBlanksAround(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? ""
                                    : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

TEST(ProcessorId, AgreesWithTheSystemsList) {
  if (SystemsAnswer("flags").empty()) GTEST_SKIP() << "no list of an x86 processor";
  CPUID id;
  CBaseStringA text;
  const DebugLines lines;
  id.GetVID(text);
  EXPECT_EQ(SystemsAnswer("vendor_id"), text.GetString());
  EXPECT_EQ(1, lines.Count(2, "CPU_VID:" + std::string(text.GetString()) + "\r\n"));
  id.GetBrand(text);
  // A virtual machine may show programs one name and its system another.
  const bool is_virtual = SystemsAnswer("flags").find(" hypervisor") != std::string::npos;
  EXPECT_GT(text.GetLength(), 0);
  EXPECT_TRUE(is_virtual || SystemsAnswer("model name") == WithoutBlanksAround(text.GetString()))
      << text.GetString();
  EXPECT_EQ(1, lines.Count(2, "CPU_Brand:" + std::string(text.GetString()) + "\r\n"));

  const struct {
    bool (CPUID::*ask)();
    const char* name;
    const char* flag;
  } features[] = {{&CPUID::IsHyperThreading, "HyperThreading", "ht"},
                  {&CPUID::IsEST, "EST", "est"},
                  {&CPUID::IsMMX, "MMX", "mmx"},
                  {&CPUID::IsSSE, "SSE", "sse"},
                  {&CPUID::IsSSE2, "SSE2", "sse2"},
                  {&CPUID::IsSSE3, "SSE3", "pni"},
                  {&CPUID::IsSSE4_1, "SSE4.1", "sse4_1"},
                  {&CPUID::IsSSE4_2, "SSE4.2", "sse4_2"},
                  {&CPUID::IsAVX2, "AVX2", "avx2"},
                  {&CPUID::IsAVX512, "AVX512", "avx512f"}};
  const std::string flags = " " + SystemsAnswer("flags") + " ";
  for (const auto& feature : features) {
    const bool listed = flags.find(" " + std::string(feature.flag) + " ") != std::string::npos;
    const std::size_t before = lines.All().size();
    EXPECT_EQ(listed, (id.*feature.ask)()) << feature.name;
    EXPECT_EQ(before + 1, lines.All().size());
    const std::string line = (listed ? "support " : "don't support ") + std::string(feature.name);
    EXPECT_EQ(1, lines.Count(2, line + "\r\n"));
  }
}

}  // namespace
}  // namespace qvx::test
