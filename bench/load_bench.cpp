#include <algorithm>
#include <cstdio>
#include <limits>
#include <vector>

#include "ratio.h"

namespace qvx::bench {
namespace {

double LoadOnce() {
  double nanoseconds = std::numeric_limits<double>::infinity();
  FILE* pipe = popen(QVX_BENCH_LOAD " " QVX_BENCH_LIBRARY, "r");
  if (pipe == nullptr) return nanoseconds;
  if (std::fscanf(pipe, "%lf", &nanoseconds) != 1) std::fputs("cannot load the library\n", stderr);
  pclose(pipe);
  return nanoseconds;
}

// Each time in a fresh process; the median.
double Load() {
  std::vector<double> values(31);
  std::generate(values.begin(), values.end(), &LoadOnce);
  std::nth_element(values.begin(), values.begin() + 15, values.end());
  return values[15];
}

const bool kAdded = AddFigure({"load and leave", 1e6, &Load});

}  // namespace
}  // namespace qvx::bench
