#include "netfile/copy_job.h"

#include "platform/socket.h"
#include "qvx/debug_output.h"

namespace qvx::netfile {

namespace {

// Answers that wait to be looked at.
constexpr std::size_t kMaxEndings = 64;

class CloseEnding : public Ending {
 public:
  CloseEnding(CSocketFileClient& client, std::uint64_t handle) : close_(client) {
    close_.StartClose(handle);
  }
  bool Ready() const override { return close_.Ready(); }
  void Finish() override { close_.Wait(kShortWait); }

 private:
  Exchange close_;
};

}  // namespace

Copy::~Copy() {
  ahead_.clear();
  WithoutThrowing([this] { FinishAll(); });
}

void Copy::SetExtended(std::uint32_t flags, ISocketFileCopyReport* report) {
  extended_ = true;
  flags_ = flags;
  report_ = report;
}

bool Copy::Progress(std::uint64_t copied, std::uint64_t total, std::uint32_t bytes,
                    std::uint32_t start, void (CSocketFileClient::*set_limit)(std::uint64_t)) {
  if (!listener_) return true;
  std::uint32_t elapsed = MS_GetTime() - start;
  double speed = elapsed == 0 ? 0.0 : static_cast<double>(bytes) / elapsed;
  std::uint64_t limit = 0;
  int go_on = listener_->OnNetFileCopyProgress(user_data_, copied, total, speed, &limit);
  (client_.*set_limit)(limit);
  if (extended_ && go_on == 0) cancelled_ = true;
  return !cancelled_;
}

void Copy::Report(const CopyPaths& paths, std::int32_t result, std::uint64_t size) {
  last_result_ = result;
  if (result != SOCKET_FILE_COPY_DONE) all_done_ = false;
  if (report_)
    report_->OnSocketFileCopyEnd(user_data_, paths.remote.c_str(), paths.local.c_str(), result,
                                 size);
}

void Copy::ReportLeftOut(const CopyPaths& paths, std::int32_t result) {
  if (report_)
    report_->OnSocketFileCopyEnd(user_data_, paths.remote.c_str(), paths.local.c_str(), result, 0);
}

std::int32_t Copy::RemoteFailure(std::int32_t result) {
  // The client counts as closed only some time after a failed send has ended its connection, and
  // after the requests in flight were told of an end.
  const bool is_shut = platform::SocketUse(client_.GetSocketFd()).IsShut();
  CAutoBaseLock lock(&client_.mWaiterLock);
  const bool connected = !is_shut && !client_.HasEnded();
  return connected ? result : std::int32_t{SOCKET_FILE_COPY_DISCONNECTED};
}

bool Copy::TimeIsUp(std::uint32_t start) const {
  return timeout_ != 0 && MS_GetTime() - start > timeout_;
}

void Copy::AdvanceAhead() {
  for (auto& job : ahead_) job->Advance();
}

void Copy::FinishLater(std::unique_ptr<Ending> ending) {
  endings_.push_back(std::move(ending));
  while (!endings_.empty() && (endings_.front()->Ready() || endings_.size() > kMaxEndings)) {
    auto first = std::move(endings_.front());
    endings_.pop_front();
    first->Finish();
  }
}

void Copy::CloseLater(std::uint64_t handle) {
  if (handle != 0) FinishLater(std::make_unique<CloseEnding>(client_, handle));
}

void Copy::FinishAll() {
  while (!endings_.empty()) {
    auto first = std::move(endings_.front());
    endings_.pop_front();
    first->Finish();
  }
}

FileSinkWays& Copy::SinkWays() {
  if (!ways_.scratch)
    ways_.scratch = std::make_unique_for_overwrite<unsigned char[]>(FileSink::kScratchBytes);
  return ways_;
}

std::int32_t CopyJob::CopyBlocks() {
  std::uint32_t start = MS_GetTime();
  while (copied_ < total_) {
    if (copy_.TimeIsUp(start)) return SOCKET_FILE_COPY_TIMEOUT;
    std::int32_t result = CopyBlock();
    if (result != SOCKET_FILE_COPY_DONE) return result;
  }
  return SOCKET_FILE_COPY_DONE;
}

void LogCopyEnd(const char16_t* format, const CopyPaths& paths, std::uint32_t start,
                std::uint64_t copied) {
  std::uint32_t elapsed = MS_GetTime() - start;
  if (elapsed == 0) return;
  DbgOutputW(2, format, paths.remote.c_str(), static_cast<long long>(elapsed),
             static_cast<double>(copied) / elapsed);
}

}  // namespace qvx::netfile
