// Looks at the running system: instances, versions, processes, commands; and keeps attributes in
// a text. Twins differ in the width of their texts only. All functions but do_syscmd return
// at once, may be called from any thread, and throw std::bad_alloc where there is no memory.
#pragma once

#include "qvx/base_string.h"
#include "qvx/ptr_ctrl.h"
#include "qvx/types.h"

// Gets what a command wrote, on the thread that runs it: length bytes and a NUL behind them, for
// the time of the call. A block may end inside a line or a character. The result is ignored.
using SysCmdCallback = int (*)(void* userData, const char* text, unsigned int length);

extern "C" {

// 1 if no process holds the name, 0 if one does (see HoldInstanceName in platform.h), or if it
// can't be looked at for lack of rights. Only looks; 1 for a null or empty name.
QVX_API int CheckSingleInstanceA(const char* name);
QVX_API int CheckSingleInstanceW(const WCHAR* name);

// Reads the FileVersion text of the version resource in a PE file (*.exe, *.dll), in its first
// language, into version, cut to versionSize characters with the terminator. An empty text if
// it holds none, or one that the code page has no form of. 0, with version untouched, for a
// file without a version resource or language, else 1. A null version, or a versionSize below 1,
// only asks.
QVX_API int GetFileVersionA(const char* path, char* version, int versionSize);
QVX_API int GetFileVersionW(const WCHAR* path, WCHAR* version, int versionSize);

// 0xFFFFFFFF if there is no such process.
QVX_API unsigned int GetParentProcessID(unsigned int pid);

// The file that a process runs, as a library path, or for a fullPath of 0 its bare name, cut to
// 259 characters: name holds 260. Non-zero on success; 0, with name untouched, where it can't
// be told: a process that is gone, of another user, or of the kernel. A null name only asks.
// A program that was deleted is named as before.
QVX_API int GetProgramNameA(unsigned int pid, int fullPath, char* name);
QVX_API int GetProgramNameW(unsigned int pid, int fullPath, WCHAR* name);

// The folder of that file, without a backslash at its end; as GetProgramName.
QVX_API int GetProgramPathA(unsigned int pid, char* folder);
QVX_API int GetProgramPathW(unsigned int pid, WCHAR* folder);

// Adds the number of every process whose GetProgramName is name, in whatever case, as a value,
// not a pointer. At most 1,024 processes that have a program name are looked at. A null or empty
// name, or a null list, does nothing.
QVX_API void GetPidListByNameA(const char* name, int fullPath, CPtrCtrl* pidList);
QVX_API void GetPidListByNameW(const WCHAR* name, int fullPath, CPtrCtrl* pidList);

// Ends every such process at once, this one too if it has that name. Each is logged at level 2.
QVX_API void KillPidByNameA(const char* name, int fullPath);
QVX_API void KillPidByNameW(const WCHAR* name, int fullPath);

// Looks up the first entry of a text of entries, "a=1;b=2" with the separator ";", that begins
// with the attribute, with regard to case: "b=", so with its "=". Sets value to what follows and
// returns 1; returns 0 with value untouched if there is none or an argument is null.
QVX_API int GetAttrValueFromConfig(const CBaseStringA* config, const char* separator,
                                   const char* attribute, CBaseStringA* value);

// Gives the entry that the attribute finds another value. The old text of the entry, attribute and
// value, is replaced wherever it stands in the whole text and in any case, inside other entries
// too; a new value that differs in case alone changes nothing. Without such an entry the
// separator, the attribute and the value are appended, also to an empty text. A null argument
// does nothing.
QVX_API void SetAttrValueToConfig(CBaseStringA* config, const char* separator,
                                  const char* attribute, const char* value);

// Runs a command, formatted in the language of CBaseStringT::Format, and waits for it: until
// nobody holds its output any more and it has ended, or with a null callback, whose output is
// dropped, until it has ended. useShell non-zero has /bin/sh run it; otherwise it is a program,
// sought in PATH, and its arguments, divided by blanks, where quotes and backslashes protect
// blanks as in that shell and nothing else is special.
//
// The child has this process's environment, folder and input, both outputs in one pipe, no other
// descriptors, and default signals. 1 if it ran, with its exit code in *exitCode if not null (128
// + n after signal n; 0xFFFFFFFF if the host ignores or reaps its children itself); 0, with
// *exitCode untouched, if it can't be started.
QVX_API int do_syscmd_A(SysCmdCallback callback, void* userData, int useShell,
                        unsigned int* exitCode, const char* format, ...) QVX_PRINTF(5, 6);
QVX_API int do_syscmd_W(SysCmdCallback callback, void* userData, int useShell,
                        unsigned int* exitCode, const WCHAR* format, ...);

// When the running program's file was last written, in local time: "2024/01/31_09:05:07"; empty
// if that can't be told. The text is the calling thread's, until its next call.
QVX_API const char* GetModuleLastWriteTimeA();

}  // extern "C"
