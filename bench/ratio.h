// Pairs of benchmarks: ours and a peer that does the same work, measured in turns in one
// process, so that both see the same machine. The table shows the median of the ratios of
// neighbouring turns; a peer against itself comes out between 0.997 and 1.003. With an option
// --benchmark_... the two sides of each pair also run as ordinary cases of Google Benchmark.
#pragma once

#include <functional>

namespace qvx::bench {

// Does the work so many times; set-up that both sides need anew belongs into the work of both.
using Work = std::function<void(long long times)>;

struct Pair {
  const char* name;
  double bound;  // the most time that ours may take, as a multiple of the peer's
  Work ours;
  Work peer;
};

// Call from a static object's constructor: static const bool kAdded = AddPair({...});
bool AddPair(Pair pair);

// A figure without a peer: measure returns nanoseconds.
struct Figure {
  const char* name;
  double bound;  // nanoseconds
  std::function<double()> measure;
};

bool AddFigure(Figure figure);

// A speed without a peer or a bound, printed as what is done in a second: items of one piece of
// work, in millions of the unit ("Mpixel") or in others ("line").
struct Rate {
  const char* name;
  const char* unit;
  double items;
  Work work;
};

bool AddRate(Rate rate);

}  // namespace qvx::bench
