// The words of a command that the program is to run, each as it was typed.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qvx::tool {

class CommandWords {
 public:
  // Takes all words of the command line that are nothing else, and those behind "--".
  explicit CommandWords(CLI::App& command);

  // In the callback of the command.
  std::vector<std::string> Get() const;

 private:
  CLI::App* const command_;
  const std::shared_ptr<std::string> first_ = std::make_shared<std::string>();
};

}  // namespace qvx::tool
