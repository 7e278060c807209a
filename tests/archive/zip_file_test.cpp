#include "qvx/zip_file.h"

#include <cstdio>

#include "archive/archive_support.h"

namespace qvx::test {
namespace {

std::string ReadAll(CZipFile& file, int step) {
  std::string all;
  std::string block(static_cast<std::size_t>(step), '\0');
  int count;
  while ((count = file.Read(block.data(), step)) > 0) {
    all.append(block, 0, static_cast<std::size_t>(count));
  }
  return count < 0 ? "damaged" : all;
}

TEST(ZipFile, GoesBothWaysWithTheGzipProgram) {
  const TempFolder temp;
  std::string text;
  for (int i = 0; i < 50000; ++i) text += std::to_string(i) + "\n";
  const std::string ours = temp.Path("ours.gz");
  CZipFile file;
  for (const char* mode : {"wb", "wb1", "w9", "ab", "wbx"}) {
    if (mode == std::string("wbx")) {
      EXPECT_EQ(0, file.Open(Lib(ours).c_str(), mode));
      std::remove(ours.c_str());
    }
    const bool second = mode == std::string("ab");
    ASSERT_EQ(1, file.Open(Lib(ours).c_str(), mode));
    EXPECT_EQ(1, file.IsOpen());
    EXPECT_EQ(static_cast<int>(text.size()),
              file.Write(text.data(), static_cast<int>(text.size())));
    EXPECT_EQ(1, file.Finish());
    ASSERT_EQ(0, RunCommand("gzip -dc " + ours + " > " + temp.Path("text"))) << mode;
    EXPECT_TRUE(ReadWhole(temp.Path("text")) == (second ? text + text : text)) << mode;
  }
  temp.Write("text", text);
  ASSERT_EQ(0, RunCommand("gzip -k " + temp.Path("text")));
  ASSERT_EQ(1, file.Open(Lib(temp.Path("text.gz")).c_str(), "rb"));
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
  ASSERT_EQ(1, file.Open(Lib(temp.Path("text")).c_str(), "rb"));
  EXPECT_TRUE(ReadAll(file, 1 << 16) == text);
}

TEST(ZipFile, ClosedAndWrong) {
  const TempFolder temp;
  CZipFile file;
  char byte = 'x';
  EXPECT_EQ(0, file.IsOpen() + file.Read(&byte, 1) + file.Write(&byte, 1) + file.Finish());
  EXPECT_EQ(1, file.Eof());
  EXPECT_EQ(-1, file.Seek(0, 0));
  EXPECT_EQ(nullptr, file.GetZipFileHandle());
  file.Close();
  const std::string path = Lib(temp.Write("f", "kept"));
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
  EXPECT_EQ("kept", ReadWhole(temp.Path("f")));
  EXPECT_EQ(0, file.Open(Lib(temp.Path("absent")).c_str(), "rb"));
  EXPECT_EQ(0, file.Open(Lib(temp.Path()).c_str(), "rb"));
  EXPECT_EQ(0, file.Open(nullptr, "rb"));
}

TEST(ZipFile, CutOrChangedAtEveryByte) {
  const TempFolder temp;
  std::string text = "some text of which a part will be missing";
  for (int i = 0; i < 300; ++i) text += std::to_string(i * i);
  CZipFile file;
  ASSERT_EQ(1, file.Open(Lib(temp.Path("whole.gz")).c_str(), "wb"));
  file.Write(text.data(), static_cast<int>(text.size()));
  ASSERT_EQ(1, file.Finish());
  const std::string whole = ReadWhole(temp.Path("whole.gz"));
  for (std::size_t at = 0; at < whole.size(); ++at) {
    const std::string path = Lib(temp.Write("cut.gz", whole.substr(0, at)));
    ASSERT_EQ(1, file.Open(path.c_str(), "rb"));
    const std::string got = ReadAll(file, 100);
    EXPECT_TRUE(got == "damaged" || at < 3 || text.compare(0, got.size(), got) == 0) << at;
    EXPECT_EQ(at < 2 ? 1 : 0, file.Finish()) << at;
    std::string changed = whole;
    changed[at] = static_cast<char>(changed[at] ^ 0x10);
    ASSERT_EQ(1, file.Open(Lib(temp.Write("changed.gz", changed)).c_str(), "rb"));
    ReadAll(file, 100);
  }
}

}  // namespace
}  // namespace qvx::test
