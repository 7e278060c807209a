// qvx demo: a source tree and a big file go to a server of this process and back over TCP, and
// every file is compared by its MD5.
#include <stdlib.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "file_service.h"
#include "interrupt.h"
#include "progress.h"
#include "remote.h"
#include "text.h"

namespace qvx::tool {
namespace {

namespace fs = std::filesystem;

struct Options {
  std::string tree = ".";
  std::uint64_t size = 256u << 20;
};

class WorkFolder {
 public:
  WorkFolder() {
    std::string pattern = (fs::temp_directory_path() / "qvx_demo_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw CommandError("cannot make a temporary folder");
    path_ = pattern;
  }
  ~WorkFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  std::string Path(const char* name) const { return path_ + "/" + name; }
  std::string Make(const char* name) const {
    fs::create_directory(Path(name));
    return Path(name);
  }

 private:
  std::string path_;
};

// Bytes that no part of the way could guess or pack.
void WriteBigFile(const std::string& path, std::uint64_t size) {
  std::vector<std::uint64_t> block(1u << 17);
  std::uint64_t state = 0x9E3779B97F4A7C15u;
  std::ofstream stream(path, std::ios::binary);
  for (std::uint64_t left = size; left > 0;) {
    for (std::uint64_t& word : block) {
      state ^= state << 13;
      state ^= state >> 7;
      state ^= state << 17;
      word = state;
    }
    const std::uint64_t count = std::min<std::uint64_t>(left, block.size() * sizeof(block[0]));
    // cppcheck-suppress invalidFunctionArg
    stream.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(count));
    left -= count;
  }
  if (!stream.flush()) throw CommandError("cannot write " + path + "; is the disk full?");
}

// Ordinary files below a folder, by their path from there; what is hidden does not travel.
std::vector<std::string> VisibleFiles(const std::string& folder) {
  std::vector<std::string> files;
  for (auto entry = fs::recursive_directory_iterator(folder); entry != fs::end(entry); ++entry) {
    if (entry->path().filename().native().front() == '.') {
      entry.disable_recursion_pending();
    } else if (entry->is_regular_file()) {
      files.push_back(entry->path().lexically_relative(folder).string());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

class Demo {
 public:
  explicit Demo(const Options& options) : options_(options), guard_([this] { GiveUp(); }) {}

  void Run() {
    const std::string source = Prepare();
    ServiceRules rules;
    service_ = std::make_unique<FileService>(rules);
    service_->Start();
    const std::string address = "127.0.0.1:" + std::to_string(service_->GetServerPort());
    Say("serving on " + address);
    remote_ = std::make_unique<Remote>(RemoteOptions{address});
    client_.store(&remote_->Client());
    const std::string there = work_.Make("server");
    const std::string back = work_.Make("back");
    CopyThere(source, there);
    CopyBack(there, back);
    Compare(source, there, back);
  }

 private:
  void GiveUp() {
    if (CSocketFileClient* client = client_.load()) client->Close();
  }

  void StopIfInterrupted() const {
    if (guard_.Interrupted()) throw CommandError("interrupted");
  }

  static void Say(const std::string& text) {
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
  }

  // A copy of the tree with the big file beside it.
  std::string Prepare() {
    if (!fs::is_directory(options_.tree)) throw CommandError("no such folder: " + options_.tree);
    std::string source = work_.Make("source");
    const auto links = fs::copy_options::recursive | fs::copy_options::skip_symlinks;
    for (const auto& entry : fs::directory_iterator(options_.tree)) {
      const std::string name = entry.path().filename();
      StopIfInterrupted();
      if (name.front() == '.' || name == "build") continue;
      if (entry.is_directory() || entry.is_regular_file())
        fs::copy(entry.path(), source + "/" + name, links);
    }
    Say("writing a file of " + SizeText(options_.size));
    WriteBigFile(source + "/big_file.bin", options_.size);
    return source;
  }

  void CopyThere(const std::string& from, const std::string& to) {
    Progress progress(true, Rules());
    const int done = SocketFolderCopyToServerEx(
        &remote_->Client(), LibraryPath(from).c_str(), LibraryPath(to).c_str(), 0,
        SOCKET_FILE_COPY_KEEP_EXISTING, &progress, &progress, 0);
    Finish("to the server:  ", progress, done == 1);
  }

  void CopyBack(const std::string& from, const std::string& to) {
    Progress progress(false, Rules());
    const int done = SocketFolderCopyFromServerEx(
        &remote_->Client(), LibraryPath(from).c_str(), LibraryPath(to).c_str(), 0,
        SOCKET_FILE_COPY_KEEP_EXISTING, &progress, &progress, 0);
    Finish("from the server:", progress, done == 1);
  }

  ProgressRules Rules() const {
    ProgressRules rules;
    rules.wants_stop = [this] { return guard_.Interrupted(); };
    for (const std::string& name : VisibleFiles(work_.Path("source")))
      rules.total += fs::file_size(work_.Path("source") + "/" + name);
    return rules;
  }

  void Finish(const char* direction, Progress& progress, bool done) {
    progress.Clear();
    StopIfInterrupted();
    for (const Progress::Failure& failure : progress.Failures())
      std::fprintf(stderr, "qvx: not copied: %s: %s\n", failure.path.c_str(),
                   CopyResultText(failure.result));
    if (!done) throw CommandError("the copy is not complete");
    Say(std::string(direction) + " " + CountText(progress.Files(), "file") + ", " +
        SizeText(progress.Bytes()) + ", " + RateText(progress.Bytes(), progress.Seconds()));
  }

  void Compare(const std::string& source, const std::string& there, const std::string& back) {
    const std::vector<std::string> files = VisibleFiles(source);
    if (VisibleFiles(there) != files || VisibleFiles(back) != files)
      throw CommandError("the copies do not hold the same files");
    for (const std::string& name : files) {
      StopIfInterrupted();
      const std::string digest = LocalDigest(source + "/" + name);
      if (remote_->Digest(LibraryPath(there + "/" + name)) != digest ||
          LocalDigest(back + "/" + name) != digest)
        throw CommandError("a copy differs: " + name);
    }
    Say("verified: the MD5 of all " + CountText(files.size(), "file") +
        " is equal at the source, on the server and back here");
  }

  const Options& options_;
  WorkFolder work_;
  std::unique_ptr<FileService> service_;
  std::unique_ptr<Remote> remote_;
  std::atomic<CSocketFileClient*> client_{nullptr};
  InterruptGuard guard_;
};

}  // namespace

void AddDemoCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "demo", "Copy a tree and a big file to a server and back, and compare every file");
  command->add_option("--tree", options->tree, "Folder to copy; \"build\" and hidden entries stay")
      ->capture_default_str();
  command->add_option("--size", options->size, "Bytes of the big file")->capture_default_str();
  command->callback([options] { Demo(*options).Run(); });
}

}  // namespace qvx::tool
