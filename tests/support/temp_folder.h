// A fresh folder below the system's temporary folder, removed with all it holds at the end.
#pragma once

#include <string>

namespace qvx::test {

class TempFolder {
 public:
  // With a base, the folder is made below it instead, for instance below a mounted tmpfs.
  explicit TempFolder(const std::string& base = std::string());
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  // Native path, without a trailing separator.
  const std::string& Path() const { return path_; }
  std::string Path(const std::string& name) const { return path_ + "/" + name; }

  // Writes a file with this content and returns its native path.
  std::string Write(const std::string& name, const std::string& content) const;

 private:
  std::string path_;
};

// The whole content of a file (native path); fails the test where it can't be read.
std::string ReadWhole(const std::string& native_path);

}  // namespace qvx::test
