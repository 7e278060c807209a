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
    Block(CSocketFileClient& client, const FileSink& into, std::uint32_t wanted)
        : file(into), size(wanted), read(client) {}
    FileSink file;
    std::uint32_t size;
    Exchange read;  // ends before what it writes to
  };

  bool OpenTemporary();
  std::int32_t Transfer();
  std::int32_t CopyBlock() override;
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
  std::uint64_t requested_ = 0;
  platform::File temporary_;
  std::deque<std::unique_ptr<Block>> blocks_;
  std::string temporary_path_;  // native; empty where there is none to care for
};

}  // namespace qvx::netfile
