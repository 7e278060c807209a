#include "support/failing_new.h"

#include <cstdlib>
#include <new>

#include "platform/seam.h"

namespace qvx::test {
namespace {

struct ThreadRule {
  int first = 0;
  int times = 0;
  int seen = 0;
};

constinit thread_local ThreadRule rule;

bool ThreadRuleFails() {
  if (rule.times == 0) return false;
  ++rule.seen;
  return rule.seen >= rule.first && rule.seen - rule.first < rule.times;
}

// From malloc, so that sanitizers and valgrind see every block.
void* Allocate(std::size_t size) noexcept {
  if (ThreadRuleFails() || platform::SeamFails(platform::Operation::kAllocate)) return nullptr;
  return std::malloc(size != 0 ? size : 1);
}

void* AllocateOrThrow(std::size_t size) {
  void* block = Allocate(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

FailingAllocations::FailingAllocations(int first, int times) {
  rule = {first, times, 0};
}

FailingAllocations::~FailingAllocations() {
  rule = {};
}

int FailingAllocations::Seen() const {
  return rule.seen;
}

}  // namespace qvx::test

using qvx::test::Allocate;
using qvx::test::AllocateOrThrow;

void* operator new(std::size_t size) {
  return AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete[](void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}
