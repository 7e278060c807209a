#include "platform/poll_set.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/seam.h"

namespace qvx::platform {
namespace {

constexpr int kMostEvents = 256;

}  // namespace

PollSet::~PollSet() {
  Close();
}

bool PollSet::Open(WakeSignal& wake) noexcept {
  Close();
  if (SeamFails(Operation::kPoll)) return false;
  descriptor_ = epoll_create1(EPOLL_CLOEXEC);
  if (descriptor_ < 0) return false;
  wake_ = &wake;
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = kNoSocket;
  return epoll_ctl(descriptor_, EPOLL_CTL_ADD, wake.Descriptor(), &event) == 0;
}

void PollSet::Close() noexcept {
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = -1;
  wake_ = nullptr;
}

bool PollSet::Control(int operation, SocketValue socket, std::uint16_t wanted) noexcept {
  const SocketUse use(socket);
  if (use.Descriptor() < 0) {
    errno = EBADF;
    return false;
  }
  epoll_event event{};
  event.events = NativeWanted(wanted);
  event.data.u64 = socket;
  return epoll_ctl(descriptor_, operation, use.Descriptor(), &event) == 0;
}

bool PollSet::Add(SocketValue socket, std::uint16_t wanted) noexcept {
  return !SeamFails(Operation::kPoll) && Control(EPOLL_CTL_ADD, socket, wanted);
}

bool PollSet::Change(SocketValue socket, std::uint16_t wanted) noexcept {
  return Control(EPOLL_CTL_MOD, socket, wanted);
}

void PollSet::Remove(SocketValue socket) noexcept {
  Control(EPOLL_CTL_DEL, socket, 0);
}

int PollSet::Wait(PollItem* items, int capacity, int milliseconds) noexcept {
  if (SeamFails(Operation::kPoll)) return -1;
  std::array<epoll_event, kMostEvents> events;
  const int most = std::min(capacity, kMostEvents);
  const int count = epoll_wait(descriptor_, events.data(), most, milliseconds);
  if (count < 0) return errno == EINTR ? 0 : -1;
  int filled = 0;
  for (int i = 0; i < count; ++i) {
    const epoll_event& event = events[static_cast<std::size_t>(i)];
    if (event.data.u64 == kNoSocket) {
      wake_->Clear();
      continue;
    }
    items[filled].socket = event.data.u64;
    items[filled].happened = TranslateReadiness(event.data.u64, event.events);
    if (items[filled].happened != 0) ++filled;
  }
  return filled;
}

}  // namespace qvx::platform
