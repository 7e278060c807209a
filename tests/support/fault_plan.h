// Makes chosen calls of the platform layer fail or be short, for as long as the plan lives.
// One plan at a time; its methods may be called while other threads run the code under test.
#pragma once

#include <cstddef>

#include "platform/seam.h"

namespace qvx::test {

class FaultPlan {
 public:
  FaultPlan();
  ~FaultPlan();
  FaultPlan(const FaultPlan&) = delete;
  FaultPlan& operator=(const FaultPlan&) = delete;

  // Of the rules for one operation the last one alone holds.
  // Calls first to first + times - 1 of the operation (counted from 1) fail with error.
  FaultPlan& Fail(platform::Operation operation, int first, int error, int times = 1);
  // The same calls move at most limit bytes.
  FaultPlan& Shorten(platform::Operation operation, int first, std::size_t limit, int times = 1);
  // From now on the clock reads this many nanoseconds; sleeps advance it and return at once.
  FaultPlan& FakeClock(std::int64_t nanoseconds);

  // How often the operation was called since the plan was made.
  int Calls(platform::Operation operation) const;
  // Nanoseconds that all sleeps under FakeClock asked for.
  std::int64_t Slept() const;
};

}  // namespace qvx::test
