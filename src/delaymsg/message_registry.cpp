#include "delaymsg/message_registry.h"

#include <algorithm>
#include <mutex>

namespace qvx::delaymsg {
namespace {

using Guard = std::lock_guard<platform::RecursiveLock>;

constexpr std::size_t kMostWindows = 65'536;
constexpr std::size_t kMostMessages = 1'000'000;

HWND MakeHandle(std::size_t slot, std::uint32_t generation) {
  const std::uint64_t value = (std::uint64_t{generation} << 32) | (slot + 1);
  return reinterpret_cast<HWND>(value);
}

}  // namespace

bool MessageFilter::Fits(const tagWINDOWMESSAGE& message) const {
  return (window == nullptr || message.hwnd == window) && message.message >= first &&
         message.message <= last;
}

void MessageRegistry::Queue::Remove(const MessageFilter& filter) {
  std::erase_if(messages, [&](const tagWINDOWMESSAGE& each) { return filter.Fits(each); });
  ShowState();
}

void MessageRegistry::Queue::ShowState() {
  if (messages.empty()) {
    wake.Lower();
  } else {
    wake.Raise();
  }
}

MessageRegistry& MessageRegistry::Instance() {
  static MessageRegistry registry;
  return registry;
}

MessageRegistry::MessageRegistry()
    : thread_end_(&OnThreadEnd), fork_guard_(&lock_, &OnForkChild, this) {}

MessageRegistry::~MessageRegistry() = default;

void MessageRegistry::OnThreadEnd(void* queue) {
  MessageRegistry& registry = Instance();
  Guard guard(registry.lock_);
  registry.Drop(static_cast<Queue*>(queue));
}

// Other threads' windows went with them; the descriptor of what is left was the parent's.
void MessageRegistry::OnForkChild(void* context) {
  auto& registry = *static_cast<MessageRegistry*>(context);
  const std::vector<std::unique_ptr<Queue>>& queues = registry.queues_;
  for (std::size_t i = queues.size(); i-- > 0;) {
    if (queues[i]->thread != platform::ForkSurvivor()) {
      registry.Drop(queues[i].get());
    } else {
      queues[i]->wake.Renew();
    }
  }
}

// Frees a queue and all windows that belong to it.
void MessageRegistry::Drop(const Queue* queue) {
  for (std::size_t i = 0; i < slots_.size(); ++i) {
    if (slots_[i].owner != queue) continue;
    ++slots_[i].generation;
    slots_[i].owner = nullptr;
    free_slots_.push_back(i);
  }
  std::erase_if(queues_, [&](const std::unique_ptr<Queue>& each) { return each.get() == queue; });
}

MessageRegistry::Queue* MessageRegistry::MakeOwnQueue() {
  if (Queue* queue = OwnQueue()) return queue;
  queues_.push_back(std::make_unique<Queue>());
  Queue* queue = queues_.back().get();
  queue->thread = platform::ThreadSerial();
  if (thread_end_.Arm(queue)) return queue;
  queues_.pop_back();
  return nullptr;
}

MessageRegistry::Slot* MessageRegistry::Find(HWND window) {
  const auto value = reinterpret_cast<std::uintptr_t>(window);
  const std::size_t index = (value & UINT32_MAX) - 1;
  if (index >= slots_.size() || slots_[index].owner == nullptr) return nullptr;
  return slots_[index].generation == value >> 32 ? &slots_[index] : nullptr;
}

// The place lists never need memory when a window is given up.
std::size_t MessageRegistry::TakeSlot() {
  if (free_slots_.empty()) {
    slots_.emplace_back();
    free_slots_.reserve(slots_.capacity());
    return slots_.size() - 1;
  }
  const std::size_t index = free_slots_.back();
  free_slots_.pop_back();
  return index;
}

HWND MessageRegistry::Create() {
  Guard guard(lock_);
  if (free_slots_.empty() && slots_.size() >= kMostWindows) return nullptr;
  Queue* queue = MakeOwnQueue();
  if (queue == nullptr) return nullptr;
  const std::size_t index = TakeSlot();
  slots_[index].owner = queue;
  return MakeHandle(index, slots_[index].generation);
}

bool MessageRegistry::Destroy(HWND window) {
  Guard guard(lock_);
  Slot* slot = Find(window);
  if (slot == nullptr || slot->owner != OwnQueue()) return false;
  slot->owner->Remove({window});
  slot->owner = nullptr;
  ++slot->generation;
  free_slots_.push_back(static_cast<std::size_t>(slot - slots_.data()));
  return true;
}

bool MessageRegistry::Exists(HWND window) {
  Guard guard(lock_);
  return Find(window) != nullptr;
}

bool MessageRegistry::BelongsToThisThread(HWND window) {
  Guard guard(lock_);
  const Slot* slot = Find(window);
  return slot != nullptr && slot->owner == OwnQueue();
}

bool MessageRegistry::Post(const tagWINDOWMESSAGE& message) {
  Guard guard(lock_);
  Slot* slot = Find(message.hwnd);
  if (slot == nullptr || slot->owner->messages.size() >= kMostMessages) return false;
  slot->owner->messages.push_back(message);
  slot->owner->ShowState();
  slot->owner->arrived.Set();
  return true;
}

bool MessageRegistry::Peek(const MessageFilter& filter, bool remove, tagWINDOWMESSAGE* found) {
  Guard guard(lock_);
  Queue* queue = OwnQueue();
  if (queue == nullptr) return false;
  const auto end = queue->messages.end();
  const auto place = std::find_if(queue->messages.begin(), end,
                                  [&](const tagWINDOWMESSAGE& each) { return filter.Fits(each); });
  if (place == end) return false;
  if (found != nullptr) *found = *place;
  if (!remove) return true;
  queue->messages.erase(place);
  queue->ShowState();
  return true;
}

bool MessageRegistry::Get(const MessageFilter& filter, platform::Deadline deadline,
                          tagWINDOWMESSAGE* found) {
  if (filter.window != nullptr && !BelongsToThisThread(filter.window)) return false;
  Queue* queue = nullptr;
  {
    Guard guard(lock_);
    queue = MakeOwnQueue();
  }
  while (!Peek(filter, true, found)) {
    if (queue == nullptr || !queue->arrived.Wait(deadline)) return false;
  }
  return true;
}

void MessageRegistry::RemoveAll(const MessageFilter& filter) {
  Guard guard(lock_);
  if (Queue* queue = OwnQueue()) queue->Remove(filter);
}

int MessageRegistry::Descriptor() {
  Guard guard(lock_);
  Queue* queue = MakeOwnQueue();
  if (queue == nullptr || !queue->wake.Open()) return -1;
  queue->ShowState();
  return queue->wake.Get();
}

}  // namespace qvx::delaymsg
