#include "support/fault_plan.h"

#include <array>
#include <mutex>

namespace qvx::test {
namespace {

using platform::Operation;
using platform::SeamCall;

struct Rule {
  int first = 0;
  int times = 0;
  int error = 0;
  std::size_t limit = SIZE_MAX;

  bool Covers(int call) const { return call >= first && call - first < times; }
};

constexpr auto kOperations = static_cast<std::size_t>(Operation::kCount);

struct State {
  std::array<Rule, kOperations> rules;
  std::array<int, kOperations> calls{};
  bool fake_clock = false;
  std::int64_t now = 0;
  std::int64_t slept = 0;
};

constinit std::mutex mutex;
constinit State state;

std::size_t IndexOf(Operation operation) {
  return static_cast<std::size_t>(operation);
}

void AnswerTime(SeamCall& call) {
  if (!state.fake_clock) return;
  if (call.operation == Operation::kClock) call.value = state.now;
  if (call.operation != Operation::kSleep) return;
  state.now += call.value;
  state.slept += call.value;
  call.error = -1;
}

void Answer(SeamCall& call) {
  const std::lock_guard guard(mutex);
  const Rule& rule = state.rules[IndexOf(call.operation)];
  AnswerTime(call);
  if (call.operation == Operation::kAllocate && rule.times == 0) return;
  if (!rule.Covers(++state.calls[IndexOf(call.operation)])) return;
  call.error = rule.error;
  call.limit = rule.limit;
}

void SetRule(Operation operation, Rule rule) {
  const std::lock_guard guard(mutex);
  rule.first += state.calls[IndexOf(operation)];
  state.rules[IndexOf(operation)] = rule;
}

}  // namespace

FaultPlan::FaultPlan() {
  const std::lock_guard guard(mutex);
  state = {};
  platform::SetSeamHook(&Answer);
}

FaultPlan::~FaultPlan() {
  platform::SetSeamHook(nullptr);
}

FaultPlan& FaultPlan::Fail(Operation operation, int first, int error, int times) {
  SetRule(operation, {first, times, error, SIZE_MAX});
  return *this;
}

FaultPlan& FaultPlan::Shorten(Operation operation, int first, std::size_t limit, int times) {
  SetRule(operation, {first, times, 0, limit});
  return *this;
}

FaultPlan& FaultPlan::FakeClock(std::int64_t nanoseconds) {
  const std::lock_guard guard(mutex);
  state.fake_clock = true;
  state.now = nanoseconds;
  return *this;
}

int FaultPlan::Calls(Operation operation) const {
  const std::lock_guard guard(mutex);
  return state.calls[IndexOf(operation)];
}

std::int64_t FaultPlan::Slept() const {
  const std::lock_guard guard(mutex);
  return state.slept;
}

}  // namespace qvx::test
