#include "qvx/stack_walker.h"

#include <cstring>
#include <memory>

#include "diagnostics/stack_walk.h"
#include "diagnostics/symbol_path.h"
#include "platform/clock.h"
#include "platform/debug_help.h"
#include "platform/debug_sink.h"
#include "platform/environment.h"
#include "platform/file.h"
#include "platform/last_error.h"

using qvx::diagnostics::CopyText;
using qvx::diagnostics::FormatLine;
using qvx::platform::SetLastErrorCode;

namespace {

constexpr std::uint32_t kInitFailed = 1114;
constexpr int kBuildSymbolPath = 0x10;
constexpr unsigned long kSymbolOptions = 0x210;  // lines, and no questions to the user
constexpr int kOutputLevel = 2;
constexpr std::size_t kMostUnwritten = 64 * 1024;

// The routine of the walk that this thread runs.
struct ReadRoutine {
  StackWalker::ReadProcessMemoryRoutine function;
  void* user_data;
  std::uint32_t process;
};
constinit thread_local ReadRoutine routine{nullptr, nullptr, 0};

class RoutineScope {
 public:
  explicit RoutineScope(ReadRoutine now) : former_(routine) { routine = now; }
  ~RoutineScope() { routine = former_; }
  RoutineScope(const RoutineScope&) = delete;
  RoutineScope& operator=(const RoutineScope&) = delete;

 private:
  ReadRoutine former_;
};

}  // namespace

// The bound library.
struct StackWalkerInternal {
  explicit StackWalkerInternal(StackWalker& walker) : parent(walker) {}

  bool Bind(const std::string& symbol_path, bool has_path);
  bool FindModules();
  // For the file. The lines of a walk are written together.
  void Append(const char* text);
  void WriteLines();

  StackWalker& parent;
  qvx::platform::DebugHelp help;
  qvx::diagnostics::KnownFrames known;
  bool bound = false;
  bool walking = false;
  std::string unwritten;

 private:
  bool LoadLibrary();
  void OpenProcess(const std::string& symbol_path);
};

bool StackWalkerInternal::LoadLibrary() {
  for (const std::string& name : qvx::diagnostics::DebugLibraryNames())
    if (help.Load(name.c_str())) return true;
  return false;
}

bool StackWalkerInternal::Bind(const std::string& symbol_path, bool has_path) {
  bound = LoadLibrary();
  if (!bound) return false;
  OpenProcess(symbol_path);
  char shown[1024];
  CopyText(shown, has_path ? symbol_path : ".");
  char user[1024];
  CopyText(user, qvx::platform::UserName());
  parent.OnSymInit(shown, kSymbolOptions, user);
  return true;
}

void StackWalkerInternal::OpenProcess(const std::string& symbol_path) {
  const bool open = help.Open(parent.mProcessId, qvx::diagnostics::NativeFolders(symbol_path));
  if (!open) parent.OnDbgHelpErr("SymInitialize", help.LastError(), 0);
}

bool StackWalkerInternal::FindModules() {
  const auto modules = help.FindModules();
  for (const auto& module : modules) {
    const std::string image = qvx::diagnostics::LibraryPath(module.image);
    parent.OnLoadModule(
        image.c_str(), module.name.c_str(), module.base, static_cast<unsigned long>(module.size), 0,
        qvx::diagnostics::SymbolTypeText(qvx::diagnostics::SymbolType(module.symbols)),
        image.c_str(), 0);
  }
  return !modules.empty();
}

void StackWalkerInternal::Append(const char* text) {
  if (parent.mOutputFile == nullptr) return;
  unwritten += text;
  if (!walking || unwritten.size() >= kMostUnwritten) WriteLines();
}

void StackWalkerInternal::WriteLines() {
  if (unwritten.empty()) return;
  parent.mOutputSize +=
      parent.mOutputFile->WriteAt(parent.mOutputSize, unwritten.data(), unwritten.size()).count;
  unwritten.clear();
}

namespace {

class WalkingScope {
 public:
  explicit WalkingScope(StackWalkerInternal& walker) : walker_(walker) { walker_.walking = true; }
  ~WalkingScope() {
    walker_.walking = false;
    walker_.WriteLines();
  }
  WalkingScope(const WalkingScope&) = delete;
  WalkingScope& operator=(const WalkingScope&) = delete;

 private:
  StackWalkerInternal& walker_;
};

}  // namespace

StackWalker::StackWalker()
    : StackWalker(kDefaultOptions, nullptr, nullptr, qvx::platform::CurrentProcessId(), nullptr) {}

StackWalker::StackWalker(const WCHAR* outputFile, std::uint32_t processId, void* process)
    : StackWalker(kDefaultOptions, nullptr, outputFile, processId, process) {}

