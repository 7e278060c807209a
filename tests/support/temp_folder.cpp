#include "support/temp_folder.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace qvx::test {

TempFolder::TempFolder(const std::string& base) {
  const std::string parent = base.empty() ? std::filesystem::temp_directory_path().string() : base;
  std::string pattern = parent + "/qvx_test_XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
  path_ = pattern;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempFolder::Write(const std::string& name, const std::string& content) const {
  const std::string path = Path(name);
  std::ofstream stream(path, std::ios::binary);
  stream.write(content.data(), static_cast<std::streamsize>(content.size()));
  EXPECT_TRUE(stream.flush().good()) << path;
  return path;
}

std::string ReadWhole(const std::string& native_path) {
  std::ifstream stream(native_path, std::ios::binary);
  EXPECT_TRUE(stream.good()) << native_path;
  return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

}  // namespace qvx::test
