#include "qvx/delay_message.h"

#include "delaymsg/message_registry.h"
#include "platform/clock.h"
#include "platform/fork.h"
#include "qvx/message_queue.h"

using qvx::delaymsg::MessageFilter;
using qvx::delaymsg::MessageRegistry;
using qvx::platform::ForkGeneration;
using qvx::platform::TickMilliseconds;

namespace {

constexpr std::uint32_t kAnyMessage = 0xFFFFFFFF;
constexpr std::uint32_t kNeverDue = 0xFFFFFFFF;
constexpr int kStackSize = 0x400000;

}  // namespace

struct tagDELAYPOSTMSG {
  std::uint32_t dueTime;
  HWND ownerWnd;
  HWND targetWnd;
  std::uint32_t message;
  std::uint64_t wParam;
  std::int64_t lParam;
  IDelayMSGPostCallback* callback;
  std::uint64_t userData;
};

struct tagDELAYPOSTCRITERIA {
  bool anyWindows;
  HWND ownerWnd;
  HWND targetWnd;
  std::uint32_t message;
  const std::uint64_t* wParam;
  const std::int64_t* lParam;

  bool Fit(const tagDELAYPOSTMSG& record) const {
    return (anyWindows || (record.ownerWnd == ownerWnd && record.targetWnd == targetWnd)) &&
           (message == kAnyMessage || record.message == message) &&
           (wParam == nullptr || record.wParam == *wParam) &&
           (lParam == nullptr || record.lParam == *lParam);
  }
};

IDelayMSGPostCallback::~IDelayMSGPostCallback() = default;

CDelayPostMsgEngine::CDelayPostMsgEngine()
    : mStop(0),
      mDelivered(nullptr),
      mStarted(0),
      mForkGeneration(ForkGeneration()),
      mForkGuard(std::make_unique<qvx::platform::ForkGuard>(mLock.GetCS())) {
  MessageRegistry::Instance();  // so it outlives this object, whose thread posts to it
}

CDelayPostMsgEngine::CDelayPostMsgEngine(const CDelayPostMsgEngine&) : CDelayPostMsgEngine() {}

CDelayPostMsgEngine& CDelayPostMsgEngine::operator=(const CDelayPostMsgEngine&) {
  return *this;
}

CDelayPostMsgEngine::~CDelayPostMsgEngine() {
  Stop();
}

void CDelayPostMsgEngine::DelayPostMsg(unsigned int delayMs, HWND ownerWnd, HWND targetWnd,
                                       unsigned int message, std::uint64_t wParam,
                                       std::int64_t lParam, IDelayMSGPostCallback* callback,
                                       std::uint64_t userData) {
  StartAfterFork();
  const std::uint32_t dueTime = TickMilliseconds() + delayMs;
  auto record = std::make_unique<tagDELAYPOSTMSG>(
      tagDELAYPOSTMSG{dueTime, ownerWnd, targetWnd, message, wParam, lParam, callback, userData});
  {
    CAutoBaseLock guard(&mLock);
    mPending.AddData(record.get(), -1);
    record.release();
  }
  mWakeEvent.Set();
}

int CDelayPostMsgEngine::HasDelayPostMsg(HWND ownerWnd, HWND targetWnd, unsigned int message,
                                         const std::uint64_t* wParam, const std::int64_t* lParam) {
  StartAfterFork();
  const tagDELAYPOSTCRITERIA criteria{false, ownerWnd, targetWnd, message, wParam, lParam};
  CAutoBaseLock guard(&mLock);
  for (int i = 0; i < mPending.GetCount(); ++i) {
    if (criteria.Fit(*RecordAt(i))) return 1;
  }
  return 0;
}

void CDelayPostMsgEngine::RemoveDelayPostMsg(HWND ownerWnd, HWND targetWnd, unsigned int message,
                                             const std::uint64_t* wParam,
                                             const std::int64_t* lParam, int removeQueued) {
  RemoveWhere({false, ownerWnd, targetWnd, message, wParam, lParam}, removeQueued);
}

void CDelayPostMsgEngine::RemoveAllDelayPostMsg(unsigned int message, const std::uint64_t* wParam,
                                                const std::int64_t* lParam, int removeQueued) {
  RemoveWhere({true, nullptr, nullptr, message, wParam, lParam}, removeQueued);
}

