#include "core/thread_control.h"

#include <array>
#include <cstring>
#include <mutex>
#include <new>

#include "core/quiet_log.h"
#include "platform/fork.h"
#include "qvx/debug_output.h"

namespace qvx::core {
namespace {

constexpr std::uint64_t kMemoryPauseMilliseconds = 10;

constinit thread_local ThreadControl* current = nullptr;

std::uint32_t NextSerial() {
  static constinit std::atomic<std::uint32_t> last{0};
  return (last.fetch_add(1, std::memory_order_relaxed) & 0x7FFFFFFE) + 1;
}

int NiceChange(int priority) {
  switch (priority) {
    case -15:
      return 19;
    case -2:
      return 10;
    case -1:
      return 5;
    case 1:
      return -5;
    case 2:
      return -10;
    case 15:
      return -15;
    default:
      return 0;
  }
}

}  // namespace

ThreadControl* ThreadControl::Current() {
  return current;
}

ThreadControl::ThreadControl(CBaseThread& object, const char* name, const Task& task,
                             const CBaseEvent& gate)
    : object_(&object),
      starter_(&object),
      task_(task),
      gate_(gate),
      leave_(nullptr, 1),
      generation_(platform::ForkGeneration()),
      serial_(NextSerial()) {
  std::memcpy(name_, name, sizeof(name_));
}

bool ThreadControl::Create(const std::shared_ptr<ThreadControl>& self, int priority,
                           int stack_size) {
  platform::ThreadOptions options;
  options.name = name_;
  options.stack_size = stack_size > 0 ? static_cast<std::size_t>(stack_size) : 0;
  options.nice_change = NiceChange(priority);
  self_ = self;
  bool created = false;
  try {
    created = native_.Create(options, &Enter, this);
  } catch (...) {
    self_.reset();
    throw;
  }
  if (!created) self_.reset();
  return created;
}

// The system's id below, and above it a number that tells threads apart that have the same.
void* ThreadControl::Handle() const {
  const std::uint64_t id = (std::uint64_t{serial_} << 32) | native_.Id();
  return reinterpret_cast<void*>(id);
}

bool ThreadControl::BelongsTo(const CBaseThread& object) {
  std::lock_guard<platform::LeafLock> guard(mutex_);
  return object_ == &object && IsAttached();
}

int ThreadControl::NeedExit() const {
  return generation_ == platform::ForkGeneration() ? need_exit_.load() : 1;
}

bool ThreadControl::ClaimJoin() {
  std::lock_guard<platform::LeafLock> guard(mutex_);
  joining_ = !released_;
  return joining_;
}

void ThreadControl::Abandon() {
  {
    std::lock_guard<platform::LeafLock> guard(mutex_);
    object_ = nullptr;
    if (!released_) native_.Detach();
    released_ = true;
  }
  AskToExit();
}

void ThreadControl::AskToExit() {
  need_exit_.store(1);
  leave_.Set();
}

void ThreadControl::Enter(void* control) {
  const std::shared_ptr<ThreadControl> self =
      std::move(static_cast<ThreadControl*>(control)->self_);
  current = self.get();
  self->Run();
  current = nullptr;
}

// As told by the state table of CBaseThread; the first call comes without a look at the flag.
void ThreadControl::Run() {
  PassGate();
  LogQuietly([&] {
    DbgOutputA(2, "thread information, name=%s, tid=%lu(0x%08x)\r\n", name_, LongId(), Id());
  });
  if (task_.worker == nullptr) return;
  bool again = MayCall() && CallWorker();
  while (again) {
    PassGate();
    again = NeedExit() == 0 && MayCall() && CallWorker();
  }
  Finish();
}

void ThreadControl::PassGate() {
  if (gate_.WaitUS(0) != 0) return;
  std::array<CBaseEvent*, 2> exits{&gate_, &leave_};
  WaitMultiEvent(exits.size(), exits.data(), 0, 0xFFFFFFFF);
}

// The object is there, and this isn't the worker's copy in a forked child.
bool ThreadControl::IsAttached() const {
  return object_ != nullptr && generation_ == platform::ForkGeneration();
}

bool ThreadControl::MayCall() {
  std::lock_guard<platform::LeafLock> guard(mutex_);
  return IsAttached();
}

bool ThreadControl::CallWorker() {
  try {
    return task_.worker->ThreadLoop(task_.context) != 0;
  } catch (const std::bad_alloc&) {
    leave_.Wait(kMemoryPauseMilliseconds);
    return true;
  }
}

void ThreadControl::Finish() {
  if (!MarkExited()) return;
  LogQuietly(
      [&] { DbgOutputA(2, "thread exit, name=%s, tid=%lu(0x%08x)\r\n", name_, LongId(), Id()); });
  if (!task_.auto_detach || !DetachItself()) return;
  LogQuietly([&] {
    DbgOutputA(2, "thread auto detach exit over, name=%s, tid=%lu(0x%08x)\r\n", name_, LongId(),
               Id());
  });
}

bool ThreadControl::MarkExited() {
  std::lock_guard<platform::LeafLock> guard(mutex_);
  if (!IsAttached()) return false;
  object_->mExited.store(1);
  return true;
}

// The last touch of the object. False if somebody joins the thread, or it is on its own.
bool ThreadControl::DetachItself() {
  std::lock_guard<platform::LeafLock> guard(mutex_);
  if (!IsAttached() || joining_) return false;
  native_.Detach();
  released_ = true;
  object_->mThreadHandle.store(nullptr);
  object_->mThreadId.store(0);
  object_ = nullptr;
  return true;
}

}  // namespace qvx::core
