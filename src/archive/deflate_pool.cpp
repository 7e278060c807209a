#include "archive/deflate_pool.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>

namespace qvx::archive {

namespace {

constexpr std::size_t kDictionary = 32 * 1024;
constexpr std::size_t kMarker = 16;  // the empty block that ends a piece amid the stream
constexpr int kMemoryLevel = 8;
constexpr std::size_t kStack = 256 * 1024;

using Guard = std::lock_guard<platform::RecursiveLock>;

}  // namespace

DeflatePiece::DeflatePiece(std::size_t size, const DeflatePiece* before)
    : dictionary_(before == nullptr ? 0 : std::min(kDictionary, before->size_)), size_(size) {
  memory_.reset(new unsigned char[dictionary_ + size]);
  if (dictionary_ == 0) return;
  const unsigned char* end = before->memory_.get() + before->dictionary_ + before->size_;
  std::memcpy(memory_.get(), end - dictionary_, dictionary_);
}

void DeflatePiece::Fill(std::size_t size, bool last) {
  size_ = size;
  last_ = last;
}

Deflater::~Deflater() {
  if (ready_) deflateEnd(&stream_);
}

void Deflater::Run(DeflatePiece& piece) {
  if (ready_) {
    deflateReset(&stream_);
  } else if (deflateInit2(&stream_, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, kMemoryLevel,
                          Z_DEFAULT_STRATEGY) == Z_OK) {
    ready_ = true;
  } else {
    throw std::bad_alloc();
  }
  const auto input_size = static_cast<unsigned int>(piece.size_);
  if (piece.dictionary_ > 0) {
    deflateSetDictionary(&stream_, piece.memory_.get(),
                         static_cast<unsigned int>(piece.dictionary_));
  }
  const std::size_t room = deflateBound(&stream_, input_size) + kMarker;
  piece.output_.reset(new unsigned char[room]);
  stream_.next_in = piece.Input();
  stream_.avail_in = input_size;
  stream_.next_out = piece.output_.get();
  stream_.avail_out = static_cast<unsigned int>(room);
  deflate(&stream_, piece.last_ ? Z_FINISH : Z_SYNC_FLUSH);
  piece.output_size_ = room - stream_.avail_out;
  piece.crc_ = static_cast<std::uint32_t>(crc32_z(0, piece.Input(), piece.size_));
}

DeflatePool::DeflatePool(unsigned int threads, Deflater& own) : own_(own) {
  threads_.reserve(threads);
  while (threads_.size() < threads && AddThread()) {
  }
}

bool DeflatePool::AddThread() {
  try {
    auto thread = std::make_unique<platform::NativeThread>();
    if (!thread->Create({"ZipDeflate", kStack, 0}, &DeflatePool::RunThread, this)) return false;
    thread->Release();
    threads_.push_back(std::move(thread));
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

DeflatePool::~DeflatePool() {
  {
    const Guard guard(lock_);
    over_ = true;
    waiting_.clear();
  }
  work_.Set();
  for (const auto& thread : threads_) thread->Join();
}

void DeflatePool::Submit(DeflatePiece& piece) {
  {
    const Guard guard(lock_);
    waiting_.push_back(&piece);
  }
  if (!threads_.empty()) work_.Set();
}

void DeflatePool::Wait(DeflatePiece& piece) {
  if (Take(piece)) {
    Compress(own_, piece);
  } else {
    while (IsPending(piece)) done_.Wait(platform::kNoDeadline);
  }
  if (piece.state_ == DeflatePiece::State::kFailed) throw std::bad_alloc();
}

bool DeflatePool::IsPending(const DeflatePiece& piece) {
  const Guard guard(lock_);
  return piece.state_ == DeflatePiece::State::kRunning;
}

bool DeflatePool::Take(DeflatePiece& piece) {
  const Guard guard(lock_);
  const auto found = std::find(waiting_.begin(), waiting_.end(), &piece);
  if (found == waiting_.end()) return false;
  waiting_.erase(found);
  piece.state_ = DeflatePiece::State::kRunning;
  return true;
}

DeflatePiece* DeflatePool::TakeNext() {
  const Guard guard(lock_);
  if (waiting_.empty()) return nullptr;
  DeflatePiece* piece = waiting_.front();
  waiting_.pop_front();
  piece->state_ = DeflatePiece::State::kRunning;
  return piece;
}

void DeflatePool::Compress(Deflater& deflater, DeflatePiece& piece) {
  DeflatePiece::State state = DeflatePiece::State::kDone;
  try {
    deflater.Run(piece);
  } catch (const std::bad_alloc&) {
    state = DeflatePiece::State::kFailed;
  }
  Finish(piece, state);
}

void DeflatePool::Finish(DeflatePiece& piece, DeflatePiece::State state) {
  const Guard guard(lock_);
  piece.state_ = state;
}

void DeflatePool::RunThread(void* pool) {
  static_cast<DeflatePool*>(pool)->Work();
}

void DeflatePool::Work() {
  Deflater deflater;
  for (;;) {
    while (DeflatePiece* piece = TakeNext()) {
      // The event lets one thread through; that one calls the next while there is work.
      work_.Set();
      Compress(deflater, *piece);
      done_.Set();
    }
    {
      const Guard guard(lock_);
      if (over_) break;
    }
    work_.Wait(platform::kNoDeadline);
  }
  work_.Set();
}

}  // namespace qvx::archive
