// Compresses pieces of data on several threads. Pieces of one stream are deflated on their own,
// each with the end of the piece before it as dictionary, and make one deflate stream (RFC 1951)
// when their outputs are put together. The threads live as long as the pool. Submit and Wait are
// for one thread.
#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "platform/event.h"
#include "platform/lock.h"
#include "platform/thread.h"

namespace qvx::archive {

// The most data of one piece.
inline constexpr std::size_t kPieceSize = 256 * 1024;

class DeflatePiece {
 public:
  // Room for size bytes of input behind a dictionary, which is the end of another piece's input.
  DeflatePiece(std::size_t size, const DeflatePiece* before);

  unsigned char* Input() { return memory_.get() + dictionary_; }
  std::size_t InputSize() const { return size_; }
  // How much of the room was filled, and whether the stream ends here.
  void Fill(std::size_t size, bool last);

  // After Wait.
  const unsigned char* Output() const { return output_.get(); }
  std::size_t OutputSize() const { return output_size_; }
  std::uint32_t Crc() const { return crc_; }  // of the input

 private:
  friend class Deflater;
  friend class DeflatePool;

  enum class State { kWaiting, kRunning, kDone, kFailed };

  std::unique_ptr<unsigned char[]> memory_;  // dictionary and input
  std::size_t dictionary_;
  std::size_t size_;
  bool last_ = false;
  std::unique_ptr<unsigned char[]> output_;
  std::size_t output_size_ = 0;
  std::uint32_t crc_ = 0;
  State state_ = State::kWaiting;
};

// A deflate stream of zlib that is used again and again.
class Deflater {
 public:
  Deflater() = default;
  ~Deflater();
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;

  // Throws std::bad_alloc.
  void Run(DeflatePiece& piece);

 private:
  z_stream stream_{};
  bool ready_ = false;
};

class DeflatePool {
 public:
  // Does with fewer threads, or none, where the system gives no more. own is for the thread that
  // waits, and must outlive the pool.
  DeflatePool(unsigned int threads, Deflater& own);
  // Ends the threads; pieces that wait are dropped.
  ~DeflatePool();
  DeflatePool(const DeflatePool&) = delete;
  DeflatePool& operator=(const DeflatePool&) = delete;

  // The piece must live until Wait returned for it, or until the pool is gone.
  void Submit(DeflatePiece& piece);
  // Until the piece is compressed; the calling thread does it where nobody began yet. Throws
  // std::bad_alloc where there was no memory for it.
  void Wait(DeflatePiece& piece);

 private:
  bool AddThread();
  static void RunThread(void* pool);
  void Work();
  bool IsPending(const DeflatePiece& piece);
  DeflatePiece* TakeNext();
  bool Take(DeflatePiece& piece);
  void Compress(Deflater& deflater, DeflatePiece& piece);
  void Finish(DeflatePiece& piece, DeflatePiece::State state);

  platform::RecursiveLock lock_;
  std::deque<DeflatePiece*> waiting_;
  bool over_ = false;
  platform::Event work_{false};
  platform::Event done_{false};
  Deflater& own_;
  std::vector<std::unique_ptr<platform::NativeThread>> threads_;
};

}  // namespace qvx::archive
