// qvx gzip and qvx gunzip: one file compressed and decompressed, beside the original.
#include <qvx/path_name.h>
#include <qvx/zip_file.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "archive_progress.h"
#include "command.h"
#include "stream.h"
#include "text.h"

namespace qvx::tool {
namespace {

namespace fs = std::filesystem;

constexpr int kBlock = 256 * 1024;
constexpr const char* kExtension = ".gz";

struct Options {
  std::string file;
  std::string output;
  int level = 6;
  bool force = false;
};

// A name beside the result, which the result bears until it is complete.
class Temporary {
 public:
  explicit Temporary(const std::string& target) {
    char random[260];
    GetFileNameByRandomA(random, "tmp", "", 10);
    path_ = JoinNative(fs::path(target).parent_path().string(), random);
  }
  ~Temporary() { std::remove(path_.c_str()); }
  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;

  const std::string& Path() const { return path_; }

  // With the date of the original.
  void Install(const std::string& target, const std::string& original) const {
    std::error_code error;
    fs::last_write_time(path_, fs::last_write_time(original, error), error);
    fs::rename(path_, target, error);
    if (error) throw CommandError("cannot write " + target + ": " + error.message());
  }

 private:
  std::string path_;
};

class Compression {
 public:
  explicit Compression(Options options) : options_(std::move(options)) {
    if (!fs::is_regular_file(options_.file)) throw CommandError("no such file: " + options_.file);
  }

  void Compress() {
    if (options_.output.empty()) options_.output = options_.file + kExtension;
    Run(fs::file_size(options_.file),
        [this](const std::string& path, ArchiveProgress& progress) { Write(path, progress); });
  }

  void Decompress() {
    const fs::path file = options_.file;
    if (options_.output.empty() && file.extension() != kExtension)
      throw CommandError(options_.file + " does not end in .gz: name the result with --output");
    if (options_.output.empty()) options_.output = (file.parent_path() / file.stem()).string();
    // How much will come is not known before.
    Run(0, [this](const std::string& path, ArchiveProgress& progress) { Read(path, progress); });
  }

 private:
  template <typename Work>
  void Run(std::uint64_t total, Work work) {
    if (!options_.force && fs::exists(fs::symlink_status(options_.output)))
      throw CommandError(options_.output + " exists already (--force replaces it)");
    ArchiveProgress progress(BaseName(options_.file), total);
    const Temporary temporary(options_.output);
    work(temporary.Path(), progress);
    temporary.Install(options_.output, options_.file);
    progress.Clear();
    std::printf("wrote %s, %s from %s\n", options_.output.c_str(),
                progress.Amount(fs::file_size(options_.output)).c_str(),
                SizeText(fs::file_size(options_.file)).c_str());
  }

  void Write(const std::string& path, ArchiveProgress& progress) {
    const Stream source = OpenStream(options_.file, "rbe");
    const std::string mode = "wbx" + std::to_string(options_.level);
    if (file_.Open(NarrowLibraryPath(path).c_str(), mode.c_str()) == 0)
      throw CommandError("cannot write " + options_.output);
    std::uint64_t done = 0;
    std::size_t count;
    while ((count = std::fread(block_.get(), 1, kBlock, source.get())) > 0) {
      const int size = static_cast<int>(count);
      if (file_.Write(block_.get(), size) != size)
        throw CommandError("cannot write " + options_.output);
      done += count;
      if (!progress.Advance(done)) throw CommandError("interrupted");
    }
    if (std::ferror(source.get())) throw CommandError("cannot read " + options_.file);
    if (file_.Finish() == 0) throw CommandError("cannot write " + options_.output);
  }

  void Read(const std::string& path, ArchiveProgress& progress) {
    const Stream source = OpenStream(options_.file, "rbe");
    if (std::fgetc(source.get()) != 0x1f || std::fgetc(source.get()) != 0x8b)
      throw CommandError(options_.file + " is no gzip file");
    if (file_.Open(NarrowLibraryPath(options_.file).c_str(), "rb") == 0)
      throw CommandError("cannot open " + options_.file);
    Stream target = OpenStream(path, "wbxe");
    std::uint64_t done = 0;
    int size;
    while ((size = file_.Read(block_.get(), kBlock)) > 0) {
      const auto count = static_cast<std::size_t>(size);
      if (std::fwrite(block_.get(), 1, count, target.get()) != count)
        throw CommandError("cannot write " + options_.output);
      done += count;
      if (!progress.Advance(done)) throw CommandError("interrupted");
    }
    if (size < 0 || file_.Finish() == 0)
      throw CommandError(options_.file + " is damaged or cut off");
    if (std::fclose(target.release()) != 0) throw CommandError("cannot write " + options_.output);
  }

  Options options_;
  CZipFile file_;
  std::unique_ptr<char[]> block_{new char[kBlock]};
};

CLI::App* AddCommand(CLI::App& app, const char* name, const char* what, const char* output,
                     const std::shared_ptr<Options>& options) {
  CLI::App* command = app.add_subcommand(name, what);
  command->add_option("FILE", options->file, "File to read; it stays")->required();
  command->add_option("-o,--output", options->output, output);
  command->add_flag("-f,--force", options->force, "Replace an existing result");
  return command;
}

}  // namespace

void AddGzipCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      AddCommand(app, "gzip", "Compress a file", "File to write (FILE.gz)", options);
  command->add_option("-L,--level", options->level, "1, fast, to 9, small")
      ->check(CLI::Range(1, 9));
  command->callback([options] { Compression(*options).Compress(); });
}

void AddGunzipCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      AddCommand(app, "gunzip", "Decompress a file", "File to write (FILE without .gz)", options);
  command->callback([options] { Compression(*options).Decompress(); });
}

}  // namespace qvx::tool
