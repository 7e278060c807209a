#include "archive/packer.h"

#include <algorithm>
#include <utility>

#include "archive/zip_name.h"
#include "platform/thread.h"

namespace qvx::archive {

namespace {

constexpr unsigned int kMostThreads = 8;
constexpr std::size_t kMostPending = 128;
constexpr std::size_t kMostPendingBytes = 8 * 1024 * 1024;
constexpr std::size_t kShownName = 65535;

}  // namespace

Packer::Packer(ZipOutput& output, Z_FileInfo& info, IArchiveProgressListener* listener,
               unsigned int threads)
    : output_(output), info_(info), listener_(listener), pool_(threads, output.OwnDeflater()) {}

Packer::~Packer() = default;

bool Packer::AddFile(const platform::File& source, const EntryHead& head) {
  auto entry = std::make_shared<Entry>();
  entry->head = head;
  if (listener_ != nullptr) entry->shown = NarrowFromOwn(head.name, kShownName);
  std::uint64_t offset = 0;
  const DeflatePiece* before = nullptr;
  for (bool last = false; !last;) {
    const auto wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(kPieceSize, head.size - offset));
    auto piece = std::make_unique<DeflatePiece>(wanted, before);
    const platform::Transfer got = source.ReadAt(offset, piece->Input(), wanted);
    info_.uncompressedSize += static_cast<std::uint32_t>(got.count);
    offset += got.count;
    last = got.count < wanted || offset == head.size || IsOver();
    piece->Fill(got.count, last);
    before = piece.get();
    AddPiece(entry, std::move(piece), last);
  }
  return offset == head.size;
}

void Packer::AddFolder(const EntryHead& head) {
  auto entry = std::make_shared<Entry>();
  entry->head = head;
  pending_.push_back({entry, nullptr, true, true});
  while (pending_.size() > kMostPending) WriteFront();
}

// The piece added last is never written here: the next one still needs its end.
void Packer::AddPiece(const std::shared_ptr<Entry>& entry, std::unique_ptr<DeflatePiece> piece,
                      bool last) {
  const bool first = pending_.empty() || pending_.back().entry != entry;
  pending_bytes_ += piece->InputSize();
  pending_.push_back({entry, std::move(piece), first, last});
  pool_.Submit(*pending_.back().piece);
  while (pending_.size() > kMostPending || pending_bytes_ > kMostPendingBytes) WriteFront();
}

bool Packer::Flush() {
  while (!pending_.empty()) WriteFront();
  return !std::exchange(failed_, false) && !IsOver();
}

void Packer::WriteFront() {
  if (pending_.front().piece) pool_.Wait(*pending_.front().piece);
  const Pending pending = std::move(pending_.front());
  pending_.pop_front();
  const bool written = pending.piece ? WritePiece(pending) : WriteFolder(*pending.entry);
  if (!written) failed_ = true;
}

bool Packer::WriteFolder(const Entry& entry) {
  return !IsOver() && output_.BeginEntry(entry.head) && output_.EndEntry(0, 0);
}

bool Packer::WritePiece(const Pending& pending) {
  Entry& entry = *pending.entry;
  const DeflatePiece& piece = *pending.piece;
  pending_bytes_ -= piece.InputSize();
  if (pending.first && !IsOver()) {
    entry.open = output_.BeginEntry(entry.head);
    if (entry.open) ++info_.fileCount;
  }
  if (!entry.open) return false;
  entry.crc = static_cast<std::uint32_t>(
      crc32_combine(entry.crc, piece.Crc(), static_cast<z_off_t>(piece.InputSize())));
  entry.size += piece.InputSize();
  const bool written = output_.WriteCompressed(piece.Output(), piece.OutputSize());
  const bool ended = !pending.last || output_.EndEntry(entry.size, entry.crc);
  return Report(entry) && written && ended;
}

bool Packer::Report(const Entry& entry) {
  if (listener_ == nullptr || stopped_) return !stopped_;
  stopped_ = listener_->OnArchiveProgress(entry.shown.c_str(), entry.size, entry.head.size) == 0;
  return !stopped_;
}

unsigned int PackingThreads(std::uint64_t bytes) {
  if (bytes <= 2 * kPieceSize) return 0;
  const unsigned int processors = std::min(platform::UsableProcessors(), kMostThreads);
  return processors > 1 ? processors : 0;
}

}  // namespace qvx::archive
