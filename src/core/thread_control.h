// What a worker thread runs on. The thread and its CBaseThread share one control; the thread
// reaches the CBaseThread only through it and only while it belongs to it, in steps under the
// control's mutex. So an abandoned thread never touches the object that started it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/lock.h"
#include "platform/thread.h"
#include "qvx/base_thread.h"

namespace qvx::core {

class ThreadControl {
 public:
  struct Task {
    IThreadFuncInterface* worker;
    std::uint64_t context;
    bool auto_detach;
  };

  // The control whose body the calling thread runs, or null.
  static ThreadControl* Current();

  ThreadControl(CBaseThread& object, const char* name, const Task& task, const CBaseEvent& gate);

  // Makes the thread; it waits until Begin. self keeps the control alive for the thread.
  bool Create(const std::shared_ptr<ThreadControl>& self, int priority, int stack_size);
  void Begin() { native_.Release(); }

  std::uint32_t Id() const { return native_.Id(); }
  unsigned long LongId() const { return native_.Id(); }
  void* Handle() const;
  const char* Name() const { return name_; }
  bool BelongsTo(const CBaseThread& object);
  bool Started(const CBaseThread& object) const { return starter_ == &object; }

  // Also lets a parked loop look at the flag, and keeps it from being parked again.
  void AskToExit();
  int NeedExit() const;

  // False if the thread has released itself already, and with it the object.
  bool ClaimJoin();
  void Join() { native_.Join(); }
  // The thread is on its own from here on and ends at its next chance.
  void Abandon();

  void Run();

 private:
  static void Enter(void* control);

  void PassGate();
  bool MayCall();
  bool CallWorker();
  void Finish();
  bool MarkExited();
  bool DetachItself();
  bool IsAttached() const;

  platform::LeafLock mutex_;
  CBaseThread* object_;               // null once the thread is on its own
  const CBaseThread* const starter_;  // only to be compared
  bool joining_ = false;
  bool released_ = false;
  std::atomic<int> need_exit_{0};
  const Task task_;
  CBaseEvent gate_;
  CBaseEvent leave_;  // once the thread shall end, whatever the gate does
  const std::uint32_t generation_;
  const std::uint32_t serial_;
  char name_[128];
  platform::NativeThread native_;
  std::shared_ptr<ThreadControl> self_;
};

}  // namespace qvx::core
