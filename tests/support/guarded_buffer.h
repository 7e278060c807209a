// Memory between two pages that nothing may touch: a byte read or written before or behind a
// buffer that lies at an edge ends the test at once.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <new>

namespace qvx::test {

class GuardedBuffer {
 public:
  explicit GuardedBuffer(std::size_t capacity)
      : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
        capacity_((capacity + page_ - 1) / page_ * page_) {
    void* mapped = mmap(nullptr, capacity_ + 2 * page_, PROT_NONE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapped == MAP_FAILED) throw std::bad_alloc();
    mapped_ = static_cast<std::uint8_t*>(mapped);
    mprotect(mapped_ + page_, capacity_, PROT_READ | PROT_WRITE);
    madvise(mapped_ + page_, capacity_, MADV_HUGEPAGE);  // reading gigabytes of zeros is quick then
  }
  ~GuardedBuffer() { munmap(mapped_, capacity_ + 2 * page_); }
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;

  // A buffer of size bytes whose first byte follows the page before.
  std::uint8_t* AtStart() const { return mapped_ + page_; }
  // A buffer of size bytes whose last byte precedes the page behind.
  std::uint8_t* AtEnd(std::size_t size) const { return mapped_ + page_ + capacity_ - size; }

 private:
  std::size_t page_;
  std::size_t capacity_;
  std::uint8_t* mapped_;
};

}  // namespace qvx::test
