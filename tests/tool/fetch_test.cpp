// qvx fetch, cat and post against a web server.
#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "support/temp_folder.h"
#include "support/web_servers.h"
#include "tool/program.h"

namespace qvx::test {
namespace {

namespace fs = std::filesystem;

std::string RandomBytes(std::size_t size) {
  std::mt19937 random(7);
  std::string bytes;
  for (bytes.reserve(size + 4); bytes.size() < size;) {
    const std::uint32_t word = static_cast<std::uint32_t>(random());
    bytes.append(reinterpret_cast<const char*>(&word), sizeof(word));
  }
  bytes.resize(size);
  return bytes;
}

// The bytes that the first piece has, by the journal of a run that is under way; waits for them.
std::uint64_t CopiedOfFirstPiece(const std::string& journal) {
  for (int i = 0; i < 12000; ++i) {
    std::ifstream stream(journal);
    for (std::string word; stream >> word;) {
      std::uint64_t start = 0, end = 0, copied = 0;
      if (word == "piece" && stream >> start >> end >> copied && copied > 0) return copied;
      if (word == "piece") break;
    }
    const timespec pause = {0, 10'000'000};
    nanosleep(&pause, nullptr);
  }
  return 0;
}

class ToolFetch : public testing::Test {
 protected:
  ToolFetch() {
    fs::create_directories(temp_.Path("there"));
    fs::create_directories(temp_.Path("here"));
    temp_.Write("there/big", big_);
    temp_.Write("there/empty", "");
    temp_.Write("there/small.txt", "0123456789");
    temp_.Write("there/small.md5", "781E5E245D69B566979B86E28D23F2C7  small.txt\n");
    temp_.Write("there/wrong.md5", "00000000000000000000000000000000");
    temp_.Write("right.pem", nginx_.Authority());
    temp_.Write("other.pem", nginx_.OtherAuthority());
  }

  ProgramResult Run(const std::vector<std::string>& arguments) const {
    return RunProgram(arguments, setting_);
  }
  std::string Done(const std::vector<std::string>& arguments) const {
    const ProgramResult result = Run(arguments);
    EXPECT_EQ(0, result.code) << result.err;
    return result.out;
  }
  void ExpectRefused(const std::string& reason, const std::vector<std::string>& arguments) const {
    const ProgramResult result = Run(arguments);
    EXPECT_EQ(1, result.code) << arguments[0] << reason;
    EXPECT_EQ(1u, result.ErrorLines().size()) << result.err;
    EXPECT_NE(std::string::npos, result.err.find(reason)) << result.err;
  }
  std::string Here(const std::string& name) const { return temp_.Path("here/" + name); }
  std::vector<std::string> Big(const std::vector<std::string>& more) const {
    std::vector<std::string> words{"fetch", nginx_.Url("big"), "-j4"};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }

  // Kills a slow run once it has some of the first piece.
  void BreakOff() const {
    Program program(Big({"--limit", "2M"}), {setting_.folder, "", true});
    EXPECT_GT(CopiedOfFirstPiece(Here("big.part.journal")), 0u);
    program.Signal(SIGKILL);
    const ProgramResult result = program.Finish();
    EXPECT_EQ(-SIGKILL, result.code);
    EXPECT_NE(std::string::npos, result.out.find(" left")) << result.out;
    EXPECT_FALSE(fs::exists(Here("big")));
  }
  // One file is left, and it is this one.
  void ExpectOnly(const std::string& name, const std::string& content) const {
    EXPECT_TRUE(content == ReadWhole(Here(name)));
    EXPECT_EQ(1, std::distance(fs::directory_iterator(temp_.Path("here")), {}));
    fs::remove(Here(name));
  }

