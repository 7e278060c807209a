// What the tests of archives share: sample trees, other programs, and paths.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "files/library_path.h"
#include "support/temp_folder.h"

namespace qvx::test {

// The exit code of a shell command; its output goes to a file that only a person looks at.
inline int RunCommand(const std::string& command) {
  const int status = std::system(("( " + command + " ) >/dev/null 2>&1").c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline int RunPeer(const std::string& arguments) {
  return RunCommand("/usr/bin/python3 '" QVX_ARCHIVE_PEERS "' " + arguments);
}

inline std::string Lib(const std::string& native) {
  return Library<char>(native);
}

// As it is where it is short, else something that stands for it.
inline std::string Digest(const std::string& content) {
  if (content.size() < 2000) return content;
  return std::to_string(content.size()) + ":" + std::to_string(std::hash<std::string>()(content));
}

// Below a folder: the content of each file, "/" for each folder, by native path. Links count
// as what they are not followed to be, "->".
inline std::map<std::string, std::string> TreeOf(const std::string& folder) {
  namespace fs = std::filesystem;
  std::map<std::string, std::string> tree;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    std::string& value = tree[entry.path().string().substr(folder.size() + 1)];
    value = entry.is_symlink()     ? "->"
            : entry.is_directory() ? "/"
                                   : Digest(ReadWhole(entry.path()));
  }
  return tree;
}

// Writes a file and makes the folders above it; returns its native path.
inline std::string Put(const TempFolder& temp, const std::string& name,
                       const std::string& content) {
  std::filesystem::create_directories(std::filesystem::path(temp.Path(name)).parent_path());
  return temp.Write(name, content);
}

// A few files of all sizes that matter, in folders.
inline void MakeSampleTree(const TempFolder& temp, const std::string& top) {
  namespace fs = std::filesystem;
  fs::create_directories(temp.Path(top + "/nothing"));
  std::string noise(700000, '\0');
  unsigned int state = 1;
  for (char& byte : noise) byte = static_cast<char>((state = state * 1103515245 + 12345) >> 24);
  Put(temp, top + "/empty", "");
  Put(temp, top + "/one", "1");
  Put(temp, top + "/noise", noise);
  Put(temp, top + "/deep/block", std::string(256 * 1024, 'b'));
  Put(temp, top + "/deep/er/pieces", std::string(2 * 1024 * 1024, 'p') + noise + "end");
  Put(temp, top + "/deep/er/still/\xd0\x96\xe4\xb8\xad colon:star*.txt", "script");
}

}  // namespace qvx::test
