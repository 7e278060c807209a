// Lists of words at the end of a command, each as it was typed. An option of the parser for
// several words would take one in brackets for a list and split it.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qvx::tool {

// At least one word. Takes all words of the command line that are nothing else, and those
// behind "--".
class Words {
 public:
  Words(CLI::App& command, const char* name, const char* what);

  // In the callback of the command. Throws CLI::ParseError for an option that nobody knows.
  std::vector<std::string> Paths() const;
  // The same for a program that is to run, whose options nobody here knows.
  std::vector<std::string> Command() const;

 private:
  CLI::App* const command_;
  const std::shared_ptr<std::string> first_ = std::make_shared<std::string>();
};

}  // namespace qvx::tool
