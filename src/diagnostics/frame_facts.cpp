#include "diagnostics/frame_facts.h"

#include "diagnostics/undecorate.h"
#include "platform/path.h"

namespace qvx::diagnostics {
namespace {

// Corrupt stacks bring new addresses without end.
constexpr std::size_t kMostKnown = 8192;

void AskForSymbol(platform::DebugHelp& help, std::uint64_t counter, bool exact, FrameFacts& facts) {
  platform::DebugSymbol symbol;
  if (!help.FindSymbol(counter, exact, &symbol)) {
    facts.symbol_error = help.LastError();
    return;
  }
  facts.undecorated = UndecorateName(symbol.name);
  facts.undecorated_full = UndecorateFull(symbol.name);
  facts.symbol = std::move(symbol);
}

void AskForLine(platform::DebugHelp& help, std::uint64_t counter, bool exact, FrameFacts& facts) {
  platform::DebugLine line;
  if (help.FindLine(counter, exact, &line)) {
    facts.line = std::move(line);
  } else {
    facts.line_error = help.LastError();
  }
}

void AskForModule(platform::DebugHelp& help, std::uint64_t counter, FrameFacts& facts) {
  platform::DebugModule module;
  if (!help.FindModule(counter, &module)) {
    facts.module_error = help.LastError();
    return;
  }
  facts.image = LibraryPath(module.image);
  facts.module = std::move(module);
}

}  // namespace

const FrameFacts& KnownFrames::Of(platform::DebugHelp& help, std::uint64_t counter, bool exact) {
  auto& known = exact ? standing_ : returning_;
  if (const auto found = known.find(counter); found != known.end()) return found->second;
  if (known.size() >= kMostKnown) known.clear();
  FrameFacts facts;
  AskForSymbol(help, counter, exact, facts);
  AskForLine(help, counter, exact, facts);
  AskForModule(help, counter, facts);
  return known.emplace(counter, std::move(facts)).first->second;
}

std::string LibraryPath(const std::string& native) {
  if (!native.starts_with('/')) return native;
  return platform::FromNativePath<char>(native).value_or(native);
}

}  // namespace qvx::diagnostics
