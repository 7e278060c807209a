#include "platform/wake_descriptor.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace qvx::platform {
namespace {

int MakeEventDescriptor(bool raised) {
  return eventfd(raised ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK);
}

}  // namespace

WakeDescriptor::~WakeDescriptor() {
  if (IsOpen()) close(descriptor_);
}

bool WakeDescriptor::Open() noexcept {
  if (!IsOpen()) descriptor_ = MakeEventDescriptor(false);
  return IsOpen();
}

void WakeDescriptor::Raise() noexcept {
  if (!IsOpen() || raised_) return;
  raised_ = eventfd_write(descriptor_, 1) == 0;
}

void WakeDescriptor::Lower() noexcept {
  if (!IsOpen() || !raised_) return;
  eventfd_t value = 0;
  eventfd_read(descriptor_, &value);
  raised_ = false;
}

void WakeDescriptor::Renew() noexcept {
  if (!IsOpen()) return;
  const int fresh = MakeEventDescriptor(raised_);
  if (fresh < 0) return;
  dup3(fresh, descriptor_, O_CLOEXEC);
  close(fresh);
}

}  // namespace qvx::platform
