// Readiness of many sockets for one waiting thread, without handing the whole list over for
// each wait. Add, Change and Remove may be called from any thread while another one waits and
// take effect at once; Open and Close only while no other thread uses the set.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/socket.h"

namespace qvx::platform {

class PollSet {
 public:
  PollSet() = default;
  ~PollSet();
  PollSet(const PollSet&) = delete;
  PollSet& operator=(const PollSet&) = delete;

  // Starts an empty set that wake can interrupt; wake outlives it. False with errno set.
  bool Open(WakeSignal& wake) noexcept;
  void Close() noexcept;
  // Forgets the set without touching what a parent process may share with this one.
  void Abandon() noexcept { Close(); }

  // Watches a socket for kPollRead, kPollWrite, both or neither; the kPollEnded bits come
  // unasked, but for the peer's orderly close, which is told to those who read.
  // False with errno set. A socket must be removed before it is closed.
  bool Add(SocketValue socket, std::uint16_t wanted) noexcept;
  bool Change(SocketValue socket, std::uint16_t wanted) noexcept;
  void Remove(SocketValue socket) noexcept;

  // Waits until sockets have something to tell, the wake signal is given or the time is over.
  // Fills socket and happened of at most capacity items, with the meaning that PollSockets
  // gives them. The count of items (0 also for a wake, which is cleared), or -1 with errno set.
  int Wait(PollItem* items, int capacity, int milliseconds) noexcept;

 private:
  bool Control(int operation, SocketValue socket, std::uint16_t wanted) noexcept;

  int descriptor_ = -1;
  WakeSignal* wake_ = nullptr;
};

}  // namespace qvx::platform
