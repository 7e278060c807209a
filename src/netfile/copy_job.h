// What downloads and uploads share: the settings of one call, the exchanges that nobody needs
// to wait for at once, and the interface of a file's copy.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "netfile/exchange.h"
#include "qvx/copy_progress.h"
#include "qvx/socket_file_client.h"
#include "qvx/socket_file_copy.h"
#include "qvx/sync.h"

namespace qvx::netfile {

inline constexpr std::uint32_t kBlockBytes = 0x80000;

class CopyJob;

struct CopyPaths {
  std::u16string remote;
  std::u16string local;
};

// The last requests of a finished file, whose answers can wait.
class Ending {
 public:
  virtual ~Ending() = default;
  // Whether Finish would not wait.
  virtual bool Ready() const = 0;
  virtual void Finish() = 0;
};

class Copy {
 public:
  Copy(CSocketFileClient* client, std::uint64_t timeout, INetFileCopyProgressListener* listener,
       std::uint64_t user_data)
      : client_(*client), timeout_(timeout), listener_(listener), user_data_(user_data) {}
  ~Copy();
  Copy(const Copy&) = delete;
  Copy& operator=(const Copy&) = delete;

  CSocketFileClient& Client() { return client_; }
  std::uint64_t Timeout() const { return timeout_; }
  std::uint64_t UserData() const { return user_data_; }
  std::uint64_t ReadLimit() const { return client_.mReadSpeedLimit.load(); }
  std::uint64_t WriteLimit() const { return client_.mWriteSpeedLimit.load(); }

  // Rules of the functions with a result code.
  void SetExtended(std::uint32_t flags, ISocketFileCopyReport* report);
  bool Extended() const { return extended_; }
  bool Overwrites() const { return (flags_ & SOCKET_FILE_COPY_OVERWRITE) != 0; }
  bool Cancelled() const { return cancelled_; }

  // Tells the listener of a block that began at the tick start; the limit that it asks for, if
  // there is a listener, goes through the setter. False if it asked for the end, and that counts.
  bool Progress(std::uint64_t copied, std::uint64_t total, std::uint32_t bytes, std::uint32_t start,
                void (CSocketFileClient::*set_limit)(std::uint64_t));
  // Remembers how a file or folder ended, and tells the report.
  void Report(const CopyPaths& paths, std::int32_t result, std::uint64_t size);
  // The same for an entry that was left out on purpose, which is no failure.
  void ReportLeftOut(const CopyPaths& paths, std::int32_t result);
  std::int32_t LastResult() const { return last_result_; }
  bool AllDone() const { return all_done_; }
  // The code for a request that failed: the given one, unless the connection is gone.
  std::int32_t RemoteFailure(std::int32_t result = SOCKET_FILE_COPY_REMOTE_IO);
  // Whether the limit for a whole file has run out.
  bool TimeIsUp(std::uint32_t start) const;

  // Jobs that have begun ahead of their turn; moved on before each wait.
  std::deque<std::unique_ptr<CopyJob>>& Ahead() { return ahead_; }
  void AdvanceAhead();

  void FinishLater(std::unique_ptr<Ending> ending);
  // Closes a handle of the server; nobody looks at the answer.
  void CloseLater(std::uint64_t handle);
  // Waits for all of them.
  void FinishAll();

  // Both for whatever is under way at the moment; the scratch block has FileSink::kScratchBytes.
  FileSinkWays& SinkWays();
  unsigned char* Scratch() { return SinkWays().scratch.get(); }

 private:
  CSocketFileClient& client_;
  std::uint64_t timeout_;
  INetFileCopyProgressListener* listener_;
  std::uint64_t user_data_;
  bool extended_ = false;
  std::uint32_t flags_ = 0;
  ISocketFileCopyReport* report_ = nullptr;
  bool cancelled_ = false;
  std::int32_t last_result_ = SOCKET_FILE_COPY_DONE;
  bool all_done_ = true;
  std::deque<std::unique_ptr<CopyJob>> ahead_;
  std::deque<std::unique_ptr<Ending>> endings_;
  FileSinkWays ways_;
};

// A step of a destructor; where memory runs out it is given up.
template <typename Step>
void WithoutThrowing(Step step) noexcept {
  try {
    step();
  } catch (const std::bad_alloc&) {
  }
}

// "download" or "upload", with the remote path and the rate, where any time has passed.
void LogCopyEnd(const char16_t* format, const CopyPaths& paths, std::uint32_t start,
                std::uint64_t copied);

// The copy of one file. Destroying a job that did not run leaves nothing behind on the server.
class CopyJob {
 public:
  CopyJob(Copy& copy, CopyPaths paths) : copy_(copy), paths_(std::move(paths)) {}
  virtual ~CopyJob() = default;
  CopyJob(const CopyJob&) = delete;
  CopyJob& operator=(const CopyJob&) = delete;

  // Sends the first request; only for speed.
  virtual void Begin() = 0;
  // Sends what the answers that are there allow; never waits.
  virtual void Advance() = 0;
  // Does all the rest; what is left to an ending is reported then.
  virtual void Run() = 0;

  const CopyPaths& Paths() const { return paths_; }

 protected:
  // Copies blocks until all are done, one fails or the time for the file is up.
  std::int32_t CopyBlocks();
  virtual std::int32_t CopyBlock() = 0;

  Copy& copy_;
  CopyPaths paths_;
  std::uint64_t total_ = 0;
  std::uint64_t copied_ = 0;
};

}  // namespace qvx::netfile
