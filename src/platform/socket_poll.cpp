#include <errno.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <new>

#include "platform/clock.h"
#include "platform/seam.h"
#include "platform/socket.h"
#include "platform/socket_registry.h"

namespace qvx::platform {
namespace {

// poll with the rest of the time after an interruption.
int PollAgain(pollfd* entries, std::size_t count, int milliseconds) {
  const Deadline deadline =
      milliseconds > 0 ? DeadlineAfterMilliseconds(static_cast<std::uint64_t>(milliseconds))
                       : kNoDeadline;
  int wait = milliseconds;
  for (;;) {
    const int result = SeamFails(Operation::kPoll) ? -1 : poll(entries, count, wait);
    if (result >= 0 || errno != EINTR) return result;
    if (milliseconds > 0) wait = PollMilliseconds(deadline);
  }
}

// The entries of one poll, without an allocation for a few.
class Entries {
 public:
  explicit Entries(std::size_t count) {
    if (count <= few_.size()) return;
    many_.reset(new (std::nothrow) pollfd[count]);
    good_ = many_ != nullptr;
  }

  bool Good() const { return good_; }
  pollfd* Data() { return many_ ? many_.get() : few_.data(); }

 private:
  std::array<pollfd, 8> few_;
  std::unique_ptr<pollfd[]> many_;
  bool good_ = true;
};

std::uint16_t Translate(SocketValue socket, bool shut, std::uint32_t native) {
  if ((native & POLLNVAL) != 0) return kPollInvalid;
  std::uint16_t happened = 0;
  if ((native & POLLOUT) != 0) happened |= kPollWrite;
  if ((native & POLLERR) != 0) happened |= kPollError;
  const bool closed = (native & (POLLHUP | POLLRDHUP)) != 0;
  const bool ended = closed || (native & POLLERR) != 0;
  if (shut && ended) return happened | kPollHangUp;
  const bool left = ended ? PendingBytes(socket) > 0 : (native & POLLIN) != 0;
  if (left) return happened | kPollRead;
  return closed ? happened | kPollHangUp : happened;
}

// Fills in what happened, lets go of the descriptors and counts.
int Finish(PollItem* items, std::size_t count, const pollfd* entries, std::uint32_t generation) {
  int told = 0;
  for (std::size_t i = 0; i < count; ++i) {
    PollItem& item = items[i];
    if (entries[i].fd < 0) {
      item.happened = kPollInvalid;
    } else {
      const auto native =
          static_cast<std::uint32_t>(static_cast<unsigned short>(entries[i].revents));
      item.happened = native == 0 ? 0 : Translate(item.socket, IsSocketShut(item.socket), native);
      ReleaseSocket(item.socket, generation);
    }
    if (item.happened != 0) ++told;
  }
  return told;
}

// False if an item is stale, so that there is no use in waiting.
bool Prepare(const PollItem* items, std::size_t count, pollfd* entries, std::uint32_t* generation) {
  bool all_open = true;
  for (std::size_t i = 0; i < count; ++i) {
    entries[i].fd = AcquireSocket(items[i].socket, generation);
    entries[i].events = static_cast<short>(NativeWanted(items[i].wanted));
    entries[i].revents = 0;
    if (entries[i].fd < 0) all_open = false;
  }
  return all_open;
}

void Abandon(const PollItem* items, std::size_t count, const pollfd* entries,
             std::uint32_t generation) {
  for (std::size_t i = 0; i < count; ++i) {
    if (entries[i].fd >= 0) ReleaseSocket(items[i].socket, generation);
  }
}

}  // namespace

std::uint32_t NativeWanted(std::uint16_t wanted) noexcept {
  std::uint32_t native = 0;
  if ((wanted & kPollRead) != 0) native |= POLLIN | POLLRDHUP;
  if ((wanted & kPollWrite) != 0) native |= POLLOUT;
  return native;
}

std::uint16_t TranslateReadiness(SocketValue socket, std::uint32_t native) noexcept {
  return Translate(socket, IsSocketShut(socket), native);
}

int PollSockets(PollItem* items, std::size_t count, int milliseconds, WakeSignal* wake) noexcept {
  Entries entries(count + 1);
  if (!entries.Good()) {
    errno = ENOMEM;
    return -1;
  }
  std::uint32_t generation = 0;
  if (!Prepare(items, count, entries.Data(), &generation)) milliseconds = 0;
  pollfd& bell = entries.Data()[count];
  bell = pollfd{wake != nullptr ? wake->Descriptor() : -1, POLLIN, 0};
  if (PollAgain(entries.Data(), count + 1, milliseconds) < 0) {
    const int error = errno;
    Abandon(items, count, entries.Data(), generation);
    errno = error;
    return -1;
  }
  if (bell.revents != 0) wake->Clear();
  return Finish(items, count, entries.Data(), generation);
}

int PollSocket(SocketValue socket, std::uint16_t wanted, int milliseconds) noexcept {
  PollItem item{socket, wanted};
  const int result = PollSockets(&item, 1, milliseconds);
  return result < 0 ? -1 : item.happened;
}

WakeSignal::WakeSignal() noexcept
    : descriptor_(SeamFails(Operation::kSocket) ? -1 : eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

WakeSignal::~WakeSignal() {
  if (descriptor_ >= 0) close(descriptor_);
}

void WakeSignal::Give() noexcept {
  const std::uint64_t one = 1;
  while (write(descriptor_, &one, sizeof(one)) < 0 && errno == EINTR) {
  }
}

void WakeSignal::Clear() noexcept {
  std::uint64_t count = 0;
  while (read(descriptor_, &count, sizeof(count)) < 0 && errno == EINTR) {
  }
}

}  // namespace qvx::platform
