#include "qvx/process_util.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "core/raw_text.h"
#include "files/bounded_text.h"
#include "files/version_block.h"
#include "platform/clock.h"
#include "platform/code_page.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/process.h"
#include "platform/single_instance.h"
#include "qvx/debug_output.h"
#include "qvx/path_name.h"
#include "qvx/platform.h"
#include "qvx/ptr_array.h"
#include "qvx/string_split.h"

namespace qvx::files {
namespace {

using platform::InstanceName;

constexpr std::size_t kNameArray = platform::kPathLimit + 1;
constexpr std::size_t kMostProcesses = 1024;

// What goes to the system: a text that is not valid keeps its bytes.
std::string ToSystem(std::string_view text) {
  const std::optional<std::u16string> wide = platform::WideFromAnsi(text);
  return wide ? platform::Utf16ToUtf8(*wide) : std::string(text);
}

std::string ToSystem(std::u16string_view text) {
  return platform::Utf16ToUtf8(text);
}

template <typename C>
bool IsEmpty(const C* text) {
  return text == nullptr || *text == C();
}

// Instances ----------------------------------------------------------------------------------

template <typename C>
int CheckSingleInstance(const C* name) {
  if (IsEmpty(name)) return 1;
  const InstanceName state = platform::LookAtInstanceName(ToSystem(name));
  return state == InstanceName::kHeld || state == InstanceName::kRefused ? 0 : 1;
}

template <typename C>
int HoldName(const C* name) {
  return !IsEmpty(name) && platform::HoldInstanceName(ToSystem(name)) == InstanceName::kFree;
}

template <typename C>
int ReleaseName(const C* name) {
  return !IsEmpty(name) && platform::ReleaseInstanceName(ToSystem(name));
}

// Versions -----------------------------------------------------------------------------------

std::u16string VersionText(const std::u16string& version, const WCHAR*) {
  return version;
}

std::string VersionText(const std::u16string& version, const char*) {
  return platform::AnsiFromWide(version).value_or("");
}

template <typename C>
int GetFileVersion(const C* path, C* version, int version_size) {
  platform::File file;
  if (!file.Open(path, platform::OpenMode::Read())) return 0;
  const auto found = FileVersionOf([&](std::uint64_t offset, void* out, std::size_t size) {
    return file.ReadAt(offset, out, size).count == size;
  });
  if (!found) return 0;
  if (version == nullptr || version_size < 1) return 1;
  const std::basic_string<C> text = VersionText(*found, version);
  const std::size_t count = std::min(text.size(), static_cast<std::size_t>(version_size) - 1);
  std::copy_n(text.data(), count, version);
  version[count] = C();
  return 1;
}

// Processes ----------------------------------------------------------------------------------

template <typename C>
std::optional<std::basic_string<C>> ProgramPath(std::uint32_t process) {
  const std::optional<std::string> native = platform::ProgramOf(process);
  return native ? platform::FromNativePath<C>(*native) : std::nullopt;
}

template <typename C>
int GetProgramName(unsigned int pid, int full_path, C* name) {
  const auto path = ProgramPath<C>(pid);
  if (!path) return 0;
  if (name == nullptr) return 1;
  BoundedText<C> text;
  text.Append(path->c_str() + (full_path != 0 ? 0 : path->rfind(C('\\')) + 1));
  text.CopyTo(name);
  return 1;
}

int ParentDir(char* folder, const char* path) {
  return GetFileParentDirA(folder, path);
}

int ParentDir(WCHAR* folder, const WCHAR* path) {
  return GetFileParentDirW(folder, path);
}

template <typename C>
int GetProgramPath(unsigned int pid, C* folder) {
  C path[kNameArray];
  if (GetProgramName(pid, 1, path) == 0) return 0;
  return folder == nullptr ? 1 : ParentDir(folder, path);
}

template <typename C>
bool SameName(std::basic_string_view<C> left, std::basic_string_view<C> right) {
  return left.size() == right.size() && core::MatchAll(left.data(), right.data(), left.size());
}

template <typename C>
bool HasName(std::uint32_t process, int full_path, const C* name) {
  C text[kNameArray];
  return GetProgramName(process, full_path, text) != 0 && SameName<C>(text, name);
}

template <typename C>
void GetPidListByName(const C* name, int full_path, CPtrCtrl* list) {
  if (IsEmpty(name) || list == nullptr) return;
  std::size_t looked_at = 0;
  C text[kNameArray];
  for (const std::uint32_t process : platform::ProcessIds()) {
    if (GetProgramName(process, full_path, text) == 0) continue;
    if (++looked_at > kMostProcesses) return;
    if (!SameName<C>(text, name)) continue;
    list->AddData(reinterpret_cast<const void*>(std::uintptr_t{process}), -1);
  }
}

void LogKill(const char* name, unsigned int process) {
  DbgOutputA(2, "KillPidByName %s, pid=%d...\r\n", name, static_cast<int>(process));
}

void LogKill(const WCHAR* name, unsigned int process) {
  DbgOutputW(2, u"KillPidByName %ls, pid=%d...\r\n", name, static_cast<int>(process));
}

template <typename C>
void KillPidByName(const C* name, int full_path) {
  CPtrArrayCtrl processes;
  GetPidListByName(name, full_path, &processes);
  for (int i = 0; i < processes.GetCount(); ++i) {
    const auto process =
        static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(processes.GetAt(i)));
    LogKill(name, process);
    platform::EndProcess(process,
                         [&](std::uint32_t number) { return HasName(number, full_path, name); });
  }
}

// Commands -----------------------------------------------------------------------------------

void LogCommand(const char* command) {
  DbgOutputA(2, "Call cmd:%s\r\n", command);
}

void LogCommand(const WCHAR* command) {
  DbgOutputW(2, u"Call cmd:%ls\r\n", command);
}

struct CommandRun {
  SysCmdCallback callback;
  void* user_data;
  bool uses_shell;
  unsigned int* exit_code;
};

void PassOutput(platform::ChildProcess& child, const CommandRun& run) {
  constexpr std::size_t kBlock = 4095;
  char text[kBlock + 1];
  while (const std::size_t count = child.Read(text, kBlock)) {
    text[count] = '\0';
    run.callback(run.user_data, text, static_cast<unsigned int>(count));
  }
}

int RunCommand(const CommandRun& run, const std::string& command) {
  constexpr unsigned int kUnknown = 0xFFFFFFFF;
  platform::ChildProcess child;
  const std::vector<std::string> arguments =
      run.uses_shell ? platform::ShellCommand(command) : platform::SplitCommandLine(command);
  if (!child.Start(arguments, run.callback != nullptr)) {
    DbgOutputA(2, "CreateProcess Failed!");
    return 0;
  }
  if (run.callback != nullptr) PassOutput(child, run);
  const std::optional<std::uint32_t> code = child.Wait();
  if (run.exit_code != nullptr) *run.exit_code = code.value_or(kUnknown);
  return 1;
}

// The block is one that the formatting functions made; length stays below 0 after an error.
template <typename C>
int RunFormatted(const CommandRun& run, C* block, int length) {
  const std::unique_ptr<C, void (*)(void*)> command(
      block, std::is_same_v<C, char> ? &FreeFormatStringA : &FreeFormatStringW);
  if (command == nullptr || length < 0) return 0;
  LogCommand(command.get());
  return RunCommand(run, ToSystem(command.get()));
}

}  // namespace
}  // namespace qvx::files

