#include "diagnostics/stack_walk.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "diagnostics/undecorate.h"
#include "platform/last_error.h"
#include "platform/path.h"

namespace qvx::diagnostics {

void FormatLine(char (&text)[1024], const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
}

platform::Registers FromContext(const CONTEXT& context) {
  return {context.Rax, context.Rdx, context.Rcx, context.Rbx, context.Rsi, context.Rdi,
          context.Rbp, context.Rsp, context.R8,  context.R9,  context.R10, context.R11,
          context.R12, context.R13, context.R14, context.R15, context.Rip};
}

std::string LibraryPath(const std::string& native) {
  if (!native.starts_with('/')) return native;
  return platform::FromNativePath<char>(native).value_or(native);
}

std::uint32_t SymbolType(platform::ModuleSymbols symbols) {
  switch (symbols) {
    case platform::ModuleSymbols::kTable:
      return 6;
    case platform::ModuleSymbols::kDebugData:
      return 7;
    case platform::ModuleSymbols::kNotLoaded:
      return 5;
    default:
      return 0;
  }
}

const char* SymbolTypeText(std::uint32_t type) {
  static constexpr const char* kTexts[] = {"-nosymbols-", "COFF", "CV",  "PDB",    "-exported-",
                                           "-deferred-",  "SYM",  "DIA", "Virtual"};
  return type < std::size(kTexts) ? kTexts[type] : nullptr;
}

void StackWalk::Run(std::uint32_t thread) {
  const platform::WalkEnd end = help_.Walk(thread, copy_.registers, *this);
  if (end == platform::WalkEnd::kStopped) return;
  const std::uint64_t last = pending_ ? counter_ : copy_.registers[platform::kCounterRegister];
  if (pending_) Show();
  if (end == platform::WalkEnd::kFailed) return Tell("StackWalk64", last);
  walker_.OnCallstackEntry(StackWalker::LastEntry, entry_);
  platform::SetLastErrorCode(0);
}

bool StackWalk::ReadWord(std::uint64_t address, std::uint64_t* word) {
  const std::uint64_t into = address - copy_.begin;
  const bool copied = use_copy_ && address >= copy_.begin &&
                      into + sizeof(*word) <= copy_.stack.size() && into < copy_.stack.size();
  if (!copied) return read_(address, word, sizeof(*word));
  std::memcpy(word, copy_.stack.data() + into, sizeof(*word));
  return true;
}

// A frame is shown when its return address, the next frame's counter, is known.
bool StackWalk::OnFrame(std::uint64_t counter, bool exact) {
  if (pending_) {
    if (counter == counter_) {
      walker_.OnDbgHelpErr("StackWalk64-Endless-Callstack!", 0, counter);
      return false;
    }
    Show();
  }
  pending_ = true;
  counter_ = counter;
  exact_ = exact;
  return true;
}

void StackWalk::Show() {
  entry_ = {};
  entry_.offset = counter_;
  if (counter_ != 0) Describe(entry_, counter_);
  walker_.OnCallstackEntry(first_ ? StackWalker::FirstEntry : StackWalker::NextEntry, entry_);
  first_ = false;
}

void StackWalk::Describe(StackWalker::CallstackEntry& entry, std::uint64_t counter) {
  DescribeSymbol(entry, counter);
  if (help_.HasLines()) DescribeLine(entry, counter);
  DescribeModule(entry, counter);
}

void StackWalk::DescribeSymbol(StackWalker::CallstackEntry& entry, std::uint64_t counter) {
  platform::DebugSymbol symbol;
  if (!help_.FindSymbol(counter, exact_, &symbol)) return Tell("SymGetSymFromAddr64", counter);
  entry.offsetFromSymbol = symbol.offset;
  CopyText(entry.name, symbol.name);
  CopyText(entry.undName, UndecorateName(symbol.name));
  CopyText(entry.undFullName, UndecorateFull(symbol.name));
}

void StackWalk::DescribeLine(StackWalker::CallstackEntry& entry, std::uint64_t counter) {
  platform::DebugLine line;
  if (!help_.FindLine(counter, exact_, &line)) return Tell("SymGetLineFromAddr64", counter);
  entry.offsetFromLine = line.offset;
  entry.lineNumber = line.line;
  CopyText(entry.lineFileName, line.file);
}

void StackWalk::DescribeModule(StackWalker::CallstackEntry& entry, std::uint64_t counter) {
  platform::DebugModule module;
  if (!help_.FindModule(counter, &module)) return Tell("SymGetModuleInfo64", counter);
  entry.symType = SymbolType(module.symbols);
  entry.symTypeString = SymbolTypeText(entry.symType);
  CopyText(entry.moduleName, module.name);
  entry.baseOfImage = module.base;
  CopyText(entry.loadedImageName, LibraryPath(module.image));
}

void StackWalk::Tell(const char* function, std::uint64_t counter) {
  walker_.OnDbgHelpErr(function, help_.LastError(), counter);
}

}  // namespace qvx::diagnostics
