#include "netfile/download.h"

#include <algorithm>
#include <cerrno>

#include "netfile/copy_paths.h"
#include "netfile/speed_limit.h"
#include "platform/path.h"
#include "qvx/debug_output.h"

namespace qvx::netfile {

namespace {

// Blocks asked for and not yet there, while no speed limit holds: enough that the server is
// never without a request.
constexpr std::size_t kBlocksInFlight = 6;
constexpr int kMaxNames = 100;

}  // namespace

Download::~Download() {
  blocks_.clear();
  WithoutThrowing([this] { LetGo(); });
  temporary_.Close();
  WithoutThrowing([this] { RemoveTemporary(); });
}

void Download::Begin() {
  if (open_) return;
  copy_.Client().CloseFile();
  open_ = std::make_unique<Exchange>(copy_.Client());
  open_->StartOpen(paths_.remote.c_str(), u"rb", nullptr);
}

void Download::Advance() {
  if (!open_ || !open_->Ready() || !WaitOpen()) return;
  if (!size_->Ready() || !WaitSize()) return;
  if (requested_ != 0 || copy_.ReadLimit() != 0) return;
  if (OpenTemporary()) RequestBlocks(1);
}

// The answer of the open request; asks for the size right away.
bool Download::WaitOpen() {
  open_->Wait(kShortWait);
  handle_ = open_->Value();
  if (handle_ != 0 && !size_) {
    size_ = std::make_unique<Exchange>(copy_.Client());
    size_->StartSize(handle_);
  }
  return handle_ != 0;
}

bool Download::WaitSize() {
  size_->Wait(kShortWait);
  total_ = size_->Value();
  return size_->Answered();
}

void Download::RequestBlocks(std::size_t most) {
  while (blocks_.size() < most && requested_ < total_) {
    auto bytes =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(total_ - requested_, kBlockBytes));
    FileSink file(temporary_, requested_, copy_.SinkWays());
    auto block = std::make_unique<Block>(copy_.Client(), file, bytes);
    block->read.StartReadIntoFile(handle_, requested_, &block->file, bytes);
    blocks_.push_back(std::move(block));
    requested_ += bytes;
  }
}

void Download::DropBlocks() {
  blocks_.clear();
  requested_ = copied_;
}

void Download::Run() {
  std::uint32_t start = MS_GetTime();
  std::int32_t result = Conclude(Transfer());
  LogCopyEnd(u"download file %ls, used %lldms, speed is %.2f K/s!!\r\n", paths_, start, copied_);
  copy_.Report(paths_, result, copied_);
}

std::int32_t Download::Transfer() {
  if (!OpenTemporary()) {
    const bool too_long = errno == ENAMETOOLONG;
    copy_.Client().CloseFile();
    return too_long ? SOCKET_FILE_COPY_TOO_LONG : SOCKET_FILE_COPY_LOCAL_OPEN;
  }
  Begin();
  copy_.AdvanceAhead();
  if (!WaitOpen()) {
    DbgOutputW(2, u"NetFile(%ls) open failed\r\n", paths_.remote.c_str());
    return copy_.RemoteFailure(SOCKET_FILE_COPY_REMOTE_OPEN);
  }
  copy_.AdvanceAhead();
  if (!WaitSize()) return copy_.RemoteFailure();
  DbgOutputA(2, "net file size is %llu\r\n", static_cast<unsigned long long>(total_));
  return CopyBlocks();
}

bool Download::OpenTemporary() {
  if (temporary_.IsOpen()) return true;
  std::u16string name = paths_.local;
  errno = ENAMETOOLONG;
  bool fits = FitsPath(paths_.local) && FitsPath(paths_.remote);
  for (int i = 0; fits && i < kMaxNames && !temporary_.IsOpen(); ++i) {
    auto path = TemporaryBeside(paths_.local);
    auto native = path ? platform::ToNativePath(*path) : std::nullopt;
    if (path) name = *path;
    if (!native) break;
    temporary_path_ = *native;
    if (temporary_.OpenNative(*native, platform::OpenMode::WriteNew()) || errno != EEXIST) break;
  }
  if (temporary_.IsOpen()) return true;
  int error = errno;
  temporary_path_.clear();
  DbgOutputW(2, u"local file(%ls) open failed, err is:%d\r\n", name.c_str(), error);
  errno = error;
  return false;
}

std::int32_t Download::CopyBlock() {
  SpeedLimit limit;
  RequestBlocks(copy_.ReadLimit() != 0 ? 1 : kBlocksInFlight);
  copy_.AdvanceAhead();
  auto block = std::move(blocks_.front());
  blocks_.pop_front();
  block->read.Wait(copy_.Timeout());
  auto bytes = static_cast<std::uint32_t>(block->read.Value());
  limit.Keep(bytes, copy_.ReadLimit());
  if (bytes == 0) {
    DbgOutputA(2, "Read Net File return == 0!!\r\n");
    return copy_.RemoteFailure();
  }
  if (copy_.ReadLimit() == 0) RequestBlocks(kBlocksInFlight);
  if (block->file.Failed()) return SOCKET_FILE_COPY_LOCAL_IO;
  copied_ += bytes;
  if (bytes != block->size) DropBlocks();
  bool go_on =
      copy_.Progress(copied_, total_, bytes, limit.Start(), &CSocketFileClient::LimitReadSpeed);
  return go_on || copied_ == total_ ? SOCKET_FILE_COPY_DONE : SOCKET_FILE_COPY_CANCELLED;
}

std::int32_t Download::Conclude(std::int32_t result) {
  blocks_.clear();
  if (!temporary_.Close() && result == SOCKET_FILE_COPY_DONE) result = SOCKET_FILE_COPY_LOCAL_IO;
  LetGo();
  if (result == SOCKET_FILE_COPY_DONE) return MoveIntoPlace();
  RemoveTemporary();
  return result;
}

std::int32_t Download::MoveIntoPlace() {
  auto target = platform::ToNativePath(paths_.local);
  auto move = copy_.Overwrites() ? platform::MoveOver : platform::MoveWithoutOverwrite;
  bool moved = target && move(temporary_path_, *target);
  if (moved || !copy_.Extended()) {
    temporary_path_.clear();
    return SOCKET_FILE_COPY_DONE;
  }
  RemoveTemporary();
  return SOCKET_FILE_COPY_EXISTS;
}

void Download::RemoveTemporary() {
  if (!temporary_path_.empty()) platform::DeleteName(temporary_path_);
  temporary_path_.clear();
}

// Gives the server's file back, however far the job got.
void Download::LetGo() {
  if (!open_) return;
  open_->Wait(kShortWait);
  copy_.CloseLater(open_->Value());
  open_.reset();
}

}  // namespace qvx::netfile
