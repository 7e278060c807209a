// The copy of one file to the server, under a temporary name there until it is complete.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "netfile/copy_job.h"
#include "platform/file.h"

namespace qvx::netfile {

class Upload : public CopyJob {
 public:
  Upload(Copy& copy, CopyPaths paths) : CopyJob(copy, std::move(paths)) {}
  ~Upload() override;

  void Begin() override;
  void Advance() override;
  void Run() override;

 private:
  // A block that was sent and waits for its answer.
  struct Block {
    explicit Block(CSocketFileClient& client) : write(client) {}
    std::uint32_t size = 0;
    Exchange write;
  };

  bool OpenLocal();
  std::int32_t Transfer();
  std::int32_t CopyBlock() override;
  std::int32_t CloseRemote();
  bool WaitOpen();
  void SendBlocks(std::size_t most);
  bool SendBlock(Block& block, std::uint64_t offset);
  void StartClose();
  void Abandon();

  bool local_opened_ = false;
  int local_error_ = 0;
  platform::File local_;
  std::optional<std::u16string> temporary_;  // the server's path
  std::unique_ptr<Exchange> open_;
  std::unique_ptr<Exchange> close_;
  std::uint64_t handle_ = 0;
  std::uint64_t sent_ = 0;
  bool local_failed_ = false;
  std::deque<std::unique_ptr<Block>> blocks_;
};

}  // namespace qvx::netfile
