// The windows of the process and the message queues of their threads, behind message_queue.h.
// One lock guards it all; nothing foreign is called with it held.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "platform/clock.h"
#include "platform/event.h"
#include "platform/fork.h"
#include "platform/lock.h"
#include "platform/thread.h"
#include "platform/wake_descriptor.h"
#include "qvx/message_queue.h"

namespace qvx::delaymsg {

// Which messages of a queue are meant.
struct MessageFilter {
  HWND window = nullptr;  // null: of any window
  std::uint32_t first = 0;
  std::uint32_t last = UINT32_MAX;

  bool Fits(const tagWINDOWMESSAGE& message) const;
};

class MessageRegistry {
 public:
  // Built at the first call, which is that of the delayed message engine's constructor.
  static MessageRegistry& Instance();

  HWND Create();
  bool Destroy(HWND window);
  bool Exists(HWND window);
  bool BelongsToThisThread(HWND window);
  bool Post(const tagWINDOWMESSAGE& message);

  // All of these look at the calling thread's queue only.
  bool Peek(const MessageFilter& filter, bool remove, tagWINDOWMESSAGE* found);
  bool Get(const MessageFilter& filter, platform::Deadline deadline, tagWINDOWMESSAGE* found);
  void RemoveAll(const MessageFilter& filter);
  int Descriptor();

 private:
  struct Queue {
    std::uint64_t thread = 0;  // serial of the owner
    std::deque<tagWINDOWMESSAGE> messages;
    platform::Event arrived{false};
    platform::WakeDescriptor wake;

    void Remove(const MessageFilter& filter);
    void ShowState();
  };
  struct Slot {
    std::uint32_t generation = 1;
    Queue* owner = nullptr;  // null while the slot is free
  };

  MessageRegistry();
  ~MessageRegistry();

  static void OnThreadEnd(void* queue);
  static void OnForkChild(void* registry);

  Queue* OwnQueue() const { return static_cast<Queue*>(thread_end_.Context()); }
  Queue* MakeOwnQueue();
  Slot* Find(HWND window);
  std::size_t TakeSlot();
  void Drop(const Queue* queue);

  platform::RecursiveLock lock_;
  std::vector<Slot> slots_;
  std::vector<std::size_t> free_slots_;
  std::vector<std::unique_ptr<Queue>> queues_;
  platform::ThreadEndHook thread_end_;
  platform::ForkGuard fork_guard_;
};

}  // namespace qvx::delaymsg
