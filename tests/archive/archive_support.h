// What the tests of archives share: sample trees, other programs, and paths.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "files/library_path.h"
#include "qvx/copy_progress.h"
#include "qvx/unzipper.h"
#include "support/failing_new.h"
#include "support/temp_folder.h"

namespace qvx::test {

namespace fs = std::filesystem;
using Tree = std::map<std::string, std::string>;

// The exit code of a shell command; its output goes to a file that only a person looks at.
inline int RunCommand(const std::string& command) {
  const int status = std::system(("( " + command + " ) >/dev/null 2>&1").c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline int RunPeer(const std::string& arguments) {
  return RunCommand("/usr/bin/python3 '" QVX_ARCHIVE_PEERS "' " + arguments);
}

inline std::string Repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

inline std::string Lib(const std::string& native) {
  return Library<char>(native);
}

// As it is where it is short, else something that stands for it.
inline std::string Digest(const std::string& content) {
  if (content.size() < 2000) return content;
  return std::to_string(content.size()) + ":" + std::to_string(std::hash<std::string>()(content));
}

// Below a folder: the content of each file, "/" for each folder, by native path with each
// backslash as a separator. Links count as what they are not followed to be, "->".
inline Tree TreeOf(const std::string& folder) {
  Tree tree;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    std::string name = entry.path().string().substr(folder.size() + 1);
    std::replace(name.begin(), name.end(), '\\', '/');
    if (name.back() == '/') name.pop_back();
    tree[name] = entry.is_symlink()     ? "->"
                 : entry.is_directory() ? "/"
                                        : Digest(ReadWhole(entry.path()));
  }
  return tree;
}

// Writes a file and makes the folders above it; returns its native path.
inline std::string Put(const TempFolder& temp, const std::string& name,
                       const std::string& content) {
  fs::create_directories(fs::path(temp.Path(name)).parent_path());
  return temp.Write(name, content);
}

// A few files of all sizes that matter, in folders.
inline void MakeSampleTree(const TempFolder& temp, const std::string& top) {
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

class ArchiveTest : public testing::Test {
 protected:
  // The native path and the library path of what stands in the test's folder.
  std::string Native(const std::string& name) const { return temp_.Path(name); }
  std::string Path(const std::string& name) const { return Lib(temp_.Path(name)); }
  Tree TreeIn(const std::string& folder) const { return TreeOf(temp_.Path(folder)); }
  bool Unpack(const std::string& archive, const std::string& folder, bool flat = false) const {
    return CUnzipper::Unzip(archive.c_str(), Path(folder).c_str(), flat);
  }

  const TempFolder temp_;
};

// Follows an archive's progress, and can stop it.
struct Recorder : IArchiveProgressListener {
  int OnArchiveProgress(const char* name, std::uint64_t done, std::uint64_t total) override {
    last = name;
    EXPECT_LE(done, total);
    return ++calls == stop_at ? 0 : 1;
  }
  void OnArchiveSkipped(const char* path) override { skipped.emplace_back(path); }

  std::string last;
  std::vector<std::string> skipped;
  int calls = 0;
  int stop_at = -1;
};

// Runs an action again and again, each time with a later allocation that fails, until it needs no
// more; how often the standard exception came out.
inline int FailEachAllocation(const std::function<void()>& action) {
  int thrown = 0;
  for (int first = 1;; ++first) {
    const FailingAllocations failing(first);
    try {
      action();
    } catch (const std::bad_alloc&) {
      ++thrown;
    }
    if (failing.Seen() < first) return thrown;
  }
}

}  // namespace qvx::test
