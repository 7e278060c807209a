#include "qvx/completion_port.h"

#include <memory>
#include <utility>

#include "platform/completion_queue.h"

namespace platform = qvx::platform;

HANDLE CreateCompletionPort() {
  return platform::CompletionQueues().Add(std::make_shared<platform::CompletionQueue>());
}

int WaitCompletionPort(HANDLE port, unsigned int ms, tagCOMPLETION* completion) {
  const auto queue = platform::CompletionQueues().Find(port);
  if (!queue || completion == nullptr) return 0;
  const platform::Deadline deadline =
      ms == UINT32_MAX ? platform::kNoDeadline : platform::DeadlineAfterMilliseconds(ms);
  return queue->Take(deadline, *completion) ? 1 : 0;
}

int PostCompletion(HANDLE port, const tagCOMPLETION* completion) {
  const auto queue = platform::CompletionQueues().Find(port);
  if (!queue || completion == nullptr) return 0;
  platform::CompletionQueue::Entries entry{*completion};
  return queue->Put(entry) ? 1 : 0;
}

int CloseCompletionPort(HANDLE port) {
  const auto queue = platform::CompletionQueues().Remove(port);
  if (!queue) return 0;
  queue->Close();
  return 1;
}
