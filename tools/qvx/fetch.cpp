// qvx fetch: a file from a web server, in parallel pieces. Until it is complete it stands beside
// its place as FILE.part, with FILE.part.journal telling how far it is.
#include <fcntl.h>
#include <qvx/md5.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "command.h"
#include "descriptor.h"
#include "interrupt.h"
#include "journal.h"
#include "pieces.h"
#include "progress.h"
#include "remote.h"
#include "text.h"
#include "web.h"

namespace qvx::tool {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr std::uint64_t kLeastPiece = 64 * 1024;
constexpr milliseconds kLook{100};
constexpr milliseconds kJournalEvery{500};
constexpr std::size_t kDigits = 32;

struct Options {
  WebOptions web;
  std::string output;
  std::string md5_url;
  std::size_t jobs = 1;
  std::uint64_t limit = 0;
  int retries = 5;
  bool force = false;
};

// The file that grows, held by one run at a time.
class Part {
 public:
  explicit Part(std::string path)
      : path_(std::move(path)),
        file_(open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666)) {
    if (!file_) Fail("cannot write ");
    if (flock(file_.Get(), LOCK_EX | LOCK_NB) != 0 || !IsInPlace())
      throw CommandError("another run is fetching " + path_);
  }

  const std::string& Path() const { return path_; }

