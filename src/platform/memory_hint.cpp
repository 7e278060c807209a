#include "platform/memory_hint.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstdint>

namespace qvx::platform {
namespace {

constexpr std::size_t kWorthwhile = 4u << 20;  // two large pages
constexpr std::uintptr_t kPage = 4096;

}  // namespace

void ExpectFilling(void* block, std::size_t size) noexcept {
  if (size < kWorthwhile) return;
  const int error = errno;
  const auto address = reinterpret_cast<std::uintptr_t>(block);
  const std::uintptr_t in_front = (kPage - address % kPage) % kPage;
  const std::size_t pages = (size - in_front) / kPage;
  // A system without large pages refuses, which changes nothing.
  madvise(static_cast<char*>(block) + in_front, pages * kPage, MADV_HUGEPAGE);
  errno = error;
}

}  // namespace qvx::platform
