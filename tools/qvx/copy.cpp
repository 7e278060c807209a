// qvx get and qvx put: files and folders from and to a server.
#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "interrupt.h"
#include "progress.h"
#include "remote.h"
#include "text.h"

namespace qvx::tool {
namespace {

namespace fs = std::filesystem;

struct Options {
  RemoteOptions remote;
  std::string source;
  std::string destination;
  std::uint64_t limit = 0;
  double timeout = 0;
  bool force = false;
  bool verify = false;

  std::uint64_t TimeoutMs() const { return static_cast<std::uint64_t>(std::ceil(timeout * 1000)); }
  std::uint32_t Flags() const {
    return force ? SOCKET_FILE_COPY_OVERWRITE : SOCKET_FILE_COPY_KEEP_EXISTING;
  }
};

struct Ends {
  std::string local;      // native
  std::u16string remote;  // as the server calls it
  bool is_folder = false;
};

bool IsLocalFolder(const std::string& path) {
  std::error_code ignored;
  return fs::is_directory(path, ignored);
}

bool IsLocalEntry(const std::string& path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

// One copy in one direction, from the look at both sides to the closing line.
class Copy {
 public:
  Copy(const Options& options, bool is_upload)
      : options_(options), is_upload_(is_upload), remote_(options.remote) {}

  void Run() {
    const Ends ends = is_upload_ ? UploadEnds() : DownloadEnds();
    InterruptGuard guard([this] { remote_.Client().Close(); });
    Progress progress(is_upload_, Rules(ends, guard));
    if (ends.is_folder) {
      CopyFolder(ends, progress, guard);
    } else {
      CopyFile(ends, progress, guard);
    }
  }

 private:
  Ends DownloadEnds() {
    Ends ends{options_.destination, remote_.Path(options_.source)};
    const EntryKind kind = remote_.Ask(ends.remote);
    if (kind == EntryKind::kNone)
      throw CommandError("no such file or folder on the server: " + options_.source);
    ends.is_folder = kind == EntryKind::kFolder;
    if (ends.local.empty()) ends.local = ".";
    if (IsLocalFolder(ends.local)) {
      const std::string name = BaseName(options_.source);
      if (!name.empty()) ends.local = JoinNative(ends.local, name);
    }
    if (IsLocalEntry(ends.local)) RequireReplaceable(ends.local, IsLocalFolder(ends.local), ends);
    if (ends.is_folder) MakeLocalFolder(ends.local);
    return ends;
  }

  Ends UploadEnds() {
    if (!IsLocalEntry(options_.source))
      throw CommandError("no such file or folder: " + options_.source);
    Ends ends{options_.source, remote_.Path(options_.destination), IsLocalFolder(options_.source)};
    EntryKind kind = remote_.Ask(ends.remote);
    if (kind == EntryKind::kFolder) {
      const std::string name = fs::absolute(options_.source).lexically_normal().string();
      ends.remote = remote_.Path(JoinNative(options_.destination, BaseName(name)));
      kind = remote_.Ask(ends.remote);
    }
    if (kind != EntryKind::kNone)
      RequireReplaceable(NativePath(ends.remote), kind == EntryKind::kFolder, ends);
    if (ends.is_folder && kind == EntryKind::kNone) MakeRemoteFolder(ends.remote);
    return ends;
  }

  // An existing destination is only touched when the user says so, and a file never takes the
  // place of a folder or the other way round.
  void RequireReplaceable(const std::string& path, bool is_folder, const Ends& ends) const {
    if (is_folder != ends.is_folder)
      throw CommandError(path + " exists already and is " + (is_folder ? "a folder" : "no folder"));
    if (!options_.force)
      throw CommandError(path + " exists already (--force " +
                         (is_folder ? "copies into it)" : "replaces it)"));
  }

  static void MakeLocalFolder(const std::string& path) {
    std::error_code error;
    fs::create_directory(path, error);
    if (error) throw CommandError("cannot make " + path + ": " + error.message());
  }

  void MakeRemoteFolder(const std::u16string& path) {
    remote_.Client().MakeDirectory(path.c_str());
    remote_.RequireConnection();
    if (NameOf(path).front() != u'.' && remote_.Ask(path) != EntryKind::kFolder)
      throw CommandError("the server could not make the folder " + NativePath(path));
  }

  ProgressRules Rules(const Ends& ends, const InterruptGuard& guard) const {
    ProgressRules rules;
    rules.limit = options_.limit;
    rules.wants_stop = [&guard] { return guard.Interrupted(); };
    if (is_upload_ && ends.is_folder) rules.total = FolderBytes(ends.local);
    return rules;
  }

  void CopyFile(const Ends& ends, Progress& progress, const InterruptGuard& guard) {
    SetLimit();
    progress.BeginFile(BaseName(ends.local));
    const std::u16string local = LibraryPath(ends.local);
    const std::int32_t result =
        is_upload_
            ? SocketFileCopyToServerEx(&remote_.Client(), local.c_str(), ends.remote.c_str(),
                                       options_.TimeoutMs(), options_.Flags(), &progress, 0)
            : SocketFileCopyFromServerEx(&remote_.Client(), ends.remote.c_str(), local.c_str(),
                                         options_.TimeoutMs(), options_.Flags(), &progress, 0);
    progress.Clear();
    if (guard.Interrupted() && result != SOCKET_FILE_COPY_DONE) throw CommandError("interrupted");
    if (result != SOCKET_FILE_COPY_DONE)
      throw CommandError(options_.source + " was not copied: " + CopyResultText(result));
    std::error_code unknown;
    progress.EndFile(fs::file_size(ends.local, unknown));
    std::printf("copied %s, %s\n", ends.local.c_str(), Amount(progress).c_str());
    if (options_.verify) Verify({{ends.remote, local}}, guard);
  }

  void CopyFolder(const Ends& ends, Progress& progress, const InterruptGuard& guard) {
    SetLimit();
    const std::u16string local = LibraryPath(ends.local);
    const int complete =
        is_upload_ ? SocketFolderCopyToServerEx(&remote_.Client(), local.c_str(),
                                                ends.remote.c_str(), options_.TimeoutMs(),
                                                options_.Flags(), &progress, &progress, 0)
                   : SocketFolderCopyFromServerEx(&remote_.Client(), ends.remote.c_str(),
                                                  local.c_str(), options_.TimeoutMs(),
                                                  options_.Flags(), &progress, &progress, 0);
    progress.Clear();
    PrintFolderEnd(progress);
    if (guard.Interrupted()) throw CommandError("interrupted");
    if (!progress.Failures().empty())
      throw CommandError(CountText(progress.Failures().size(), "entry") + " could not be copied");
    if (complete != 1) throw CommandError("the copy is not complete");
    if (options_.verify) Verify(progress.Copied(), guard);
  }

  void PrintFolderEnd(const Progress& progress) const {
    std::string line = "copied " + CountText(progress.Files(), "file") + " in " +
                       CountText(progress.Folders() + 1, "folder") + ", " + Amount(progress);
    line += is_upload_ ? "; left out " + std::to_string(progress.Hidden()) + " hidden"
                       : "; hidden entries of the server are left out";
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
    for (const Progress::Failure& failure : progress.Failures())
      std::fprintf(stderr, "qvx: not copied: %s: %s\n", failure.path.c_str(),
                   CopyResultText(failure.result));
  }

  static std::string Amount(const Progress& progress) {
    return SizeText(progress.Bytes()) + " in " + DurationText(progress.Seconds()) + " (" +
           RateText(progress.Bytes(), progress.Seconds()) + ")";
  }

  // The listener sets the limit anew after each block; the first block needs it too.
  void SetLimit() {
    remote_.Client().LimitReadSpeed(options_.limit);
    remote_.Client().LimitWriteSpeed(options_.limit);
  }

  void Verify(const std::vector<Progress::Pair>& copied, const InterruptGuard& guard) {
    for (const auto& [remote, local] : copied) {
      if (guard.Interrupted()) throw CommandError("interrupted");
      if (remote_.Digest(remote) != LocalDigest(NativePath(local)))
        throw CommandError("the copy differs: " + NativePath(local) + " and " + NativePath(remote));
    }
    std::printf("verified: the MD5 of %s is equal on both sides\n",
                CountText(copied.size(), "file").c_str());
  }

  const Options& options_;
  const bool is_upload_;
  Remote remote_;
};

void AddCopyCommand(CLI::App& app, const char* name, const char* what, bool is_upload) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(name, what);
  AddRemoteOptions(*command, options->remote);
  command->add_option(is_upload ? "LOCAL" : "REMOTE", options->source, "File or folder to copy")
      ->required();
  CLI::Option* destination =
      command->add_option(is_upload ? "REMOTE" : "LOCAL", options->destination,
                          "Its new path, or an existing folder to copy it into");
  if (is_upload) destination->required();
  command->add_flag("-f,--force", options->force,
                    "Replace existing files, each when its new form is complete");
  command->add_flag("--verify", options->verify, "Compare the MD5 of both sides afterwards");
  command->add_option("--limit", options->limit, "Most bytes per second");
  command
      ->add_option("--timeout", options->timeout,
                   "Seconds that a file may take, and each answer of the server (no limit if 0)")
      ->check(CLI::Range(0.0, 1e9));
  command->callback([options, is_upload] { Copy(*options, is_upload).Run(); });
}

}  // namespace

void AddGetCommand(CLI::App& app) {
  AddCopyCommand(app, "get", "Copy a file or folder from a server", false);
}

void AddPutCommand(CLI::App& app) {
  AddCopyCommand(app, "put", "Copy a file or folder to a server", true);
}

}  // namespace qvx::tool
