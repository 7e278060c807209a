// Completion ports: a queue of finished reads and writes that any number of threads wait on.
// Reads and writes get there by PostIOCPRecvBuffer and PostIOCPSendBuffer of serial_port.h.
// All functions may be called from any thread; only WaitCompletionPort blocks.
#pragma once

#include <qvx/types.h>

// One read or write under way. Belongs to the caller, who keeps it, and the bytes that it is
// about, in place from the posting until the completion was taken; all fields but hEvent are
// overwritten. hEvent is not used.
struct OVERLAPPED {
  std::uint64_t Internal;      // while under way 0x103, then the error code, 0 for none
  std::uint64_t InternalHigh;  // bytes moved
  std::uint32_t Offset;
  std::uint32_t OffsetHigh;
  HANDLE hEvent;
};

// What a completion tells.
struct tagCOMPLETION {
  OVERLAPPED* overlapped;  // as it was posted
  std::uint64_t key;       // 0 for serial ports
  std::uint32_t bytes;     // moved; 0 also for a read whose time was up
  std::int32_t error;      // 0, 22 where the device is gone, else an errno value: ECANCELED (125)
                           // after a purge or a close
};

extern "C" {

// Makes an empty port, to be released by CloseCompletionPort. Throws std::bad_alloc.
QVX_API HANDLE CreateCompletionPort();

// Takes the oldest completion, or waits for one for at most ms milliseconds (0xFFFFFFFF: without
// limit). 1 if *completion was filled in; 0, with *completion as it was, after the time limit,
// for a port that is closed, also during the wait, and for a handle or pointer that is none.
// Each completion goes to one caller.
QVX_API int WaitCompletionPort(HANDLE port, unsigned int ms, tagCOMPLETION* completion);

// Puts a completion of the caller's own into the queue, for instance to end a waiting thread.
// 1, or 0 for a port that is closed. Throws std::bad_alloc.
QVX_API int PostCompletion(HANDLE port, const tagCOMPLETION* completion);

// Ends the port: waiting threads return, what is queued and what completes later is dropped.
// 0 for a handle that is none.
QVX_API int CloseCompletionPort(HANDLE port);

}  // extern "C"
