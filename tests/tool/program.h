// The built program as a child process with its input and both outputs in pipes, or with its
// standard output on a terminal of the test's own.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "support/temp_folder.h"

namespace qvx::test {

// What stands behind the program's name: one text that blanks divide, or word by word.
class Words {
 public:
  Words(const char* text) : Words(std::string(text)) {}
  Words(const std::string& text);
  Words(std::initializer_list<std::string> words) : words_(words) {}
  Words(std::vector<std::string> words) : words_(std::move(words)) {}

  const std::vector<std::string>& All() const { return words_; }

 private:
  std::vector<std::string> words_;
};

struct ProgramResult {
  int code = -1;  // exit code, or minus the signal that ended it
  std::string out;
  std::string err;
};

class Program {
 public:
  struct Setting {
    std::string folder{};       // working folder
    std::string environment{};  // one "NAME=value"
    bool on_terminal = false;
  };

  explicit Program(const Words& words) : Program(words, Setting()) {}
  Program(const Words& words, const Setting& setting);
  // Kills what is still running.
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // Reads until the standard output holds the text behind what an earlier call found; gives
  // the whole line it stands in. Fails the test when the program ends without it.
  std::string WaitFor(const std::string& text);
  // The last word of such a line.
  std::string WordAfter(const std::string& text);
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

// Runs the program in a temporary folder of the test's own.
class ToolTest : public testing::Test {
 protected:
  // Runs it to its end, with an empty input.
  ProgramResult Run(const Words& words) const { return Run(words, {.folder = folder_}); }
  static ProgramResult Run(const Words& words, const Program::Setting& setting);
  // The same where nothing may go wrong; gives the standard output.
  std::string Done(const Words& words) const;
  // The same where it must fail with nothing but one line, which holds the reason.
  void ExpectRefused(const std::string& reason, const Words& words) const;

  std::string Path(const std::string& name) const { return temp_.Path(name); }
  std::string Read(const std::string& name) const { return ReadWhole(Path(name)); }

  const TempFolder temp_;
  std::string folder_ = temp_.Path();  // where it runs
};

}  // namespace qvx::test