  std::uint64_t Size() const {
    struct stat status {};
    return fstat(file_.Get(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
  }

  // Empties it, then makes it this large.
  void Resize(std::uint64_t size) const {
    if (ftruncate(file_.Get(), 0) != 0 || ftruncate(file_.Get(), static_cast<off_t>(size)) != 0)
      Fail("cannot write ");
  }

  bool Append(const unsigned char* data, std::size_t size) const {
    while (size > 0) {
      const ssize_t count = write(file_.Get(), data, size);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return false;
      data += count;
      size -= static_cast<std::size_t>(count);
    }
    return true;
  }

  // What was written so far survives a loss of power.
  void Sync() const {
    if (fdatasync(file_.Get()) != 0) Fail("cannot write ");
  }

  [[noreturn]] void Fail(const char* what) const {
    throw CommandError(what + path_ + ": " + std::strerror(errno));
  }

 private:
  // A run that has just ended may have taken the file away meanwhile.
  bool IsInPlace() const {
    struct stat own {};
    struct stat named {};
    return fstat(file_.Get(), &own) == 0 && stat(path_.c_str(), &named) == 0 &&
           own.st_ino == named.st_ino && own.st_dev == named.st_dev;
  }

  const std::string path_;
  const Descriptor file_;
};

std::string DigestOf(const std::string& text) {
  MD5 md5(reinterpret_cast<const unsigned char*>(text.data()), text.size());
  return DigestText(md5.digest());
}

// Called where a run does not end by itself. The journal tells how far it was.
void GiveUp() {
  std::fprintf(stderr, "qvx: interrupted\n");
  std::_Exit(1);
}

class Fetch {
 public:
  explicit Fetch(const Options& options)
      : options_(options), target_(Target()), web_(options.web) {}

  void Run() {
    InterruptGuard guard(&GiveUp);
    const std::uint64_t size = web_.Open();
    const std::string digest = ToldDigest();
    part_.emplace(target_ + ".part");
    if (size > 0) {
      FetchPieces(size, guard);
    } else {
      FetchStream(guard);
    }
    if (!digest.empty()) Verify(digest);
    Install();
  }

 private:
  std::string Target() const {
    std::string target = options_.output;
    std::error_code none;
    if (target.empty() || fs::is_directory(target, none)) {
      const std::string name = NameInUrl(options_.web.url);
      if (name.empty()) throw CommandError("the address names no file: use --output");
      target = target.empty() ? name : JoinNative(target, name);
    }
    if (fs::is_directory(target, none)) throw CommandError(target + " is a folder");
    if (!options_.force && fs::exists(fs::symlink_status(target, none)))
      throw CommandError(target + " exists already (--force replaces it)");
    return target;
  }

  std::string JournalPath() const { return part_->Path() + ".journal"; }

  // Lower-case digits, or empty where nobody asked for a comparison.
  std::string ToldDigest() const {
    if (options_.md5_url.empty()) return "";
    const std::string text = web_.Get(options_.md5_url);
    const std::size_t start = std::min(text.find_first_not_of(" \t\r\n"), text.size());
    std::string digits = CLI::detail::to_lower(text.substr(start, kDigits));
    if (digits.size() != kDigits ||
        digits.find_first_not_of("0123456789abcdef") != std::string::npos)
      throw CommandError("no MD5 at " + options_.md5_url);
    return digits;
  }

  // Pieces --------------------------------------------------------------------------------------

  void FetchPieces(std::uint64_t size, const InterruptGuard& guard) {
    DownloadState state;
    const std::size_t jobs = Plan(size, state);
    RequireRoom(size - state.Copied());
    SaveJournal(state);
    ProgressRules rules;
    rules.before = state.Copied();
    Progress progress(false, rules);
    progress.BeginFile(BaseName(target_));
    try {
      RunPieces(state, jobs, progress, guard);
    } catch (const CommandError&) {
      progress.Clear();
      SaveJournal(state);
      throw;
    }
    progress.Clear();
    Tell(state.size - rules.before, progress.Seconds());
  }

  // Takes up what an earlier run left, or begins anew; gives how many jobs can work on it.
  std::size_t Plan(std::uint64_t size, DownloadState& state) {
    const std::string source = DigestOf(options_.web.url);
    const bool known = ReadJournal(JournalPath(), state) && part_->Size() == state.size;
    const bool same = known && state.source == source && state.size == size;
    if (known && !same) std::printf("the remote file has changed: starting afresh\n");
    const bool ranges = (!same && options_.jobs == 1) || web_.GivesRanges(size);
    if (!ranges) std::printf("the server gives no ranges: fetching in one piece\n");
    if (same && ranges) {
      std::printf("going on at %s of %s\n", SizeText(state.Copied()).c_str(),
                  SizeText(size).c_str());
    } else {
      state = {source, size, {{0, size, 0}}};
      std::error_code none;
      fs::remove(JournalPath(), none);
      part_->Resize(size);
    }
    std::fflush(stdout);
    const std::size_t jobs = ranges ? options_.jobs : 1;
    SplitPieces(state, jobs, kLeastPiece);
    return std::min(jobs, state.pieces.size());
  }

  void RequireRoom(std::uint64_t bytes) const {
    std::error_code error;
    const fs::space_info space = fs::space(part_->Path(), error);
    if (!error && space.available < bytes)
      throw CommandError("no room for " + target_ + ": " + SizeText(bytes) + " needed, " +
                         SizeText(space.available) + " free");
  }

  void RunPieces(DownloadState& state, std::size_t jobs, Progress& progress,
                 const InterruptGuard& guard) {
    PieceFetcher fetcher(web_, state, {part_->Path(), jobs, options_.limit, options_.retries});
    auto saved = std::chrono::steady_clock::now();
    while (!fetcher.Continue(kLook)) {
      std::uint64_t ignored = 0;
      progress.OnNetFileCopyProgress(0, state.Copied(), state.size, 0, &ignored);
      if (guard.Interrupted()) throw CommandError("interrupted (the same command goes on)");
      if (std::chrono::steady_clock::now() - saved < kJournalEvery) continue;
      SaveJournal(state);
      saved = std::chrono::steady_clock::now();
    }
  }

  // Never tells of bytes that are not on the disk.
  void SaveJournal(const DownloadState& state) const {
    if (state.Copied() > 0) part_->Sync();
    if (!WriteJournal(JournalPath(), state)) throw CommandError("cannot write " + JournalPath());
  }

  // Without a known size ------------------------------------------------------------------------

  void FetchStream(const InterruptGuard& guard) {
    part_->Resize(0);
    Progress progress(false, ProgressRules());
    progress.BeginFile(BaseName(target_));
    std::uint64_t done = 0;
    int error = 0;
    const auto take = [&](const unsigned char* data, unsigned int size) {
      if (!part_->Append(data, size)) error = errno;
      std::uint64_t ignored = 0;
      progress.OnNetFileCopyProgress(0, done += size, 0, 0, &ignored);
      return error == 0;
    };
    try {
      web_.Stream(0, take, [&guard] { return guard.Interrupted(); });
      errno = error;
      if (error != 0) part_->Fail("cannot write ");
      if (guard.Interrupted()) throw CommandError("interrupted");
    } catch (const CommandError&) {
      progress.Clear();
      Discard();
      throw;
    }
    progress.Clear();
    Tell(done, progress.Seconds());
  }

  // The end -------------------------------------------------------------------------------------

  void Tell(std::uint64_t bytes, double seconds) {
    amount_ =
        SizeText(bytes) + " in " + DurationText(seconds) + " (" + RateText(bytes, seconds) + ")";
  }

  void Verify(const std::string& digest) const {
    const std::string own = LocalDigest(part_->Path());
    if (own == digest) return;
    Discard();
    throw CommandError("the MD5 of what came is " + own + ", not " + digest);
  }

  void Discard() const {
    std::error_code none;
    fs::remove(part_->Path(), none);
    fs::remove(JournalPath(), none);
  }

  void Install() const {
    std::error_code error;
    fs::rename(part_->Path(), target_, error);
    if (error) throw CommandError("cannot write " + target_ + ": " + error.message());
    fs::remove(JournalPath(), error);
    std::printf("fetched %s, %s\n", target_.c_str(), amount_.c_str());
  }

  const Options& options_;
  const std::string target_;
  Web web_;
  std::optional<Part> part_;
  std::string amount_;
};

}  // namespace

void AddFetchCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "fetch", "Fetch a file from a web server; after a break the same command goes on");
  AddWebOptions(*command, options->web);
  command->add_option("-o,--output", options->output,
                      "File to write, or a folder for it (the last name of the address)");
  command->add_option("-j,--jobs", options->jobs, "Pieces to fetch at the same time (1)")
      ->check(CLI::Range(1, 64));
  command->add_option("--limit", options->limit, "Most bytes per second, as 500K or 2M")
      ->transform(CLI::AsSizeValue(false));
  command
      ->add_option("--retries", options->retries,
                   "Further attempts, 5 s apart, while nothing comes (5)")
      ->check(CLI::Range(0, 1000000));
  command->add_option("--md5-url", options->md5_url, "Address of the file's MD5, to compare with");
  command->add_flag("-f,--force", options->force, "Replace an existing file");
  command->callback([options] { Fetch(*options).Run(); });
}

}  // namespace qvx::tool
