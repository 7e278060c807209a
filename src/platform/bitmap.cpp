#include "platform/bitmap.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "platform/fork.h"
#include "platform/lock.h"
#include "platform/seam.h"

namespace qvx::platform {
namespace {

struct FreeBlock {
  void operator()(unsigned char* block) const { std::free(block); }
};
using Block = std::unique_ptr<unsigned char, FreeBlock>;

// All zero, and of a size that takes no memory before it is written to.
Block MakeBlock(std::size_t size) {
  if (SeamFails(Operation::kAllocate)) return nullptr;
  return Block(static_cast<unsigned char*>(std::calloc(size, 1)));
}

struct Bitmap {
  std::vector<unsigned char> info;
  Block pixels;
  std::size_t pixel_size = 0;
};

struct Slot {
  std::uint32_t generation = 1;
  Bitmap bitmap;  // without pixels while the slot is free
};

class BitmapRegistry {
 public:
  static BitmapRegistry& Instance() {
    static BitmapRegistry registry;
    return registry;
  }

  HBITMAP Add(Bitmap bitmap) {
    const std::lock_guard guard(lock_);
    const std::size_t index = TakeSlot();
    slots_[index].bitmap = std::move(bitmap);
    return reinterpret_cast<HBITMAP>(std::uint64_t{slots_[index].generation} << 32 | (index + 1));
  }

  bool Find(HBITMAP handle, BitmapBlocks& blocks) {
    const std::lock_guard guard(lock_);
    const Slot* slot = SlotOf(handle);
    if (slot == nullptr) return false;
    const Bitmap& bitmap = slot->bitmap;
    blocks = {bitmap.info, {bitmap.pixels.get(), bitmap.pixel_size}};
    return true;
  }

  bool Remove(HBITMAP handle) {
    const std::lock_guard guard(lock_);
    Slot* slot = SlotOf(handle);
    if (slot == nullptr) return false;
    slot->bitmap = Bitmap();
    ++slot->generation;
    free_slots_.push_back(static_cast<std::size_t>(slot - slots_.data()));
    return true;
  }

 private:
  BitmapRegistry() : fork_guard_(&lock_) {}

  std::size_t TakeSlot() {
    if (free_slots_.empty()) {
      MakeRoom();
      slots_.emplace_back();
      return slots_.size() - 1;
    }
    const std::size_t index = free_slots_.back();
    free_slots_.pop_back();
    return index;
  }

  // Also in the list of free places, so that freeing never needs memory.
  void MakeRoom() {
    if (slots_.size() < slots_.capacity()) return;
    const std::size_t room = std::max<std::size_t>(16, slots_.size() * 2);
    free_slots_.reserve(room);
    slots_.reserve(room);
  }

  Slot* SlotOf(HBITMAP handle) {
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    const std::size_t index = (value & UINT32_MAX) - 1;
    if (index >= slots_.size() || slots_[index].bitmap.pixels == nullptr) return nullptr;
    return slots_[index].generation == value >> 32 ? &slots_[index] : nullptr;
  }

  RecursiveLock lock_;
  std::vector<Slot> slots_;
  std::vector<std::size_t> free_slots_;
  ForkGuard fork_guard_;
};

}  // namespace

HBITMAP MakeBitmap(std::span<const unsigned char> info, std::size_t pixel_size) noexcept {
  try {
    Bitmap bitmap;
    bitmap.info.assign(info.begin(), info.end());
    bitmap.pixels = MakeBlock(pixel_size);
    bitmap.pixel_size = pixel_size;
    return bitmap.pixels == nullptr ? nullptr : BitmapRegistry::Instance().Add(std::move(bitmap));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

bool LookIntoBitmap(HBITMAP bitmap, BitmapBlocks& blocks) noexcept {
  return BitmapRegistry::Instance().Find(bitmap, blocks);
}

bool FreeBitmap(HBITMAP bitmap) noexcept {
  return BitmapRegistry::Instance().Remove(bitmap);
}

void FillSystemPalette(unsigned char* entries, unsigned count) noexcept {
  for (unsigned i = 0; i < count; ++i, entries += 4) {
    std::fill_n(entries, 3, static_cast<unsigned char>(count > 1 ? i * 255 / (count - 1) : 0));
    entries[3] = 0;
  }
}

}  // namespace qvx::platform
