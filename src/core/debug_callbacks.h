// The table of debug output callbacks. The lock and the table are two of the library's global
// objects and belong to the module entry; what is done with them stands in debug_callbacks.cpp.
#pragma once

#include <qvx/ptr_ctrl.h>
#include <qvx/sync.h>

namespace qvx::core {

// The two global objects, defined by the module entry.
CBaseLock& CallbackLock() noexcept;
CPtrCtrl& CallbackTable() noexcept;

// The module entry tells when both objects are built, and again before they go. In between the
// callback functions use them; outside it they do nothing.
void SetCallbacksUsable(bool usable) noexcept;

// Hands a finished line to every callback, in the order of registration.
void RunDebugCallbacks(int level, const char* line, int length);

// Whether any callback is registered; a look without the lock.
bool HasDebugCallbacks() noexcept;

}  // namespace qvx::core
