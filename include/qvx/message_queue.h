// Message targets and the queues behind them. A window handle is a target that belongs to the
// thread that made it; messages posted to it, from any thread, wait in that thread's queue in
// the order of posting. Only the owner takes messages out. A descriptor tells an event loop
// when messages wait. When a thread ends, its windows and its queue go with it.
// A handle is an id that isn't used again soon: one that is gone, or never was, does nothing.
// In a forked child the windows of the thread that forked live on, with a descriptor of the
// same number that the parent doesn't share; those of all other threads are gone.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qvx/types.h"

// A message as it comes out of a queue.
struct tagWINDOWMESSAGE {
  HWND hwnd;
  std::uint32_t message;
  std::uint64_t wParam;
  std::int64_t lParam;
  std::uint32_t time;  // MS_GetTime at the moment of posting
};

extern "C" {

// Makes a window that belongs to the calling thread. Null if there are too many.
QVX_API HWND CreateMessageWindow();

// Destroys a window of the calling thread and drops its messages. 1 if it did, 0 if the
// handle is no window of this thread.
QVX_API int DestroyMessageWindow(HWND window);

// 1 if the handle is a living window of any thread, else 0.
QVX_API int IsMessageWindow(HWND window);

// Puts a message into the queue of the window's thread. Never blocks. 1 if it is queued; 0 if
// the window is gone, or 1,000,000 messages wait already in that queue.
QVX_API int PostWindowMessage(HWND window, unsigned int message, std::uint64_t wParam,
                              std::int64_t lParam);

// Looks for the first message of a window of the calling thread (null: of any) whose number is
// from first to last (both 0: any number). remove: non-zero takes it out of the queue.
// 1 if there is one, which is copied to *found (may be null); 0 if not, *found is unchanged.
QVX_API int PeekWindowMessage(tagWINDOWMESSAGE* found, HWND window, unsigned int first,
                              unsigned int last, int remove);

// Takes out the first message of a window of the calling thread (null: of any); waits for one
// at most timeoutMs milliseconds, 0xFFFFFFFF is no limit. 1 if there is one, in *found (may
// be null); 0 after the time limit, or at once if the window isn't of this thread.
QVX_API int GetWindowMessage(tagWINDOWMESSAGE* found, HWND window, unsigned int timeoutMs);

// A descriptor that polls readable while any message waits in the calling thread's queue.
// Only to be polled; the library reads, writes and closes it. It stays the same and stays
// open until the thread ends. -1 if none can be had.
QVX_API int GetMessageQueueDescriptor();
}
