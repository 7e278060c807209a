// The pieces of one file, fetched from a web server several at a time, each by a download of the
// library on a connection of its own.
#pragma once

#include <qvx/http_download.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "journal.h"
#include "web.h"

namespace qvx::tool {

class PieceFetcher : private INetFileCopyProgressListener,
                     private IMultiThreadDownloadFailedListener {
 public:
  struct Rules {
    std::string file;         // native; exists
    std::size_t jobs = 1;     // at a time
    std::uint64_t limit = 0;  // bytes per second of all together, 0 for none
    int retries = 0;          // of attempts in a row that bring nothing
  };

  // Web and state must outlive it. It begins with the first call of Continue, and stops at its
  // own end.
  PieceFetcher(const Web& web, DownloadState& state, const Rules& rules);
  ~PieceFetcher() override;

  // Waits for something to end, at most this long, starts what comes next and brings the state up
  // to date. True when all pieces are there. Throws CommandError where the retries are used up.
  bool Continue(std::chrono::milliseconds time);

 private:
  struct Worker {
    tagMTDOWNLOAD_BLOCK block;
    CMultiThreadDownload download;  // ends before the block does
    bool busy = false;
    std::size_t piece = 0;
    int failures = 0;
    std::uint64_t copied = 0;  // at the last failure
  };
  using End = std::pair<std::size_t, bool>;  // the worker, and whether its piece is complete

  std::int32_t OnNetFileCopyProgress(std::uint64_t worker, std::uint64_t copied,
                                     std::uint64_t total, double speed,
                                     std::uint64_t* limit) override;
  int OnDownloadBlockEnd(std::uint64_t worker, int success) override;

  std::vector<End> TakeEnds(std::chrono::milliseconds time);
  void Handle(const End& end);
  void StartNext();
  void Start(std::size_t worker, std::size_t piece);
  unsigned int BlockSize() const;
  bool Update();

  const Web& web_;
  DownloadState& state_;
  const Rules rules_;
  std::size_t next_ = 0;  // the first piece that nobody has looked at
  std::atomic<std::uint64_t> busy_{0};
  std::mutex mutex_;
  std::condition_variable ended_;
  std::vector<End> ends_;
  std::deque<Worker> workers_;
};

}  // namespace qvx::tool
