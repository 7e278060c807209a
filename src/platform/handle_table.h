// What stands behind the opaque handles of the public interface: ids that are never used again,
// so that a stale one is recognised and does no harm.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/lock.h"
#include "qvx/types.h"

namespace qvx::platform {

// All bits set: no handle.
inline HANDLE NoHandle() noexcept {
  return reinterpret_cast<HANDLE>(~std::uintptr_t{0});
}

// Thread-safe. Objects live until they are removed and the last user has let go.
template <typename T>
class HandleTable {
 public:
  // Throws std::bad_alloc.
  HANDLE Add(std::shared_ptr<T> object) {
    const std::lock_guard<LeafLock> guard(lock_);
    const std::uintptr_t id = last_ + kStep;
    objects_.emplace(id, std::move(object));
    last_ = id;
    return reinterpret_cast<HANDLE>(id);
  }

  // Null for a handle that is none.
  std::shared_ptr<T> Find(HANDLE handle) {
    const std::lock_guard<LeafLock> guard(lock_);
    const auto found = objects_.find(reinterpret_cast<std::uintptr_t>(handle));
    return found == objects_.end() ? nullptr : found->second;
  }

  std::shared_ptr<T> Remove(HANDLE handle) {
    const std::lock_guard<LeafLock> guard(lock_);
    const auto found = objects_.find(reinterpret_cast<std::uintptr_t>(handle));
    if (found == objects_.end()) return nullptr;
    std::shared_ptr<T> object = std::move(found->second);
    objects_.erase(found);
    return object;
  }

 private:
  static constexpr std::uintptr_t kStep = 4;

  LeafLock lock_;
  std::uintptr_t last_ = 0;
  std::map<std::uintptr_t, std::shared_ptr<T>> objects_;
};

}  // namespace qvx::platform
