#include "pieces.h"

#include <algorithm>

#include "archive_progress.h"
#include "command.h"

namespace qvx::tool {
namespace {

constexpr std::uint64_t kMostBlock = 512 * 1024;
constexpr std::uint64_t kLeastBlock = 4096;
constexpr std::uint64_t kBlocksPerSecond = 4;

}  // namespace

PieceFetcher::PieceFetcher(const Web& web, DownloadState& state, const Rules& rules)
    : web_(web), state_(state), rules_(rules) {
  const std::string path = NarrowLibraryPath(rules.file);
  for (std::size_t i = 0; i < rules.jobs; ++i) {
    Worker& worker = workers_.emplace_back();
    web.Fill(worker.block);
    worker.block.localPath.Set(path.c_str());
  }
}

PieceFetcher::~PieceFetcher() {
  for (Worker& worker : workers_) worker.download.CancelDownload();
  Update();
}

bool PieceFetcher::Continue(std::chrono::milliseconds time) {
  StartNext();
  for (const End& end : TakeEnds(time)) Handle(end);
  StartNext();
  return Update();
}

std::vector<PieceFetcher::End> PieceFetcher::TakeEnds(std::chrono::milliseconds time) {
  std::unique_lock<std::mutex> guard(mutex_);
  ended_.wait_for(guard, time, [this] { return !ends_.empty(); });
  return std::exchange(ends_, {});
}

void PieceFetcher::Handle(const End& end) {
  Worker& worker = workers_[end.first];
  const std::uint64_t copied = worker.block.copiedSize.load();
  if (end.second) {
    state_.pieces[worker.piece].copied = copied;
    worker.busy = false;
    busy_.fetch_sub(1);
    return;
  }
  worker.failures = copied > worker.copied ? 1 : worker.failures + 1;
  worker.copied = copied;
  if (worker.failures <= rules_.retries) return;
  const std::string reason = web_.Reason();
  throw CommandError("the download failed" + (reason.empty() ? "" : ": " + reason) +
                     " (what came is kept: the same command goes on)");
}

void PieceFetcher::StartNext() {
  for (std::size_t i = 0; i < workers_.size(); ++i) {
    if (workers_[i].busy) continue;
    while (next_ < state_.pieces.size()) {
      const DownloadState::Piece& piece = state_.pieces[next_];
      if (piece.copied < piece.end - piece.start) break;
      ++next_;
    }
    if (next_ < state_.pieces.size()) Start(i, next_++);
  }
}

void PieceFetcher::Start(std::size_t index, std::size_t piece) {
  Worker& worker = workers_[index];
  worker.download.CancelDownload();
  worker.piece = piece;
  worker.failures = 0;
  worker.copied = state_.pieces[piece].copied;
  worker.block.startPos = state_.pieces[piece].start;
  worker.block.endPos = state_.pieces[piece].end;
  worker.block.copiedSize.store(worker.copied);
  worker.busy = true;
  busy_.fetch_add(1);
  worker.download.DownloadFile(0, &worker.block, BlockSize(), this, this, index);
  if (worker.download.IsDownloadingStart() == 0) throw CommandError("cannot start a thread");
}

// Under a limit small blocks keep the bytes flowing.
unsigned int PieceFetcher::BlockSize() const {
  if (rules_.limit == 0) return kMostBlock;
  const std::uint64_t block = rules_.limit / rules_.jobs / kBlocksPerSecond;
  return static_cast<unsigned int>(std::clamp(block, kLeastBlock, kMostBlock));
}

bool PieceFetcher::Update() {
  for (const Worker& worker : workers_)
    if (worker.busy) state_.pieces[worker.piece].copied = worker.block.copiedSize.load();
  const bool waiting = next_ < state_.pieces.size();
  return !waiting && busy_.load() == 0;
}

std::int32_t PieceFetcher::OnNetFileCopyProgress(std::uint64_t, std::uint64_t, std::uint64_t,
                                                 double, std::uint64_t* limit) {
  if (rules_.limit == 0) return 1;
  *limit = std::max<std::uint64_t>(1, rules_.limit / std::max<std::uint64_t>(1, busy_.load()));
  return 1;
}

int PieceFetcher::OnDownloadBlockEnd(std::uint64_t worker, int success) {
  const std::lock_guard<std::mutex> guard(mutex_);
  ends_.emplace_back(static_cast<std::size_t>(worker), success != 0);
  ended_.notify_one();
  return 0;
}

}  // namespace qvx::tool
