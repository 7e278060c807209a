// Debug output: one call formats one text, puts a prefix in front of it and hands the
// finished line to one sink and to every registered callback. Nothing filters by level and
// no line end is added.
//
// Usable at any moment, also before and after the library's own global objects live; then
// without callbacks. All functions may be called from any thread at the same time. A setting
// holds from the next line that reads it; a tag that is changed while another thread builds
// a line may show up mixed in that one line.
//
// A line reads, with the settings at load:
//   QVXM_LOG 09:05:07.008 (pid: 1234, lwp:   56) [I]=> text
#pragma once

#include <qvx/types.h>

extern "C" {

// Receives every finished line. line is terminated and lives for the call only; length counts
// its characters. Runs on the thread that logged, with the library's callback lock held: one
// callback at a time in the whole process. It may log, and may add and remove callbacks, from
// this same thread. The result is ignored.
using DbgOutputCallback = int (*)(void* context, int level, const char* line, int length);

// One registered callback; fn is its key.
struct tagDBGOUTPUTCALLBACK {
  DbgOutputCallback fn;
  void* context;
};

// Logs one line at level 0 (a blank), 1 (D), 2 (I), 3 (W) or 4 (E); another level shows as '?'.
// The format language is that of CBaseStringA::Format. A format with an error logs what was
// formatted before the error. A message has no length limit. Throws std::bad_alloc where there
// is no memory.
QVX_API void DbgOutputA(int level, const char* format, ...) QVX_PRINTF(2, 3);

// As DbgOutputA for a wide format, in the language of CBaseStringW::Format. The text is then
// converted to narrow text as CBaseStringA converts, with its limit of two bytes a unit: a text
// beyond it logs as an empty message.
QVX_API void DbgOutputW(int level, const WCHAR* format, ...);

// Non-zero enable: lines begin with the tag. The first 127 bytes of tag are kept, also where
// enable is 0; a null tag empties it. At load: enabled, "QVXM_LOG".
QVX_API void DbgOutputSetTag(int enable, const char* tag);

// Where lines go: 0 (at load) to the debugger output, which is nowhere unless the environment
// variable QVX_DEBUG_OUTPUT named "stderr", "syslog", "fd:N" or a file when the library was
// loaded; 1 to the C library's stdout, unflushed; any other value to the callbacks only.
QVX_API void DbgOutputSetDisplayType(int type);

// The time stamp, in local time: 0 (at load) "09:05:07.008 ", 1 "2024/01/31 09:05:07.008 ",
// any other value none.
QVX_API void DbgOutputSetTimeType(int type);

// Non-zero (at load): lines hold the process and thread identifiers.
QVX_API void DbgOutputSetIncludePIDTID(int enable);

// Registers fn behind the others; a fn that is registered already gets the new context and
// keeps its place. Null is ignored. Waits for a callback that runs on another thread.
QVX_API void DbgOutputAddCallback(DbgOutputCallback fn, void* context);

// Removes fn; one that is not registered has no effect. When this returns to a thread that is
// not itself inside a callback, fn is not running and will not be called again.
QVX_API void DbgOutputDelCallback(DbgOutputCallback fn);

// Removes all callbacks, with the same promise as DbgOutputDelCallback.
QVX_API void DbgOutputDelAllCallback();

}  // extern "C"
