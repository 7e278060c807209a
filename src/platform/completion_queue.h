// The queue behind a completion port. Filling it takes no memory, so that what was begun can
// always be completed: the entries are made when the work is posted. Thread-safe.
#pragma once

#include <list>
#include <memory>

#include "platform/clock.h"
#include "platform/event.h"
#include "platform/handle_table.h"
#include "platform/lock.h"
#include "qvx/completion_port.h"

namespace qvx::platform {

class CompletionQueue {
 public:
  using Entries = std::list<tagCOMPLETION>;

  // Moves the first entry of from to the end of the queue; drops it where the queue is closed.
  // False then.
  bool Put(Entries& from) noexcept;
  // False once the deadline is reached or the queue is closed.
  bool Take(Deadline deadline, tagCOMPLETION& completion) noexcept;
  void Close() noexcept;

 private:
  LeafLock lock_;
  Entries entries_;
  bool closed_ = false;
  Event changed_{true};  // set while there is anything to see
};

HandleTable<CompletionQueue>& CompletionQueues();

}  // namespace qvx::platform
