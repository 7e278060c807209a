#include "netfile/upload.h"

#include <algorithm>
#include <cerrno>

#include "netfile/copy_paths.h"
#include "netfile/speed_limit.h"
#include "qvx/debug_output.h"

namespace qvx::netfile {

namespace {

// Blocks sent and not yet answered, while no speed limit holds.
constexpr std::size_t kBlocksInFlight = 3;
// Up to this a block is read and sent from memory, which beats a range of the file.
constexpr std::uint32_t kSmallBlock = 0x10000;
static_assert(kSmallBlock <= FileSink::kScratchBytes);

// The rename of a complete file and, where a result is wanted, a look whether it worked.
class RenameEnding : public Ending {
 public:
  RenameEnding(Copy& copy, CopyPaths paths, std::u16string temporary, std::uint64_t size)
      : copy_(copy),
        paths_(std::move(paths)),
        temporary_(std::move(temporary)),
        size_(size),
        remove_(copy.Client()),
        rename_(copy.Client()),
        probe_(copy.Client()) {
    if (copy_.Overwrites()) remove_.StartPath(SOCKET_FILE_REQ_DELETE, paths_.remote.c_str());
    rename_.StartRename(temporary_.c_str(), paths_.remote.c_str());
    if (copy_.Extended()) probe_.StartOpen(temporary_.c_str(), u"rb", nullptr);
  }

  bool Ready() const override { return rename_.Ready() && probe_.Ready(); }

  void Finish() override {
    rename_.Wait(kShortWait);
    if (!copy_.Extended()) return;
    probe_.Wait(kShortWait);
    copy_.Report(paths_, Result(), size_);
  }

 private:
  std::int32_t Result() {
    if (!rename_.Answered() || !probe_.Answered()) return copy_.RemoteFailure();
    if (probe_.Value() == 0) return SOCKET_FILE_COPY_DONE;
    copy_.CloseLater(probe_.Value());
    copy_.Client().DeleteFileW(temporary_.c_str());
    return SOCKET_FILE_COPY_EXISTS;
  }

