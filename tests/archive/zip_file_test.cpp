#include "qvx/zip_file.h"

#include "archive/archive_support.h"

namespace qvx::test {
namespace {

using ZipFile = ArchiveTest;

std::string ReadAll(CZipFile& file, int step) {
  std::string all;
  std::string block(static_cast<std::size_t>(step), '\0');
  int count;
  while ((count = file.Read(block.data(), step)) > 0) {
    all.append(block, 0, static_cast<std::size_t>(count));
  }
  return count < 0 ? "damaged" : all;
}

TEST_F(ZipFile, GoesBothWaysWithTheGzipProgram) {
  std::string text;
  for (int i = 0; i < 50000; ++i) text += std::to_string(i) + "\n";
  const std::string ours = Native("ours.gz");
  CZipFile file;
  for (const char* mode : {"wbx", "wb", "wb1", "w9", "ab"}) {
    const bool second = mode == std::string("ab");
    ASSERT_EQ(1, file.Open(Lib(ours).c_str(), mode));
    EXPECT_EQ(1, file.IsOpen());
    EXPECT_EQ(static_cast<int>(text.size()),
              file.Write(text.data(), static_cast<int>(text.size())));
    EXPECT_EQ(1, file.Finish());
    ASSERT_EQ(0, RunCommand("gzip -dc " + ours + " > " + Native("text"))) << mode;
    EXPECT_TRUE(ReadWhole(Native("text")) == (second ? text + text : text)) << mode;
  }
  EXPECT_EQ(0, file.Open(Lib(ours).c_str(), "wbx"));  // never takes the place of a file
  temp_.Write("text", text);
  ASSERT_EQ(0, RunCommand("gzip -k " + Native("text")));
  ASSERT_EQ(1, file.Open(Path("text.gz").c_str(), "rb"));
  EXPECT_EQ(0, file.Eof());
  EXPECT_EQ(1000, file.Seek(1000, 0));
  char found[4];
  EXPECT_EQ(4, file.Read(found, 4));
  EXPECT_EQ(text.substr(1000, 4), std::string(found, 4));
  EXPECT_EQ(1014, file.Seek(10, 1));
  EXPECT_EQ(0, file.Seek(0, 0));
  EXPECT_TRUE(ReadAll(file, 777) == text);
  EXPECT_EQ(1, file.Eof());
  EXPECT_EQ(1, file.Finish());
  // What is no gzip file is read as it is.
  ASSERT_EQ(1, file.Open(Path("text").c_str(), "rb"));
  EXPECT_TRUE(ReadAll(file, 1 << 16) == text);
}

TEST_F(ZipFile, ClosedAndWrong) {
  CZipFile file;
  char byte = 'x';
  EXPECT_EQ(0, file.IsOpen() + file.Read(&byte, 1) + file.Write(&byte, 1) + file.Finish());
  EXPECT_EQ(1, file.Eof());
  EXPECT_EQ(-1, file.Seek(0, 0));
  EXPECT_EQ(nullptr, file.GetZipFileHandle());
  file.Close();
  const std::string path = Lib(temp_.Write("f", "kept"));
  ASSERT_EQ(1, file.Open(path.c_str(), "rb"));
  EXPECT_NE(nullptr, file.GetZipFileHandle());
  CZipFile copy(file);
  EXPECT_EQ(0, copy.IsOpen());
  copy = file;
  EXPECT_EQ(0, copy.IsOpen());
  // A second open closes the first, also when it fails.
  for (const char* mode : {"", "q", "w+", "rT", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(1, file.Open(path.c_str(), "rb"));
    EXPECT_EQ(0, file.Open(path.c_str(), mode));
    EXPECT_EQ(0, file.IsOpen());
  }
  EXPECT_EQ("kept", ReadWhole(Native("f")));
  EXPECT_EQ(0, file.Open(Path("absent").c_str(), "rb"));
  EXPECT_EQ(0, file.Open(Lib(temp_.Path()).c_str(), "rb"));
  EXPECT_EQ(0, file.Open(nullptr, "rb"));
}

TEST_F(ZipFile, CutOrChangedAtEveryByte) {
  std::string text = "some text of which a part will be missing";
  for (int i = 0; i < 300; ++i) text += std::to_string(i * i);
  CZipFile file;
  ASSERT_EQ(1, file.Open(Path("whole.gz").c_str(), "wb"));
  file.Write(text.data(), static_cast<int>(text.size()));
  ASSERT_EQ(1, file.Finish());
  const std::string whole = ReadWhole(Native("whole.gz"));
  for (std::size_t at = 0; at < whole.size(); ++at) {
    const std::string path = Lib(temp_.Write("cut.gz", whole.substr(0, at)));
    ASSERT_EQ(1, file.Open(path.c_str(), "rb"));
    const std::string got = ReadAll(file, 100);
    EXPECT_TRUE(got == "damaged" || at < 3 || text.compare(0, got.size(), got) == 0) << at;
    EXPECT_EQ(at < 2 ? 1 : 0, file.Finish()) << at;
    std::string changed = whole;
    changed[at] = static_cast<char>(changed[at] ^ 0x10);
    ASSERT_EQ(1, file.Open(Lib(temp_.Write("changed.gz", changed)).c_str(), "rb"));
    ReadAll(file, 100);
  }
}

}  // namespace
}  // namespace qvx::test
