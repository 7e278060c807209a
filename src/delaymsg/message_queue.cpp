#include "qvx/message_queue.h"

#include "delaymsg/message_registry.h"
#include "platform/clock.h"

using qvx::delaymsg::MessageFilter;
using qvx::delaymsg::MessageRegistry;

HWND CreateMessageWindow() {
  return MessageRegistry::Instance().Create();
}

int DestroyMessageWindow(HWND window) {
  return MessageRegistry::Instance().Destroy(window);
}

int IsMessageWindow(HWND window) {
  return MessageRegistry::Instance().Exists(window);
}

int PostWindowMessage(HWND window, unsigned int message, std::uint64_t wParam,
                      std::int64_t lParam) {
  const std::uint32_t now = qvx::platform::TickMilliseconds();
  return MessageRegistry::Instance().Post({window, message, wParam, lParam, now});
}

int PeekWindowMessage(tagWINDOWMESSAGE* found, HWND window, unsigned int first, unsigned int last,
                      int remove) {
  MessageFilter filter{window};
  if (first != 0 || last != 0) {
    filter.first = first;
    filter.last = last;
  }
  return MessageRegistry::Instance().Peek(filter, remove != 0, found);
}

int GetWindowMessage(tagWINDOWMESSAGE* found, HWND window, unsigned int timeoutMs) {
  using namespace qvx::platform;
  const Deadline deadline =
      timeoutMs == UINT32_MAX ? kNoDeadline : DeadlineAfterMilliseconds(timeoutMs);
  return MessageRegistry::Instance().Get({window}, deadline, found);
}

int GetMessageQueueDescriptor() {
  return MessageRegistry::Instance().Descriptor();
}
