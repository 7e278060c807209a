// Moves what a connection brings to a file within the system, without a way through the memory
// of this process. For one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/file.h"
#include "platform/socket.h"

namespace qvx::platform {

class PourPipe {
 public:
  // Fewer bytes go faster through memory.
  static constexpr std::size_t kWorthwhile = 32 * 1024;

  PourPipe() = default;
  ~PourPipe();
  PourPipe(const PourPipe&) = delete;
  PourPipe& operator=(const PourPipe&) = delete;

  // Takes up to size bytes that wait on a stream socket, and writes them at the offset. Never
  // waits for bytes. The count of those that have left the socket: 0 where a receive must serve,
  // since there are too few, the system can't do this, or something is wrong. *written tells
  // whether the file has got them; a file that can't take them from a pipe gets them through
  // memory.
  std::size_t Pour(SocketValue socket, std::size_t size, const File& file, std::uint64_t offset,
                   bool* written);

 private:
  bool Open();
  void GiveUp();
  bool Empty(std::size_t size, const File& file, std::uint64_t offset);
  bool EmptyThroughMemory(std::size_t size, const File& file, std::uint64_t offset, bool failed);

  int out_ = -1;
  int in_ = -1;
  bool unable_ = false;
};

}  // namespace qvx::platform
