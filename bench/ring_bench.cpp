#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "qvx/ring_buffer.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr int kSize = 64 * 1024;

using Block = std::vector<unsigned char>;

void RingOurs(long long times) {
  const Block in(kSize, 1);
  Block out(kSize);
  CRingBuffer ring;
  ring.Init(kSize);
  for (long long i = 0; i < times; ++i) {
    ring.Add(in.data(), kSize);
    ring.Read(out.data(), kSize);
    benchmark::ClobberMemory();
  }
}

void RingPeer(long long times) {
  const Block in(kSize, 1);
  Block out(kSize);
  Block between(kSize);
  for (long long i = 0; i < times; ++i) {
    std::memcpy(between.data(), in.data(), kSize);
    benchmark::ClobberMemory();
    std::memcpy(out.data(), between.data(), kSize);
    benchmark::ClobberMemory();
  }
}

const bool kAdded = AddPair({"ring write and read", 1 / 0.9, &RingOurs, &RingPeer});

}  // namespace
}  // namespace qvx::bench
