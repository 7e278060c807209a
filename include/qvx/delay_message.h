// Window messages after a delay. One engine serves the process: gDelayPostMsgEngine, which is
// started when the library is loaded and stopped when it goes.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "qvx/base_thread.h"
#include "qvx/ptr_list.h"
#include "qvx/sync.h"
#include "qvx/types.h"

// Told after a delayed message was posted.
class QVX_API IDelayMSGPostCallback {
 public:
  virtual ~IDelayMSGPostCallback();
  // Runs on the "DelayMsg" thread with the engine's lock held. May call DelayPostMsg of the
  // engine; must not remove requests. The result is ignored.
  virtual int OnDelayMSGPost(HWND ownerWnd, HWND targetWnd, std::uint32_t message,
                             std::uint64_t wParam, std::int64_t lParam, std::uint64_t userData) = 0;
};

struct tagDELAYPOSTMSG;
struct tagDELAYPOSTCRITERIA;

namespace qvx::platform {
class ForkGuard;
}

// Posts messages to windows of message_queue.h when their delay is over. All operations may be
// called from any thread. A request is due when MS_GetTime reaches the tick of the request plus
// the delay, cut to 32 bits; the wrap of the clock isn't allowed for. Requests that the engine
// finds due in the same pass go out in the order in which they were made. Requests made while
// the engine is stopped wait for the next Start. In a forked child the engine of a running
// parent starts again at its next use, with the parent's pending requests.
class QVX_API CDelayPostMsgEngine : public IThreadFuncInterface {
 public:
  CDelayPostMsgEngine();
  // A copy is an engine of its own, stopped and empty; assigning does nothing.
  CDelayPostMsgEngine(const CDelayPostMsgEngine& other);
  CDelayPostMsgEngine& operator=(const CDelayPostMsgEngine& other);
  // Stop.
  ~CDelayPostMsgEngine() override;

  // Asks for one message. ownerWnd only identifies the request. callback may be null; it isn't
  // owned and must live until it was called or the request was removed.
  void DelayPostMsg(unsigned int delayMs, HWND ownerWnd, HWND targetWnd, unsigned int message,
                    std::uint64_t wParam, std::int64_t lParam, IDelayMSGPostCallback* callback,
                    std::uint64_t userData);

  // 1 if a pending request has these windows, this message (0xFFFFFFFF: any) and these
  // parameters (a null pointer: any), else 0.
  int HasDelayPostMsg(HWND ownerWnd, HWND targetWnd, unsigned int message,
                      const std::uint64_t* wParam, const std::int64_t* lParam);

  // Takes back every request that HasDelayPostMsg would find, without its callback.
  // removeQueued: non-zero also takes messages of the request's number for its target window
  // out of the calling thread's queue. Waits for a scan in progress.
  void RemoveDelayPostMsg(HWND ownerWnd, HWND targetWnd, unsigned int message,
                          const std::uint64_t* wParam, const std::int64_t* lParam,
                          int removeQueued);
  // The same for the requests of all windows.
  void RemoveAllDelayPostMsg(unsigned int message, const std::uint64_t* wParam,
                             const std::int64_t* lParam, int removeQueued);

  // Starts the thread "DelayMsg" unless it runs.
  void Start();
  // Waits for the thread to end and drops all pending requests. Not from a callback.
  void Stop();

  int ThreadLoop(std::uint64_t context) override;

 private:
  unsigned int UpdateNextPostTime();
  void StartAfterFork();
  void DropAll();
  void PostDue();
  void Deliver(int index);
  tagDELAYPOSTMSG* RecordAt(int index);
  void RemoveWhere(const tagDELAYPOSTCRITERIA& criteria, int removeQueued);

  std::atomic<int> mStop;
  CBaseLock mLock;
  CBaseEvent mWakeEvent;
  CBaseThread mThread;
  CPtrListCtrl mPending;
  const tagDELAYPOSTMSG* mDelivered;  // the record whose callback runs
  std::atomic<int> mStarted;
  std::atomic<std::uint32_t> mForkGeneration;
  std::unique_ptr<qvx::platform::ForkGuard> mForkGuard;
};

extern QVX_API CDelayPostMsgEngine gDelayPostMsgEngine;
