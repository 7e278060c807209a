// Call stacks as text, one line for each frame: of the calling thread, of other threads of the
// process, and of threads of other processes where the system permits it. Symbols and source
// lines come from local files, through elfutils' libdw, which is loaded when the first walker
// is made; without it walkers fail and everything else goes on.
//
// Another thread of this process is asked by a signal to copy its registers and up to 256 KiB
// of its stack, and goes on at once; the walk then runs on the copy, so no lock is ever held by
// a thread that stands still. A system call that can't be restarted ends early with EINTR by
// that. Threads that block the signal for a second are skipped. See SetStackDumpSignal.
//
// All of this allocates memory, so it is for a watchdog thread and not for a signal handler. A
// crash handler does best to hand its context (GetSignalContext) to a thread that waits for it;
// walking inside the handler works as long as the crash was not inside the allocator or libdw.
#pragma once

#include <cstdint>

#include "qvx/types.h"

// The registers of a thread (x86-64).
struct CONTEXT {
  std::uint32_t ContextFlags;
  std::uint64_t Rax;
  std::uint64_t Rcx;
  std::uint64_t Rdx;
  std::uint64_t Rbx;
  std::uint64_t Rsp;
  std::uint64_t Rbp;
  std::uint64_t Rsi;
  std::uint64_t Rdi;
  std::uint64_t R8;
  std::uint64_t R9;
  std::uint64_t R10;
  std::uint64_t R11;
  std::uint64_t R12;
  std::uint64_t R13;
  std::uint64_t R14;
  std::uint64_t R15;
  std::uint64_t Rip;
};

struct StackWalkerInternal;

namespace qvx::platform {
class File;
}

// One walker must not run two walks at a time; different walkers may run on different threads.
class QVX_API StackWalker {
 public:
  // Of options two bits act: 0x08 asks for the file versions of modules (files of this system
  // carry none, so OnLoadModule gets 0), 0x10 builds a search path for debug files.
  enum : int { kDefaultOptions = 0x3F };

  enum CallstackEntryType { FirstEntry, NextEntry, LastEntry };

  struct CallstackEntry {
    std::uint64_t offset;  // the program counter; 0 if there is none
    char name[1024];       // as the symbol table has it
    char undName[1024];    // without types and parameters
    char undFullName[1024];
    std::uint64_t offsetFromSymbol;
    std::uint32_t offsetFromLine;
    std::uint32_t lineNumber;
    char lineFileName[1024];  // as the compiler wrote it
    std::uint32_t symType;    // 0 no symbols, 6 symbol table, 7 debug data
    const char* symTypeString;
    char moduleName[1024];
    std::uint64_t baseOfImage;
    char loadedImageName[1024];  // a library path
  };

  // Reads memory of the walked process: returns non-zero and the count of bytes, or 0.
  using ReadProcessMemoryRoutine = int (*)(void* process, std::uint64_t baseAddress, void* buffer,
                                           unsigned long size, unsigned long* bytesRead,
                                           void* userData);

  // This process, without a file.
  StackWalker();
  // outputFile: a library path or null; made anew. The texts of OnOutput are appended at the end
  // of each walk, others at once.
  // processId: the process to look at. process: only handed to a ReadProcessMemoryRoutine.
  StackWalker(const WCHAR* outputFile, std::uint32_t processId, void* process);
  // symbolPath: folders with debug files, separated by ";", or null; sets 0x10 in options.
  StackWalker(int options, const char* symbolPath, const WCHAR* outputFile, std::uint32_t processId,
              void* process);
  StackWalker(const StackWalker&) = delete;
  StackWalker& operator=(const StackWalker&) = delete;
  virtual ~StackWalker();

  // While the constructor binds the library these are not yet the derived class's own, so of
  // OnSymInit and OnLoadModule it sees only those of a LoadModules that it calls itself after the
  // constructor's failed.
  virtual void OnSymInit(const char* searchPath, unsigned long symOptions, const char* userName);
  virtual void OnLoadModule(const char* image, const char* module, std::uint64_t baseAddress,
                            unsigned long size, unsigned long result, const char* symType,
                            const char* pdbName, std::uint64_t fileVersion);
  // Gets every frame from the innermost on; LastEntry repeats the outermost one of a whole walk.
  // The default makes a line of it for OnOutput.
  virtual void OnCallstackEntry(CallstackEntryType type, CallstackEntry& entry);
  // Tells of each failure; function names the step.
  virtual void OnDbgHelpErr(const char* function, unsigned long lastError, std::uint64_t address);
  // The default writes to the debugger output and to the file.
  virtual void OnOutput(const char* text);

  // Binds the library and finds the modules of the process. 1, at once if they are there
  // already, or 0: with the last error 1114 if the library is missing, else if the process
  // shows no modules. Modules that come later are seen by new walkers.
  int LoadModules();

  // Walks one thread of the process: from its own registers, or from context. Memory is read by
  // readMemory unless null. Blocks up to a second for a thread that does not answer. Returns 1,
  // or 0 if the library is missing (last error 1114) or the thread gives no registers.
  int ShowCallstack(unsigned long threadId, const CONTEXT* context,
                    ReadProcessMemoryRoutine readMemory, void* userData);

 protected:
  // Reads by the routine of the walk that the calling thread runs, else from the process that is
  // walked; from this process outside of a walk. 1, or 0 if not all could be read.
  static int myReadProcMem(void* process, std::uint64_t baseAddress, void* buffer,
                           unsigned long size, unsigned long* bytesRead);

 private:
  friend struct StackWalkerInternal;

  int Fail();

  StackWalkerInternal* mInternal;
  void* mProcess;
  std::uint32_t mProcessId;
  int mModulesLoaded;
  char* mSymbolPath;
  qvx::platform::File* mOutputFile;
  int mOptions;
  std::uint64_t mOutputSize;
};

extern "C" {

// Writes the stack of the calling thread to the debugger output.
QVX_API void DumpThreadStack();

// Writes the stacks of all threads of this process to the debugger output and to the file,
// which may be null; every thread goes on. Two lines of the debug output frame each thread.
QVX_API void DumpAllThreadsStack(const WCHAR* outputFile);

// The time in milliseconds that a thread of this process has spent in the kernel and in user
// code. thread: from CBaseThread::GetThreadHandle, or the system's id of the thread. 1, or 0
// with both times 0 if there is no such thread, and 0 for a null address of one.
QVX_API int GetThreadRunTimeInfoIn_Win32(void* thread, std::uint64_t* kernelMs,
                                         std::uint64_t* userMs);

// The registers out of what a signal handler gets as its third parameter (a ucontext_t*).
// Callable from the handler. 1, or 0 for a null one or where the processor is another one.
QVX_API int GetSignalContext(const void* signalContext, CONTEXT* context);

// The signal by which threads of this process are asked for their stacks: a real-time signal,
// by default the highest but two. To be set before the first walk, best before any thread of
// the library's is started, since those leave open only the one that is set then. 1, or 0 if
// the number is no real-time signal. The handler is installed at the first walk of another
// thread, and only if the signal has none; if it has, such walks fail.
QVX_API int SetStackDumpSignal(int signal);

}  // extern "C"
