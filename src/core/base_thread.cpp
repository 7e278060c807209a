#include "qvx/base_thread.h"

#include <cstring>

#include "core/quiet_log.h"
#include "core/thread_control.h"
#include "platform/fork.h"
#include "qvx/debug_output.h"

using qvx::core::LogQuietly;
using qvx::core::ThreadControl;

namespace {

// The control of the calling thread if that is a worker thread which the object started.
ThreadControl* OwnControl(const CBaseThread& object) {
  ThreadControl* control = ThreadControl::Current();
  return control != nullptr && control->Started(object) ? control : nullptr;
}

void CopyName(char (&name)[128], const char* source) {
  std::memset(name, 0, sizeof(name));
  if (source != nullptr) std::memcpy(name, source, strnlen(source, sizeof(name) - 1));
}

void LogStart(const ThreadControl* control, const char* name) {
  LogQuietly([&] {
    if (control == nullptr) {
      DbgOutputA(2, "thread create failed, thread name=%s\r\n", name != nullptr ? name : "unknown");
      return;
    }
    const auto handle = reinterpret_cast<std::uintptr_t>(control->Handle());
    DbgOutputA(2, "thread create success, thread handle=0x%08x, id=%d, name=%s\r\n",
               static_cast<unsigned int>(handle), static_cast<int>(control->Id()), control->Name());
  });
}

void LogStop(const char* stage, const char* name, std::uint32_t id) {
  LogQuietly([&] {
    DbgOutputA(2, "%s, name=%s, tid=%lu(0x%08x)\r\n", stage, name, static_cast<unsigned long>(id),
               id);
  });
}

}  // namespace

IThreadFuncInterface::~IThreadFuncInterface() = default;

CBaseThread::CBaseThread()
    : mNeedExit(0),
      mWorker(nullptr),
      mContext(0),
      mRunEvent(nullptr, 1),
      mExited(1),
      mAutoDetach(0),
      mThreadHandle(nullptr),
      mThreadId(0),
      mName{},
      mForkGeneration(qvx::platform::ForkGeneration()) {}

CBaseThread::CBaseThread(const CBaseThread& other) : CBaseThread() {
  *this = other;
}

CBaseThread& CBaseThread::operator=(const CBaseThread& other) {
  if (this == &other) return *this;
  mNeedExit.store(other.mNeedExit.load());
  mWorker = other.mWorker;
  mContext = other.mContext;
  mAutoDetach = other.mAutoDetach;
  std::memcpy(mName, other.mName, sizeof(mName));
  return *this;
}

CBaseThread::~CBaseThread() {
  ThreadControl* own = OwnControl(*this);
  if (own != nullptr && own->BelongsTo(*this)) {
    StopThreadImmediate();
  } else {
    StopThread();
  }
}

// A thread of the process that this one was forked from.
bool CBaseThread::HasVanished() const {
  return mForkGeneration.load() != qvx::platform::ForkGeneration();
}

void CBaseThread::DropVanishedLocked() {
  if (!HasVanished()) return;
  SetIdle();
  mForkGeneration.store(qvx::platform::ForkGeneration());
}

void CBaseThread::SetIdle() {
  mThreadHandle.store(nullptr);
  mControl.reset();
  mThreadId.store(0);
  mExited.store(1);
}

int CBaseThread::StartThread(const char* name, IThreadFuncInterface* worker, std::uint64_t context,
                             int priority, int stackSize, int autoDetach) {
  char stored_name[sizeof(mName)];
  CopyName(stored_name, name);
  const ThreadControl::Task task{worker, context, autoDetach != 0};
  std::shared_ptr<ThreadControl> control;
  {
    CAutoBaseLock guard(&mLock);
    DropVanishedLocked();
    if (mThreadHandle.load() != nullptr && mExited.load() == 0) return 1;
    JoinLocked();
    control = std::make_shared<ThreadControl>(*this, stored_name, task, mRunEvent);
    const bool created = control->Create(control, priority, stackSize);
    std::memcpy(mName, stored_name, sizeof(mName));
    if (created) {
      BeginLocked(control, worker, context, autoDetach);
    } else {
      mExited.store(1);
      control.reset();
    }
  }
  LogStart(control.get(), name);
  return control != nullptr ? 1 : 0;
}

void CBaseThread::BeginLocked(const std::shared_ptr<ThreadControl>& control,
                              IThreadFuncInterface* worker, std::uint64_t context, int autoDetach) {
  mAutoDetach = autoDetach;
  mWorker = worker;
  mContext = context;
  mNeedExit.store(0);
  mExited.store(0);
  mThreadId.store(control->Id());
  mThreadHandle.store(control->Handle());
  mControl = control;
  mRunEvent.Set();
  control->Begin();
}

void CBaseThread::JoinLocked() {
  if (mControl != nullptr && mControl->ClaimJoin()) mControl->Join();
  mThreadHandle.store(nullptr);
  mThreadId.store(0);
  mControl.reset();
}

void CBaseThread::StopThread() {
  ThreadControl* own = OwnControl(*this);
  if (own != nullptr && own->BelongsTo(*this)) {
    mNeedExit.store(1);
    own->AskToExit();
    return;
  }
  CAutoBaseLock guard(&mLock);
  DropVanishedLocked();
  mNeedExit.store(1);
  if (mControl != nullptr) mControl->AskToExit();
  mRunEvent.Set();
  if (mControl != nullptr && mControl->ClaimJoin()) {
    LogStop("prepare exit thread...", mName, mControl->Id());
    mControl->Join();
    LogStop("thread exit over", mName, mControl->Id());
  }
  SetIdle();
}

void CBaseThread::StopThreadImmediate() {
  CAutoBaseLock guard(&mLock);
  DropVanishedLocked();
  mNeedExit.store(1);
  if (mControl != nullptr) mControl->Abandon();
  SetIdle();
}

void CBaseThread::PauseThread() {
  mRunEvent.Reset();
}

void CBaseThread::ResumeThread() {
  mRunEvent.Set();
}

int CBaseThread::IsThreadExit() {
  return HasVanished() ? 1 : mExited.load();
}

int CBaseThread::IsThreadNeedExit() {
  ThreadControl* own = OwnControl(*this);
  return own != nullptr ? own->NeedExit() : mNeedExit.load();
}

void* CBaseThread::GetThreadHandle() {
  return HasVanished() ? nullptr : mThreadHandle.load();
}

unsigned long CBaseThread::GetThreadId() {
  return HasVanished() ? 0 : mThreadId.load();
}

const char* CBaseThread::GetThreadName() {
  return mName;
}

void* CBaseThread::WrapThreadFunc() {
  return nullptr;
}
