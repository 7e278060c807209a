// The commands around processes: ps, run and cpu.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tool/program.h"

namespace qvx::test {
namespace {

TEST(Tool, ProcessesAndCommands) {
  for (const char* command : {"ps", "run", "cpu"}) {
    EXPECT_EQ(0, RunProgram({command, "--help"}).code) << command;
  }
  EXPECT_EQ("[a  b][']", RunProgram({"run", "--", "printf", "[%s]", "a  b", "'"}).out);
  const ProgramResult shell = RunProgram({"run", "--shell", "--", "echo", "$((1+1));", "exit 3"});
  EXPECT_EQ(1, shell.code);
  EXPECT_EQ("2\n", shell.out);
  EXPECT_EQ("qvx: echo ended with status 3\n", shell.err);
  EXPECT_EQ("qvx: cannot run /no/such/program\n", RunProgram({"run", "/no/such/program"}).err);
  const ProgramResult list = RunProgram({"ps", "TOOL_test"});
  EXPECT_EQ(0, list.code) << list.err;
  EXPECT_NE(std::string::npos, list.out.find(" " + std::to_string(getpid()) + " ")) << list.out;
  EXPECT_EQ("qvx: no process runs no such\n", RunProgram({"ps", "no such"}).err);
  EXPECT_EQ(0u, RunProgram({"cpu"}).out.find("vendor "));
}

}  // namespace
}  // namespace qvx::test
