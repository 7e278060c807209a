// Copies of real size, and of trees of many files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "netfile/copy_fixture.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

class LargeCopies : public Copies {
 protected:
  // Size bytes that repeat nowhere within a block.
  void WriteBig(const std::string& path, std::uint64_t size) {
    std::ofstream out(path, std::ios::binary);
    std::array<std::uint64_t, 8192> part;
    std::uint64_t next = 1;
    for (std::uint64_t done = 0; done < size; done += sizeof(part)) {
      for (auto& value : part) value = next = next * 6364136223846793005u + 1442695040888963407u;
      out.write(reinterpret_cast<const char*>(part.data()), sizeof(part));
    }
    ASSERT_TRUE(out.flush().good());
  }

  static bool SameContent(const std::string& one, const std::string& two) {
    std::ifstream first(one, std::ios::binary), second(two, std::ios::binary);
    std::vector<char> left(1 << 20), right(1 << 20);
    do {
      first.read(left.data(), static_cast<std::streamsize>(left.size()));
      second.read(right.data(), static_cast<std::streamsize>(right.size()));
      if (first.gcount() != second.gcount()) return false;
      if (std::memcmp(left.data(), right.data(), static_cast<std::size_t>(first.gcount())) != 0)
        return false;
    } while (first.gcount() > 0);
    return true;
  }
};

INSTANTIATE_TEST_SUITE_P(Large, LargeCopies, testing::Values(true, false),
                         [](const auto& way) { return way.param ? "Down" : "Up"; });

TEST_P(LargeCopies, OneGibibyte) {
  WriteBig(source_.Path("big"), std::uint64_t{1} << 30);
  Progress progress;
  ASSERT_EQ(CopyFile("big", &progress), 1);
  EXPECT_EQ(progress.copied.size(), 2048u);
  EXPECT_TRUE(SameContent(source_.Path("big"), target_.Path("big")));
  ExpectTarget({"big"});
}

TEST_P(LargeCopies, TenThousandFiles) {
  const std::string names[] = {"plain", "\xE4\xB8\xAD\xE6\x96\x87 \xE5\x90\x8D\xE5\xAD\x97",
                               "back\\slash", "two  words ", "no text \xFF\xC3"};
  for (int folder = 0; folder < 20; ++folder) {
    std::string path = std::to_string(folder) + names[folder % 5];
    mkdir(source_.Path(path).c_str(), 0777);
    for (int file = 0; file < 500; ++file)
      source_.Write(path + "/" + names[file % 5] + std::to_string(file),
                    path + std::string(static_cast<std::size_t>(file * 17 % 9000), 'x'));
    symlink((names[0] + "0").c_str(), source_.Path(path + "/link").c_str());
  }
  CopyReport report;
  EXPECT_EQ(CopyFolderEx(source_.Path(), target_.Path(), &report), 1);
  EXPECT_EQ(report.Count(SOCKET_FILE_COPY_DONE), 10020);
  EXPECT_EQ(NamesIn(target_.Path()), NamesIn(source_.Path()));
  for (const auto& folder : NamesIn(source_.Path())) {
    auto names_there = NamesIn(source_.Path(folder));
    ASSERT_EQ(NamesIn(target_.Path(folder)), names_there);
    for (const auto& name : names_there)
      ASSERT_TRUE(ReadWhole(target_.Path(folder + "/" + name)) ==
                  ReadWhole(source_.Path(folder + "/" + name)))
          << folder << "/" << name;
  }
}

}  // namespace
}  // namespace qvx::test
