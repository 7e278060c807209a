#include <benchmark/benchmark.h>

#include <string>

#include "qvx/base_string.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr int kAppends = 1000;

template <int Length>
void AppendOurs(long long times) {
  const char piece[] = "0123456789abcdef";
  for (long long i = 0; i < times; ++i) {
    CBaseStringA text;
    for (int k = 0; k < kAppends; ++k) text.Append(piece, Length);
    benchmark::DoNotOptimize(text.GetString());
    benchmark::ClobberMemory();
  }
}

template <int Length>
void AppendPeer(long long times) {
  const char piece[] = "0123456789abcdef";
  for (long long i = 0; i < times; ++i) {
    std::string text;
    for (int k = 0; k < kAppends; ++k) text.append(piece, Length);
    benchmark::DoNotOptimize(text.data());
    benchmark::ClobberMemory();
  }
}

const bool kAdded = AddPair({"string append 1", 1.2, &AppendOurs<1>, &AppendPeer<1>}) &&
                    AddPair({"string append 16", 1.2, &AppendOurs<16>, &AppendPeer<16>});

}  // namespace
}  // namespace qvx::bench
