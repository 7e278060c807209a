// Where the library meets the process. The loader runs the constructors of these objects in
// the order in which they stand here when it loads the library, or before main of a program
// that is linked with it, and their destructors in reverse at exit or at dlclose.
#include "core/debug_callbacks.h"
#include "core/quiet_log.h"
#include "platform/fork.h"
#include "platform/module.h"
#include "platform/path.h"
#include "qvx/debug_output.h"
#include "qvx/delay_message.h"
#include "qvx/ptr_array.h"
#include "qvx/sync.h"

namespace {

CBaseLock callback_lock;
CPtrArrayCtrl callback_table;

// Opens the table for use once both are there, and until they go.
class CallbacksInUse {
 public:
  CallbacksInUse() : guard_(callback_lock.GetCS()) { qvx::core::SetCallbacksUsable(true); }
  ~CallbacksInUse() { qvx::core::SetCallbacksUsable(false); }

 private:
  qvx::platform::ForkGuard guard_;
};

const CallbacksInUse callbacks_in_use;

}  // namespace

CDelayPostMsgEngine gDelayPostMsgEngine;

namespace {

class Attachment {
 public:
  Attachment() {
    StorePath();
    qvx::core::LogQuietly([this] { DbgOutputA(2, "DLL_PROCESS_ATTACH: file=%s\r\n", path_); });
    gDelayPostMsgEngine.Start();
  }

  ~Attachment() {
    gDelayPostMsgEngine.Stop();
    qvx::core::LogQuietly([this] { DbgOutputA(2, "DLL_PROCESS_DETACH: file=%s\r\n", path_); });
  }

 private:
  void StorePath() {
    const auto path = qvx::platform::FromNativePath<char>(qvx::platform::ModulePath());
    if (path.has_value()) path->copy(path_, sizeof(path_) - 1);
  }

  char path_[260] = {};
};

const Attachment attachment;

}  // namespace

namespace qvx::core {

CBaseLock& CallbackLock() noexcept {
  return callback_lock;
}

CPtrCtrl& CallbackTable() noexcept {
  return callback_table;
}

}  // namespace qvx::core
