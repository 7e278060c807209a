#include "tool/program.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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
  int read_end = -1;
  int write_end = -1;
  explicit Pipe(bool is_terminal = false) {
    int ends[2];
    EXPECT_EQ(0, is_terminal ? openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr) : pipe(ends));
    for (const int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
    read_end = ends[0];
    write_end = ends[1];
  }
};

}  // namespace

Words::Words(const std::string& text) {
  std::istringstream stream(text);
  for (std::string word; stream >> word;) words_.push_back(word);
}

Program::Program(const Words& words, const Setting& setting) {
  std::vector<std::string> texts{QVX_TOOL_PATH};
  texts.insert(texts.end(), words.All().begin(), words.All().end());
  std::vector<char*> arguments(texts.size() + 1);
  std::transform(texts.begin(), texts.end(), arguments.begin(),
                 [](std::string& text) { return text.data(); });
  std::string variable = setting.environment;

  const Pipe input;
  const Pipe err;
  const Pipe out(setting.on_terminal);
  child_ = fork();
  if (child_ == 0) {
    dup2(input.read_end, STDIN_FILENO);
    dup2(out.write_end, STDOUT_FILENO);
    dup2(err.write_end, STDERR_FILENO);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (!variable.empty()) putenv(variable.data());
    if (!setting.folder.empty() && chdir(setting.folder.c_str()) != 0) _exit(126);
    execv(arguments[0], arguments.data());
    _exit(127);
  }
  close(input.read_end);
  close(out.write_end);
  close(err.write_end);
  input_ = input.write_end;
  out_ = out.read_end;
  err_ = err.read_end;
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

std::string Program::WordAfter(const std::string& text) {
  const std::string line = WaitFor(text);
  return line.substr(line.rfind(' ') + 1);
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

ProgramResult ToolTest::Run(const Words& words, const Program::Setting& setting) {
  Program program(words, setting);
  program.EndInput();
  return program.Finish();
}

std::string ToolTest::Done(const Words& words) const {
  const ProgramResult result = Run(words);
  EXPECT_EQ(0, result.code) << testing::PrintToString(words.All());
  EXPECT_EQ("", result.err);
  return result.out;
}

void ToolTest::ExpectRefused(const std::string& reason, const Words& words) const {
  const ProgramResult result = Run(words);
  EXPECT_EQ(1, result.code) << testing::PrintToString(words.All());
  EXPECT_EQ("", result.out);
  EXPECT_EQ(result.err.size() - 1, result.err.find('\n')) << result.err;
  EXPECT_TRUE(result.err.starts_with("qvx: ")) << result.err;
  EXPECT_NE(std::string::npos, result.err.find(reason)) << reason << " in " << result.err;
}

}  // namespace qvx::test
