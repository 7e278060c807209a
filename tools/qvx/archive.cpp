// qvx zip and qvx unzip: files and folders into zip archives and out of them.
#include <qvx/unzipper.h>
#include <qvx/zipper.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "archive_progress.h"
#include "command.h"
#include "text.h"
#include "words.h"

namespace qvx::tool {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kInnerBackslash = "\xEF\x81\x9C";  // U+F05C
constexpr std::size_t kLongestPath = 259;

std::string ArchivePath(const std::string& native) {
  std::string path = NarrowLibraryPath(native);
  if (path.size() > kLongestPath)
    throw CommandError("the path is too long (259 characters is the most): " + native);
  return path;
}

bool IsEntry(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

struct ZipOptions {
  std::string archive;
  std::vector<std::string> paths;
  bool force = false;
};

struct Source {
  fs::path path;  // absolute
  fs::path root;  // the folder that its stored name begins below
  bool is_folder;
};

Source SourceOf(const std::string& given) {
  if (!IsEntry(given)) throw CommandError("no such file or folder: " + given);
  const bool is_folder = fs::is_directory(given);
  if (!is_folder && !fs::is_regular_file(given))
    throw CommandError("neither a file nor a folder: " + given);
  fs::path path = fs::absolute(given).lexically_normal();
  if (!path.has_filename()) path = path.parent_path();
  // "." and its like stand for what is in the folder.
  const fs::path last = fs::path(given).filename();
  const bool itself = last == "." || last == ".." || path == path.root_path();
  return {path, itself ? path : path.parent_path(), is_folder};
}

fs::path CommonFolder(const fs::path& left, const fs::path& right) {
  fs::path common;
  const auto end = std::mismatch(left.begin(), left.end(), right.begin(), right.end()).first;
  for (auto element = left.begin(); element != end; ++element) common /= *element;
  return common;
}

class Zip {
 public:
  explicit Zip(const ZipOptions& options) : options_(options) {}

  void Run() {
    for (const std::string& path : options_.paths) sources_.push_back(SourceOf(path));
    if (fs::is_directory(options_.archive)) throw CommandError(options_.archive + " is a folder");
    if (!options_.force && IsEntry(options_.archive))
      throw CommandError(options_.archive + " exists already (--force replaces it)");
    ArchiveProgress progress(BaseName(options_.archive), TotalBytes());
    Pack(progress);
    if (!progress.Skipped().empty())
      throw CommandError(CountText(progress.Skipped().size(), "entry") + " could not be packed");
  }

 private:
  std::uint64_t TotalBytes() const {
    std::uint64_t total = 0;
    for (const Source& source : sources_) {
      std::error_code unknown;
      total += source.is_folder ? FolderBytes(source.path.string())
                                : fs::file_size(source.path, unknown);
    }
    return total;
  }

  void Pack(ArchiveProgress& progress) const {
    fs::path root = sources_.front().root;
    for (const Source& source : sources_) root = CommonFolder(root, source.root);
    CZipper zipper;
    const std::string archive = ArchivePath(options_.archive);
    const std::string root_folder = NarrowLibraryPath(root.string());
    if (!zipper.OpenZip(archive.c_str(), root_folder.c_str(), false))
      throw CommandError("cannot write " + options_.archive);
    zipper.SetProgressListener(&progress);
    for (const Source& source : sources_) Add(zipper, source, progress);
    Z_FileInfo info;
    zipper.GetFileInfo(info);
    const bool complete = zipper.CloseZip();
    progress.Clear();
    if (!complete) throw CommandError("cannot write " + options_.archive);
    PrintEnd(progress, info);
  }

  void Add(CZipper& zipper, const Source& source, const ArchiveProgress& progress) const {
    const std::string path = NarrowLibraryPath(source.path.string());
    const bool added = source.is_folder ? zipper.AddFolderToZip(path.c_str(), false)
                                        : zipper.AddFileToZip(path.c_str(), false);
    if (added) return;
    zipper.DiscardZip();
    if (progress.Interrupted()) throw CommandError("interrupted");
    throw CommandError("cannot pack " + source.path.string() + " into " + options_.archive);
  }

  void PrintEnd(const ArchiveProgress& progress, const Z_FileInfo& info) const {
    std::error_code unknown;
    const std::uint64_t size = fs::file_size(options_.archive, unknown);
    std::printf("packed %s and %s into %s, %s; left out %llu hidden\n",
                CountText(static_cast<std::uint64_t>(info.fileCount), "file").c_str(),
                CountText(static_cast<std::uint64_t>(info.folderCount), "folder").c_str(),
                options_.archive.c_str(), progress.Amount(size).c_str(),
                static_cast<unsigned long long>(progress.Hidden()));
    std::fflush(stdout);
    for (const std::string& path : progress.Skipped())
      std::fprintf(stderr, "qvx: not packed, or not to its end: %s\n", path.c_str());
  }

  const ZipOptions& options_;
  std::vector<Source> sources_;
};

struct UnzipOptions {
  std::string archive;
  std::string folder = ".";
  std::uint64_t most = 0;
  bool list = false;
  bool flat = false;
  bool force = false;
};

// With "/" and without characters that a terminal would act on.
std::string ShownName(std::string name) {
  for (char& character : name) {
    if (character == '\\') character = '/';
    if (static_cast<unsigned char>(character) < 0x20 || character == '\x7f') character = '?';
  }
  return name;
}

class Unzip {
 public:
  explicit Unzip(const UnzipOptions& options) : options_(options) {}

  void Run() {
    if (!fs::is_regular_file(options_.archive))
      throw CommandError("no such file: " + options_.archive);
    if (!unzipper_.OpenZip(ArchivePath(options_.archive).c_str()))
      throw CommandError(options_.archive + " is no zip archive, or is damaged");
    unzipper_.SetSizeLimit(options_.most);
    if (options_.list) {
      List();
    } else {
      Unpack();
    }
  }

 private:
  void List() {
    UZ_FileInfo info;
    for (bool more = unzipper_.GotoFirstFile(); more; more = unzipper_.GotoNextFile()) {
      unzipper_.GetFileInfo(info);
      const std::uint32_t date = info.dosDate;
      std::printf("%12llu  %04u-%02u-%02u %02u:%02u  %s\n",
                  static_cast<unsigned long long>(unzipper_.GetFileSize()), (date >> 25) + 1980,
                  date >> 21 & 15, date >> 16 & 31, date >> 11 & 31, date >> 5 & 63,
                  ShownName(info.fileName).c_str());
    }
    std::printf("%12llu  in %s\n", static_cast<unsigned long long>(unzipper_.GetTotalSize()),
                CountText(static_cast<std::uint64_t>(unzipper_.GetFileCount()), "entry").c_str());
  }

  void Unpack() {
    const std::uint64_t total = unzipper_.GetTotalSize();
    if (unzipper_.GetFileCount() == 0) throw CommandError(options_.archive + " is empty");
    if (total > unzipper_.GetSizeLimit())
      throw CommandError(options_.archive + " would unpack to " + SizeText(total) +
                         " (--max-size allows it)");
    if (!options_.force) RequireNewNames();
    std::error_code error;
    fs::create_directories(options_.folder, error);
    if (error) throw CommandError("cannot make " + options_.folder + ": " + error.message());
    ArchiveProgress progress(BaseName(options_.archive), total);
    unzipper_.SetProgressListener(&progress);
    const std::string folder = NarrowLibraryPath(options_.folder);
    const bool complete = unzipper_.UnzipTo(folder.c_str(), options_.flat);
    progress.Clear();
    if (progress.Interrupted()) throw CommandError("interrupted");
    if (!complete) throw CommandError("cannot unpack " + CurrentName());
    std::printf("unpacked %s, %s\n",
                CountText(static_cast<std::uint64_t>(unzipper_.GetFileCount()), "entry").c_str(),
                progress.Amount(total).c_str());
  }

  std::string CurrentName() {
    UZ_FileInfo info;
    unzipper_.GetFileInfo(info);
    return ShownName(info.fileName);
  }

  // Where an entry goes, close enough to tell whether something is there.
  fs::path Target(const UZ_FileInfo& info) const {
    std::string name = info.fileName;
    std::replace(name.begin(), name.end(), '\\', '/');
    for (std::size_t at; (at = name.find(kInnerBackslash)) != std::string::npos;)
      name.replace(at, kInnerBackslash.size(), "\\");
    return fs::path(options_.folder) / (options_.flat ? BaseName(name) : name);
  }

  void RequireNewNames() {
    UZ_FileInfo info;
    for (bool more = unzipper_.GotoFirstFile(); more; more = unzipper_.GotoNextFile()) {
      unzipper_.GetFileInfo(info);
      if (info.isFolder) continue;
      const fs::path target = Target(info);
      if (IsEntry(target))
        throw CommandError(target.string() + " exists already (--force replaces it)");
    }
  }

  const UnzipOptions& options_;
  CUnzipper unzipper_;
};

}  // namespace

void AddZipCommand(CLI::App& app) {
  auto options = std::make_shared<ZipOptions>();
  CLI::App* command = app.add_subcommand("zip", "Pack files and folders into a zip archive");
  command->add_option("ARCHIVE", options->archive, "Archive to make")->required();
  const Words paths(*command, "PATH", "Files and folders, without what is hidden in them");
  command->add_flag("-f,--force", options->force,
                    "Replace an existing archive, when the new one is complete");
  command->callback([options, paths] {
    options->paths = paths.Paths();
    Zip(*options).Run();
  });
}

void AddUnzipCommand(CLI::App& app) {
  auto options = std::make_shared<UnzipOptions>();
  CLI::App* command = app.add_subcommand("unzip", "List or unpack a zip archive");
  command->add_option("ARCHIVE", options->archive, "Archive to read")->required();
  command->add_option("-d,--folder", options->folder, "Folder to unpack into (the current one)");
  command->add_flag("-l,--list", options->list, "Only show what is in the archive");
  command->add_flag("--flat", options->flat, "Leave out the folders: all files in one place");
  command->add_flag("-f,--force", options->force, "Replace existing files");
  command->add_option("--max-size", options->most,
                      "Most bytes to unpack (16 GiB, or 100 times the archive)");
  command->callback([options] { Unzip(*options).Run(); });
}

}  // namespace qvx::tool
