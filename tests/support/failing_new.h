// Failing allocations. The test binaries' operator new asks the seam (Operation::kAllocate), so
// that a FaultPlan can make allocations of any thread throw std::bad_alloc:
//   plan.Fail(Operation::kAllocate, 2, ENOMEM);   // the second one from here on
// Allocations count only while a rule for them is set. For the calling thread alone, without
// a plan, there is FailingAllocations.
#pragma once

namespace qvx::test {

// While it lives, allocations first to first + times - 1 (counted from 1) of the calling thread
// throw std::bad_alloc. One at a time on a thread.
class FailingAllocations {
 public:
  explicit FailingAllocations(int first, int times = 1);
  ~FailingAllocations();
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;

  // Allocations of this thread since the start; at least first if the failure came about.
  int Seen() const;
};

}  // namespace qvx::test
