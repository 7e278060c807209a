#include "platform/completion_queue.h"

#include <mutex>

namespace qvx::platform {

bool CompletionQueue::Put(Entries& from) noexcept {
  Entries dropped;
  const std::lock_guard<LeafLock> guard(lock_);
  Entries& to = closed_ ? dropped : entries_;
  to.splice(to.end(), from, from.begin());
  changed_.Set();
  return !closed_;
}

bool CompletionQueue::Take(Deadline deadline, tagCOMPLETION& completion) noexcept {
  Entries taken;
  for (;;) {
    {
      const std::lock_guard<LeafLock> guard(lock_);
      if (closed_) return false;
      if (!entries_.empty()) {
        taken.splice(taken.end(), entries_, entries_.begin());
        completion = taken.front();
        return true;
      }
      changed_.Reset();
    }
    if (!changed_.Wait(deadline)) return false;
  }
}

void CompletionQueue::Close() noexcept {
  const std::lock_guard<LeafLock> guard(lock_);
  closed_ = true;
  changed_.Set();
}

HandleTable<CompletionQueue>& CompletionQueues() {
  static HandleTable<CompletionQueue> queues;
  return queues;
}

}  // namespace qvx::platform