using namespace qvx::files;

int CheckSingleInstanceA(const char* name) {
  return CheckSingleInstance(name);
}

int CheckSingleInstanceW(const WCHAR* name) {
  return CheckSingleInstance(name);
}

int HoldInstanceName(const char* name) {
  return HoldName(name);
}

int HoldInstanceNameW(const WCHAR* name) {
  return HoldName(name);
}

int ReleaseInstanceName(const char* name) {
  return ReleaseName(name);
}

int ReleaseInstanceNameW(const WCHAR* name) {
  return ReleaseName(name);
}

int GetFileVersionA(const char* path, char* version, int versionSize) {
  return GetFileVersion(path, version, versionSize);
}

int GetFileVersionW(const WCHAR* path, WCHAR* version, int versionSize) {
  return GetFileVersion(path, version, versionSize);
}

unsigned int GetParentProcessID(unsigned int pid) {
  return qvx::platform::ParentOf(pid).value_or(0xFFFFFFFF);
}

int GetProgramNameA(unsigned int pid, int fullPath, char* name) {
  return GetProgramName(pid, fullPath, name);
}

int GetProgramNameW(unsigned int pid, int fullPath, WCHAR* name) {
  return GetProgramName(pid, fullPath, name);
}

int GetProgramPathA(unsigned int pid, char* folder) {
  return GetProgramPath(pid, folder);
}

int GetProgramPathW(unsigned int pid, WCHAR* folder) {
  return GetProgramPath(pid, folder);
}

void GetPidListByNameA(const char* name, int fullPath, CPtrCtrl* pidList) {
  GetPidListByName(name, fullPath, pidList);
}

void GetPidListByNameW(const WCHAR* name, int fullPath, CPtrCtrl* pidList) {
  GetPidListByName(name, fullPath, pidList);
}

void KillPidByNameA(const char* name, int fullPath) {
  KillPidByName(name, fullPath);
}

void KillPidByNameW(const WCHAR* name, int fullPath) {
  KillPidByName(name, fullPath);
}

int do_syscmd_A(SysCmdCallback callback, void* userData, int useShell, unsigned int* exitCode,
                const char* format, ...) {
  if (format == nullptr) return 0;
  int length = -1;
  va_list args;
  va_start(args, format);
  char* command = FormatStringValistA(&length, format, args);
  va_end(args);
  return RunFormatted({callback, userData, useShell != 0, exitCode}, command, length);
}

int do_syscmd_W(SysCmdCallback callback, void* userData, int useShell, unsigned int* exitCode,
                const WCHAR* format, ...) {
  if (format == nullptr) return 0;
  int length = -1;
  va_list args;
  va_start(args, format);
  WCHAR* command = FormatStringValistW(&length, format, args);
  va_end(args);
  return RunFormatted({callback, userData, useShell != 0, exitCode}, command, length);
}

const char* GetModuleLastWriteTimeA() {
  static thread_local std::array<char, 64> text;
  text[0] = '\0';
  qvx::platform::File file;
  if (!file.OpenNative(qvx::platform::OwnProgramLink(), qvx::platform::OpenMode::Read())) {
    return text.data();
  }
  const auto times = qvx::platform::TimesOf(file);
  if (!times) return text.data();
  const SYSTEMTIME t = qvx::platform::LocalTimeOf(times->write.tv_sec,
                                                  static_cast<std::int32_t>(times->write.tv_nsec));
  std::snprintf(text.data(), text.size(), "%04d/%02d/%02d_%02d:%02d:%02d", t.wYear, t.wMonth,
                t.wDay, t.wHour, t.wMinute, t.wSecond);
  return text.data();
}
