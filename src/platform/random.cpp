#include "platform/random.h"

#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <vector>

namespace qvx::platform {

namespace {

struct Draw {
  std::uint32_t kind;
  std::uint32_t value;
};

// Used where the system call is forbidden: no two processes share a number and a time.
std::uint64_t WeakRandom() {
  static std::atomic<std::uint64_t> counter{0};
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  std::uint64_t mix = static_cast<std::uint64_t>(now.tv_nsec) ^
                      static_cast<std::uint64_t>(now.tv_sec) << 30 ^
                      static_cast<std::uint64_t>(getpid()) << 40;
  mix += counter.fetch_add(0x9E3779B97F4A7C15u, std::memory_order_relaxed);
  mix = (mix ^ mix >> 30) * 0xBF58476D1CE4E5B9u;
  mix = (mix ^ mix >> 27) * 0x94D049BB133111EBu;
  return mix ^ mix >> 31;
}

void FillRandom(std::vector<Draw>& draws) {
  auto* bytes = reinterpret_cast<unsigned char*>(draws.data());
  std::size_t left = draws.size() * sizeof(Draw);
  while (left > 0) {
    const ssize_t got = getrandom(bytes, left, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    bytes += got;
    left -= static_cast<std::size_t>(got);
  }
  for (; left > 0; --left) *bytes++ = static_cast<unsigned char>(WeakRandom());
}

char NameCharacter(const Draw& draw) {
  const std::uint32_t kind = draw.kind % 7;
  if (kind < 3) return static_cast<char>('a' + draw.value % 26);
  if (kind < 6) return static_cast<char>('A' + draw.value % 26);
  return static_cast<char>('0' + draw.value % 10);
}

}  // namespace

std::string RandomName(std::size_t count) {
  std::vector<Draw> draws(count);
  FillRandom(draws);
  std::string name;
  name.reserve(count);
  for (const Draw& draw : draws) name += NameCharacter(draw);
  return name;
}

}  // namespace qvx::platform
