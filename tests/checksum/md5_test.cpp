#include "qvx/md5.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "support/fault_plan.h"
#include "support/packet_bytes.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

const unsigned char* Data(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

std::string Hex(const unsigned char* digest) {
  std::string text;
  for (int i = 0; i < 16; ++i) {
    text += MD5::HEX[digest[i] >> 4];
    text += MD5::HEX[digest[i] & 15];
  }
  return text;
}

std::string Digest(const std::string& text) {
  return Hex(MD5(Data(text), text.size()).digest());
}

std::string FileDigest(const std::string& native_path) {
  std::u16string path(native_path.begin(), native_path.end());
  unsigned char digest[16];
  std::memset(digest, 0xEE, sizeof(digest));
  GetFileMD5(path.c_str(), digest);
  return Hex(digest);
}

// Of the suite of RFC 1321, appendix A.5.
TEST(Md5, GivesTheDigestsOfTheStandard) {
  const char* const suite[][2] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"}};
  for (const auto& one : suite) EXPECT_EQ(Digest(one[0]), one[1]) << one[0];
  EXPECT_EQ(Hex(MD5().digest()), suite[0][1]);
}

// Every length around the block, whole and in random pieces, asked for on the way.
TEST(Md5, DoesNotDependOnThePieces) {
  const std::string text = Pattern(1000);
  std::mt19937 random(7);
  for (std::size_t length = 0; length <= text.size(); length += length < 200 ? 1 : 97) {
    const std::string whole = Digest(text.substr(0, length));
    MD5 pieces;
    for (std::size_t done = 0; done < length;) {
      const std::size_t piece = std::min<std::size_t>(random() % 150, length - done);
      pieces.update(Data(text) + done, piece);
      done += piece;
      if (random() % 3 != 0) continue;
      ASSERT_EQ(Hex(pieces.digest()), Digest(text.substr(0, done)));
    }
    ASSERT_EQ(Hex(pieces.digest()), whole) << length;
    ASSERT_EQ(Hex(pieces.digest()), whole) << length;
    pieces.reset();
    ASSERT_EQ(Hex(pieces.digest()), Digest(""));
  }
}

TEST(Md5, AgreesWithTheSystemsProgramOnFiles) {
  TempFolder folder;
  const std::string text = Pattern(0x100000 + 1);
  for (std::size_t size : {1u, 55u, 56u, 63u, 64u, 65u, 0x100000u, 0x100000u + 1}) {
    const std::string path = folder.Write("file", text.substr(0, size));
    ASSERT_EQ(std::system(("md5sum < " + path + " > " + folder.Path("sum")).c_str()), 0);
    EXPECT_EQ(FileDigest(path) + "  -\n", ReadWhole(folder.Path("sum"))) << size;
    EXPECT_EQ(FileDigest(path), Digest(text.substr(0, size))) << size;
  }
}

TEST(Md5, GivesZerosForWhatIsNoFileWithContent) {
  const std::string none(32, '0');
  TempFolder folder;
  ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), 0600), 0);
  for (const std::string& path : {folder.Write("empty", ""), folder.Path("missing"), folder.Path(),
                                  folder.Path("fifo"), std::string("/dev/zero")}) {
    EXPECT_EQ(FileDigest(path), none) << path;
  }
  EXPECT_NO_FATAL_FAILURE(GetFileMD5(u"x", nullptr));
  unsigned char digest[16] = {1};
  GetFileMD5(nullptr, digest);
  EXPECT_EQ(Hex(digest), none);
}

TEST(Md5, CoversWhatCouldBeRead) {
  TempFolder folder;
  const std::string text = Pattern(3 * 0x100000);
  const std::string path = folder.Write("file", text);
  {
    FaultPlan plan;
    plan.Shorten(platform::Operation::kFileRead, 1, 1000, 5);
    EXPECT_EQ(FileDigest(path), Digest(text));
  }
  FaultPlan plan;
  plan.Fail(platform::Operation::kFileRead, 2, EIO, 100);
  EXPECT_EQ(FileDigest(path), Digest(text.substr(0, 0x100000)));
}

}  // namespace
}  // namespace qvx::test
