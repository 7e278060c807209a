// The copy of one file from the server into a temporary file, which then gets its own name.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "netfile/copy_job.h"
#include "platform/file.h"

namespace qvx::netfile {

class Download : public CopyJob {
 public:
  Download(Copy& copy, CopyPaths paths) : CopyJob(copy, std::move(paths)) {}
  ~Download() override;

  void Begin() override;
  void Advance() override;
  void Run() override;

 private:
  // A block that was asked for.
  struct Block {
    Block(CSocketFileClient& client, std::unique_ptr<unsigned char[]> bytes, std::uint32_t wanted)
        : data(std::move(bytes)), size(wanted), read(client) {}
    std::unique_ptr<unsigned char[]> data;
    std::uint32_t size;
    Exchange read;  // ends before its buffer does
  };

  bool OpenTemporary();
  std::int32_t Transfer();
  std::int32_t CopyBlocks();
  std::int32_t CopyBlock();
  std::int32_t Conclude(std::int32_t result);
  std::int32_t MoveIntoPlace();
  void RemoveTemporary();
  bool WaitOpen();
  bool WaitSize();
  void RequestBlocks(std::size_t most);
  void DropBlocks();
  void LetGo();

  std::unique_ptr<Exchange> open_;
  std::unique_ptr<Exchange> size_;
  std::uint64_t handle_ = 0;
  std::uint64_t total_ = 0;
  std::uint64_t requested_ = 0;
  std::uint64_t copied_ = 0;
  std::deque<std::unique_ptr<Block>> blocks_;
  platform::File temporary_;
  std::string temporary_path_;  // native; empty where there is none to care for
};

}  // namespace qvx::netfile
