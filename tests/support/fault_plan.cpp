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

struct State {
  std::mutex mutex;
  std::array<Rule, static_cast<std::size_t>(Operation::kCount)> rules;
  std::array<int, static_cast<std::size_t>(Operation::kCount)> calls;
  bool fake_clock;
  std::int64_t now;
  std::int64_t slept;
};

State& TheState() {
  static State* state = new State();
  return *state;
}

void AnswerTime(State& state, SeamCall& call) {
  if (!state.fake_clock) return;
  if (call.operation == Operation::kClock) call.value = state.now;
  if (call.operation != Operation::kSleep) return;
  state.now += call.value;
  state.slept += call.value;
  call.error = -1;
}

void Answer(SeamCall& call) {
  State& state = TheState();
  std::lock_guard<std::mutex> guard(state.mutex);
  const auto index = static_cast<std::size_t>(call.operation);
  const Rule& rule = state.rules[index];
  AnswerTime(state, call);
  if (call.operation == Operation::kAllocate && rule.times == 0) return;
  if (!rule.Covers(++state.calls[index])) return;
  call.error = rule.error;
  call.limit = rule.limit;
}

}  // namespace

FaultPlan::FaultPlan() {
  State& state = TheState();
  std::lock_guard<std::mutex> guard(state.mutex);
  state.rules.fill(Rule());
  state.calls.fill(0);
  state.fake_clock = false;
  state.now = 0;
  state.slept = 0;
  platform::SetSeamHook(&Answer);
}

FaultPlan::~FaultPlan() {
  platform::SetSeamHook(nullptr);
}

FaultPlan& FaultPlan::Fail(Operation operation, int first, int error, int times) {
  State& state = TheState();
  std::lock_guard<std::mutex> guard(state.mutex);
  const auto index = static_cast<std::size_t>(operation);
  state.rules[index] = Rule{state.calls[index] + first, times, error, SIZE_MAX};
  return *this;
}

FaultPlan& FaultPlan::Shorten(Operation operation, int first, std::size_t limit, int times) {
  State& state = TheState();
  std::lock_guard<std::mutex> guard(state.mutex);
  const auto index = static_cast<std::size_t>(operation);
  state.rules[index] = Rule{state.calls[index] + first, times, 0, limit};
  return *this;
}

FaultPlan& FaultPlan::FakeClock(std::int64_t nanoseconds) {
  State& state = TheState();
  std::lock_guard<std::mutex> guard(state.mutex);
  state.fake_clock = true;
  state.now = nanoseconds;
  return *this;
}

int FaultPlan::Calls(Operation operation) const {
  State& state = TheState();
  std::lock_guard<std::mutex> guard(state.mutex);
  return state.calls[static_cast<std::size_t>(operation)];
}

std::int64_t FaultPlan::Slept() const {
  State& state = TheState();
  std::lock_guard<std::mutex> guard(state.mutex);
  return state.slept;
}

}  // namespace qvx::test
