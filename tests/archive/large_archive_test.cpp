// Big archives: many files, names of every script, and sizes beyond 4 GiB.
#include <sys/stat.h>
#include <unistd.h>

#include "archive/archive_support.h"
#include "archive/zip_output.h"
#include "platform/file.h"
#include "qvx/zipper.h"

namespace qvx::test {
namespace {

using LargeArchive = ArchiveTest;

TEST_F(LargeArchive, TenThousandFilesWithNamesOfEveryScript) {
  const std::string scripts[] = {"latin \xc3\xa9",
                                 "\xd0\xba\xd0\xb8\xd1\x80",
                                 "\xce\xb5\xce\xbb",
                                 "\xd7\xa2\xd7\x91",
                                 "\xd8\xb9\xd8\xb1",
                                 "\xe0\xa4\xb9\xe0\xa4\xbf",
                                 "\xe0\xb9\x84\xe0\xb8\x97",
                                 "\xe4\xb8\xad",
                                 "\xe3\x81\x8b",
                                 "\xed\x95\x9c",
                                 "\xe1\x8a\xa0",
                                 "\xf0\x9f\x98\x80",
                                 "colon: star* what?",
                                 "back\\slash",
                                 "quote\"'<>|",
                                 "not\xff utf8",
                                 "new\nline",
                                 "e\xcc\x81"};
  for (int i = 0; i < 10000; ++i) {
    const std::string& script = scripts[i % std::size(scripts)];
    const std::string name = script + std::to_string(i);
    Put(temp_, "tree/" + scripts[i / 600] + "/" + name, name);
  }
  // Far beyond the length of the library's own paths.
  Put(temp_, "tree/" + Repeated(std::string(60, 'd') + "/", 12) + "file", "deep");
  const std::string archive = Path("a.zip");
  CZipper zipper(archive.c_str(), nullptr, false);
  EXPECT_TRUE(zipper.AddFolderToZip("tree", false));
  EXPECT_TRUE(zipper.CloseZip());
  for (const std::string program : {"unzip -tqq ", "7z t ", "/usr/bin/python3 -m zipfile -t "}) {
    EXPECT_EQ(0, RunCommand(program + Native("a.zip"))) << program;
  }
  ASSERT_TRUE(Unpack(archive, "out"));
  EXPECT_TRUE(TreeIn("tree") == TreeIn("out/tree"));
}

TEST_F(LargeArchive, FiveGibibytes) {
  constexpr std::uint64_t kSize = 5ull << 30;
  constexpr std::uint64_t kMarks[] = {0, 0xFFFFFFFE, kSize - 5};
  platform::File file;
  ASSERT_TRUE(file.OpenNative(Native("sparse"), platform::OpenMode::Write()));
  ASSERT_TRUE(file.Resize(kSize));
  for (const std::uint64_t offset : kMarks) {
    ASSERT_EQ(5u, file.WriteAt(offset, "marks", 5).count);
  }
  const std::string archive = Path("a.zip");
  CZipper zipper(archive.c_str(), nullptr, false);
  EXPECT_TRUE(zipper.AddFileToZip("sparse", false));
  EXPECT_TRUE(zipper.CloseZip());
  EXPECT_EQ(0, RunCommand("7z t " + Native("a.zip")));
  EXPECT_EQ(0, RunCommand("unzip -tqq " + Native("a.zip")));
  CUnzipper unzipper(archive.c_str());
  EXPECT_EQ(kSize, unzipper.GetFileSize());
  ASSERT_TRUE(unzipper.UnzipFile(0, Path("out").c_str()));
  platform::File copy;
  ASSERT_TRUE(copy.OpenNative(Native("out/sparse"), platform::OpenMode::Read()));
  EXPECT_EQ(static_cast<std::int64_t>(kSize), copy.Size());
  for (const std::uint64_t offset : kMarks) {
    char marks[6] = "";
    copy.ReadAt(offset, marks, 5);
    EXPECT_STREQ("marks", marks);
  }
  struct stat status;
  stat(Native("out/sparse").c_str(), &status);
  EXPECT_LT(status.st_blocks, 1 << 16);
}

TEST_F(LargeArchive, MoreThan65535Entries) {
  const std::string path = Native("a.zip");
  for (const int count : {65534, 65535, 65536, 70000}) {
    const auto output = archive::ZipOutput::Open(path, false);
    for (int i = 0; i < count; ++i) {
      const std::string name = std::to_string(i) + "\\";
      ASSERT_TRUE(output->BeginEntry({name, 0, 0x10, 0, true}) && output->EndEntry(0, 0));
    }
    ASSERT_TRUE(output->Finish());
    EXPECT_EQ(0, RunPeer("count " + path + " " + std::to_string(count)));
    EXPECT_EQ(count, CUnzipper(Lib(path).c_str()).GetFileCount());
  }
}

}  // namespace
}  // namespace qvx::test
