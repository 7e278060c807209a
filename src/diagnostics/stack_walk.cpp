#include "diagnostics/stack_walk.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/last_error.h"

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
  if (end == platform::WalkEnd::kFailed) {
    walker_.OnDbgHelpErr("StackWalk64", help_.LastError(), last);
    return;
  }
  ShowEnd();
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
    if (counter == 0) {
      ShowEnd();
      return false;
    }
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

void StackWalk::ShowEnd() {
  walker_.OnCallstackEntry(StackWalker::LastEntry, entry_);
  platform::SetLastErrorCode(0);
}

void StackWalk::Describe(StackWalker::CallstackEntry& entry, std::uint64_t counter) {
  const FrameFacts& facts = known_.Of(help_, counter, exact_);
  DescribeSymbol(entry, facts);
  if (help_.HasLines()) DescribeLine(entry, facts);
  DescribeModule(entry, facts);
}

void StackWalk::DescribeSymbol(StackWalker::CallstackEntry& entry, const FrameFacts& facts) {
  if (!facts.symbol)
    return walker_.OnDbgHelpErr("SymGetSymFromAddr64", facts.symbol_error, entry.offset);
  entry.offsetFromSymbol = facts.symbol->offset;
  CopyText(entry.name, facts.symbol->name);
  CopyText(entry.undName, facts.undecorated);
  CopyText(entry.undFullName, facts.undecorated_full);
}

void StackWalk::DescribeLine(StackWalker::CallstackEntry& entry, const FrameFacts& facts) {
  if (!facts.line)
    return walker_.OnDbgHelpErr("SymGetLineFromAddr64", facts.line_error, entry.offset);
  entry.offsetFromLine = facts.line->offset;
  entry.lineNumber = facts.line->line;
  CopyText(entry.lineFileName, facts.line->file);
}

void StackWalk::DescribeModule(StackWalker::CallstackEntry& entry, const FrameFacts& facts) {
  if (!facts.module)
    return walker_.OnDbgHelpErr("SymGetModuleInfo64", facts.module_error, entry.offset);
  entry.symType = SymbolType(facts.module->symbols);
  entry.symTypeString = SymbolTypeText(entry.symType);
  CopyText(entry.moduleName, facts.module->name);
  entry.baseOfImage = facts.module->base;
  CopyText(entry.loadedImageName, facts.image);
}

}  // namespace qvx::diagnostics
