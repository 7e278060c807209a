// A `qvx serve` of each test's own, and ways to run client commands against it.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/temp_folder.h"
#include "tool/program.h"

namespace qvx::test {

class WithServer : public testing::Test {
 protected:
  WithServer() {
    std::filesystem::create_directory(there_);
    std::filesystem::create_directory(here_);
    const std::string line = server_.WaitFor("serving on ");
    address_ = line.substr(line.rfind(' ') + 1);
  }

  ~WithServer() override {
    server_.Signal(SIGTERM);
    const ProgramResult result = server_.Finish();
    EXPECT_EQ(0, result.code) << result.err;
    EXPECT_NE(std::string::npos, result.out.find("stopped\n"));
  }

  // COMMAND SERVER ARGUMENT..., in the client's folder.
  std::vector<std::string> Words(const std::string& command,
                                 const std::vector<std::string>& arguments) const {
    std::vector<std::string> words{command, address_};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
  }
  ProgramResult Run(const std::string& command, const std::vector<std::string>& arguments) const {
    return RunProgram(Words(command, arguments), {here_, "", false});
  }
  // The same where nothing may go wrong; gives the output.
  std::string Output(const std::string& command, const std::vector<std::string>& arguments) const {
    const ProgramResult result = Run(command, arguments);
    EXPECT_EQ(0, result.code) << command << ": " << result.err;
    EXPECT_EQ("", result.err);
    return result.out;
  }
  // The same where it must fail with one line that holds the text.
  void ExpectRefused(const std::string& text, const std::string& command,
                     const std::vector<std::string>& arguments) const {
    const ProgramResult result = Run(command, arguments);
    EXPECT_EQ(1, result.code) << command;
    ASSERT_EQ(1u, result.ErrorLines().size()) << result.err;
    EXPECT_EQ(0u, result.err.find("qvx: ")) << result.err;
    EXPECT_NE(std::string::npos, result.err.find(text)) << result.err;
  }

  std::string Here(const std::string& name) const { return here_ + "/" + name; }
  std::string There(const std::string& name) const { return there_ + "/" + name; }

  // Names below a folder, hidden ones too.
  static std::vector<std::string> Names(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
      names.push_back(entry.path().lexically_relative(folder).string());
    std::sort(names.begin(), names.end());
    return names;
  }

  TempFolder temp_;
  const std::string there_ = temp_.Path("there");
  const std::string here_ = temp_.Path("here");
  Program server_{{"serve", "--port", "0", "-v", "--folder", "1=" + temp_.Path()}};
  std::string address_;
};

}  // namespace qvx::test
