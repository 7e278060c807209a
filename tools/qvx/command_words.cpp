#include "command_words.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace qvx::tool {

// An option for several words would take one in brackets for a list and split it.
CommandWords::CommandWords(CLI::App& command) : command_(&command) {
  command.add_option("COMMAND", *first_, "Program, and its arguments after it, best behind --")
      ->required();
  command.allow_extras();
}

std::vector<std::string> CommandWords::Get() const {
  std::vector<std::string> words = command_->remaining();
  const auto mark = std::find(words.begin(), words.end(), "--");
  if (mark != words.end()) words.erase(mark);
  words.insert(words.begin(), *first_);
  return words;
}

}  // namespace qvx::tool