// Alike records in a row need only one look at the queue: no other thread takes from it, and
// the engine can't post meanwhile.
void CDelayPostMsgEngine::RemoveWhere(const tagDELAYPOSTCRITERIA& criteria, int removeQueued) {
  StartAfterFork();
  MessageFilter cleared;
  CAutoBaseLock guard(&mLock);
  for (int i = 0; i < mPending.GetCount();) {
    const tagDELAYPOSTMSG* record = RecordAt(i);
    if (record == mDelivered || !criteria.Fit(*record)) {
      ++i;
      continue;
    }
    mPending.DeleteAt(i, 1);
    const MessageFilter queued{record->targetWnd, record->message, record->message};
    delete record;
    if (removeQueued == 0 || queued.window == nullptr) continue;
    if (queued.window == cleared.window && queued.first == cleared.first) continue;
    MessageRegistry::Instance().RemoveAll(queued);
    cleared = queued;
  }
}

void CDelayPostMsgEngine::Start() {
  mWakeEvent.Reset();
  mStop.store(0);
  mForkGeneration.store(ForkGeneration());
  mStarted.store(1);
  mThread.StartThread("DelayMsg", this, 0, 0, kStackSize, 0);
  mWakeEvent.Set();  // a thread that ran already may have lost its wake-up to the Reset
}

void CDelayPostMsgEngine::StartAfterFork() {
  if (mStarted.load() == 0 || mForkGeneration.load() == ForkGeneration()) return;
  CAutoBaseLock guard(&mLock);
  if (mForkGeneration.load() != ForkGeneration()) Start();
}

void CDelayPostMsgEngine::Stop() {
  mStarted.store(0);
  mStop.store(1);
  mWakeEvent.Set();
  mThread.StopThread();
  DropAll();
}

void CDelayPostMsgEngine::DropAll() {
  CAutoBaseLock guard(&mLock);
  for (int i = mPending.GetCount() - 1; i >= 0; --i) {
    if (RecordAt(i) == mDelivered) continue;
    delete static_cast<const tagDELAYPOSTMSG*>(mPending.DeleteAt(i, 1));
  }
}

int CDelayPostMsgEngine::ThreadLoop(std::uint64_t) {
  while (mStop.load() == 0) {
    PostDue();
    const std::uint32_t now = TickMilliseconds();
    const std::uint32_t next = UpdateNextPostTime();
    if (next > now) mWakeEvent.Wait(next - now);
  }
  return 0;
}

// The tick is compared as it stands: what is due beyond its wrap goes out at once.
void CDelayPostMsgEngine::PostDue() {
  CAutoBaseLock guard(&mLock);
  for (int i = 0; i < mPending.GetCount();) {
    if (RecordAt(i)->dueTime > TickMilliseconds()) {
      ++i;
    } else {
      Deliver(i);
    }
  }
}

// The record goes even if posting or the callback runs out of memory.
void CDelayPostMsgEngine::Deliver(int index) {
  struct Removal {
    CDelayPostMsgEngine& engine;
    int index;
    std::unique_ptr<tagDELAYPOSTMSG> record;

    ~Removal() {
      engine.mDelivered = nullptr;
      while (engine.RecordAt(index) != record.get()) --index;
      engine.mPending.DeleteAt(index, 1);
    }
  };
  const Removal removal{*this, index, std::unique_ptr<tagDELAYPOSTMSG>(RecordAt(index))};
  const tagDELAYPOSTMSG& record = *removal.record;
  mDelivered = &record;
  PostWindowMessage(record.targetWnd, record.message, record.wParam, record.lParam);
  if (record.callback == nullptr) return;
  record.callback->OnDelayMSGPost(record.ownerWnd, record.targetWnd, record.message, record.wParam,
                                  record.lParam, record.userData);
}

unsigned int CDelayPostMsgEngine::UpdateNextPostTime() {
  CAutoBaseLock guard(&mLock);
  std::uint32_t next = kNeverDue;
  for (int i = 0; i < mPending.GetCount(); ++i) {
    if (RecordAt(i)->dueTime < next) next = RecordAt(i)->dueTime;
  }
  return next;
}

tagDELAYPOSTMSG* CDelayPostMsgEngine::RecordAt(int index) {
  return static_cast<tagDELAYPOSTMSG*>(const_cast<void*>(mPending.GetAt(index)));
}
