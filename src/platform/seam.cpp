#include "platform/seam.h"

#include <algorithm>
#include <cerrno>

namespace qvx::platform {

namespace detail {
std::atomic<SeamHook> seam_hook{nullptr};
}

void SetSeamHook(SeamHook hook) noexcept {
  detail::seam_hook.store(hook, std::memory_order_release);
}

bool SeamFails(Operation operation) noexcept {
  std::size_t size = SIZE_MAX;
  return SeamFailsOrShortens(operation, size);
}

bool SeamFailsOrShortens(Operation operation, std::size_t& size) noexcept {
  const SeamCall call = AskSeam(operation);
  if (call.error != 0) {
    errno = call.error;
    return true;
  }
  if (call.limit < size) size = std::max<std::size_t>(call.limit, 1);
  return false;
}

}  // namespace qvx::platform