StackWalker::StackWalker(int options, const char* symbolPath, const WCHAR* outputFile,
                         std::uint32_t processId, void* process)
    : mInternal(nullptr),
      mProcess(process),
      mProcessId(processId),
      mModulesLoaded(0),
      mSymbolPath(nullptr),
      mOutputFile(nullptr),
      mOptions(symbolPath != nullptr ? options | kBuildSymbolPath : options),
      mOutputSize(0) {
  auto internal = std::make_unique<StackWalkerInternal>(*this);
  auto path =
      symbolPath != nullptr ? std::make_unique<char[]>(std::strlen(symbolPath) + 1) : nullptr;
  if (path) std::strcpy(path.get(), symbolPath);
  auto file = std::make_unique<qvx::platform::File>();
  const bool has_file = outputFile != nullptr && file->Open(outputFile, u"wb");
  mInternal = internal.get();
  mSymbolPath = path.get();
  if (has_file) mOutputFile = file.get();
  LoadModules();
  internal.release();
  path.release();
  if (has_file) file.release();
}

StackWalker::~StackWalker() {
  delete[] mSymbolPath;
  delete mOutputFile;
  delete mInternal;
}

void StackWalker::OnSymInit(const char*, unsigned long, const char*) {}

void StackWalker::OnLoadModule(const char*, const char*, std::uint64_t, unsigned long,
                               unsigned long, const char*, const char*, std::uint64_t) {}

void StackWalker::OnDbgHelpErr(const char*, unsigned long, std::uint64_t) {}

void StackWalker::OnCallstackEntry(CallstackEntryType type, CallstackEntry& entry) {
  if (type == LastEntry || entry.offset == 0) return;
  if (entry.name[0] == '\0') CopyText(entry.name, "(function-name not available)");
  if (entry.undName[0] != '\0') CopyText(entry.name, entry.undName);
  if (entry.undFullName[0] != '\0') CopyText(entry.name, entry.undFullName);
  char text[1024];
  if (entry.lineFileName[0] != '\0') {
    FormatLine(text, "%s (%d): %s\r\n", entry.lineFileName, static_cast<int>(entry.lineNumber),
               entry.name);
  } else {
    CopyText(entry.lineFileName, "(filename not available)");
    if (entry.moduleName[0] == '\0') CopyText(entry.moduleName, "(module-name not available)");
    FormatLine(text, "%016llX (%s): %s: %s\r\n", static_cast<unsigned long long>(entry.offset),
               entry.moduleName, entry.lineFileName, entry.name);
  }
  OnOutput(text);
}

void StackWalker::OnOutput(const char* text) {
  qvx::platform::WriteDebugOutput(kOutputLevel, text);
  mInternal->Append(text);
}

int StackWalker::Fail() {
  SetLastErrorCode(kInitFailed);
  return 0;
}

int StackWalker::LoadModules() {
  if (mInternal == nullptr) return Fail();
  if (mModulesLoaded != 0) return 1;
  const bool has_path = (mOptions & kBuildSymbolPath) != 0;
  const std::string path = has_path ? qvx::diagnostics::SymbolPath(mSymbolPath) : std::string();
  if (!mInternal->bound && !mInternal->Bind(path, has_path)) {
    OnDbgHelpErr("Error while initializing dbghelp.dll", 0, 0);
    return Fail();
  }
  mModulesLoaded = mInternal->FindModules() ? 1 : 0;
  return mModulesLoaded;
}

int StackWalker::myReadProcMem(void* process, std::uint64_t baseAddress, void* buffer,
                               unsigned long size, unsigned long* bytesRead) {
  if (routine.function != nullptr)
    return routine.function(process, baseAddress, buffer, size, bytesRead, routine.user_data);
  const std::uint32_t walked =
      routine.process != 0 ? routine.process : qvx::platform::CurrentProcessId();
  *bytesRead = qvx::platform::ReadMemory(walked, baseAddress, buffer, size);
  return *bytesRead == size ? 1 : 0;
}

int StackWalker::ShowCallstack(unsigned long threadId, const CONTEXT* context,
                               ReadProcessMemoryRoutine readMemory, void* userData) {
  if (mInternal == nullptr || !mInternal->bound) return Fail();
  const WalkingScope walking(*mInternal);
  char text[1024];
  FormatLine(text, "ShowCallstack: thread id=%d\r\n", static_cast<int>(threadId));
  OnOutput(text);
  const RoutineScope scope({readMemory, userData, mProcessId});
  const auto thread = static_cast<std::uint32_t>(threadId);
  qvx::platform::ThreadCopy copy;
  const bool own = mProcessId == qvx::platform::CurrentProcessId();
  if (context != nullptr) {
    copy.registers = qvx::diagnostics::FromContext(*context);
  } else if (own && thread == qvx::platform::CurrentThreadId()) {
    copy.registers = qvx::platform::OwnRegisters();
  } else if (own ? !qvx::platform::CopyThread(thread, &copy)
                 : !qvx::platform::CopyForeignThread(mProcessId, thread, &copy)) {
    return 0;
  }
  const auto read = [this](std::uint64_t address, void* buffer, unsigned long size) {
    unsigned long count = 0;
    return myReadProcMem(mProcess, address, buffer, size, &count) != 0 && count == size;
  };
  qvx::diagnostics::StackWalk walk(*this, mInternal->help, mInternal->known, copy, read,
                                   readMemory == nullptr);
  walk.Run(thread);
  FormatLine(text, "ShowCallstack End: thread id=%d\r\n\r\n", static_cast<int>(threadId));
  OnOutput(text);
  return 1;
}
