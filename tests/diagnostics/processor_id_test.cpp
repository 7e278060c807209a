#include "qvx/processor_id.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <tuple>

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
  EXPECT_EQ(1, lines.Count(2, "CPU_Brand:" + std::string(text.GetString()) + "\r\n"));
  std::string model = text.GetString();
  model.erase(0, model.find_first_not_of(' '));
  model.erase(model.find_last_not_of(' ') + 1);
  EXPECT_TRUE(is_virtual || SystemsAnswer("model name") == model) << model;

  const std::tuple<bool (CPUID::*)(), const char*, const char*> features[] = {
      {&CPUID::IsHyperThreading, "HyperThreading", "ht"},
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
  for (const auto& [ask, name, flag] : features) {
    const bool listed = flags.find(" " + std::string(flag) + " ") != std::string::npos;
    const std::size_t before = lines.All().size();
    EXPECT_EQ(listed, (id.*ask)()) << name;
    EXPECT_EQ(before + 1, lines.All().size());
    EXPECT_EQ(
        1, lines.Count(2, (listed ? "support " : "don't support ") + std::string(name) + "\r\n"));
  }
}

}  // namespace
}  // namespace qvx::test