  Copy& copy_;
  CopyPaths paths_;
  std::u16string temporary_;
  std::uint64_t size_;
  Exchange remove_;
  Exchange rename_;
  Exchange probe_;
};

}  // namespace

Upload::~Upload() {
  if (open_) WithoutThrowing([this] { Abandon(); });
}

void Upload::Begin() {
  if (open_ || !OpenLocal()) return;
  copy_.Client().CloseFile();
  open_ = std::make_unique<Exchange>(copy_.Client());
  open_->StartOpen(temporary_->c_str(), u"wb", nullptr);
}

bool Upload::OpenLocal() {
  if (local_opened_) return true;
  if (!temporary_) temporary_ = TemporaryBeside(paths_.remote);
  bool fits = temporary_ && FitsPath(paths_.local) && FitsPath(paths_.remote);
  local_opened_ = fits && local_.Open(paths_.local.c_str(), u"rb");
  local_error_ = fits ? errno : ENAMETOOLONG;
  if (!local_opened_) return false;
  std::int64_t size = local_.Size();
  local_failed_ = size < 0;
  total_ = static_cast<std::uint64_t>(std::max<std::int64_t>(size, 0));
  return true;
}

// A file of one block goes out whole ahead of its turn.
void Upload::Advance() {
  if (!open_ || !open_->Ready() || close_ || local_failed_ || total_ > kBlockBytes) return;
  if (!WaitOpen() || copy_.WriteLimit() != 0) return;
  SendBlocks(1);
  if (!local_failed_) StartClose();
}

bool Upload::WaitOpen() {
  open_->Wait(kShortWait);
  if (!close_) handle_ = open_->Value();
  return open_->Value() != 0;
}

void Upload::SendBlocks(std::size_t most) {
  while (blocks_.size() < most && sent_ < total_ && !local_failed_) {
    auto block = std::make_unique<Block>(copy_.Client());
    block->size = static_cast<std::uint32_t>(std::min<std::uint64_t>(total_ - sent_, kBlockBytes));
    local_failed_ = !SendBlock(*block, sent_);
    if (local_failed_) return;
    sent_ += block->size;
    blocks_.push_back(std::move(block));
  }
}

// False if the local file does not give the bytes; a failed send shows in the wait.
bool Upload::SendBlock(Block& block, std::uint64_t offset) {
  if (block.size > kSmallBlock) {
    block.write.StartWriteFile(handle_, offset, local_.Descriptor(), block.size);
    return !block.write.SourceWasShort();
  }
  if (local_.ReadAt(offset, copy_.Scratch(), block.size).count != block.size) return false;
  block.write.StartWrite(handle_, offset, copy_.Scratch(), block.size);
  return true;
}

void Upload::StartClose() {
  if (close_) return;
  close_ = std::make_unique<Exchange>(copy_.Client());
  close_->StartClose(handle_);
  handle_ = 0;
}

void Upload::Run() {
  std::uint32_t start = MS_GetTime();
  std::int32_t result = Transfer();
  local_.Close();
  if (result == SOCKET_FILE_COPY_DONE) result = CloseRemote();
  if (result == SOCKET_FILE_COPY_DONE) {
    auto ending = std::make_unique<RenameEnding>(copy_, paths_, *temporary_, copied_);
    open_.reset();
    copy_.FinishLater(std::move(ending));
  } else {
    Abandon();
  }
  if (result != SOCKET_FILE_COPY_DONE || !copy_.Extended()) copy_.Report(paths_, result, copied_);
  LogCopyEnd(u"upload file %ls, used %lldms, speed is %.2f K/s!!\r\n", paths_, start, copied_);
}

std::int32_t Upload::Transfer() {
  Begin();
  if (!local_opened_) {
    DbgOutputW(2, u"local file(%ls) open failed, err is:%d\r\n", paths_.local.c_str(),
               local_error_);
    copy_.Client().CloseFile();
    return local_error_ == ENAMETOOLONG ? SOCKET_FILE_COPY_TOO_LONG : SOCKET_FILE_COPY_LOCAL_OPEN;
  }
  if (local_failed_ && sent_ == 0 && total_ == 0) return SOCKET_FILE_COPY_LOCAL_IO;
  DbgOutputA(2, "local file size is %llu\r\n", static_cast<unsigned long long>(total_));
  copy_.AdvanceAhead();
  if (!WaitOpen()) {
    DbgOutputW(2, u"NetFile(%ls) open failed\r\n", temporary_->c_str());
    return copy_.RemoteFailure(SOCKET_FILE_COPY_REMOTE_OPEN);
  }
  return CopyBlocks();
}

std::int32_t Upload::CopyBlock() {
  SpeedLimit limit;
  SendBlocks(copy_.WriteLimit() != 0 ? 1 : kBlocksInFlight);
  if (blocks_.empty()) {
    DbgOutputA(2, "Read local File return 0!!\r\n");
    return SOCKET_FILE_COPY_LOCAL_IO;
  }
  copy_.AdvanceAhead();
  auto block = std::move(blocks_.front());
  blocks_.pop_front();
  block->write.Wait(copy_.Timeout());
  auto bytes = std::min(block->write.Value(), std::uint64_t{block->size});
  limit.Keep(static_cast<std::uint32_t>(bytes), copy_.WriteLimit());
  if (bytes != block->size) {
    DbgOutputA(2, "Write Net File failed!!\r\n");
    return copy_.RemoteFailure();
  }
  copied_ += bytes;
  bool go_on = copy_.Progress(copied_, total_, block->size, limit.Start(),
                              &CSocketFileClient::LimitWriteSpeed);
  return go_on || copied_ == total_ ? SOCKET_FILE_COPY_DONE : SOCKET_FILE_COPY_CANCELLED;
}

// A close that nobody answered is no proof that the file is whole.
std::int32_t Upload::CloseRemote() {
  StartClose();
  copy_.AdvanceAhead();
  close_->Wait(kShortWait);
  return close_->Answered() ? std::int32_t{SOCKET_FILE_COPY_DONE} : copy_.RemoteFailure();
}

// Gives the server's file back and has the temporary file deleted.
void Upload::Abandon() {
  if (open_) {
    WaitOpen();
    copy_.CloseLater(handle_);
    open_.reset();
  }
  if (temporary_) copy_.Client().DeleteFileW(temporary_->c_str());
}

}  // namespace qvx::netfile
