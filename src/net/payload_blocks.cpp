#include "net/payload_blocks.h"

#include <array>
#include <atomic>
#include <cstring>

namespace qvx::net {
namespace {

constexpr std::uint32_t kSmallest = 64 * 1024;
constexpr std::uint32_t kLargest = 1024 * 1024 + 64 * 1024;
// A block must not be larger than this many times what is wanted.
constexpr std::uint32_t kWaste = 4;

// A kept block holds its room in its own first bytes.
std::uint32_t RoomOf(const unsigned char* block) {
  std::uint32_t room = 0;
  std::memcpy(&room, block, sizeof(room));
  return room;
}

class KeptBlocks {
 public:
  constexpr KeptBlocks() = default;
  ~KeptBlocks() {
    for (Slot& slot : slots_) delete[] slot.exchange(nullptr);
  }

  unsigned char* Take(std::uint32_t size) noexcept {
    for (Slot& slot : slots_) {
      unsigned char* block = slot.exchange(nullptr, std::memory_order_acquire);
      if (block == nullptr) continue;
      const std::uint32_t room = RoomOf(block);
      if (room >= size && room / kWaste <= size) return block;
      Keep(block);
    }
    return nullptr;
  }

  void Keep(unsigned char* block) noexcept {
    for (Slot& slot : slots_) {
      unsigned char* empty = nullptr;
      if (slot.compare_exchange_strong(empty, block, std::memory_order_release)) return;
    }
    delete[] block;
  }

 private:
  using Slot = std::atomic<unsigned char*>;

  std::array<Slot, 8> slots_{};
};

constinit KeptBlocks kept_blocks;

}  // namespace

unsigned char* TakePayloadBlock(std::uint32_t size, std::uint32_t* room) noexcept {
  if (size < kSmallest || size > kLargest) return nullptr;
  unsigned char* block = kept_blocks.Take(size);
  if (block != nullptr) *room = RoomOf(block);
  return block;
}

void ReleasePayloadBlock(unsigned char* block, std::uint32_t room) noexcept {
  if (block == nullptr || room < kSmallest || room > kLargest) {
    delete[] block;
    return;
  }
  std::memcpy(block, &room, sizeof(room));
  kept_blocks.Keep(block);
}

}  // namespace qvx::net
