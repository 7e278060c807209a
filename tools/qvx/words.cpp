#include "words.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace qvx::tool {

Words::Words(CLI::App& command, const char* name, const char* what) : command_(&command) {
  command.add_option(name, *first_, what)->required()->type_name("TEXT ...");
  command.allow_extras();
}

std::vector<std::string> Words::Paths() const {
  for (const std::string& word : command_->remaining()) {
    if (word == "--") break;
    if (word.size() > 1 && word[0] == '-') throw CLI::ExtrasError({word});
  }
  return Command();
}

std::vector<std::string> Words::Command() const {
  std::vector<std::string> words = command_->remaining();
  const auto mark = std::find(words.begin(), words.end(), "--");
  if (mark != words.end()) words.erase(mark);
  words.insert(words.begin(), *first_);
  return words;
}

}  // namespace qvx::tool
