// One walk: frames out of registers and memory, and what is known of each, for a walker.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "diagnostics/frame_facts.h"
#include "platform/debug_help.h"
#include "platform/stack_memory.h"
#include "qvx/stack_walker.h"

namespace qvx::diagnostics {

// Cuts what doesn't fit.
template <std::size_t Size>
void CopyText(char (&target)[Size], std::string_view text) {
  const std::size_t size = text.copy(target, Size - 1);
  target[size] = '\0';
}

[[gnu::format(printf, 2, 3)]] void FormatLine(char (&text)[1024], const char* format, ...);

platform::Registers FromContext(const CONTEXT& context);
std::uint32_t SymbolType(platform::ModuleSymbols symbols);
// Null for an unknown type.
const char* SymbolTypeText(std::uint32_t type);

class StackWalk : private platform::WalkSink {
 public:
  using ReadMemory = std::function<bool(std::uint64_t address, void* buffer, unsigned long size)>;

  // use_copy: the stack of copy stands before what read gives.
  StackWalk(StackWalker& walker, platform::DebugHelp& help, KnownFrames& known,
            const platform::ThreadCopy& copy, ReadMemory read, bool use_copy)
      : walker_(walker),
        help_(help),
        known_(known),
        copy_(copy),
        read_(std::move(read)),
        use_copy_(use_copy) {}

  void Run(std::uint32_t thread);

 private:
  bool ReadWord(std::uint64_t address, std::uint64_t* word) override;
  bool OnFrame(std::uint64_t counter, bool exact) override;
  void Show();
  void ShowEnd();
  void Describe(StackWalker::CallstackEntry& entry, std::uint64_t counter);
  void DescribeSymbol(StackWalker::CallstackEntry& entry, const FrameFacts& facts);
  void DescribeLine(StackWalker::CallstackEntry& entry, const FrameFacts& facts);
  void DescribeModule(StackWalker::CallstackEntry& entry, const FrameFacts& facts);

  StackWalker& walker_;
  platform::DebugHelp& help_;
  KnownFrames& known_;
  const platform::ThreadCopy& copy_;
  ReadMemory read_;
  bool use_copy_;
  // The frame whose return address is not known yet.
  bool pending_ = false;
  std::uint64_t counter_ = 0;
  bool exact_ = true;
  bool first_ = true;
  StackWalker::CallstackEntry entry_{};
};

}  // namespace qvx::diagnostics
