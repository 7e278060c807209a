#include "platform/socket_registry.h"

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <new>
#include <utility>

#include "platform/fork.h"

namespace qvx::platform {
namespace {

// One descriptor: connection count 31 bits, open, shut, inherited, fork generation 14 bits,
// uses 16 bits, from the top down. Zero means that the descriptor was never ours.
using Slot = std::atomic<std::uint64_t>;

constexpr std::uint64_t kUseMask = 0xFFFF;
constexpr int kGenerationShift = 16;
constexpr std::uint64_t kGenerationMask = 0x3FFF;
constexpr std::uint64_t kInherited = std::uint64_t{1} << 30;
constexpr std::uint64_t kShut = std::uint64_t{1} << 31;
constexpr std::uint64_t kOpen = std::uint64_t{1} << 32;
constexpr int kCountShift = 33;
constexpr std::uint32_t kMaxCount = 0x7FFFFFFF;

constexpr std::size_t kChunkSize = 4096;
constexpr std::size_t kChunks = 256;

Slot first_chunk[kChunkSize];
std::atomic<Slot*> more_chunks[kChunks];

std::uint32_t CountOfValue(SocketValue socket) {
  return static_cast<std::uint32_t>(socket >> 32);
}
std::uint32_t CountOfState(std::uint64_t state) {
  return static_cast<std::uint32_t>(state >> kCountShift);
}
bool IsPlain(SocketValue socket) {
  return CountOfValue(socket) == 0;
}

std::uint64_t CurrentGeneration() {
  return (static_cast<std::uint64_t>(ForkGeneration()) & kGenerationMask) << kGenerationShift;
}

// As the state reads in this process: what the threads of the parent used is used no more.
std::uint64_t InThisProcess(std::uint64_t state) {
  const std::uint64_t generation = CurrentGeneration();
  if ((state & (kGenerationMask << kGenerationShift)) == generation) return state;
  return (state & ~(kUseMask | (kGenerationMask << kGenerationShift))) | kInherited | generation;
}

Slot* FindSlot(int descriptor) {
  if (descriptor < 0) return nullptr;
  const auto index = static_cast<std::size_t>(descriptor);
  if (index < kChunkSize) return &first_chunk[index];
  if (index / kChunkSize >= kChunks) return nullptr;
  Slot* chunk = more_chunks[index / kChunkSize].load(std::memory_order_acquire);
  return chunk == nullptr ? nullptr : chunk + index % kChunkSize;
}

Slot* MakeSlot(int descriptor) {
  if (Slot* slot = FindSlot(descriptor)) return slot;
  const auto index = static_cast<std::size_t>(descriptor);
  if (descriptor < 0 || index / kChunkSize >= kChunks) return nullptr;
  Slot* fresh = new (std::nothrow) Slot[kChunkSize]();
  if (fresh == nullptr) return nullptr;
  Slot* expected = nullptr;
  if (!more_chunks[index / kChunkSize].compare_exchange_strong(expected, fresh)) delete[] fresh;
  return FindSlot(descriptor);
}

// The slot of a counted value and its state, if the value is still the open one.
Slot* FindOpen(SocketValue socket, std::uint64_t* state) {
  Slot* slot = FindSlot(SocketDescriptor(socket));
  if (slot == nullptr) return nullptr;
  *state = slot->load(std::memory_order_acquire);
  const bool current = CountOfState(*state) == CountOfValue(socket) && (*state & kOpen) != 0;
  return current ? slot : nullptr;
}

}  // namespace

SocketValue AdoptSocket(SocketValue socket) noexcept {
  if (socket == kNoSocket || !IsPlain(socket)) return socket;
  const int descriptor = SocketDescriptor(socket);
  Slot* slot = MakeSlot(descriptor);
  if (slot == nullptr) {
    errno = EMFILE;
    return kNoSocket;
  }
  std::uint32_t count = CountOfState(slot->load(std::memory_order_acquire)) + 1;
  if (count > kMaxCount) count = 1;
  slot->store((std::uint64_t{count} << kCountShift) | kOpen | CurrentGeneration(),
              std::memory_order_release);
  return (SocketValue{count} << 32) | static_cast<std::uint32_t>(descriptor);
}

int AcquireSocket(SocketValue socket, std::uint32_t* fork_generation) noexcept {
  *fork_generation = ForkGeneration();
  if (IsPlain(socket)) return SocketDescriptor(socket);
  std::uint64_t state = 0;
  while (Slot* slot = FindOpen(socket, &state)) {
    if (slot->compare_exchange_weak(state, InThisProcess(state) + 1)) {
      return SocketDescriptor(socket);
    }
  }
  return -1;
}

void ReleaseSocket(SocketValue socket, std::uint32_t fork_generation) noexcept {
  if (IsPlain(socket) || fork_generation != ForkGeneration()) return;
  Slot* slot = FindSlot(SocketDescriptor(socket));
  std::uint64_t state = slot->load(std::memory_order_acquire);
  do {
    // Not ours any more where a host closed the descriptor by itself and it was adopted anew.
    if (CountOfState(state) != CountOfValue(socket) || (state & kUseMask) == 0) return;
  } while (!slot->compare_exchange_weak(state, state - 1));
  if ((state & kUseMask) == 1 && (state & kOpen) == 0) close(SocketDescriptor(socket));
}

bool IsSocketShut(SocketValue socket) noexcept {
  if (IsPlain(socket)) return false;
  std::uint64_t state = 0;
  return FindOpen(socket, &state) == nullptr || (state & kShut) != 0;
}

bool IsSocketAlive(SocketValue socket) noexcept {
  if (socket == kNoSocket) return false;
  std::uint64_t state = 0;
  return IsPlain(socket) || FindOpen(socket, &state) != nullptr;
}

void ShutdownSocket(SocketValue socket) noexcept {
  SocketUse use(socket);
  if (use.Descriptor() < 0) return;
  std::uint64_t state = 0;
  while (Slot* slot = IsPlain(socket) ? nullptr : FindOpen(socket, &state)) {
    const std::uint64_t now = InThisProcess(state);
    if (!slot->compare_exchange_weak(state, now | kShut)) continue;
    if ((now & kInherited) != 0) return;
    break;
  }
  shutdown(use.Descriptor(), SHUT_RDWR);
}

void CloseSocket(SocketValue socket) noexcept {
  if (socket == kNoSocket) return;
  if (IsPlain(socket)) {
    close(SocketDescriptor(socket));
    return;
  }
  std::uint64_t state = 0;
  while (Slot* slot = FindOpen(socket, &state)) {
    const std::uint64_t closed = InThisProcess(state) & ~kOpen;
    if (!slot->compare_exchange_weak(state, closed)) continue;
    if ((closed & kUseMask) == 0) close(SocketDescriptor(socket));
    return;
  }
}

SocketUse::SocketUse(SocketValue socket) noexcept
    : socket_(socket), descriptor_(AcquireSocket(socket, &fork_generation_)) {}

SocketUse::SocketUse(SocketUse&& other) noexcept
    : socket_(other.socket_),
      fork_generation_(other.fork_generation_),
      descriptor_(std::exchange(other.descriptor_, -1)) {}

SocketUse::~SocketUse() {
  if (descriptor_ >= 0) ReleaseSocket(socket_, fork_generation_);
}

bool SocketUse::IsShut() const noexcept {
  return descriptor_ >= 0 && IsSocketShut(socket_);
}

}  // namespace qvx::platform
