// qvx fetch, cat and post against a web server.
#include <signal.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "support/packet_bytes.h"
#include "support/web_servers.h"
#include "tool/program.h"

namespace qvx::test {
namespace {

namespace fs = std::filesystem;

class ToolFetch : public ToolTest {
 protected:
  ToolFetch() {
    fs::create_directories(Path("there"));
    fs::create_directories(Path("here"));
    folder_ = Path("here");
    temp_.Write("there/big", big_);
    temp_.Write("there/empty", "");
    temp_.Write("there/small.txt", "0123456789");
    temp_.Write("there/small.md5", "781E5E245D69B566979B86E28D23F2C7  small.txt\n");
    temp_.Write("there/wrong.md5", "00000000000000000000000000000000");
    temp_.Write("right.pem", nginx_.Authority());
    temp_.Write("other.pem", nginx_.OtherAuthority());
  }

  // Whether the line "piece 0 BYTES DONE" tells of a byte.
  static bool HasBegun(const std::string& journal) {
    const std::size_t at = journal.find("piece 0 ");
    unsigned long long bytes = 0;
    unsigned long long done = 0;
    return at != std::string::npos &&
           std::sscanf(journal.c_str() + at, "piece 0 %llu %llu", &bytes, &done) == 2 && done > 0;
  }

  // Kills a slow run once its journal tells of bytes of the first piece.
  void BreakOff() const {
    Program program(fetch_big_ + " --limit 2M", {.folder = folder_, .on_terminal = true});
    do {
      ASSERT_NE("", program.WaitFor(" left"));
    } while (!HasBegun(Read("here/big.part.journal")));
    program.Signal(SIGKILL);
    EXPECT_EQ(-SIGKILL, program.Finish().code);
    EXPECT_FALSE(fs::exists(Path("here/big")));
  }
  // One file is left, and it is this one.
  void ExpectOnly(const std::string& name, const std::string& content) const {
    EXPECT_TRUE(content == Read("here/" + name));
    EXPECT_EQ(1, std::distance(fs::directory_iterator(folder_), {}));
    fs::remove(Path("here/" + name));
  }

  const std::string big_ = Pattern(12'000'001);
  const Nginx nginx_{Path("there")};
  const std::string small_ = nginx_.Url("small.txt");
  const std::string fetch_big_ = "fetch -j4 " + nginx_.Url("big");
};

TEST_F(ToolFetch, WholeFiles) {
  EXPECT_NE(std::string::npos, Done(fetch_big_).find("fetched big, 11.44 MiB in "));
  ExpectRefused("big exists already (--force replaces it)", fetch_big_);
  Done(fetch_big_ + " --force --output .");
  ExpectOnly("big", big_);
  Done("fetch -o one " + nginx_.Url("moved/big"));
  ExpectOnly("one", big_);
  Done("fetch -j 3 " + nginx_.Url("empty"));
  ExpectOnly("empty", "");
  Done("fetch " + nginx_.SecureUrl("private/small.txt") + " --user user:secret --ca ../right.pem" +
       " --md5-url " + nginx_.Url("small.md5"));
  ExpectOnly("small.txt", "0123456789");
  const Tinyproxy proxy;
  Done("fetch " + small_ + " --proxy http://user:secret@" + proxy.Address());
  ExpectOnly("small.txt", "0123456789");
}

TEST_F(ToolFetch, GoesOnWhereItWasKilledUnlessTheSizeChanged) {
  BreakOff();
  // What is there already is not asked for again, so the change of its first byte goes unseen.
  std::string changed = big_;
  changed[0] = static_cast<char>(changed[0] ^ 1);
  temp_.Write("there/big", changed);
  EXPECT_NE(std::string::npos, Done(fetch_big_).find("going on at "));
  ExpectOnly("big", big_);

  BreakOff();
  temp_.Write("there/big", "x" + big_);
  EXPECT_NE(std::string::npos, Done(fetch_big_).find("has changed: starting afresh"));
  ExpectOnly("big", "x" + big_);
}

TEST_F(ToolFetch, TellsWhyItFails) {
  const std::string fetch = "fetch " + small_;
  const std::string secure = "fetch " + nginx_.SecureUrl("small.txt");
  ExpectRefused("status 404", "fetch " + nginx_.Url("absent"));
  ExpectRefused("status 401", "cat --user user:wrong " + nginx_.Url("private/small.txt"));
  ExpectRefused("certificate", secure + " --ca ../other.pem");
  ExpectRefused("certificate", secure);
  ExpectRefused("no certificate in ", fetch + " --ca ../there/big");
  ExpectRefused("the MD5 of what came is 781e5e245d69b566979b86e28d23f2c7",
                fetch + " --md5-url " + nginx_.Url("wrong.md5"));
  ExpectRefused("no MD5 at ", fetch + " --md5-url " + small_);
  ExpectRefused("the address names no file", "fetch " + nginx_.Url(""));
  ExpectRefused("no address of the web: ", "fetch file:///etc/passwd");
  ExpectRefused("cannot write absent/x.part", fetch + " -o absent/x");
  ExpectRefused("no proxy: ftp://x:1", "cat --proxy ftp://x:1 " + small_);
  ExpectRefused("status 405", "post --data ../right.pem " + small_);
  EXPECT_TRUE(fs::is_empty(folder_));
}

TEST_F(ToolFetch, CatAndPost) {
  const std::string cat = "cat " + small_;
  EXPECT_TRUE(big_ == Done("cat " + nginx_.Url("big")));
  EXPECT_EQ("0123456789", Done("cat --insecure " + nginx_.SecureUrl("small.txt")));
  EXPECT_EQ("3456789", Done(cat + " --from 3"));
  EXPECT_EQ("34", Done(cat + " --from 3 --bytes 2"));
  EXPECT_EQ("9", Done(cat + " --from 9 --bytes 7"));
  EXPECT_EQ("", Done(cat + " --from 10"));
  EXPECT_EQ("", Done(cat + " --bytes 0"));
  ExpectRefused("the file ends before, at 10", cat + " --from 11");
  EXPECT_EQ("POST:a line!", Done({"post", nginx_.Url("echo"), "--header", "X-Own: !", "--data",
                                  temp_.Write("l", "a line")}));
}

}  // namespace
}  // namespace qvx::test
