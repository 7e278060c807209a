#include "tool/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <sstream>
#include <utility>

namespace qvx::test {
namespace {

// Longer than any of the tests takes, even on a busy machine.
constexpr int kPatienceMs = 120000;

void CloseOnce(int& descriptor) {
  if (descriptor >= 0) close(std::exchange(descriptor, -1));
}

void ReadInto(int& descriptor, short events, std::string& text) {
  if (events == 0) return;
  std::array<char, 16384> block;
  const ssize_t count = read(descriptor, block.data(), block.size());
  // A terminal reports its other end's close as an error.
  if (count <= 0) return CloseOnce(descriptor);
  text.append(block.data(), static_cast<std::size_t>(count));
}

struct Pipe {
  std::array<int, 2> ends{-1, -1};
  Pipe() { EXPECT_EQ(0, pipe2(ends.data(), O_CLOEXEC)); }
};

[[noreturn]] void BecomeProgram(std::vector<char*>& arguments, const Program::Setting& setting) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (!setting.folder.empty() && chdir(setting.folder.c_str()) != 0) _exit(126);
  execv(arguments[0], arguments.data());
  _exit(127);
}

}  // namespace

std::vector<std::string> ProgramResult::ErrorLines() const {
  std::vector<std::string> lines;
  std::istringstream stream(err);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

Program::Program(const std::vector<std::string>& arguments, const Setting& setting) {
  std::vector<std::string> texts{QVX_TOOL_PATH};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  std::string variable = setting.environment;

  Pipe input;
  Pipe err;
  Pipe out;
  if (setting.on_terminal) {
    close(out.ends[0]);
    close(out.ends[1]);
    EXPECT_EQ(0, openpty(&out.ends[0], &out.ends[1], nullptr, nullptr, nullptr));
    fcntl(out.ends[0], F_SETFD, FD_CLOEXEC);
    fcntl(out.ends[1], F_SETFD, FD_CLOEXEC);
  }
  child_ = fork();
  if (child_ == 0) {
    dup2(input.ends[0], STDIN_FILENO);
    dup2(out.ends[1], STDOUT_FILENO);
    dup2(err.ends[1], STDERR_FILENO);
    if (!variable.empty()) putenv(variable.data());
    BecomeProgram(pointers, setting);
  }
  close(input.ends[0]);
  close(out.ends[1]);
  close(err.ends[1]);
  input_ = input.ends[1];
  out_ = out.ends[0];
  err_ = err.ends[0];
}

Program::~Program() {
  CloseOnce(input_);
  CloseOnce(out_);
  CloseOnce(err_);
  if (child_ <= 0) return;
  kill(child_, SIGKILL);
  waitpid(child_, nullptr, 0);
}

std::string Program::WaitFor(const std::string& text) {
  for (;;) {
    const std::size_t found = result_.out.find(text, seen_);
    const std::size_t end = result_.out.find_first_of("\r\n", found);
    if (found != std::string::npos && end != std::string::npos) {
      seen_ = end + 1;
      const std::size_t begin = result_.out.rfind('\n', found) + 1;
      return result_.out.substr(begin, end - begin);
    }
    if (out_ < 0) break;
    ReadSome();
  }
  ADD_FAILURE() << "no \"" << text << "\" in:\n" << result_.out << result_.err;
  return std::string();
}

void Program::ReadSome() {
  std::array<pollfd, 2> polled{pollfd{out_, POLLIN, 0}, pollfd{err_, POLLIN, 0}};
  if (poll(polled.data(), polled.size(), kPatienceMs) == 0) {
    ADD_FAILURE() << "the program is silent and does not end";
    Signal(SIGKILL);
    CloseOnce(out_);
    CloseOnce(err_);
    return;
  }
  ReadInto(out_, polled[0].revents, result_.out);
  ReadInto(err_, polled[1].revents, result_.err);
}

void Program::Type(const std::string& text) {
  ASSERT_EQ(static_cast<ssize_t>(text.size()), write(input_, text.data(), text.size()));
}

void Program::EndInput() {
  CloseOnce(input_);
}

void Program::Signal(int number) const {
  kill(child_, number);
}

ProgramResult Program::Finish() {
  while (out_ >= 0 || err_ >= 0) ReadSome();
  int status = 0;
  waitpid(std::exchange(child_, -1), &status, 0);
  result_.code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return result_;
}

ProgramResult RunProgram(const std::vector<std::string>& arguments,
                         const Program::Setting& setting) {
  Program program(arguments, setting);
  program.EndInput();
  return program.Finish();
}

}  // namespace qvx::test