  const TempFolder temp_;
  const std::string big_ = RandomBytes(12'000'001);
  const Nginx nginx_{temp_.Path("there")};
  const Program::Setting setting_{temp_.Path("here"), "", false};
};

TEST_F(ToolFetch, WholeFiles) {
  EXPECT_NE(std::string::npos, Done(Big({})).find("fetched big, 11.44 MiB in "));
  ExpectRefused("big exists already (--force replaces it)", Big({}));
  Done(Big({"--force", "--output", "."}));
  ExpectOnly("big", big_);
  Done({"fetch", nginx_.Url("moved/big"), "-o", "one"});
  ExpectOnly("one", big_);
  Done({"fetch", nginx_.Url("empty"), "-j", "3"});
  ExpectOnly("empty", "");
  Done({"fetch", nginx_.SecureUrl("private/small.txt"), "--user", "user:secret", "--ca",
        temp_.Path("right.pem"), "--md5-url", nginx_.Url("small.md5")});
  ExpectOnly("small.txt", "0123456789");
  const Tinyproxy proxy;
  Done({"fetch", nginx_.Url("small.txt"), "--proxy", "http://user:secret@" + proxy.Address()});
  ExpectOnly("small.txt", "0123456789");
}

TEST_F(ToolFetch, GoesOnWhereItWasKilled) {
  BreakOff();
  // What is there already is not asked for again, so the change of its first byte goes unseen.
  std::string changed = big_;
  changed[0] = static_cast<char>(changed[0] ^ 1);
  temp_.Write("there/big", changed);
  EXPECT_NE(std::string::npos, Done(Big({})).find("going on at "));
  ExpectOnly("big", big_);
}

TEST_F(ToolFetch, StartsAfreshWhenTheSizeChanged) {
  BreakOff();
  const std::string other = "x" + big_;
  temp_.Write("there/big", other);
  EXPECT_NE(std::string::npos, Done(Big({})).find("has changed: starting afresh"));
  ExpectOnly("big", other);
}

TEST_F(ToolFetch, TellsWhyItFails) {
  const std::string small = nginx_.Url("small.txt");
  ExpectRefused("status 404", {"fetch", nginx_.Url("absent")});
  ExpectRefused("status 401", {"cat", nginx_.Url("private/small.txt"), "--user", "user:wrong"});
  ExpectRefused("certificate",
                {"fetch", nginx_.SecureUrl("small.txt"), "--ca", temp_.Path("other.pem")});
  ExpectRefused("certificate", {"fetch", nginx_.SecureUrl("small.txt")});
  ExpectRefused("no certificate in ", {"fetch", small, "--ca", temp_.Path("there/big")});
  ExpectRefused("the MD5 of what came is 781e5e245d69b566979b86e28d23f2c7",
                {"fetch", small, "--md5-url", nginx_.Url("wrong.md5")});
  ExpectRefused("no MD5 at ", {"fetch", small, "--md5-url", small});
  ExpectRefused("the address names no file", {"fetch", nginx_.Url("")});
  ExpectRefused("no address of the web: ", {"fetch", "file:///etc/passwd"});
  ExpectRefused("cannot write absent/x.part", {"fetch", small, "-o", "absent/x"});
  ExpectRefused("no proxy: ftp://x:1", {"cat", small, "--proxy", "ftp://x:1"});
  ExpectRefused("status 405", {"post", small, "--data", temp_.Path("right.pem")});
  EXPECT_TRUE(fs::is_empty(temp_.Path("here")));
}

TEST_F(ToolFetch, CatAndPost) {
  const std::string small = nginx_.Url("small.txt");
  EXPECT_TRUE(big_ == Done({"cat", nginx_.Url("big")}));
  EXPECT_EQ("0123456789", Done({"cat", nginx_.SecureUrl("small.txt"), "--insecure"}));
  EXPECT_EQ("3456789", Done({"cat", small, "--from", "3"}));
  EXPECT_EQ("34", Done({"cat", small, "--from", "3", "--bytes", "2"}));
  EXPECT_EQ("9", Done({"cat", small, "--from", "9", "--bytes", "7"}));
  EXPECT_EQ("", Done({"cat", small, "--from", "10"}));
  EXPECT_EQ("", Done({"cat", small, "--bytes", "0"}));
  ExpectRefused("the file ends before, at 10", {"cat", small, "--from", "11"});
  EXPECT_EQ("POST:a line!", Done({"post", nginx_.Url("echo"), "--header", "X-Own: !", "--data",
                                  temp_.Write("l", "a line")}));
}

}  // namespace
}  // namespace qvx::test
