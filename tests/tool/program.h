// The built program as a child process with its input and both outputs in pipes, or with its
// standard output on a terminal of the test's own.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace qvx::test {

struct ProgramResult {
  int code = -1;  // exit code, or minus the signal that ended it
  std::string out;
  std::string err;

  std::vector<std::string> ErrorLines() const;
};

class Program {
 public:
  struct Setting {
    std::string folder;       // working folder
    std::string environment;  // one "NAME=value"
    bool on_terminal = false;
  };

  explicit Program(const std::vector<std::string>& arguments) : Program(arguments, Setting()) {}
  Program(const std::vector<std::string>& arguments, const Setting& setting);
  // Kills what is still running.
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // Reads until the standard output holds the text behind what an earlier call found; gives
  // the whole line it stands in. Fails the test when the program ends without it.
  std::string WaitFor(const std::string& text);
  void Type(const std::string& text);
  void EndInput();
  void Signal(int number) const;
  // Reads to the end and waits for the program.
  ProgramResult Finish();

 private:
  void ReadSome();

  pid_t child_ = -1;
  int input_ = -1;
  int out_ = -1;
  int err_ = -1;
  std::size_t seen_ = 0;
  ProgramResult result_;
};

// Runs the program to its end, with an empty input.
ProgramResult RunProgram(const std::vector<std::string>& arguments,
                         const Program::Setting& setting = Program::Setting());

}  // namespace qvx::test
