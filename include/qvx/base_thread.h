// Worker threads. A worker implements IThreadFuncInterface; a CBaseThread calls it again and
// again on a thread of its own until either side ends that.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "qvx/sync.h"
#include "qvx/types.h"

namespace qvx::core {
class ThreadControl;
}

// The work of a thread.
class QVX_API IThreadFuncInterface {
 public:
  virtual ~IThreadFuncInterface();
  // Does one portion of work, on the worker thread, with no lock held. Non-zero asks for
  // another call, 0 ends the thread. context is what StartThread was given. A long call
  // should look at CBaseThread::IsThreadNeedExit. If memory runs out (std::bad_alloc) that
  // call counts as one that asks for another, after a pause of 10 ms; any other exception
  // ends the process.
  virtual int ThreadLoop(std::uint64_t context) = 0;
};

// One worker thread at a time. Used in place, usually as a member of the worker.
// A copy gets name, worker, context and flags but no thread; assigning leaves the thread of
// the object that is assigned to as it is.
//
// The thread blocks all signals. Its system name is the first 15 characters of the name.
// StartThread, StopThread and StopThreadImmediate may be called from any thread; a call waits
// for the one before it. In a forked child the object is idle, whatever it was before; a
// worker that forked itself leaves its loop after the call it is in.
class QVX_API CBaseThread {
 public:
  CBaseThread();
  CBaseThread(const CBaseThread& other);
  CBaseThread& operator=(const CBaseThread& other);
  // StopThread, so it waits for the thread, and with auto detach for the thread's last touch
  // of this object. On the worker thread itself it is StopThreadImmediate.
  virtual ~CBaseThread();

  // Starts a thread unless one runs, in which case nothing changes, not even name or worker.
  // name: null is empty, cut to 127 characters. worker: not owned, called until the end.
  // priority: 0 leaves the nice value; 1, 2 and 15 lower it by 5, 10 and 15, -1, -2 and -15
  // raise it by 5, 10 and 19, where the system allows that.
  // stackSize in bytes, at least 64 KiB are given; 0 or less is the system's default.
  // autoDetach: non-zero lets the thread release itself when its loop ends, else StopThread
  // or the destructor must join it.
  // 1 if a thread runs afterwards; 0 if none could be made, which is logged.
  int StartThread(const char* name, IThreadFuncInterface* worker, std::uint64_t context,
                  int priority, int stackSize, int autoDetach);
  // Asks for a stop, wakes a paused loop and waits for the thread without limit. On the
  // worker thread itself it only asks.
  void StopThread();
  // Leaves the object idle at once, without waiting. The thread isn't interrupted: it ends
  // after the ThreadLoop call that it is in, and never touches this object again; what that
  // call uses must live as long.
  void StopThreadImmediate();
  // The loop parks before its next ThreadLoop call; a call in progress goes on.
  void PauseThread();
  void ResumeThread();

  // 1 if no thread runs: before a start, after a stop, after the end of the loop.
  int IsThreadExit();
  // 1 once a stop was asked for. On an abandoned thread of this object always 1.
  int IsThreadNeedExit();
  // An opaque id of the thread, null if there is none. Stays until the thread is joined.
  void* GetThreadHandle();
  // The system's thread id, 0 if there is none.
  unsigned long GetThreadId();
  // Of this object; changes with the next StartThread.
  const char* GetThreadName();

  // The body of the thread runs apart from this object, so that it can be abandoned. Calling
  // this does nothing and gives null.
  void* WrapThreadFunc();

 private:
  friend class qvx::core::ThreadControl;

  bool HasVanished() const;
  void DropVanishedLocked();
  void BeginLocked(const std::shared_ptr<qvx::core::ThreadControl>& control,
                   IThreadFuncInterface* worker, std::uint64_t context, int autoDetach);
  void JoinLocked();
  void SetIdle();

  CBaseLock mLock;
  std::atomic<int> mNeedExit;
  IThreadFuncInterface* mWorker;
  std::uint64_t mContext;
  CBaseEvent mRunEvent;
  std::atomic<int> mExited;
  int mAutoDetach;
  std::atomic<void*> mThreadHandle;
  std::atomic<std::uint32_t> mThreadId;
  char mName[128];
  std::atomic<std::uint32_t> mForkGeneration;
  std::shared_ptr<qvx::core::ThreadControl> mControl;
};
